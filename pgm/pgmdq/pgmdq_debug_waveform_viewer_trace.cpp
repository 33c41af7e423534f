// The debug waveform viewer's trace in memory and its ".wvf" file.
#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer_trace.h"
#include "pgmdq_debug_waveform_viewer_errors.h"
#include "pgmdq_miscellaneous_files.h"

#include "fio.h"
#include "thr.h"

#include <QByteArray>

#include <algorithm>
#include <cstring>
#include <fstream>

namespace {

// Width, depth and signature around the samples of a ".wvf" file.
const std::uint64_t WVF_FIELDS_SIZE = 4 + 4 + 4;
// Samples copied between two turns of the event loop: a long trace keeps the window live.
const std::uint32_t SAMPLES_PER_TURN = 1 << 16;

void put_little_endian_dword(unsigned char* bytes, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

// The file's signature: every byte added unsigned, wrapping at 32 bits.
std::uint32_t byte_sum(const unsigned char* bytes, std::uint64_t count)
{
    std::uint32_t sum = 0;
    for (std::uint64_t i = 0; i < count; ++i)
        sum += bytes[i];
    return sum;
}

} // namespace

PGMDQ_SAMPLE_BUFFERS::PGMDQ_SAMPLE_BUFFERS(unsigned depth, unsigned bytes_per_sample)
    : m_sample_bytes(bytes_per_sample), m_bytes(std::size_t(depth) * bytes_per_sample), m_samples(depth)
{
    for (unsigned i = 0; i < depth; ++i)
        m_samples[i] = m_bytes.data() + std::size_t(i) * bytes_per_sample;
}

std::uint32_t pgmdq_sample_bits(const unsigned char* sample, unsigned first_bit, unsigned width)
{
    std::uint32_t value = 0;
    for (unsigned k = 0; k < width; ++k) {
        const unsigned bit = first_bit + k;
        if (sample[bit / 8] >> (bit % 8) & 1)
            value |= std::uint32_t(1) << k;
    }
    return value;
}

PGMDQ_DEBUG_TRACE::PGMDQ_DEBUG_TRACE(unsigned width, PGMDQ_SAMPLE_BUFFERS samples, const PGMDQ_DEBUG_SIGNAL* table)
    : m_width(width), m_samples(std::move(samples)), m_signals(table)
{
}

std::shared_ptr<const PGMDQ_DEBUG_TRACE> PGMDQ_DEBUG_TRACE::copy_of(unsigned width, unsigned depth,
                                                                    unsigned char* const* samples,
                                                                    const PGMDQ_DEBUG_SIGNAL* table)
{
    const unsigned sample_size = pgmdq_sample_byte_size(width);
    PGMDQ_SAMPLE_BUFFERS copy(depth, sample_size);
    for (unsigned i = 0; i < depth; ++i) {
        if (i % SAMPLES_PER_TURN == 0)
            thr_process_events();
        std::memcpy(copy.data()[i], samples[i], sample_size);
    }
    return std::make_shared<const PGMDQ_DEBUG_TRACE>(width, std::move(copy), table);
}

std::vector<std::uint64_t> PGMDQ_DEBUG_TRACE::packed_samples() const
{
    const unsigned bytes = std::min(m_samples.sample_bytes(), 8u);
    std::vector<std::uint64_t> packed(depth());
    for (std::uint32_t i = 0; i < depth(); ++i)
        packed[i] = pgmdq_packed_sample(m_samples.sample(i), bytes);
    return packed;
}

bool PGMDQ_DEBUG_TRACE::write_wvf(const std::string& path) const
{
    const std::uint64_t samples_size = std::uint64_t(m_samples.sample_bytes()) * depth();
    QByteArray file(int(WVF_FIELDS_SIZE + samples_size), '\0');
    auto* bytes = reinterpret_cast<unsigned char*>(file.data());
    put_little_endian_dword(&bytes[0], m_width);
    put_little_endian_dword(&bytes[4], depth());
    // The samples lie one after another in the owned block, as they do in the file.
    std::memcpy(&bytes[8], m_samples.bytes(), samples_size);
    const std::size_t signature_offset = std::size_t(file.size()) - 4;
    put_little_endian_dword(&bytes[signature_offset], byte_sum(bytes, signature_offset));
    thr_process_events();

    // A failed save is told to the user and leaves the previous file whole: the trace is the user's data.
    return pgmdq_save_file(path, file);
}

// A file that is not a trace of this IP is a broken invariant, not a user error: every check is
// an internal error: size, signature, width, then the layout the depth implies.
std::shared_ptr<const PGMDQ_DEBUG_TRACE> PGMDQ_DEBUG_TRACE::read_wvf(const std::string& path)
{
    FIO_STATUS stat_info;
    PGMDQ_WAVE_ASSERT(FIO_FILE_SYSTEM::exists(path.c_str()) && FIO_FILE_SYSTEM::status(path.c_str(), &stat_info));
    const std::uint64_t file_size = stat_info.size;

    std::ifstream input(path, std::ios::binary);
    PGMDQ_WAVE_ASSERT(input.good());
    std::vector<unsigned char> buffer(file_size, 0);
    input.read(reinterpret_cast<char*>(buffer.data()), std::streamsize(file_size));
    input.close();
    thr_process_events();

    PGMDQ_WAVE_ASSERT(file_size > 12);
    const std::uint32_t signature = byte_sum(buffer.data(), file_size - 4);
    const std::uint32_t dword_data[] = {pgmdq_little_endian_dword(&buffer[file_size - 4])};
    PGMDQ_WAVE_ASSERT(signature == dword_data[0]);
    const std::uint32_t width = pgmdq_little_endian_dword(&buffer[0]);
    PGMDQ_WAVE_ASSERT(width == PGMDQ_SFL_DEBUG_SIZE);
    const std::uint32_t depth = pgmdq_little_endian_dword(&buffer[4]);
    // 64-bit so that a forged depth cannot wrap around to the real size.
    const std::uint64_t memory_byte_size = pgmdq_sample_byte_size(PGMDQ_SFL_DEBUG_SIZE);
    PGMDQ_WAVE_ASSERT(file_size == (4 + 4 + 4 + memory_byte_size * depth));

    PGMDQ_SAMPLE_BUFFERS samples(depth, unsigned(memory_byte_size));
    std::memcpy(samples.bytes(), &buffer[8], std::size_t(memory_byte_size * depth));
    return std::make_shared<const PGMDQ_DEBUG_TRACE>(PGMDQ_SFL_DEBUG_SIZE, std::move(samples),
                                                     PGMDQ_SFL_DEBUG_SIGNALS);
}
