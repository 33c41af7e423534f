// Test helper: an interpreter registered with the binding and the linked plug-in initialised as
// its static package, as the host does before it opens the frame.
#pragma once

#include "pgmdq_tcl_args_auto.h"

class PLUGIN_SESSION {
public:
    PLUGIN_SESSION() : m_interp(Tcl_CreateInterp())
    {
        ttcl_set_interpreter(m_interp);
        Tcl_Eval(m_interp, "load {} Pgmdq");
    }
    ~PLUGIN_SESSION()
    {
        ttcl_set_interpreter(nullptr);
        Tcl_DeleteInterp(m_interp);
    }
    PLUGIN_SESSION(const PLUGIN_SESSION&) = delete;
    PLUGIN_SESSION& operator=(const PLUGIN_SESSION&) = delete;

    Tcl_Interp* interp() const { return m_interp; }

private:
    Tcl_Interp* m_interp;
};
