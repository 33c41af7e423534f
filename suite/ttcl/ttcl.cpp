#include "ttcl.h"

#include "msg.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

namespace {

Tcl_Interp* g_interp = nullptr;
int g_dynamic_loads = 0;
std::string g_loading_file; // the library file of the dynamic load under way

// The package whose set-up is under way (between begin and end).
struct PACKAGE_SETUP {
    std::string name;
    std::string version;
    std::string library_name;
    std::string function_prefix;
    bool unregister = false;
    std::vector<TTCL_CALLBACK> callbacks;
};

PACKAGE_SETUP g_setup;

// Short name to full name of every package set up so far.
std::map<std::string, std::string>& known_packages()
{
    static std::map<std::string, std::string> packages;
    return packages;
}

std::map<std::string, TTCL_PACKAGE_ORIGIN>& package_origins()
{
    static std::map<std::string, TTCL_PACKAGE_ORIGIN> origins;
    return origins;
}

std::string real_path(const char* path)
{
    char resolved[PATH_MAX];
    return realpath(path, resolved) ? resolved : path;
}

std::string short_name_of(const std::string& package_name)
{
    const size_t colons = package_name.rfind("::");
    return colons == std::string::npos ? package_name : package_name.substr(colons + 2);
}

void set_result(Tcl_Interp* interp, const std::string& text)
{
    Tcl_SetObjResult(interp, Tcl_NewStringObj(text.c_str(), int(text.size())));
}

int trampoline(ClientData data, Tcl_Interp* interp, int argc, const char** argv)
{
    const auto* callback = static_cast<const TTCL_CALLBACK*>(data);
    return ttcl_guarded_call(interp, [&] { return callback->proc(nullptr, interp, argc, argv); });
}

std::string namespaced(const std::string& package_name, const std::string& command)
{
    return package_name + "::" + command;
}

void create_commands()
{
    Tcl_Eval(g_interp, ("namespace eval " + g_setup.name + " {}").c_str());
    for (const TTCL_CALLBACK& callback : g_setup.callbacks) {
        auto* data = new TTCL_CALLBACK(callback);
        const auto release = [](ClientData d) { delete static_cast<TTCL_CALLBACK*>(d); };
        Tcl_CreateCommand(g_interp, namespaced(g_setup.name, callback.name).c_str(), trampoline, data, release);
        Tcl_CreateCommand(g_interp, callback.name, trampoline, new TTCL_CALLBACK(callback), release);
    }
}

void delete_commands(Tcl_Interp* interp)
{
    for (const TTCL_CALLBACK& callback : g_setup.callbacks) {
        Tcl_DeleteCommand(interp, namespaced(g_setup.name, callback.name).c_str());
        Tcl_DeleteCommand(interp, callback.name);
    }
}

void write_to_stdout(Tcl_Interp* interp, const std::string& text)
{
    Tcl_Channel out = Tcl_GetStdChannel(TCL_STDOUT);
    if (out) {
        Tcl_WriteChars(out, text.c_str(), int(text.size()));
        Tcl_Flush(out);
    } else {
        set_result(interp, text);
    }
}

std::string help_text(const TTCL_CMD_DEFINITION* def, bool long_form)
{
    std::string text = "Usage: " + std::string(def->command_name) + " [-h | -help | -long_help]";
    for (const TTCL_ARG_DEFINITION* arg = def->arguments; arg && arg->argument_enum; ++arg)
        text += std::string(" [-") + def->enum_to_string(arg->argument_enum) + (arg->takes_value ? " <value>]" : "]");
    text += "\n";
    if (def->short_help)
        text += std::string(def->short_help) + "\n";
    text += "Options:\n  -h          short help\n  -help       help\n  -long_help  detailed help\n";
    if (long_form) {
        text += "Package: " + std::string(def->package_short_name ? def->package_short_name : "") + "\n";
        if (def->long_help)
            text += std::string(def->long_help) + "\n";
        else
            text += "The command takes no arguments of its own.\n";
    }
    return text;
}

const TTCL_ARG_DEFINITION* declared_argument(const TTCL_CMD_DEFINITION* def, int argument_enum)
{
    for (const TTCL_ARG_DEFINITION* arg = def->arguments; arg && arg->argument_enum; ++arg)
        if (arg->argument_enum == argument_enum)
            return arg;
    return nullptr;
}

// Tcl command ttcl::dynamic_load FILE PREFIX: `load` with the dynamic-loading flag raised.
int dynamic_load_command(ClientData, Tcl_Interp* interp, int objc, Tcl_Obj* const objv[])
{
    if (objc != 3) {
        Tcl_WrongNumArgs(interp, 1, objv, "file prefix");
        return TCL_ERROR;
    }
    Tcl_Obj* command[] = {Tcl_NewStringObj("load", -1), objv[1], objv[2]};
    for (Tcl_Obj* word : command)
        Tcl_IncrRefCount(word);
    ++g_dynamic_loads;
    g_loading_file = real_path(Tcl_GetString(objv[1]));
    const int result = Tcl_EvalObjv(interp, 3, command, TCL_EVAL_GLOBAL);
    g_loading_file.clear();
    --g_dynamic_loads;
    for (Tcl_Obj* word : command)
        Tcl_DecrRefCount(word);
    return result;
}

} // namespace

