// The bench the chain manager's engines drive: one per process, shared by every engine.
#pragma once

#include "bench.h"

#include <memory>

// The current bench, loaded on first use from the settings. Holding the pointer keeps that bench
// alive for the operation even if it is replaced meanwhile.
std::shared_ptr<BENCH> pgmd_cm_bench();
