// The suite's thread library: shell command runs, sleeping, and the dynamic-library loader.
#pragma once

#include <string>
#include <utility>
#include <vector>

// How one command line runs.
struct THR_RUN_OPTIONS {
    // After this many seconds the command is ended with its whole process group; 0: no limit.
    unsigned timeout_seconds = 0;
    // Variables added to the command's own environment only (a secret passed this way reaches
    // no file, no command line and no other process).
    std::vector<std::pair<std::string, std::string>> environment;
};

// Results of thr_run besides a command's exit status.
const int THR_RUN_FAILED = -1;     // the shell could not start
const int THR_RUN_TIMED_OUT = -2;  // ended after its upper time
const int THR_RUN_CANCELLED = -3;  // ended, or not started, because the runs were cancelled

// Runs one command line with /bin/sh in the calling thread, in a process group of its own, and
// returns its exit status (0 = success; a command killed by a signal gives 128 + the signal). On
// the GUI thread the event loop turns while it waits (see thr_process_events).
int thr_run(const char* command_line);
int thr_run(const char* command_line, const THR_RUN_OPTIONS& options);

// Ends every command that thr_run is running, in any thread, with its whole process group
// (SIGTERM, then SIGKILL a second later), and makes later runs return THR_RUN_CANCELLED at once
// until thr_allow_runs().
void thr_cancel_runs();
void thr_allow_runs();
bool thr_runs_cancelled();

// Sleeps the calling thread; cancelled runs (thr_cancel_runs) cut the sleep short. On the GUI
// thread the event loop turns while it waits (see thr_process_events).
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
