// Broken invariants of the plug-in go to the suite's internal-error report, with the condition
// text exactly as written, the module "PGMDQ" and the unit's own source name.
#pragma once

#include "msg.h"

#include <string>

// Units whose code spans several files named after them ("pgmdq_pof_checker_walk.cpp").
// A unit named after another comes first.
const char* const PGMDQ_MULTI_FILE_UNITS[] = {"pgmdq_pof_checker",    "pgmdq_debug_waveform_viewer",
                                              "pgmdq_cookie_monster", "pgmdq_miscellaneous",
                                              "pgmdq_tcl_args_auto",  "pgmdq_tcl"};

// "…/pgm/pgmdq/pgmdq_pof_checker_walk.cpp" -> "pgmdq_pof_checker": errors name the unit.
inline std::string pgmdq_source_name(const char* file)
{
    std::string name = file;
    const size_t slash = name.find_last_of('/');
    if (slash != std::string::npos)
        name.erase(0, slash + 1);
    const size_t dot = name.find('.');
    if (dot != std::string::npos)
        name.erase(dot);
    for (const std::string unit : PGMDQ_MULTI_FILE_UNITS)
        if (name == unit || name.compare(0, unit.size() + 1, unit + "_") == 0)
            return unit;
    return name;
}

[[noreturn]] inline void pgmdq_internal_error(const char* text, const char* file, int line)
{
    MSG_INTERNAL_ERROR::report(text, "PGMDQ", pgmdq_source_name(file).c_str(), line);
}

#define PGMDQ_ASSERT(condition)                                                                                        \
    do {                                                                                                               \
        if (!(condition))                                                                                              \
            pgmdq_internal_error(#condition, __FILE__, __LINE__);                                                      \
    } while (0)

#define PGMDQ_INTERNAL_ERROR(text) pgmdq_internal_error(text, __FILE__, __LINE__)
