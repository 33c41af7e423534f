// The package's Tcl face from C++: the internal errors of its translators and entry points, and
// the entry points' answers to Tcl. Loading, help, options and unloading are what tcl/package.test
// checks from a stock tclsh; the linked library's static package is what the host tests load.
#include "msg.h"
#include "pgmdq_tcl_args_auto.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

namespace {

std::string internal_error_of(const std::function<void()>& body)
{
    try {
        body();
    } catch (const MSG_INTERNAL_ERROR_EXCEPTION& error) {
        EXPECT_EQ(error.module(), "PGMDQ");
        EXPECT_EQ(error.file(), "pgmdq_tcl_args_auto");
        return error.text();
    }
    return "(no internal error)";
}

} // namespace

TEST(InternalErrors, HaveTheirExactText)
{
    ttcl_set_interpreter(nullptr);
    bool help_shown = false;
    const std::string illegal = "The calling function has passed an illegal PGMDQ_AUTO_ARGUMENT_ENUM";
    const auto string_of = [](int argument) {
        return [argument] { pgmdq_auto_get_string_by_argument_enum(PGMDQ_AUTO_ARGUMENT_ENUM(argument)); };
    };
    const std::pair<std::function<void()>, std::string> cases[] = {
        {string_of(0), illegal},
        {string_of(-1), illegal},
        {string_of(4), illegal},
        {[&] { pgmdq_init_frame_dummy(nullptr, &help_shown, 0, nullptr); }, "args != 0"},
        {[] { pgmdq_pgmdq_register_tcl(); }, "A Tcl interpreter must exist before registering ::vexmoor::pgmdq!"},
        {[] { pgmdq_pgmdq_unregister_tcl(); },
         "A Tcl interpreter must exist before unregistering ::vexmoor::timing_assignment!"},
    };
    for (const auto& [body, text] : cases)
        EXPECT_EQ(internal_error_of(body), text);
}

// Init answers TCL_OK even when the package cannot be provided (another version is); an entry
// point's internal error becomes the Tcl error it answers with.
TEST(EntryPoints, AnswerTcl)
{
    Tcl_Interp* interp = Tcl_CreateInterp();
    ttcl_set_interpreter(interp);
    Tcl_Eval(interp, "package provide ::vexmoor::pgmdq 2.0");
    EXPECT_EQ(pgmdq_pgmdq_register_tcl(), TCL_ERROR);
    EXPECT_EQ(Pgmdq_Init(interp), TCL_OK);
    Tcl_Eval(interp, "package present ::vexmoor::pgmdq");
    EXPECT_STREQ(Tcl_GetStringResult(interp), "2.0");
    ttcl_set_interpreter(nullptr);
    EXPECT_EQ(Pgmdq_Unload(interp, 0), TCL_ERROR);
    EXPECT_STREQ(Tcl_GetStringResult(interp),
                 "A Tcl interpreter must exist before unregistering ::vexmoor::timing_assignment!");
    Tcl_DeleteInterp(interp);
}
