// The plug-in's Tcl face: package identity, the command table and its one placeholder command,
// the argument translators, and the command manager.
#pragma once

#include "ttcl.h"
#include "vtl_hash.h"

#include <memory>

extern const char* const PGMDQ_AUTO_LONG_PKG_PGMDQ;   // "::vexmoor::pgmdq"
extern const char* const PGMDQ_AUTO_SHORT_PKG_PGMDQ;  // "pgmdq"
extern const char* const PGMDQ_AUTO_PKG_VERSION;      // "1.0"

enum PGMDQ_AUTO_ARGUMENT_ENUM {
    PGMDQ_AUTO_ARGUMENT_NONE = 0,
    PGMDQ_AUTO_ARGUMENT_H = 1,
    PGMDQ_AUTO_ARGUMENT_HELP = 2,
    PGMDQ_AUTO_ARGUMENT_LONG_HELP = 3,
    PGMDQ_AUTO_ARGUMENT_END = 4,
};

typedef VTL_HASH<char const*, int, VTL_CSTR_OPS> PGMDQ_AUTO_HASH;

// Exact argument words to their enumerators.
class PGMDQ_AUTO_TRANSLATOR {
public:
    static PGMDQ_AUTO_TRANSLATOR* get_instance();
    static const char* const m_argument_enum_string_table[4];

    static void init_hash_from_table(PGMDQ_AUTO_HASH& hash, const char* const* table, int last);
    int get_argument_enum_by_string(const char* word) const;
    bool exists_argument_enum_by_string(const char* word) const;
    const PGMDQ_AUTO_HASH& hash() const { return m_hash; }

private:
    PGMDQ_AUTO_TRANSLATOR();
    void init_argument_enum_by_string();
    PGMDQ_AUTO_HASH m_hash;
};

// Abbreviations of pgmdq_frame_dummy's options.
class PGMDQ_AUTO_FRAME_DUMMY_TRANSLATOR {
public:
    static PGMDQ_AUTO_FRAME_DUMMY_TRANSLATOR* get_instance();
    int get_argument_enum_by_substring(const char* word) const;
    const PGMDQ_AUTO_HASH& hash() const { return m_hash; }

private:
    PGMDQ_AUTO_FRAME_DUMMY_TRANSLATOR();
    void init_argument_enum_by_substring();
    PGMDQ_AUTO_HASH m_hash;
};

// The package's command objects, one slot per command.
class PGMDQ_AUTO_MANAGER {
public:
    static PGMDQ_AUTO_MANAGER* get_instance();
    TTCL_CMD* register_command(int index, const TTCL_CMD_DEFINITION* definition);

private:
    PGMDQ_AUTO_MANAGER() = default;
    std::unique_ptr<TTCL_CMD> m_commands[1];
};

extern const TTCL_CALLBACK pgmdq_pgmdq_tcl_callbacks[];
extern const TTCL_ARG_DEFINITION pgmdq_auto_frame_dummy_args_def[];
extern const TTCL_CMD_DEFINITION pgmdq_auto_frame_dummy_cmd_def;

const char* pgmdq_auto_get_string_by_argument_enum(PGMDQ_AUTO_ARGUMENT_ENUM argument);
bool pgmdq_auto_exists_argument_enum_by_string(const char* word);
int pgmdq_auto_get_argument_enum_by_string(const char* word);
int pgmdq_auto_get_frame_dummy_argument_enum_by_string(const char* word);

int pgmdq_init_frame_dummy(TTCL_ARGS* args, bool* help_shown, int count, const char** objects);

// The library's entry points: the only names it exports (everything else is hidden).
#define PGMDQ_EXPORT __attribute__((visibility("default")))

extern "C" {
int pgmdq_frame_dummy(ClientData client_data, Tcl_Interp* interp, int count, const char** objects);
PGMDQ_EXPORT int pgmdq_pgmdq_register_tcl();
PGMDQ_EXPORT int pgmdq_pgmdq_unregister_tcl();
PGMDQ_EXPORT int Pgmdq_Init(Tcl_Interp* interp);
PGMDQ_EXPORT int Pgmdq_Unload(Tcl_Interp* interp, int flags);
}
