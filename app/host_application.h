// The host application: a QApplication that survives internal errors, an embedded Tcl
// interpreter registered with the binding, and the loading of the plug-in package.
#pragma once

#include "vui.h"

#include <QApplication>

#include <string>
#include <vector>

struct Tcl_Interp;
class QMessageBox;

class HOST_APPLICATION : public QApplication {
    Q_OBJECT
public:
    HOST_APPLICATION(int& argc, char** argv);

    // Every event goes through here: an internal error raised while handling one is shown (dialog
    // and message window) and the application keeps running with the user's data intact.
    bool notify(QObject* receiver, QEvent* event) override;

    int internal_error_count() const { return m_internal_errors; }
    // The last "Internal Error" dialog, while it is open.
    QMessageBox* internal_error_dialog() const { return m_dialog; }

private:
    void show_internal_error(const MSG_INTERNAL_ERROR_EXCEPTION& error);

    int m_internal_errors = 0;
    QMessageBox* m_dialog = nullptr;
};

// Whether the settings file can be read; the reason when not.
bool host_settings_readable(const std::string& ini_path, std::string* reason);
// Reads the settings file and applies the suite-wide ones (debug level, quiet messages).
void host_load_settings(const std::string& ini_path);
// The loopback site's settings beside the build, used when the command line names none.
std::string host_default_settings_path(const char* argv0);

// Creates the interpreter, registers it with the binding and makes the suite's library folder
// (where pkgIndex.tcl lies) known to Tcl.
Tcl_Interp* host_create_interpreter(const char* argv0, const std::string& library_dir);
// `package require ::vexmoor::pgmdq` (Tcl's `load` of the library); false with the reason.
bool host_require_package(Tcl_Interp* interp, std::string* error);
// Initialises a plug-in that is linked into the host (the static-package path).
bool host_load_linked_package(Tcl_Interp* interp, std::string* error);

// Runs script[0] with the arguments script[1...] in the interpreter, with progress on stderr; the
// exit status: 0 when the commands' tests all passed, 1 when one failed, 2 on a Tcl error.
int host_run_script(Tcl_Interp* interp, const std::vector<std::string>& script);

// The folder of the suite's libraries: the one the binding was loaded from.
std::string host_library_dir();
