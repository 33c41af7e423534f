// The package's entry points, and the static object that offers the library as a static Tcl
// package when it is linked into the host instead of loaded by Tcl.
#include "pgmdq_msgs.h"

#include "gen.h"
#include "pgmdq_tcl_args_auto.h"

namespace {

class PGMDQ_AUTO_PGMDQ_TCL_INIT {
public:
    PGMDQ_AUTO_PGMDQ_TCL_INIT()
    {
        if (!ttcl_is_dynamically_loading())
            Tcl_StaticPackage(nullptr, "Pgmdq", Pgmdq_Init, nullptr);
    }
    ~PGMDQ_AUTO_PGMDQ_TCL_INIT()
    {
        if (gen_get_is_qt())
            Pgmdq_Unload(ttcl_get_interpreter(), 0);
    }
};

PGMDQ_AUTO_PGMDQ_TCL_INIT pgmdq_auto_pgmdq_tcl_init;

} // namespace

// Both entry points answer TCL_OK whatever the registration gave; an internal error is turned
// into a Tcl error by the binding, since no exception may cross into Tcl.
int Pgmdq_Init(Tcl_Interp* interp)
{
    return ttcl_guarded_call(interp, [] {
        pgmdq_pgmdq_register_tcl();
        return TCL_OK;
    });
}

int Pgmdq_Unload(Tcl_Interp* interp, int)
{
    return ttcl_guarded_call(interp, [] {
        pgmdq_pgmdq_unregister_tcl();
        return TCL_OK;
    });
}
