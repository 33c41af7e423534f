#include "pgmdq_msgs.h"

#include "pgmdq_tcl_args_auto.h"

#include "pgmdq_tcl_commands.h"

const char* const PGMDQ_AUTO_LONG_PKG_PGMDQ = "::vexmoor::pgmdq";
const char* const PGMDQ_AUTO_SHORT_PKG_PGMDQ = "pgmdq";
const char* const PGMDQ_AUTO_PKG_VERSION = "1.0";

namespace {

const char* const PGMDQ_AUTO_LIBRARY_NAME = "pgm_pgmdq";
const char* const PGMDQ_AUTO_FUNCTION_PREFIX = "pgmdq_pgmdq";

const char* const PGMDQ_AUTO_SUBARG_HE = "he";
const char* const PGMDQ_AUTO_SUBARG_HEL = "hel";
const char* const PGMDQ_AUTO_SUBARG_L = "l";
const char* const PGMDQ_AUTO_SUBARG_LO = "lo";
const char* const PGMDQ_AUTO_SUBARG_LON = "lon";
const char* const PGMDQ_AUTO_SUBARG_LONG = "long";
const char* const PGMDQ_AUTO_SUBARG_LONG_ = "long_";
const char* const PGMDQ_AUTO_SUBARG_LONG_H = "long_h";
const char* const PGMDQ_AUTO_SUBARG_LONG_HE = "long_he";
const char* const PGMDQ_AUTO_SUBARG_LONG_HEL = "long_hel";

struct ABBREVIATION {
    const char* const& word;
    int value;
};

// "h" is not here: it is an exact word of its own and never abbreviates "help".
const ABBREVIATION FRAME_DUMMY_ABBREVIATIONS[] = {
    {PGMDQ_AUTO_SUBARG_HE, PGMDQ_AUTO_ARGUMENT_HELP},
    {PGMDQ_AUTO_SUBARG_HEL, PGMDQ_AUTO_ARGUMENT_HELP},
    {PGMDQ_AUTO_SUBARG_L, PGMDQ_AUTO_ARGUMENT_LONG_HELP},
    {PGMDQ_AUTO_SUBARG_LO, PGMDQ_AUTO_ARGUMENT_LONG_HELP},
    {PGMDQ_AUTO_SUBARG_LON, PGMDQ_AUTO_ARGUMENT_LONG_HELP},
    {PGMDQ_AUTO_SUBARG_LONG, PGMDQ_AUTO_ARGUMENT_LONG_HELP},
    {PGMDQ_AUTO_SUBARG_LONG_, PGMDQ_AUTO_ARGUMENT_LONG_HELP},
    {PGMDQ_AUTO_SUBARG_LONG_H, PGMDQ_AUTO_ARGUMENT_LONG_HELP},
    {PGMDQ_AUTO_SUBARG_LONG_HE, PGMDQ_AUTO_ARGUMENT_LONG_HELP},
    {PGMDQ_AUTO_SUBARG_LONG_HEL, PGMDQ_AUTO_ARGUMENT_LONG_HELP},
};

bool is_null_or_empty(const char* word)
{
    return !word || !*word;
}

int lookup(const PGMDQ_AUTO_HASH& hash, const char* word)
{
    if (is_null_or_empty(word))
        return PGMDQ_AUTO_ARGUMENT_END;
    const int* value = hash.find(word);
    return value ? *value : PGMDQ_AUTO_ARGUMENT_NONE;
}

} // namespace

const TTCL_CALLBACK pgmdq_pgmdq_tcl_callbacks[] = {
    {pgmdq_frame_dummy, "pgmdq_frame_dummy"},
    {nullptr, nullptr},
};

const TTCL_ARG_DEFINITION pgmdq_auto_frame_dummy_args_def[] = {
    {0, 0, nullptr},
};

const TTCL_CMD_DEFINITION pgmdq_auto_frame_dummy_cmd_def = {
    "pgmdq",
    "pgmdq_frame_dummy",
    [](int argument) { return pgmdq_auto_get_string_by_argument_enum(PGMDQ_AUTO_ARGUMENT_ENUM(argument)); },
    pgmdq_auto_get_frame_dummy_argument_enum_by_string,
    nullptr,
    nullptr,
    pgmdq_auto_frame_dummy_args_def,
    nullptr,
    nullptr,
};

const char* const PGMDQ_AUTO_TRANSLATOR::m_argument_enum_string_table[4] = {"", "h", "help", "long_help"};

PGMDQ_AUTO_TRANSLATOR* PGMDQ_AUTO_TRANSLATOR::get_instance()
{
    static PGMDQ_AUTO_TRANSLATOR translator;
    return &translator;
}

PGMDQ_AUTO_TRANSLATOR::PGMDQ_AUTO_TRANSLATOR()
{
    init_argument_enum_by_string();
}

void PGMDQ_AUTO_TRANSLATOR::init_hash_from_table(PGMDQ_AUTO_HASH& hash, const char* const* table, int last)
{
    for (int i = 1; i <= last; ++i)
        hash[table[i]] = i;
}

void PGMDQ_AUTO_TRANSLATOR::init_argument_enum_by_string()
{
    m_hash.resize(0);
    init_hash_from_table(m_hash, m_argument_enum_string_table, PGMDQ_AUTO_ARGUMENT_LONG_HELP);
}

int PGMDQ_AUTO_TRANSLATOR::get_argument_enum_by_string(const char* word) const
{
    return lookup(m_hash, word);
}

