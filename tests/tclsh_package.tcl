# Loads the plug-in from a stock tclsh through the package index in the library folder given as
# the first argument, and checks its Tcl face as a script user sees it.
set library_dir [lindex $argv 0]
lappend auto_path $library_dir
set passed 0
set failed 0

proc check {name got want} {
    if {$got eq $want} {
        incr ::passed
    } else {
        puts "FAIL $name: got <$got>, want <$want>"
        incr ::failed
    }
}

proc check_match {name pattern got} {
    check $name [string match $pattern $got] 1
}

# Collects what a script writes to stdout.
namespace eval capture {variable text ""}
proc capture::transform {command channel args} {
    switch -- $command {
        initialize {return {initialize finalize write}}
        write {append ::capture::text [lindex $args 0]; return ""}
    }
}
proc printed {script} {
    set ::capture::text ""
    chan push stdout capture::transform
    try {uplevel 1 $script} finally {chan pop stdout}
    return $::capture::text
}

check "package require" [package require ::vexmoor::pgmdq] 1.0
check "global command" [info commands pgmdq_frame_dummy] pgmdq_frame_dummy
check "namespaced command" [info commands ::vexmoor::pgmdq::pgmdq_frame_dummy] ::vexmoor::pgmdq::pgmdq_frame_dummy
check "no arguments" [pgmdq_frame_dummy] ""
# Loaded by Tcl, the library does not also offer itself as a static package.
check "loaded dynamically" [lsearch -exact [info loaded] [list {} Pgmdq]] -1
check_match "loaded from the library folder" "*libpgm_pgmdq.so Pgmdq*" [info loaded]

foreach option {-h -help -he -hel -long_help -long_he -l -lo} {
    set text [printed [list pgmdq_frame_dummy $option]]
    check_match "help $option" "Usage: pgmdq_frame_dummy*" $text
}
check_match "long help names the package" "*Package: pgmdq*" [printed {pgmdq_frame_dummy -long_help}]
check "short help is not long" [string match "*Package:*" [printed {pgmdq_frame_dummy -h}]] 0

foreach word {-x -hx -helpful - word} {
    check "rejects $word" [catch {pgmdq_frame_dummy $word} message] 1
    check_match "message for $word" "pgmdq_frame_dummy: unknown option \"$word\"*" $message
}

unload [file join $library_dir libpgm_pgmdq.so]
check "unloaded package" [catch {package present ::vexmoor::pgmdq}] 1
check "unloaded command" [info commands pgmdq_frame_dummy] ""

puts "tclsh: $passed passed, $failed failed"
exit [expr {$failed != 0}]
