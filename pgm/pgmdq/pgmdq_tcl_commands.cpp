#include "pgmdq_msgs.h"

#include "pgmdq_tcl_commands.h"

#include "pgmdq_miscellaneous_files.h"

#include "gen.h"
#include "vui.h"

#include <QApplication>
#include <QFile>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <utility>

namespace {

struct OPTION_WORD {
    int option;
    const char* word;
    const char* value_name; // null for a switch
};

const OPTION_WORD OPTION_WORDS[] = {
    {PGMDQ_TCL_OPTION_BATCH, "batch", "FILE"},
    {PGMDQ_TCL_OPTION_BENCH_CABLE, "bench-cable", "NAME"},
    {PGMDQ_TCL_OPTION_DUT_CABLE, "dut-cable", "NAME"},
    {PGMDQ_TCL_OPTION_SKIP_FLASH, "skip-flash", nullptr},
    {PGMDQ_TCL_OPTION_SKIP_ENGINE, "skip-engine", nullptr},
    {PGMDQ_TCL_OPTION_LOG, "log", "FILE"},
    {PGMDQ_TCL_OPTION_JUNIT, "junit", "FILE"},
    {PGMDQ_TCL_OPTION_USER, "user", "NAME"},
    {PGMDQ_TCL_OPTION_PASSWORD_ENV, "password-env", "VAR"},
    {PGMDQ_TCL_OPTION_FAMILY, "family", "F"},
    {PGMDQ_TCL_OPTION_DIE, "die", "D"},
    {PGMDQ_TCL_OPTION_DIRECTORY, "directory", "DIR"},
    {PGMDQ_TCL_OPTION_RECURSIVE, "recursive", nullptr},
    {PGMDQ_TCL_OPTION_SKIP_IMG, "skip-img", nullptr},
    {PGMDQ_TCL_OPTION_SKIP_DAT, "skip-dat", nullptr},
    {PGMDQ_TCL_OPTION_SKIP_ICD_RBF, "skip-icd-rbf", nullptr},
    {PGMDQ_TCL_OPTION_DEBUG_FILE, "debug-file", nullptr},
    {PGMDQ_TCL_OPTION_SITE, "site", "nv|rk"},
    {PGMDQ_TCL_OPTION_MAIL, "mail", nullptr},
    {PGMDQ_TCL_OPTION_CABLE, "cable", "NAME"},
    {PGMDQ_TCL_OPTION_DEVICE, "device", "N"},
    {PGMDQ_TCL_OPTION_RESET, "reset", nullptr},
    {PGMDQ_TCL_OPTION_WVF, "wvf", "FILE"},
    {PGMDQ_TCL_OPTION_VCD, "vcd", "FILE"},
};

const PGMDQ_TCL_ARGUMENT KIOPRU_RUN_ARGUMENTS[] = {
    {PGMDQ_TCL_OPTION_BATCH, PGMDQ_TCL_REQUIRED | PGMDQ_TCL_FILE_TO_READ, "a batch saved by \"Save msg\""},
    {PGMDQ_TCL_OPTION_BENCH_CABLE, PGMDQ_TCL_REQUIRED, "the test-bench JTAG hardware"},
    {PGMDQ_TCL_OPTION_DUT_CABLE, PGMDQ_TCL_REQUIRED, "the DUT JTAG hardware"},
    {PGMDQ_TCL_OPTION_SKIP_FLASH, PGMDQ_TCL_OPTIONAL, "skip flash programming / verification"},
    {PGMDQ_TCL_OPTION_SKIP_ENGINE, PGMDQ_TCL_OPTIONAL, "write the raw file only; every test is skipped"},
    {PGMDQ_TCL_OPTION_LOG, PGMDQ_TCL_OPTIONAL, "write the log lines to FILE"},
    {PGMDQ_TCL_OPTION_JUNIT, PGMDQ_TCL_OPTIONAL, "write the results as JUnit XML to FILE"},
    {0, 0, nullptr},
};

const PGMDQ_TCL_ARGUMENT POF_CHECK_ARGUMENTS[] = {
    {PGMDQ_TCL_OPTION_USER, PGMDQ_TCL_REQUIRED, "the account on the build hosts"},
    {PGMDQ_TCL_OPTION_PASSWORD_ENV, PGMDQ_TCL_REQUIRED, "the environment variable that holds its password"},
    {PGMDQ_TCL_OPTION_FAMILY, PGMDQ_TCL_OPTIONAL, "with -die: check that die only"},
    {PGMDQ_TCL_OPTION_DIE, PGMDQ_TCL_OPTIONAL, "with -family: check that die only"},
    {PGMDQ_TCL_OPTION_DIRECTORY, PGMDQ_TCL_OPTIONAL, "with -family and -die: a personal test of DIR below the data root"},
    {PGMDQ_TCL_OPTION_RECURSIVE, PGMDQ_TCL_OPTIONAL, "check each sub-directory of -directory"},
    {PGMDQ_TCL_OPTION_SKIP_IMG, PGMDQ_TCL_OPTIONAL, "skip IMG generation (personal test)"},
    {PGMDQ_TCL_OPTION_SKIP_DAT, PGMDQ_TCL_OPTIONAL, "skip DAT generation (personal test)"},
    {PGMDQ_TCL_OPTION_SKIP_ICD_RBF, PGMDQ_TCL_OPTIONAL, "skip ICD RBF generation (personal test)"},
    {PGMDQ_TCL_OPTION_DEBUG_FILE, PGMDQ_TCL_OPTIONAL, "write the per-frame debug files"},
    {PGMDQ_TCL_OPTION_SITE, PGMDQ_TCL_OPTIONAL, "the test site (default rk)"},
    {PGMDQ_TCL_OPTION_LOG, PGMDQ_TCL_OPTIONAL, "write the log lines to FILE"},
    {PGMDQ_TCL_OPTION_JUNIT, PGMDQ_TCL_OPTIONAL, "write the results as JUnit XML to FILE"},
    {PGMDQ_TCL_OPTION_MAIL, PGMDQ_TCL_OPTIONAL, "mail the log to the bench team"},
    {0, 0, nullptr},
};

const PGMDQ_TCL_ARGUMENT CAPTURE_ARGUMENTS[] = {
    {PGMDQ_TCL_OPTION_CABLE, PGMDQ_TCL_REQUIRED, "the JTAG hardware of the device"},
    {PGMDQ_TCL_OPTION_DEVICE, PGMDQ_TCL_OPTIONAL, "the device's place on the chain, from 1 (default 1)"},
    {PGMDQ_TCL_OPTION_RESET, PGMDQ_TCL_OPTIONAL, "reset the trace first, as \"Reset\" does"},
    {PGMDQ_TCL_OPTION_WVF, PGMDQ_TCL_OPTIONAL, "save the trace to FILE as \"Save\" does"},
    {PGMDQ_TCL_OPTION_VCD, PGMDQ_TCL_OPTIONAL, "export the trace to FILE as \"Export VCD...\" does"},
    {0, 0, nullptr},
};

const PGMDQ_TCL_ARGUMENT USEDW_ARGUMENTS[] = {
    {PGMDQ_TCL_OPTION_CABLE, PGMDQ_TCL_REQUIRED, "the JTAG hardware of the device"},
    {PGMDQ_TCL_OPTION_DEVICE, PGMDQ_TCL_OPTIONAL, "the device's place on the chain, from 1 (default 1)"},
    {0, 0, nullptr},
};

const PGMDQ_TCL_COMMAND PGMDQ_TCL_COMMANDS[] = {
    {"kiopru_run", "Runs every test command of a saved Kiopru batch on the bench.", KIOPRU_RUN_ARGUMENTS,
     pgmdq_kiopru_run},
    {"pof_check", "Checks a release's designs (every ready family, one die or one directory).", POF_CHECK_ARGUMENTS,
     pgmdq_pof_check},
    {"capture", "Captures the debug IP's trace memory of a device, as the waveform viewer's \"Start\" does.",
     CAPTURE_ARGUMENTS, pgmdq_capture},
    {"usedw", "Reads the fill level of the debug IP's trace memory, as \"Read USEDW\" does.", USEDW_ARGUMENTS,
     pgmdq_usedw},
};

const char* const TOTALS_VARIABLE = "::vexmoor::pgmdq::totals";
// Indexed by PGMDQ_JUNIT_CASE::OUTCOME.
const char* const COUNT_KEYS[] = {"passed", "failed", "skipped"};
typedef std::array<unsigned, std::size(COUNT_KEYS)> COUNTS;

const OPTION_WORD* find_option_word(int option)
{
    for (const OPTION_WORD& word : OPTION_WORDS)
        if (word.option == option)
            return &word;
    return nullptr;
}

// The help words as for every command of the package, then the options' own words, exactly.
int option_by_word(const char* word)
{
    const int help = pgmdq_auto_get_frame_dummy_argument_enum_by_string(word);
    if (help >= PGMDQ_AUTO_ARGUMENT_H && help <= PGMDQ_AUTO_ARGUMENT_LONG_HELP)
        return help;
    for (const OPTION_WORD& option : OPTION_WORDS)
        if (word && !std::strcmp(word, option.word))
            return option.option;
    return PGMDQ_AUTO_ARGUMENT_NONE;
}

const char* word_of_option(int option)
{
    if (option <= PGMDQ_AUTO_ARGUMENT_LONG_HELP)
        return pgmdq_auto_get_string_by_argument_enum(PGMDQ_AUTO_ARGUMENT_ENUM(option));
    const OPTION_WORD* word = find_option_word(option);
    if (!word)
        PGMDQ_INTERNAL_ERROR("The calling function has passed an illegal PGMDQ_TCL_OPTION");
    return word->word;
}

// "-batch FILE", "-skip-flash".
std::string option_usage(const OPTION_WORD& word)
{
    return std::string("-") + word.word + (word.value_name ? std::string(" ") + word.value_name : "");
}

// The binding's view of a command, made from its row on first use.
class COMMAND_OBJECTS {
public:
    explicit COMMAND_OBJECTS(const PGMDQ_TCL_COMMAND& row) : m_long_help("Arguments:")
    {
        for (const PGMDQ_TCL_ARGUMENT* argument = row.arguments; argument->option; ++argument) {
            const OPTION_WORD* word = find_option_word(argument->option);
            PGMDQ_ASSERT(word != NULL);
            m_arguments.push_back({argument->option, word->value_name != nullptr, argument->description});
            m_long_help += "\n  " + option_usage(*word) + (argument->flags & PGMDQ_TCL_REQUIRED ? " (required)" : "") +
                           ": " + argument->description;
        }
        m_arguments.push_back({0, 0, nullptr});
        m_definition = {PGMDQ_AUTO_SHORT_PKG_PGMDQ, row.name, word_of_option, option_by_word, row.short_help,
                        m_long_help.c_str(), m_arguments.data(), nullptr, nullptr};
        m_command = std::make_unique<TTCL_CMD>(&m_definition);
    }
    TTCL_CMD* command() const { return m_command.get(); }

private:
    std::string m_long_help;
    std::vector<TTCL_ARG_DEFINITION> m_arguments;
    TTCL_CMD_DEFINITION m_definition;
    std::unique_ptr<TTCL_CMD> m_command;
};

TTCL_CMD* command_of(const PGMDQ_TCL_COMMAND& row)
{
    static std::vector<std::unique_ptr<COMMAND_OBJECTS>> objects(std::size(PGMDQ_TCL_COMMANDS));
    std::unique_ptr<COMMAND_OBJECTS>& slot = objects[size_t(&row - PGMDQ_TCL_COMMANDS)];
    if (!slot)
        slot = std::make_unique<COMMAND_OBJECTS>(row);
    return slot->command();
}

bool cannot_read(const std::string& path, std::string* reason)
{
    QFile file(pgmdq_from_local8(path));
    if (file.open(QIODevice::ReadOnly))
        return false;
    *reason = pgmdq_local8(file.errorString());
    return true;
}

bool check_arguments(const PGMDQ_TCL_COMMAND& row, const TTCL_ARGS& args, std::string* error)
{
    for (const PGMDQ_TCL_ARGUMENT* argument = row.arguments; argument->option; ++argument) {
        const OPTION_WORD& word = *find_option_word(argument->option);
        std::string reason;
        if ((argument->flags & PGMDQ_TCL_REQUIRED) && !args.is_set(argument->option))
            *error = option_usage(word) + " is required";
        else if ((argument->flags & PGMDQ_TCL_FILE_TO_READ) && args.is_set(argument->option) &&
                 cannot_read(args.value(argument->option), &reason))
            *error = "cannot read -" + std::string(word.word) + " \"" + args.value(argument->option) + "\": " + reason;
        if (!error->empty())
            return false;
    }
    return true;
}

// A stock tclsh has no Qt application, and the panels need one: the first command makes it, and
// Tcl's exit (or the library's unload) ends it.
class TCLSH_APPLICATION {
public:
    static void ensure() { instance().make(); }
    ~TCLSH_APPLICATION()
    {
        if (m_application)
            Tcl_DeleteExitHandler(end, this);
    }

private:
    static TCLSH_APPLICATION& instance()
    {
        static TCLSH_APPLICATION application;
        return application;
    }
    void make()
    {
        if (QCoreApplication::instance())
            return;
        vui_use_offscreen_without_display();
        m_application = std::make_unique<QApplication>(m_argc, m_argv);
        Tcl_CreateExitHandler(end, this);
    }
    static void end(ClientData self) { static_cast<TCLSH_APPLICATION*>(self)->m_application.reset(); }

