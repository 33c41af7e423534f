// The suite's thread library: shell command runs, sleeping, and the dynamic-library loader.
#pragma once

#include <string>

// Runs one command line with /bin/sh in the calling thread and returns its exit status
// (0 = success; a command killed by a signal gives 128 + the signal, a shell that cannot start -1).
int thr_run(const char* command_line);

// Sleeps the calling thread. On the GUI thread the event loop turns while it waits (see
// thr_process_events).
void thr_msleep(unsigned milliseconds);

// On the GUI thread, lets the event loop turn when it has not for 50 ms: windows repaint, timers
// (a busy dialog's clock) fire. While a modal dialog is up, user input is delivered too: Qt
// discards input to the windows the dialog blocks, so nothing is queued for later, and the
// dialog's own buttons (Cancel) work. Without a modal dialog user input waits. Elsewhere it does
// nothing. Long work on the GUI thread calls it between its steps.
void thr_process_events();

// Loads a suite library by its platform-neutral name: "name.dll" is "libname.so", looked up
// beside the suite's own libraries first. Null when it cannot be loaded.
void* thr_drl_load(const char* library_name);
void* thr_drl_find_function(void* library, const char* function_name);
// The loader's last failure, for messages.
std::string thr_drl_last_error();
