// Broken invariants of the programmer library end in the suite's internal-error report, which
// names the condition as written and the library's own source unit.
#pragma once

#include "msg.h"

#define PGM_ASSERT(condition, unit)                                                     \
    do {                                                                                \
        if (!(condition))                                                               \
            MSG_INTERNAL_ERROR::report(#condition, "PGM", unit, __LINE__);              \
    } while (0)
