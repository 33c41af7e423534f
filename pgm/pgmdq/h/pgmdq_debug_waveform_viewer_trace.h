// The debug waveform viewer's trace, without Qt in its interface: the debug IP's signal table,
// the layout of a sample, the owned sample buffers, and the trace with its ".wvf" file. The
// suite's converter wvf2vcd uses the same table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
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

// A sample of up to 8 bytes as one number, sample bit b in bit b.
inline std::uint64_t pgmdq_packed_sample(const unsigned char* sample, unsigned sample_bytes)
{
    std::uint64_t value = 0;
    for (unsigned byte = sample_bytes; byte-- > 0;)
        value = value << 8 | sample[byte];
    return value;
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

// A 32-bit word stored least significant byte first, as the IP's registers and the ".wvf" file
// hold them.
inline std::uint32_t pgmdq_little_endian_dword(const unsigned char* bytes)
{
    return std::uint32_t(bytes[0]) | std::uint32_t(bytes[1]) << 8 | std::uint32_t(bytes[2]) << 16 |
           std::uint32_t(bytes[3]) << 24;
}

// A trace of the debug IP: `depth` samples of `width` bits, the signal table that names their
// bits, and the ".wvf" file it is saved to and opened from. It never changes once made, so the
// widget that keeps it and the drawing that shows it share it rather than copy it.
class PGMDQ_DEBUG_TRACE {
public:
    PGMDQ_DEBUG_TRACE(unsigned width, PGMDQ_SAMPLE_BUFFERS samples, const PGMDQ_DEBUG_SIGNAL* table);

    // A copy of the caller's `depth` sample buffers of `width` bits each.
    static std::shared_ptr<const PGMDQ_DEBUG_TRACE> copy_of(unsigned width, unsigned depth,
                                                            unsigned char* const* samples,
                                                            const PGMDQ_DEBUG_SIGNAL* table);
    // The trace of a ".wvf" file. A file that is missing or is not a trace of the debug IP is a
    // broken invariant: each check is an internal error of its own.
    static std::shared_ptr<const PGMDQ_DEBUG_TRACE> read_wvf(const std::string& path);
    // Writes the ".wvf" file whole or not at all; a failure is told to the user. True when written.
    bool write_wvf(const std::string& path) const;

    unsigned width() const { return m_width; }
    std::uint32_t depth() const { return m_samples.depth(); }
    const PGMDQ_SAMPLE_BUFFERS& samples() const { return m_samples; }
    const unsigned char* sample(std::uint32_t index) const { return m_samples.sample(index); }
    const PGMDQ_DEBUG_SIGNAL* signal_table() const { return m_signals; }
    // Sample i in element i, sample bit b in bit b (a sample's first 64 bits).
    std::vector<std::uint64_t> packed_samples() const;

private:
    unsigned m_width;
    PGMDQ_SAMPLE_BUFFERS m_samples;
    const PGMDQ_DEBUG_SIGNAL* m_signals; // a table of the program's, never freed
};
