// A trace as a Value Change Dump: the one writer behind the viewer's "Export VCD..." and the
// suite's converter wvf2vcd, so that both write the same file. Plain C++ (no Qt, no host library).
#pragma once

#include "pgmdq_debug_waveform_viewer_trace.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

struct PGMDQ_VCD_OPTIONS {
    // 1, 10 or 100 followed by s, ms, us, ns, ps or fs; one time step per sample.
    std::string timescale = "1ns";
    // Each bus as single-bit wires "name [k]" (for readers without vector support) instead of one
    // vector "name [w-1:0]".
    bool split_buses = false;
    // The text of the leading $comment (where the trace came from).
    std::string comment;
};

// Takes the text in pieces; false stops the writing (the output failed).
typedef std::function<bool(const char* data, std::size_t size)> PGMDQ_VCD_SINK;

// Writes `depth` samples, sample i being `samples[i]` (bit b of the sample in bit b), of the
// signals of `table` (a table closed by a row of width 0, at most 64 bits in all) in module
// "debug_ip". False when the sink refused a piece.
bool pgmdq_write_vcd(const std::uint64_t* samples, std::uint32_t depth, const PGMDQ_DEBUG_SIGNAL* table,
                     const PGMDQ_VCD_OPTIONS& options, const PGMDQ_VCD_SINK& sink);

bool pgmdq_vcd_valid_timescale(const std::string& text);
