<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name>PGMDQ_COOKIE_MONSTER</name>
    <message>
        <source>Kiopru will interface with Bramble system for automated configuration checkout, Programmer IP and Programmer engine testing.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Select dut unit:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Kiopru JTAG hardware:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>DUT JTAG hardware:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Configuration Scheme:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Vccpgm:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Configuration Freq:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Memory Storage:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Kiopru JTAG Interface</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Kiopru Test</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Test Command Batch</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Claim board</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Re-initialize dut JTAG chain</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Establish desired dut JTAG chain</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Create Test</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Save msg</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Delete Test</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Run Test</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Please wait while Monster is processing...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Programmer Kiopru and Checker</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Save Message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Text Files (*.txt)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Load Batch</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 passed, %2 failed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Load batch</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PGMDQ_DEBUG_WAVEFORM_RULER</name>
    <message>
        <source>Drag to zoom to a range; click to place the primary cursor, Shift+click the secondary</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>A %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>B %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Δ %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PGMDQ_DEBUG_WAVEFORM_VALUES</name>
    <message>
        <source>Each signal&apos;s value at the primary cursor</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PGMDQ_DEBUG_WAVEFORM_VIEWER</name>
    <message>
        <source>Debug Waveform Viewer will interface with debug-feature-enabled Programmer IP and draw the debug waveform.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No hardware</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Setup ...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Scan ...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Hardware: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Device: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>IP: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Waveform</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Save</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Read USEDW</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reset</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Start</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open Waveform</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Waveform (*.wvf)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Save Waveform</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Please wait while Programmer is processing...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Programmer Debug Waveform Viewer</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Export VCD...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Write the trace shown as a Value Change Dump, as wvf2vcd does</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Buses as single-bit wires</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>For VCD readers without vector support: each bus bit as a wire &quot;name [k]&quot;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No trace</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>File: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Export VCD</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Value Change Dump (*.vcd)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Captured from %1 at %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Captured from %1 at %2, memory read incomplete</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PGMDQ_DEBUG_WAVEFORM_WIDGET</name>
    <message>
        <source>Zoom in around the mouse or the primary cursor</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Zoom out around the mouse or the primary cursor</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Fit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Show the whole trace</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The signal the searches look at (Ctrl+Up, Ctrl+Down)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Previous edge of the selected signal</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Next edge of the selected signal</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>A value of the selected signal to find, in hexadecimal (Ctrl+F)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Find Value</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Type a value to find</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Previous run of the selected signal holding the value</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Next run of the selected signal holding the value</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Go To</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Type a sample number to go to</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No trace to search</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No edge of %1 after sample %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No edge of %1 before sample %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 changes to %2 at sample %3</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Not a hexadecimal value: &quot;%1&quot;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 cannot hold %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 does not hold %2 after sample %3</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 does not hold %2 before sample %3</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 holds %2 from sample %3 to %4</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No sample &quot;%1&quot;: the trace holds samples 0 to %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Primary cursor at sample %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Zoom +</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Zoom −</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>◀ Edge</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Edge ▶</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>hex value</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>◀ Value</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Value ▶</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>sample</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>A sample number to put the primary cursor on, then Enter (Ctrl+G)</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PGMDQ_FRAME_WND</name>
    <message>
        <source>Kiopru</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>POF Checker</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Debug Waveform Viewer</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PGMDQ_POF_CHECKER</name>
    <message>
        <source>POF Checker will check against bitstream generated by Programmer and ICD Contorl Block Emulator.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>I would like to perform my personel test</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Please generate debug file of the difference between ICD and PGM RBF per frame basic</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Checked if you are in NV and unchecked if you are in RK</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Clear msg</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Save msg</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Send</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Skip IMG generation</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Skip DAT generation</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Skip ICD RBF generation</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Personal Test</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Account Information</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Username: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Password: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Family: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Die: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Message (Email)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Save Message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Text Files (*.txt)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Test location: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Please wait while Programmer is processing...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Programmer</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PGMDQ_PROCESS_DLG</name>
    <message>
        <source>Processes</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check if you would like to skip the process</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>All</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Ok</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
