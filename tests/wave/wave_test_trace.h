// Traces for the waveform tests and benchmarks, written sample by sample: a structured session of
// the debug IP's configuration interface (TCK toggling every sample, instruction loads into
// ir_in, data shifts counted by total_bit_count, random data bits), deterministic for a seed.
#pragma once

#include "pgmdq_debug_waveform_viewer.h"

#include <cstdint>
#include <random>
#include <vector>

namespace wave_test {

// Sample bit positions of the debug IP's signals.
enum BIT : unsigned {
    TCK = 0, TDI = 1, USR1 = 2, IR_IN = 3, SDRS = 15, SDR = 16, UDR = 17, UDR_REG = 18, SCEIN = 19,
    DCLKIN = 20, SDOIN = 21, DATA1OUT = 22, DATA1OUT_REG = 23, TOTAL_BIT_COUNT = 24, TDO = 36,
};

inline std::uint64_t bit(bool value, unsigned position)
{
    return std::uint64_t(value) << position;
}

inline std::vector<std::uint64_t> structured_trace(std::size_t depth, std::uint32_t seed = 1)
{
    std::mt19937 random(seed);
    std::vector<std::uint64_t> samples;
    samples.reserve(depth);
    std::uint64_t ir_in = 0;
    std::uint64_t count = 0;
    const auto cycle = [&](std::uint64_t levels) {
        for (bool tck : {false, true})
            if (samples.size() < depth)
                samples.push_back(levels | bit(tck, TCK) | ir_in << IR_IN | count << TOTAL_BIT_COUNT);
    };
    while (samples.size() < depth) {
        // Select the instruction register, load an instruction, then shift data through it.
        cycle(bit(true, SDRS));
        for (int i = 0; i < 12; ++i)
            cycle(bit(true, USR1) | bit(random() & 1, TDI) | bit(true, SCEIN));
        ir_in = random() % 4096;
        cycle(bit(true, UDR) | bit(true, SCEIN));
        count = 0;
        const unsigned bits = 8 + random() % 57;
        for (unsigned i = 0; i < bits; ++i) {
            const bool data = random() & 1;
            cycle(bit(true, SDR) | bit(random() & 1, TDI) | bit(data, DATA1OUT) | bit(data, TDO) |
                  bit(true, DCLKIN) | bit(random() & 1, SDOIN));
            count = (count + 1) % 4096;
        }
        cycle(bit(true, UDR_REG) | bit(true, DATA1OUT_REG));
        for (unsigned i = random() % 6; i > 0; --i)
            cycle(bit(true, SCEIN));
    }
    return samples;
}

// Samples as the widget takes them: one 5-byte buffer each, bit b in byte b / 8.
inline PGMDQ_SAMPLE_BUFFERS to_buffers(const std::vector<std::uint64_t>& samples)
{
    PGMDQ_SAMPLE_BUFFERS buffers(unsigned(samples.size()), 5);
    for (std::size_t i = 0; i < samples.size(); ++i)
        for (unsigned byte = 0; byte < 5; ++byte)
            buffers.data()[i][byte] = static_cast<unsigned char>(samples[i] >> (8 * byte));
    return buffers;
}

inline void draw(PGMDQ_DEBUG_WAVEFORM_WIDGET& widget, const std::vector<std::uint64_t>& samples)
{
    PGMDQ_SAMPLE_BUFFERS buffers = to_buffers(samples);
    widget.draw_waveform(PGMDQ_SFL_DEBUG_SIZE, unsigned(samples.size()), buffers.data(), PGMDQ_SFL_DEBUG_SIGNALS, 0,
                         15);
}

} // namespace wave_test