    int m_argc = 1;
    char m_name[6] = "tclsh";
    char* m_argv[2] = {m_name, nullptr};
    std::unique_ptr<QApplication> m_application;
};

// Outside the host nobody has named the site's settings; the environment may, as the host does
// for the commands it runs.
bool load_site_settings(std::string* error)
{
    const std::string path = qEnvironmentVariable("PGMDQ_SITE_SETTINGS").toStdString();
    if (!gen_settings_path().empty() || path.empty())
        return true;
    std::string reason;
    if (cannot_read(path, &reason)) {
        *error = "cannot read the settings file \"" + path + "\" (PGMDQ_SITE_SETTINGS): " + reason;
        return false;
    }
    gen_load_settings(path);
    return true;
}

COUNTS counts_of(const PGMDQ_TCL_RESULT& result)
{
    COUNTS counts{};
    for (const PGMDQ_JUNIT_SUITE& suite : result.suites)
        for (unsigned outcome = 0; outcome < counts.size(); ++outcome)
            counts[outcome] += suite.count(PGMDQ_JUNIT_CASE::OUTCOME(outcome));
    return counts;
}

Tcl_Obj* new_string(const std::string& text)
{
    return Tcl_NewStringObj(text.c_str(), int(text.size()));
}

Tcl_Obj* counts_dict(const COUNTS& counts)
{
    Tcl_Obj* dict = Tcl_NewDictObj();
    for (unsigned outcome = 0; outcome < counts.size(); ++outcome)
        Tcl_DictObjPut(nullptr, dict, new_string(COUNT_KEYS[outcome]), Tcl_NewWideIntObj(counts[outcome]));
    return dict;
}

Tcl_Obj* result_dict(const COUNTS& counts, const std::vector<std::string>& log)
{
    Tcl_Obj* dict = counts_dict(counts);
    Tcl_Obj* lines = Tcl_NewListObj(0, nullptr);
    for (const std::string& line : log)
        Tcl_ListObjAppendElement(nullptr, lines, new_string(line));
    Tcl_DictObjPut(nullptr, dict, new_string("log"), lines);
    return dict;
}

// The interpreter's totals over every command run so far; a script's runner reads them.
void add_to_totals(Tcl_Interp* interp, const COUNTS& counts)
{
    COUNTS totals = counts;
    for (unsigned outcome = 0; outcome < totals.size(); ++outcome)
        totals[outcome] += unsigned(ttcl_dict_integer(interp, TOTALS_VARIABLE, COUNT_KEYS[outcome]));
    Tcl_SetVar2Ex(interp, TOTALS_VARIABLE, nullptr, counts_dict(totals), TCL_GLOBAL_ONLY);
}

std::string summary(const COUNTS& counts)
{
    std::string text;
    for (unsigned outcome = 0; outcome < counts.size(); ++outcome)
        text += (outcome ? ", " : "") + std::to_string(counts[outcome]) + " " + COUNT_KEYS[outcome];
    return text;
}

bool write_outputs(const TTCL_ARGS& args, const PGMDQ_TCL_RESULT& result, std::string* error)
{
    QByteArray log;
    for (const std::string& line : result.log)
        log += QByteArray::fromStdString(line) + '\n';
    if (args.is_set(PGMDQ_TCL_OPTION_LOG) && !pgmdq_save_file(args.value(PGMDQ_TCL_OPTION_LOG), log))
        *error = "cannot write the log file \"" + args.value(PGMDQ_TCL_OPTION_LOG) + "\"";
    else if (args.is_set(PGMDQ_TCL_OPTION_JUNIT) &&
             !pgmdq_save_junit(args.value(PGMDQ_TCL_OPTION_JUNIT), result.suites))
        *error = "cannot write the JUnit file \"" + args.value(PGMDQ_TCL_OPTION_JUNIT) + "\"";
    return error->empty();
}

int tcl_error(Tcl_Interp* interp, const PGMDQ_TCL_COMMAND& row, const std::string& error)
{
    Tcl_SetObjResult(interp, new_string(row.name + std::string(": ") + error));
    return TCL_ERROR;
}

void post_progress(const PGMDQ_TCL_COMMAND& row, const std::string& text)
{
    msg_post(MSG_PGMDQ::I::PGMDQ_COMMON_MSG(row.name + std::string(": ") + text));
}

int run_command(const PGMDQ_TCL_COMMAND& row, Tcl_Interp* interp, int count, const char** objects)
{
    TTCL_ARGS args;
    bool help_shown = false;
    const int parsed = TTCL_ARGS::process_tcl_command_arguments(&args, command_of(row), &help_shown, count, objects);
    if (parsed != TCL_OK || help_shown)
        return parsed;
    std::string error;
    if (!check_arguments(row, args, &error) || !load_site_settings(&error))
        return tcl_error(interp, row, error);
    TCLSH_APPLICATION::ensure();
    PGMDQ_TCL_RESULT result;
    if (!row.run(args, &result, &error))
        return tcl_error(interp, row, error);
    const COUNTS counts = counts_of(result);
    add_to_totals(interp, counts);
    post_progress(row, summary(counts));
    if (!write_outputs(args, result, &error))
        return tcl_error(interp, row, error);
    Tcl_SetObjResult(interp, result_dict(counts, result.log));
    return TCL_OK;
}

template <std::size_t INDEX> int command_procedure(ClientData, Tcl_Interp* interp, int count, const char** objects)
{
    return run_command(PGMDQ_TCL_COMMANDS[INDEX], interp, count, objects);
}

template <std::size_t... INDICES> std::vector<TTCL_CALLBACK> callbacks_of(std::index_sequence<INDICES...>)
{
    return {{command_procedure<INDICES>, PGMDQ_TCL_COMMANDS[INDICES].name}..., {nullptr, nullptr}};
}

} // namespace

bool pgmdq_tcl_hardware_handle(PGMD_CM_BENCH& bench, const std::string& name, unsigned* handle, std::string* error)
{
    const std::vector<std::string> cables = pgmd_cm_list_hardware(bench);
    const auto cable = std::find(cables.begin(), cables.end(), name);
    if (cable != cables.end()) {
        *handle = unsigned(cable - cables.begin()) + 1;
        return true;
    }
    std::string known;
    for (const std::string& other : cables)
        known += (known.empty() ? "" : ", ") + other;
    *error = "no JTAG hardware named \"" + name + "\" (the bench has " + known + ")";
    return false;
}

const TTCL_CALLBACK* pgmdq_tcl_command_callbacks()
{
    static const std::vector<TTCL_CALLBACK> callbacks =
        callbacks_of(std::make_index_sequence<std::size(PGMDQ_TCL_COMMANDS)>());
    return callbacks.data();
}
