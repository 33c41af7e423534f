// The suite's general utilities: site settings from one INI file, switches, string helpers and
// the suite-wide queries (regression-test mode, whether the host runs its Qt GUI).
#pragma once

#include <string>

// Reads the settings from this INI file from now on (the host names it at start-up).
void gen_load_settings(const std::string& ini_path);
const std::string& gen_settings_path();

// A setting "group/key" (or a top-level "key"); the default when the file does not have it.
std::string gen_get_setting(const std::string& key, const std::string& default_value = std::string());
// Overrides a setting for the rest of the process (scripted runs and tests).
void gen_set_setting(const std::string& key, const std::string& value);

// A host switch: true for "on", "true", "yes" or "1" in the settings' [switches] group.
bool cfg_is_on(const char* name);

// The suite's regression-test mode: the setting suite/regtest_mode or the environment's
// QREGTEST_MODE.
bool tst_is_regtest_mode();

// True when the process runs a Qt GUI application (not a console or plain Tcl process).
bool gen_get_is_qt();

int gen_strcmp(const char* a, const char* b);
std::string gen_remove_leading_and_trailing_white_spaces(const std::string& text);
void stl_toupper(std::string& text);
