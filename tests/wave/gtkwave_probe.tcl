# Run by GTKWave (-S) on a VCD: lists every signal, then reads each signal's value with the
# marker at each time of WAVE_PROBE_TIMES, and quits. Lines: "signal NAME", "value TIME NAME VALUE".
set names {}
for {set i 0} {$i < [gtkwave::getNumFacs]} {incr i} {
    lappend names [gtkwave::getFacName $i]
}
foreach name $names {
    puts "signal $name"
}
gtkwave::addSignalsFromList $names
foreach time $env(WAVE_PROBE_TIMES) {
    gtkwave::setMarker $time
    foreach name $names {
        puts "value $time $name [gtkwave::getTraceValueAtMarkerFromName $name]"
    }
}
gtkwave::/File/Quit