TTCL_CMD::TTCL_CMD(const TTCL_CMD_DEFINITION* definition) : m_definition(definition)
{
    if (!definition)
        MSG_INTERNAL_ERROR::report("definition != NULL", "TTCL", "ttcl", __LINE__);
}

int TTCL_ARGS::process_tcl_command_arguments(TTCL_ARGS* args, TTCL_CMD* command, bool* help_shown, int count,
                                             const char** objects)
{
    Tcl_Interp* interp = ttcl_get_interpreter();
    if (!args || !command || !help_shown || !interp)
        MSG_INTERNAL_ERROR::report("args && command && help_shown && interp", "TTCL", "ttcl", __LINE__);
    const TTCL_CMD_DEFINITION* def = command->definition();
    *help_shown = false;
    for (int i = 1; i < count; ++i) {
        const char* word = objects[i];
        const int argument_enum = word[0] == '-' ? def->string_to_enum(word + 1) : 0;
        const char* name = argument_enum > 0 && argument_enum < 4 ? def->enum_to_string(argument_enum) : "";
        if (!std::strcmp(name, "h") || !std::strcmp(name, "help") || !std::strcmp(name, "long_help")) {
            write_to_stdout(interp, help_text(def, !std::strcmp(name, "long_help")));
            *help_shown = true;
            continue;
        }
        const TTCL_ARG_DEFINITION* arg = argument_enum > 0 ? declared_argument(def, argument_enum) : nullptr;
        if (!arg) {
            set_result(interp, std::string(def->command_name) + ": unknown option \"" + word +
                                   "\"; type \"" + def->command_name + " -help\" for the options");
            return TCL_ERROR;
        }
        std::string value;
        if (arg->takes_value) {
            if (i + 1 >= count) {
                set_result(interp, std::string(def->command_name) + ": option \"" + word + "\" needs a value");
                return TCL_ERROR;
            }
            value = objects[++i];
        }
        args->m_values.emplace_back(argument_enum, value);
    }
    Tcl_ResetResult(interp);
    return TCL_OK;
}

bool TTCL_ARGS::is_set(int argument_enum) const
{
    for (const auto& entry : m_values)
        if (entry.first == argument_enum)
            return true;
    return false;
}

const std::string& TTCL_ARGS::value(int argument_enum) const
{
    static const std::string empty;
    for (const auto& entry : m_values)
        if (entry.first == argument_enum)
            return entry.second;
    return empty;
}

void ttcl_set_interpreter(Tcl_Interp* interp)
{
    g_interp = interp;
}

Tcl_Interp* ttcl_get_interpreter()
{
    return g_interp;
}

bool ttcl_is_dynamically_loading()
{
    return g_dynamic_loads > 0;
}

void ttcl_begin_package_setup(const char* package_name, const char* version, const char* library_name,
                              const char* function_prefix, int unregister)
{
    g_setup.name = package_name ? package_name : "";
    g_setup.version = version ? version : "";
    g_setup.library_name = library_name ? library_name : "";
    g_setup.function_prefix = function_prefix ? function_prefix : "";
    g_setup.unregister = unregister != 0;
    if (!unregister) {
        g_setup.callbacks.clear();
        package_origins()[g_setup.name] = {g_setup.name, g_setup.version, g_loading_file};
    }
    known_packages()[short_name_of(g_setup.name)] = g_setup.name;
}

