# Runs the package's Tcl tests (every .test file beside this one, or those that `-file` picks)
# with tcltest, in this stock tclsh: the library it loads writes to stderr, which tcltest would
# take for a failing file if the files ran as processes of their own. Arguments: the library
# folder, the programs' folder and the loopback site's folder, which the files find in their
# environment, then tcltest's own options.
#
#   tclsh tests/tcl/all.tcl build/lib build/bin build/site ?-file package.test?
set options [lassign $argv env(PGMDQ_LIBRARY_DIR) env(PGMDQ_BIN_DIR) env(PGMDQ_SITE_DIR)]
set argv {}
package require tcltest
tcltest::configure -testdir [file dirname [file normalize [info script]]] -tmpdir [pwd] -singleproc 1 {*}$options

# tcltest tells a file that stopped with an error but keeps no list of them: note them here.
set broken_files {}
rename ::source ::source_file
proc ::source {args} {
    if {[catch {uplevel 1 [list ::source_file {*}$args]} message options]} {
        lappend ::broken_files [lindex $args end]
        return -options $options $message
    }
}
tcltest::runAllTests
exit [expr {[llength $::tcltest::failFiles] + [llength $broken_files] > 0}]
