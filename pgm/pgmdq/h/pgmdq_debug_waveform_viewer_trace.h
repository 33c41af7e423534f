// The debug waveform viewer's trace in memory, without Qt: the debug IP's signal
// table, the layout of a sample, and the owned sample buffers of a trace. The suite's converter
// wvf2vcd uses the same table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// One row of a signal table; a table ends with a row of empty name and width 0.
struct PGMDQ_DEBUG_SIGNAL {
    std::string name;
    std::uint32_t width;
};

// Bits in one sample of the debug IP's trace.
static const unsigned PGMDQ_SFL_DEBUG_SIZE = 37;

// The debug IP's signals in sample bit order, from bit 0 upward.
static const PGMDQ_DEBUG_SIGNAL PGMDQ_SFL_DEBUG_SIGNALS[] = {
    {"tck", 1},
    {"tdi", 1},
    {"usr1", 1},
    {"ir_in", 12},
    {"sdrs", 1},
    {"sdr", 1},
    {"udr", 1},
    {"udr_reg", 1},
    {"scein", 1},
    {"dclkin", 1},
    {"sdoin", 1},
    {"data1out", 1},
    {"data1out_reg", 1},
    {"total_bit_count", 12},
    {"tdo", 1},
    {"", 0},
};

// Bytes that hold one sample of `width` bits.
inline unsigned pgmdq_sample_byte_size(unsigned width)
{
    return (width + 7) / 8;
}

// The value of the `width` (at most 32) bits of `sample` that start at bit `first_bit`, least
// significant first. Bit b of a sample is bit b % 8 of its byte b / 8.
std::uint32_t pgmdq_sample_bits(const unsigned char* sample, unsigned first_bit, unsigned width);

// The same value read a whole byte at a time from a sample of `sample_bytes` bytes; bits past
// the sample's last byte read as 0.
inline std::uint32_t pgmdq_sample_field(const unsigned char* sample, unsigned sample_bytes, unsigned first_bit,
                                        unsigned width)
{
    const unsigned first_byte = first_bit / 8;
    unsigned last_byte = (first_bit + width - 1) / 8;
    if (last_byte >= sample_bytes)
        last_byte = sample_bytes - 1;
    std::uint64_t bits = 0;
    for (unsigned byte = last_byte + 1; byte-- > first_byte;)
        bits = bits << 8 | sample[byte];
    bits >>= first_bit % 8;
    return std::uint32_t(width >= 32 ? bits : bits & ((std::uint64_t(1) << width) - 1));
}

// A trace in memory: `depth` pointers, each to its own sample of ceil(width / 8) bytes. The
// samples share one zero-filled block so that a long trace costs one allocation, not one each;
// the block is also read as a whole (drawing, saving).
class PGMDQ_SAMPLE_BUFFERS {
public:
    PGMDQ_SAMPLE_BUFFERS(unsigned depth, unsigned bytes_per_sample);
    // The pointers point into the owned block: moving keeps them valid, copying would not.
    PGMDQ_SAMPLE_BUFFERS(PGMDQ_SAMPLE_BUFFERS&&) = default;
    PGMDQ_SAMPLE_BUFFERS(const PGMDQ_SAMPLE_BUFFERS&) = delete;
    PGMDQ_SAMPLE_BUFFERS& operator=(const PGMDQ_SAMPLE_BUFFERS&) = delete;

    unsigned char** data() { return m_samples.data(); }
    const unsigned char* sample(std::uint32_t index) const { return m_bytes.data() + std::size_t(index) * m_sample_bytes; }
    const unsigned char* bytes() const { return m_bytes.data(); }
    unsigned char* bytes() { return m_bytes.data(); }
    unsigned sample_bytes() const { return m_sample_bytes; }
    std::uint32_t depth() const { return std::uint32_t(m_samples.size()); }

private:
    unsigned m_sample_bytes;
    std::vector<unsigned char> m_bytes;
    std::vector<unsigned char*> m_samples;
};
