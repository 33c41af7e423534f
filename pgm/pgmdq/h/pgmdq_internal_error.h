// Broken invariants of the plug-in go to the suite's internal-error report, with the condition
// text exactly as written, the module "PGMDQ" and the unit's own source name.
#pragma once

#include "msg.h"

#include <string>

// "…/pgm/pgmdq/pgmdq_pof_checker.cpp" -> "pgmdq_pof_checker".
inline std::string pgmdq_source_name(const char* file)
{
    std::string name = file;
    const size_t slash = name.find_last_of('/');
    if (slash != std::string::npos)
        name.erase(0, slash + 1);
    const size_t dot = name.find('.');
    if (dot != std::string::npos)
        name.erase(dot);
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
