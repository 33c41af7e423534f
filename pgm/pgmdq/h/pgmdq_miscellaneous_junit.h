// JUnit XML results of unattended runs, shared by the panels: one test suite per batch (or per
// die), one test case per test command (or design).
#pragma once

#include <QByteArray>

#include <string>
#include <vector>

struct PGMDQ_JUNIT_CASE {
    enum OUTCOME { PASSED, FAILED, SKIPPED };

    std::string name;
    OUTCOME outcome = PASSED;
    std::string message;            // what failed, or why the case was skipped
    std::vector<std::string> lines; // the log lines of the case
    double seconds = -1;            // negative: the case was not timed on its own
};

struct PGMDQ_JUNIT_SUITE {
    std::string name;
    double seconds = 0;
    std::vector<PGMDQ_JUNIT_CASE> cases;

    unsigned count(PGMDQ_JUNIT_CASE::OUTCOME outcome) const;
};

// The suites as a JUnit XML document (UTF-8; the strings are in the local 8-bit encoding).
QByteArray pgmdq_junit_xml(const std::vector<PGMDQ_JUNIT_SUITE>& suites);
// Writes the document whole or not at all; a failure is told to the user.
bool pgmdq_save_junit(const std::string& path, const std::vector<PGMDQ_JUNIT_SUITE>& suites);