// The empty word is a key too (value 0), although the filling loop never inserts it.
bool PGMDQ_AUTO_TRANSLATOR::exists_argument_enum_by_string(const char* word) const
{
    return word && (!*word || m_hash.find(word));
}

PGMDQ_AUTO_FRAME_DUMMY_TRANSLATOR* PGMDQ_AUTO_FRAME_DUMMY_TRANSLATOR::get_instance()
{
    static PGMDQ_AUTO_FRAME_DUMMY_TRANSLATOR translator;
    return &translator;
}

PGMDQ_AUTO_FRAME_DUMMY_TRANSLATOR::PGMDQ_AUTO_FRAME_DUMMY_TRANSLATOR()
{
    init_argument_enum_by_substring();
}

void PGMDQ_AUTO_FRAME_DUMMY_TRANSLATOR::init_argument_enum_by_substring()
{
    m_hash.resize(20);
    for (const ABBREVIATION& abbreviation : FRAME_DUMMY_ABBREVIATIONS)
        m_hash[abbreviation.word] = abbreviation.value;
}

int PGMDQ_AUTO_FRAME_DUMMY_TRANSLATOR::get_argument_enum_by_substring(const char* word) const
{
    return lookup(m_hash, word);
}

PGMDQ_AUTO_MANAGER* PGMDQ_AUTO_MANAGER::get_instance()
{
    static PGMDQ_AUTO_MANAGER manager;
    return &manager;
}

TTCL_CMD* PGMDQ_AUTO_MANAGER::register_command(int index, const TTCL_CMD_DEFINITION* definition)
{
    std::unique_ptr<TTCL_CMD>& slot = m_commands[index];
    if (!slot)
        slot = std::make_unique<TTCL_CMD>(definition);
    return slot.get();
}

const char* pgmdq_auto_get_string_by_argument_enum(PGMDQ_AUTO_ARGUMENT_ENUM argument)
{
    if (argument > PGMDQ_AUTO_ARGUMENT_LONG_HELP)
        PGMDQ_INTERNAL_ERROR("The calling function has passed an illegal PGMDQ_AUTO_ARGUMENT_ENUM");
    if (argument <= PGMDQ_AUTO_ARGUMENT_NONE)
        PGMDQ_INTERNAL_ERROR("The calling function has passed an illegal PGMDQ_AUTO_ARGUMENT_ENUM");
    return PGMDQ_AUTO_TRANSLATOR::m_argument_enum_string_table[argument];
}

bool pgmdq_auto_exists_argument_enum_by_string(const char* word)
{
    return PGMDQ_AUTO_TRANSLATOR::get_instance()->exists_argument_enum_by_string(word);
}

int pgmdq_auto_get_argument_enum_by_string(const char* word)
{
    return PGMDQ_AUTO_TRANSLATOR::get_instance()->get_argument_enum_by_string(word);
}

int pgmdq_auto_get_frame_dummy_argument_enum_by_string(const char* word)
{
    const int exact = pgmdq_auto_get_argument_enum_by_string(word);
    if (exact >= PGMDQ_AUTO_ARGUMENT_H && exact <= PGMDQ_AUTO_ARGUMENT_LONG_HELP)
        return exact;
    return PGMDQ_AUTO_FRAME_DUMMY_TRANSLATOR::get_instance()->get_argument_enum_by_substring(word);
}

int pgmdq_init_frame_dummy(TTCL_ARGS* args, bool* help_shown, int count, const char** objects)
{
    PGMDQ_ASSERT(args != 0);
    TTCL_CMD* command = PGMDQ_AUTO_MANAGER::get_instance()->register_command(0, &pgmdq_auto_frame_dummy_cmd_def);
    return TTCL_ARGS::process_tcl_command_arguments(args, command, help_shown, count, objects);
}

int pgmdq_frame_dummy(ClientData, Tcl_Interp*, int count, const char** objects)
{
    TTCL_ARGS args;
    bool help_shown = false;
    return pgmdq_init_frame_dummy(&args, &help_shown, count, objects);
}

int pgmdq_pgmdq_register_tcl()
{
    ttcl_begin_package_setup(PGMDQ_AUTO_LONG_PKG_PGMDQ, PGMDQ_AUTO_PKG_VERSION, nullptr, nullptr, 0);
    ttcl_register_callbacks(pgmdq_pgmdq_tcl_callbacks);
    // Unattended runs need commands; they come with the same set-up, beside the placeholder.
    ttcl_register_callbacks(pgmdq_tcl_command_callbacks());
    ttcl_end_package_setup();
    Tcl_Interp* interp = ttcl_get_interpreter();
    if (!interp)
        PGMDQ_INTERNAL_ERROR("A Tcl interpreter must exist before registering ::vexmoor::pgmdq!");
    return Tcl_PkgProvideEx(interp, PGMDQ_AUTO_LONG_PKG_PGMDQ, PGMDQ_AUTO_PKG_VERSION, nullptr);
}

int pgmdq_pgmdq_unregister_tcl()
{
    Tcl_Interp* interp = ttcl_get_interpreter();
    // The package named here is another package's; the text is kept as the suite has it.
    if (!interp)
        PGMDQ_INTERNAL_ERROR("A Tcl interpreter must exist before unregistering ::vexmoor::timing_assignment!");
    ttcl_begin_package_setup(PGMDQ_AUTO_LONG_PKG_PGMDQ, PGMDQ_AUTO_PKG_VERSION, PGMDQ_AUTO_LIBRARY_NAME,
                             PGMDQ_AUTO_FUNCTION_PREFIX, 1);
    ttcl_unregister_package(interp);
    return ttcl_end_package_setup();
}
