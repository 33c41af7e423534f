#include "host_application.h"

#include "gen.h"
#include "msg.h"
#include "ttcl.h"

#include <QFile>
#include <QMessageBox>
#include <QPointer>

#include <cstdlib>
#include <dlfcn.h>
#include <iostream>
#include <sstream>

HOST_APPLICATION::HOST_APPLICATION(int& argc, char** argv) : QApplication(argc, argv) {}

bool HOST_APPLICATION::notify(QObject* receiver, QEvent* event)
{
    try {
        return QApplication::notify(receiver, event);
    } catch (const MSG_INTERNAL_ERROR_EXCEPTION& error) {
        show_internal_error(error);
        return false;
    }
}

void HOST_APPLICATION::show_internal_error(const MSG_INTERNAL_ERROR_EXCEPTION& error)
{
    ++m_internal_errors;
    std::ostringstream text;
    text << "Internal Error: " << error.text() << " (module " << error.module() << ", source " << error.file()
         << ", line " << error.line() << ")";
    auto* message = new MSG_E("%1!s!/EHOST_INTERNAL_ERROR");
    message->fill_args(text.str());
    msg_post(message);

    // Window-modal and not waited for: the event loop that raised the error goes on.
    m_dialog = new QMessageBox(QMessageBox::Critical, tr("Internal Error"), QString::fromStdString(error.text()),
                               QMessageBox::Ok, activeWindow());
    m_dialog->setInformativeText(tr("Module: %1\nSource: %2\nLine: %3")
                                     .arg(QString::fromStdString(error.module()), QString::fromStdString(error.file()))
                                     .arg(error.line()));
    m_dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(m_dialog, &QObject::destroyed, this, [this, dialog = m_dialog] {
        if (m_dialog == dialog)
            m_dialog = nullptr;
    });
    m_dialog->open();
}

bool host_settings_readable(const std::string& ini_path, std::string* reason)
{
    QFile file(QString::fromLocal8Bit(ini_path.c_str()));
    if (file.open(QIODevice::ReadOnly))
        return true;
    *reason = file.errorString().toLocal8Bit().toStdString();
    return false;
}

void host_load_settings(const std::string& ini_path)
{
    gen_load_settings(ini_path);
    // The commands the host runs (the site's stand-ins among them) read the same settings.
    setenv("PGMDQ_SITE_SETTINGS", ini_path.c_str(), 1);
    msg_set_debug_level(std::atoi(gen_get_setting("suite/debug_level", "0").c_str()));
    std::istringstream quiet(gen_get_setting("suite/suppressed_messages"));
    for (int id; quiet >> id;)
        MSG_INDEX::get_default_index()->suppress(id);
}

std::string host_default_settings_path(const char* argv0)
{
    std::string exe = argv0 ? argv0 : "";
    const size_t slash = exe.rfind('/');
    const std::string bin_dir = slash == std::string::npos ? "." : exe.substr(0, slash);
    return bin_dir + "/../site/site.ini";
}

std::string host_library_dir()
{
    Dl_info info;
    if (!dladdr(reinterpret_cast<void*>(&ttcl_get_interpreter), &info) || !info.dli_fname)
        return ".";
    const std::string path = info.dli_fname;
    return path.substr(0, path.rfind('/'));
}

Tcl_Interp* host_create_interpreter(const char* argv0, const std::string& library_dir)
{
    Tcl_FindExecutable(argv0);
    Tcl_Interp* interp = Tcl_CreateInterp();
    if (Tcl_Init(interp) != TCL_OK) {
        auto* message = new MSG_W("%1!s!/WHOST_TCL_INIT");
        message->fill_args(std::string("Tcl library scripts not found: ") + Tcl_GetStringResult(interp));
        msg_post(message);
    }
    ttcl_set_interpreter(interp);
    Ttcl_Init(interp);
    Tcl_Obj* dir = Tcl_NewStringObj(library_dir.c_str(), -1);
    Tcl_SetVar2Ex(interp, "auto_path", nullptr, dir, TCL_GLOBAL_ONLY | TCL_APPEND_VALUE | TCL_LIST_ELEMENT);
    return interp;
}

namespace {
bool evaluate(Tcl_Interp* interp, const char* script, std::string* error)
{
    if (Tcl_Eval(interp, script) == TCL_OK)
        return true;
    if (error)
        *error = Tcl_GetStringResult(interp);
    return false;
}
} // namespace

bool host_require_package(Tcl_Interp* interp, std::string* error)
{
    return evaluate(interp, "package require ::vexmoor::pgmdq", error);
}

bool host_load_linked_package(Tcl_Interp* interp, std::string* error)
{
    return evaluate(interp, "load {} Pgmdq", error);
}

namespace {

// The plug-in's totals over the commands a script ran.
Tcl_WideInt total(Tcl_Interp* interp, const char* key)
{
    return ttcl_dict_integer(interp, "::vexmoor::pgmdq::totals", key);
}

} // namespace

int host_run_script(Tcl_Interp* interp, const std::vector<std::string>& script)
{
    std::cerr << "pgm_host: running " << script.front() << std::endl;
    std::string result;
    const std::vector<std::string> arguments(script.begin() + 1, script.end());
    if (!ttcl_source_file(interp, script.front(), arguments, &result)) {
        std::cerr << "pgm_host: " << result << std::endl;
        return 2;
    }
    const Tcl_WideInt failed = total(interp, "failed");
    std::cerr << "pgm_host: " << script.front() << " done: " << total(interp, "passed") << " passed, " << failed
              << " failed, " << total(interp, "skipped") << " skipped" << std::endl;
    return failed ? 1 : 0;
}
