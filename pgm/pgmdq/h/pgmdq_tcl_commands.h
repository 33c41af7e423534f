// The package's commands for unattended runs. Each is one row of a table: its name, its options
// (which are required, which name a file to read) and the function that runs it through its
// panel. The table's framework parses and checks the arguments, answers Tcl with a result dict
// (passed, failed and skipped counts and the log lines), writes the -log and -junit files, keeps
// the interpreter's totals in ::vexmoor::pgmdq::totals and turns every failure to run into a
// one-line Tcl error.
#pragma once

#include "pgmdq_miscellaneous_junit.h"
#include "pgmdq_tcl_args_auto.h"

#include "pgmd_cm.h"

#include <string>
#include <vector>

// The commands' option words, numbered after the binding's help words.
enum PGMDQ_TCL_OPTION {
    PGMDQ_TCL_OPTION_BATCH = PGMDQ_AUTO_ARGUMENT_END + 1,
    PGMDQ_TCL_OPTION_BENCH_CABLE,
    PGMDQ_TCL_OPTION_DUT_CABLE,
    PGMDQ_TCL_OPTION_SKIP_FLASH,
    PGMDQ_TCL_OPTION_SKIP_ENGINE,
    PGMDQ_TCL_OPTION_LOG,
    PGMDQ_TCL_OPTION_JUNIT,
    PGMDQ_TCL_OPTION_USER,
    PGMDQ_TCL_OPTION_PASSWORD_ENV,
    PGMDQ_TCL_OPTION_FAMILY,
    PGMDQ_TCL_OPTION_DIE,
    PGMDQ_TCL_OPTION_DIRECTORY,
    PGMDQ_TCL_OPTION_RECURSIVE,
    PGMDQ_TCL_OPTION_SKIP_IMG,
    PGMDQ_TCL_OPTION_SKIP_DAT,
    PGMDQ_TCL_OPTION_SKIP_ICD_RBF,
    PGMDQ_TCL_OPTION_DEBUG_FILE,
    PGMDQ_TCL_OPTION_SITE,
    PGMDQ_TCL_OPTION_MAIL,
    PGMDQ_TCL_OPTION_CABLE,
    PGMDQ_TCL_OPTION_DEVICE,
    PGMDQ_TCL_OPTION_RESET,
    PGMDQ_TCL_OPTION_WVF,
    PGMDQ_TCL_OPTION_VCD,
};

enum PGMDQ_TCL_ARGUMENT_FLAG {
    PGMDQ_TCL_OPTIONAL = 0,
    PGMDQ_TCL_REQUIRED = 1,
    PGMDQ_TCL_FILE_TO_READ = 2,
};

// One option a command accepts; a list of them ends with option 0.
struct PGMDQ_TCL_ARGUMENT {
    int option;
    unsigned flags;
    const char* description;
};

// What a command reports: its test suites (the counts come from their cases) and its log lines.
struct PGMDQ_TCL_RESULT {
    std::vector<PGMDQ_JUNIT_SUITE> suites;
    std::vector<std::string> log;
};

// Runs a command whose arguments passed the checks; false with the reason (one line, without the
// command's name) when it cannot run.
typedef bool (*PGMDQ_TCL_RUN)(const TTCL_ARGS& args, PGMDQ_TCL_RESULT* result, std::string* error);

struct PGMDQ_TCL_COMMAND {
    const char* name;
    const char* short_help;
    const PGMDQ_TCL_ARGUMENT* arguments;
    PGMDQ_TCL_RUN run;
};

// The table handed to the binding by the package's init, null-terminated.
const TTCL_CALLBACK* pgmdq_tcl_command_callbacks();

// The handle of the cable a bench knows by this name (as the hardware dialog lists it); false with
// the reason, naming the bench's cables, when it has none of that name.
bool pgmdq_tcl_hardware_handle(PGMD_CM_BENCH& bench, const std::string& name, unsigned* handle, std::string* error);

// The commands' run functions, each beside its panel.
bool pgmdq_kiopru_run(const TTCL_ARGS& args, PGMDQ_TCL_RESULT* result, std::string* error);
bool pgmdq_pof_check(const TTCL_ARGS& args, PGMDQ_TCL_RESULT* result, std::string* error);
bool pgmdq_capture(const TTCL_ARGS& args, PGMDQ_TCL_RESULT* result, std::string* error);
bool pgmdq_usedw(const TTCL_ARGS& args, PGMDQ_TCL_RESULT* result, std::string* error);
