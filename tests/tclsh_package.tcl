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

# A saved Kiopru batch from the stock tclsh, on the simulated bench: one test passes, one fails
# (the bench's DUT chain holds no CD5), one line is skipped with its reason.
set work [file join [expr {[info exists env(TMPDIR)] ? $env(TMPDIR) : "/tmp"}] tclsh_kiopru_[pid]]
file mkdir $work
set env(TMPDIR) $work ;# the raw file's folder
proc write_file {path text} {
    set channel [open $path w]
    puts -nonewline $channel $text
    close $channel
}
proc read_file {path} {
    set channel [open $path]
    try {return [read $channel]} finally {close $channel}
}
set options {@Passive Serial @1.8 V @P30 2Gb 16-bits CFI flash @DCLK}
write_file $work/batch.txt "CMD @BR5-TV1-ES $options\nCMD @CD5-TV2-ES $options\nCMD @XX5 $options\n"
set cables {-bench-cable {Bench-USB [1-1]} -dut-cable {DUT-USB [1-2]}}

set result [::vexmoor::pgmdq::kiopru_run -batch $work/batch.txt {*}$cables -log $work/log.txt -junit $work/junit.xml]
check "kiopru counts" [dict remove $result log] {passed 1 failed 1 skipped 1}
check "kiopru log" [lindex [dict get $result log] 0] "Line 3 of $work/batch.txt not loaded: unknown dut \"XX5\""
check_match "kiopru verdicts" "*- Pass* - Fail*" [dict get $result log]
check "log file" [read_file $work/log.txt] "[join [dict get $result log] \n]\n"
check "raw file" [file exists $work/kiopru/kiopru_batch.raw] 1
set junit_counts {
import sys, xml.etree.ElementTree as tree
root = tree.parse(sys.argv[1]).getroot()
suites = root.findall("testsuite")
print(len(suites), *(len(list(root.iter(kind))) for kind in ("testcase", "failure", "skipped")), suites[0].get("name"))
}
check "JUnit cases" [exec python3 -c $junit_counts $work/junit.xml] "1 3 1 1 kiopru.batch"

set result [kiopru_run -batch $work/batch.txt {*}$cables -skip-engine]
check "engine skipped" [dict remove $result log] {passed 0 failed 0 skipped 3}
check "totals" $::vexmoor::pgmdq::totals {passed 1 failed 1 skipped 4}

foreach {name arguments message} [list \
    "no batch" $cables "kiopru_run: -batch FILE is required" \
    "missing batch" [list -batch $work/none.txt {*}$cables] \
        "kiopru_run: cannot read -batch \"$work/none.txt\": No such file or directory" \
    "unknown cable" [list -batch $work/batch.txt -bench-cable USB -dut-cable {DUT-USB [1-2]}] \
        "kiopru_run: no JTAG hardware named \"USB\" (the bench has Bench-USB \[1-1\], DUT-USB \[1-2\], Lab-USB \[1-3\])" \
    "unknown option" [list -batch $work/batch.txt -fast] \
        "kiopru_run: unknown option \"-fast\"; type \"kiopru_run -help\" for the options" \
    "unwritable JUnit file" [list -batch $work/batch.txt {*}$cables -junit $work/none/junit.xml] \
        "kiopru_run: cannot write the JUnit file \"$work/none/junit.xml\"" \
] {
    check "refuses $name" [catch {kiopru_run {*}$arguments} got] 1
    check "message for $name" $got $message
}
file delete -force $work

unload [file join $library_dir libpgm_pgmdq.so]
check "unloaded package" [catch {package present ::vexmoor::pgmdq}] 1
check "unloaded command" [info commands pgmdq_frame_dummy] ""

puts "tclsh: $passed passed, $failed failed"
exit [expr {$failed != 0}]
