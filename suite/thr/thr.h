// The suite's thread library: shell command runs, sleeping, and the dynamic-library loader.
#pragma once

#include <string>

// Runs one command line with /bin/sh in the calling thread and returns its exit status
// (0 = success; a command killed by a signal gives 128 + the signal, a shell that cannot start -1).
int thr_run(const char* command_line);

// Sleeps the calling thread. On the GUI thread the windows stay painted while it waits; user
// input is not processed.
void thr_msleep(unsigned milliseconds);

// Loads a suite library by its platform-neutral name: "name.dll" is "libname.so", looked up
// beside the suite's own libraries first. Null when it cannot be loaded.
void* thr_drl_load(const char* library_name);
void* thr_drl_find_function(void* library, const char* function_name);
// The loader's last failure, for messages.
std::string thr_drl_last_error();
