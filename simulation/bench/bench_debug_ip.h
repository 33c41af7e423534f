// The debug IP behind a device's hub (node kind 4): the trace-memory descriptor, the fill level
// (USEDW) and the trace memory, read one 37-bit sample per data-register capture.
//
// The IP records its configuration interface continuously: each TCK of the cable adds one
// sample until the memory is full, so the fill level grows with bench time. Resetting the trace
// empties the memory and starts the next recorded session (a new epoch of the seed). Samples
// beyond the fill level read as zero.
#pragma once

#include "bench_node.h"

#include <cstdint>
#include <vector>

struct BENCH_DEBUG_IP_SETUP {
    uint32_t seed = 1;
    uint32_t depth = 1024;        // samples; a multiple of 1024
    unsigned feature = 1;         // descriptor bits 0..3; 0 = waveform debug not supported
    uint32_t fill = 1024;         // fill level at power-up
    int64_t fail_read_after = -1; // declared fault: the read of sample N onwards fails
};

class BENCH_DEBUG_IP : public BENCH_NODE {
public:
    explicit BENCH_DEBUG_IP(const BENCH_DEBUG_IP_SETUP& setup);

    unsigned kind() const override;
    void load_instruction(uint32_t instruction) override;
    bool capture(BENCH_SHIFT_REGISTER* reg) override;
    void update(const BENCH_SHIFT_REGISTER&) override {}
    void tick() override;

    uint32_t descriptor() const;
    uint32_t fill() const { return m_fill; }
    uint32_t epoch() const { return m_epoch; }
    // The sample the memory holds at this index (zero beyond the fill level).
    uint64_t sample(uint32_t index);

private:
    void reset_trace();
    bool capture_sample(BENCH_SHIFT_REGISTER* reg);

    BENCH_DEBUG_IP_SETUP m_setup;
    uint32_t m_instruction = 0;
    uint32_t m_fill;
    uint32_t m_epoch = 0;
    uint32_t m_read_index = 0;
    std::vector<uint64_t> m_trace; // generated when first read, per epoch
};
