// A ".wvf" file as bytes (little-endian width and depth, samples, byte-sum signature) for the tests
// that damage saved traces, and the viewer's internal errors caught by their text.
#pragma once

#include "../widget_test_support.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace wave_test {

using Bytes = std::vector<unsigned char>;

inline Bytes read_bytes(const std::string& path)
{
    std::ifstream input(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>());
}

inline void write_bytes(const std::string& path, const Bytes& bytes)
{
    std::ofstream output(path, std::ios::binary | std::ios::trunc);
    output.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

inline std::uint32_t dword_at(const Bytes& bytes, std::size_t offset)
{
    return std::uint32_t(bytes[offset]) | std::uint32_t(bytes[offset + 1]) << 8 |
           std::uint32_t(bytes[offset + 2]) << 16 | std::uint32_t(bytes[offset + 3]) << 24;
}

inline void put_dword(Bytes& bytes, std::size_t offset, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes[offset + i] = static_cast<unsigned char>(value >> (8 * i));
}

inline std::uint32_t byte_sum(const Bytes& bytes, std::size_t count)
{
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < count; ++i)
        sum += bytes[i];
    return sum;
}

// Rewrites the last four bytes as the signature of the ones before them.
inline Bytes signed_bytes(Bytes bytes)
{
    if (bytes.size() > 12)
        put_dword(bytes, bytes.size() - 4, byte_sum(bytes, bytes.size() - 4));
    return bytes;
}

template <typename ACTION> QString internal_error_of(ACTION&& action)
{
    return internal_error_in("pgmdq_debug_waveform_viewer", std::forward<ACTION>(action));
}

} // namespace wave_test
