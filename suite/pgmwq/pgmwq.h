// The suite's hardware-selection dialog, loaded by name ("pgm_pgmwq.dll") through the suite's
// dynamic loader. It lists the cables of the site's bench (the one the panels drive) and writes
// the chosen cable's handle (its 1-based position in the list), or 0 when the user cancels.
//
// Tests and scripted runs never see the modal dialog: a preset answer set through
// pgmwq_set_preset_answer (used by the next call only) or the environment variable
// PGMWQ_HARDWARE_ANSWER (every call) names the cable, or says "cancel". A named cable that the
// bench does not have answers 0.
#pragma once

extern "C" {
void pgmwq_export_hardware_dlg(unsigned* hardware);
// Queues the answer of the next dialog: a cable name, or null for cancel.
void pgmwq_set_preset_answer(const char* cable_name_or_null_for_cancel);
}
