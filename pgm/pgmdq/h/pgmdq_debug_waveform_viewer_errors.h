// The debug waveform viewer is one unit of the library spread over several files: its internal
// errors name the unit's source, "pgmdq_debug_waveform_viewer", whichever file raises them.
#pragma once

#include "pgmdq_internal_error.h"

#define PGMDQ_WAVE_UNIT_SOURCE "pgmdq_debug_waveform_viewer"

#define PGMDQ_WAVE_ASSERT(condition)                                                                                   \
    do {                                                                                                               \
        if (!(condition))                                                                                              \
            pgmdq_internal_error(#condition, PGMDQ_WAVE_UNIT_SOURCE, __LINE__);                                        \
    } while (0)

#define PGMDQ_WAVE_INTERNAL_ERROR(text) pgmdq_internal_error(text, PGMDQ_WAVE_UNIT_SOURCE, __LINE__)
