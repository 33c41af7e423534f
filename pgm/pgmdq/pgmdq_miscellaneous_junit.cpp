#include "pgmdq_msgs.h"

#include "pgmdq_miscellaneous_junit.h"

#include "pgmdq_miscellaneous_files.h"

#include <QXmlStreamWriter>

#include <algorithm>

namespace {

const char* const OUTCOME_ELEMENTS[] = {nullptr, "failure", "skipped"};

// XML 1.0 has no place for the other control characters; a stray one must not spoil the file.
QString xml_text(const std::string& text)
{
    QString converted = pgmdq_from_local8(text);
    for (QChar& c : converted)
        if (c.unicode() < 0x20 && c != '\t' && c != '\n' && c != '\r')
            c = QChar::ReplacementCharacter;
    return converted;
}

QString seconds_text(double seconds)
{
    return QString::number(seconds, 'f', 3);
}

QString joined_lines(const std::vector<std::string>& lines)
{
    QStringList converted;
    for (const std::string& line : lines)
        converted << xml_text(line);
    return converted.join('\n');
}

void write_case(QXmlStreamWriter& xml, const std::string& suite_name, const PGMDQ_JUNIT_CASE& test)
{
    xml.writeStartElement("testcase");
    xml.writeAttribute("classname", xml_text(suite_name));
    xml.writeAttribute("name", xml_text(test.name));
    if (test.seconds >= 0)
        xml.writeAttribute("time", seconds_text(test.seconds));
    if (test.outcome != PGMDQ_JUNIT_CASE::PASSED) {
        xml.writeStartElement(OUTCOME_ELEMENTS[test.outcome]);
        xml.writeAttribute("message", xml_text(test.message));
        xml.writeCharacters(joined_lines(test.lines));
        xml.writeEndElement();
    } else if (!test.lines.empty()) {
        xml.writeTextElement("system-out", joined_lines(test.lines));
    }
    xml.writeEndElement();
}

void write_counts(QXmlStreamWriter& xml, unsigned tests, unsigned failures, unsigned skipped, double seconds)
{
    xml.writeAttribute("tests", QString::number(tests));
    xml.writeAttribute("failures", QString::number(failures));
    xml.writeAttribute("errors", "0");
    xml.writeAttribute("skipped", QString::number(skipped));
    xml.writeAttribute("time", seconds_text(seconds));
}

} // namespace

unsigned PGMDQ_JUNIT_SUITE::count(PGMDQ_JUNIT_CASE::OUTCOME outcome) const
{
    return unsigned(std::count_if(cases.begin(), cases.end(),
                                  [outcome](const PGMDQ_JUNIT_CASE& test) { return test.outcome == outcome; }));
}

QByteArray pgmdq_junit_xml(const std::vector<PGMDQ_JUNIT_SUITE>& suites)
{
    unsigned tests = 0, failures = 0, skipped = 0;
    double seconds = 0;
    for (const PGMDQ_JUNIT_SUITE& suite : suites) {
        tests += unsigned(suite.cases.size());
        failures += suite.count(PGMDQ_JUNIT_CASE::FAILED);
        skipped += suite.count(PGMDQ_JUNIT_CASE::SKIPPED);
        seconds += suite.seconds;
    }
    QByteArray document;
    QXmlStreamWriter xml(&document);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement("testsuites");
    write_counts(xml, tests, failures, skipped, seconds);
    for (const PGMDQ_JUNIT_SUITE& suite : suites) {
        xml.writeStartElement("testsuite");
        xml.writeAttribute("name", xml_text(suite.name));
        write_counts(xml, unsigned(suite.cases.size()), suite.count(PGMDQ_JUNIT_CASE::FAILED),
                     suite.count(PGMDQ_JUNIT_CASE::SKIPPED), suite.seconds);
        for (const PGMDQ_JUNIT_CASE& test : suite.cases)
            write_case(xml, suite.name, test);
        xml.writeEndElement();
    }
    xml.writeEndDocument();
    return document;
}

bool pgmdq_save_junit(const std::string& path, const std::vector<PGMDQ_JUNIT_SUITE>& suites)
{
    return pgmdq_save_file(path, pgmdq_junit_xml(suites));
}
