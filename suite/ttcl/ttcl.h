// The suite's Tcl binding over Tcl 8.6: package set-up and command registration, command
// objects with argument processing and help, package require by short name, and the trampoline
// that keeps C++ exceptions (internal errors) out of Tcl's C code.
#pragma once

#include <tcl.h>

#include <functional>
#include <string>
#include <vector>

// One entry of a package's command table; the table ends with an entry whose name is null.
struct TTCL_CALLBACK {
    Tcl_CmdProc* proc;
    const char* name;
};

// One declared argument of a command; the list ends with an all-zero entry.
struct TTCL_ARG_DEFINITION {
    int argument_enum;
    int takes_value;
    const char* description;
};

typedef const char* (*TTCL_ENUM_TO_STRING)(int);
typedef int (*TTCL_STRING_TO_ENUM)(const char*);

struct TTCL_CMD_DEFINITION {
    const char* package_short_name;
    const char* command_name;
    TTCL_ENUM_TO_STRING enum_to_string;
    TTCL_STRING_TO_ENUM string_to_enum;
    const char* short_help;
    const char* long_help;
    const TTCL_ARG_DEFINITION* arguments;
    const void* reserved_1;
    const void* reserved_2;
};

// A command built from its definition.
class TTCL_CMD {
public:
    explicit TTCL_CMD(const TTCL_CMD_DEFINITION* definition);
    const TTCL_CMD_DEFINITION* definition() const { return m_definition; }
    const char* name() const { return m_definition->command_name; }

private:
    const TTCL_CMD_DEFINITION* m_definition;
};

// The parsed arguments of one command invocation.
class TTCL_ARGS {
public:
    // Parses objects[1..count-1] against the command's definition. The binding's own options
    // "-h", "-help" and "-long_help" (and whatever abbreviations the definition's string-to-enum
    // function accepts) print the help and set *help_shown. Anything else that the command does
    // not declare is a Tcl error with a message in the interpreter's result.
    static int process_tcl_command_arguments(TTCL_ARGS* args, TTCL_CMD* command, bool* help_shown, int count,
                                             const char** objects);

    bool is_set(int argument_enum) const;
    const std::string& value(int argument_enum) const;

private:
    std::vector<std::pair<int, std::string>> m_values;
};

// The interpreter the host registered (the stock tclsh registers through Ttcl_Init).
void ttcl_set_interpreter(Tcl_Interp* interp);
Tcl_Interp* ttcl_get_interpreter();

// True while the binding is loading a package library with Tcl's `load` (as opposed to the
// library being linked into the host).
bool ttcl_is_dynamically_loading();

void ttcl_begin_package_setup(const char* package_name, const char* version, const char* library_name,
                              const char* function_prefix, int unregister);
void ttcl_register_callbacks(const TTCL_CALLBACK* callbacks);
// Creates (or, for an unregistering set-up, deletes) the package's commands: each in the
// package's namespace and as a global name.
int ttcl_end_package_setup();
// Forgets the package of the current (unregistering) set-up in the interpreter.
int ttcl_unregister_package(Tcl_Interp* interp);

// `package require` by the package's short name ("pgmdq" for "::vexmoor::pgmdq").
int ttcl_package_require(Tcl_Interp* interp, const char* short_name, const char* version, int exact, int quiet);

// Runs a script file as tclsh runs its script, with argv0, argv and argc set. False on a Tcl
// error, with "FILE line N: message" in *result; else the script's result.
bool ttcl_source_file(Tcl_Interp* interp, const std::string& file, const std::vector<std::string>& args,
                      std::string* result);

// The integer under `key` of the dict that the global `variable` holds; 0 when there is none.
Tcl_WideInt ttcl_dict_integer(Tcl_Interp* interp, const char* variable, const char* key);

// A package set up through the binding: its name, its version and the library file it was loaded
// from ("" when it is linked into the program).
struct TTCL_PACKAGE_ORIGIN {
    std::string name;
    std::string version;
    std::string file;
};
std::vector<TTCL_PACKAGE_ORIGIN> ttcl_package_origins();

// Runs `body`; an internal error becomes TCL_ERROR with its text as the interpreter's result.
int ttcl_guarded_call(Tcl_Interp* interp, const std::function<int()>& body);

extern "C" {
// Makes the binding loadable into a stock tclsh: registers the interpreter and the ttcl::
// commands the package index uses.
int Ttcl_Init(Tcl_Interp* interp);
}
