// Test helpers: an interpreter registered with the binding and the linked plug-in initialised as
// its static package, as the host does before it opens the frame; and the frame it then opens.
#pragma once

#include "pgmdq_frame_wnd.h"
#include "pgmdq_tcl_args_auto.h"

#include <memory>

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

// The frame of a session of its own, closed before the session ends.
struct PLUGIN_FRAME {
    explicit PLUGIN_FRAME(VUI_FW_STATE_ENUM state = VUI_FW_STATE_MAIN_WINDOW) :
        frame(pgm_pgmdq_create_frame_wnd(state, &info))
    {
    }
    PLUGIN_SESSION session;
    VUI_FRAME_INFO info{"Host"};
    std::unique_ptr<PGMDQ_FRAME_WND> frame;
};
