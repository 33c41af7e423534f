// The debug waveform viewer's trace in memory and its ".wvf" file.
#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer.h"
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

std::uint32_t little_endian_dword(const unsigned char* bytes)
{
    return std::uint32_t(bytes[0]) | std::uint32_t(bytes[1]) << 8 | std::uint32_t(bytes[2]) << 16 |
           std::uint32_t(bytes[3]) << 24;
}

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

const unsigned char* PGMDQ_DEBUG_WAVEFORM_WIDGET::sample(unsigned index) const
{
    if (!m_waveform_data || index >= m_waveform_depth)
        return nullptr;
    return m_waveform_data->sample(index);
}

std::vector<std::uint64_t> PGMDQ_DEBUG_WAVEFORM_WIDGET::packed_samples() const
{
    std::vector<std::uint64_t> packed;
    if (!m_waveform_data)
        return packed;
    const unsigned bytes = std::min(m_waveform_data->sample_bytes(), 8u);
    packed.resize(m_waveform_depth);
    for (std::uint32_t i = 0; i < m_waveform_depth; ++i) {
        const unsigned char* sample = m_waveform_data->sample(i);
        std::uint64_t value = 0;
        for (unsigned byte = bytes; byte-- > 0;)
            value = value << 8 | sample[byte];
        packed[i] = value;
    }
    return packed;
}

bool PGMDQ_DEBUG_WAVEFORM_WIDGET::save_waveform(std::string path)
{
    PGMDQ_WAVE_ASSERT(m_waveform_data != NULL && m_waveform_width > 0 && m_waveform_depth &&
                      PGMDQ_SFL_DEBUG_SIZE == m_waveform_width);
    const unsigned sample_size = pgmdq_sample_byte_size(m_waveform_width);
    const std::uint64_t samples_size = std::uint64_t(sample_size) * m_waveform_depth;
    QByteArray file(int(WVF_FIELDS_SIZE + samples_size), '\0');
    auto* bytes = reinterpret_cast<unsigned char*>(file.data());
    put_little_endian_dword(&bytes[0], m_waveform_width);
    put_little_endian_dword(&bytes[4], m_waveform_depth);
    // The samples lie one after another in the stored block, as they do in the file.
    std::memcpy(&bytes[8], m_waveform_data->bytes(), samples_size);
    const std::size_t signature_offset = std::size_t(file.size()) - 4;
    put_little_endian_dword(&bytes[signature_offset], byte_sum(bytes, signature_offset));
    thr_process_events();

    // A failed save is told to the user and leaves the previous file whole: the trace is the user's data.
    return pgmdq_save_file(path, file);
}

// A file that is not a trace of this IP is a broken invariant, not a user error: every check is
// an internal error: size, signature, width, then the layout the depth implies.
void PGMDQ_DEBUG_WAVEFORM_WIDGET::open_waveform(std::string path)
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
    const std::uint32_t dword_data[] = {little_endian_dword(&buffer[file_size - 4])};
    PGMDQ_WAVE_ASSERT(signature == dword_data[0]);
    const std::uint32_t width = little_endian_dword(&buffer[0]);
    PGMDQ_WAVE_ASSERT(width == PGMDQ_SFL_DEBUG_SIZE);
    const std::uint32_t depth = little_endian_dword(&buffer[4]);
    // 64-bit so that a forged depth cannot wrap around to the real size.
    const std::uint64_t memory_byte_size = pgmdq_sample_byte_size(PGMDQ_SFL_DEBUG_SIZE);
    PGMDQ_WAVE_ASSERT(file_size == (4 + 4 + 4 + memory_byte_size * depth));

    PGMDQ_SAMPLE_BUFFERS samples(depth, unsigned(memory_byte_size));
    for (std::uint32_t i = 0; i < depth; ++i)
        std::memcpy(samples.data()[i], &buffer[8 + i * memory_byte_size], memory_byte_size);
    std::vector<unsigned char>().swap(buffer);
    draw_waveform(PGMDQ_SFL_DEBUG_SIZE, depth, samples.data(), PGMDQ_SFL_DEBUG_SIGNALS, 0,
                  PGMDQ_DEBUG_WAVE_GEOMETRY::TRACE_STEP);
}