std::vector<TTCL_PACKAGE_ORIGIN> ttcl_package_origins()
{
    std::vector<TTCL_PACKAGE_ORIGIN> origins;
    for (const auto& entry : package_origins())
        origins.push_back(entry.second);
    return origins;
}

void ttcl_register_callbacks(const TTCL_CALLBACK* callbacks)
{
    for (const TTCL_CALLBACK* callback = callbacks; callback && callback->name; ++callback)
        g_setup.callbacks.push_back(*callback);
}

int ttcl_end_package_setup()
{
    if (!g_interp)
        return TCL_ERROR;
    if (g_setup.unregister)
        delete_commands(g_interp);
    else
        create_commands();
    return TCL_OK;
}

int ttcl_unregister_package(Tcl_Interp* interp)
{
    if (!interp)
        return TCL_ERROR;
    delete_commands(interp);
    const std::string script = "package forget " + g_setup.name;
    return Tcl_Eval(interp, script.c_str());
}

int ttcl_package_require(Tcl_Interp* interp, const char* short_name, const char* version, int exact, int quiet)
{
    if (!interp || !short_name)
        return TCL_ERROR;
    const auto known = known_packages().find(short_name);
    const std::string name = known != known_packages().end() ? known->second : std::string("::vexmoor::") + short_name;
    const char* provided = Tcl_PkgRequireEx(interp, name.c_str(), version, exact, nullptr);
    if (!provided) {
        if (!quiet)
            msg_post([&] {
                auto* message = new MSG_E("%1!s!/ETTCL_PACKAGE_REQUIRE");
                message->fill_args(Tcl_GetStringResult(interp));
                return message;
            }());
        return TCL_ERROR;
    }
    return TCL_OK;
}

bool ttcl_source_file(Tcl_Interp* interp, const std::string& file, const std::vector<std::string>& args,
                      std::string* result)
{
    if (!interp) {
        *result = file + ": no Tcl interpreter";
        return false;
    }
    Tcl_Obj* argv = Tcl_NewListObj(0, nullptr);
    for (const std::string& arg : args)
        Tcl_ListObjAppendElement(nullptr, argv, Tcl_NewStringObj(arg.c_str(), int(arg.size())));
    Tcl_SetVar2Ex(interp, "argv0", nullptr, Tcl_NewStringObj(file.c_str(), int(file.size())), TCL_GLOBAL_ONLY);
    Tcl_SetVar2Ex(interp, "argv", nullptr, argv, TCL_GLOBAL_ONLY);
    Tcl_SetVar2Ex(interp, "argc", nullptr, Tcl_NewIntObj(int(args.size())), TCL_GLOBAL_ONLY);
    const bool done = Tcl_EvalFile(interp, file.c_str()) == TCL_OK;
    *result = Tcl_GetStringResult(interp);
    if (!done)
        *result = file + " line " + std::to_string(Tcl_GetErrorLine(interp)) + ": " + *result;
    return done;
}

Tcl_WideInt ttcl_dict_integer(Tcl_Interp* interp, const char* variable, const char* key)
{
    Tcl_Obj* dict = Tcl_GetVar2Ex(interp, variable, nullptr, TCL_GLOBAL_ONLY);
    Tcl_Obj* name = Tcl_NewStringObj(key, -1);
    Tcl_IncrRefCount(name);
    Tcl_Obj* value = nullptr;
    Tcl_WideInt integer = 0;
    if (dict && Tcl_DictObjGet(nullptr, dict, name, &value) == TCL_OK && value)
        Tcl_GetWideIntFromObj(nullptr, value, &integer);
    Tcl_DecrRefCount(name);
    return integer;
}

int ttcl_guarded_call(Tcl_Interp* interp, const std::function<int()>& body)
{
    try {
        return body();
    } catch (const MSG_INTERNAL_ERROR_EXCEPTION& error) {
        if (interp)
            set_result(interp, error.text());
        return TCL_ERROR;
    } catch (const std::exception& error) {
        if (interp)
            set_result(interp, error.what());
        return TCL_ERROR;
    }
}

int Ttcl_Init(Tcl_Interp* interp)
{
    if (!g_interp)
        g_interp = interp;
    Tcl_Eval(interp, "namespace eval ttcl {}");
    Tcl_CreateObjCommand(interp, "ttcl::dynamic_load", dynamic_load_command, nullptr, nullptr);
    return Tcl_PkgProvideEx(interp, "ttcl", "1.0", nullptr);
}
