// The control block's two CRCs, table-driven over whole bytes.
#include "cb_tools.h"

#include <array>

namespace {

constexpr std::uint32_t EDCRC_POLY = 0xF4ACFB13u;
constexpr std::uint16_t FRAME_POLY = 0xA001;

std::array<std::uint16_t, 256> make_frame_table()
{
    std::array<std::uint16_t, 256> table{};
    for (unsigned i = 0; i < 256; ++i) {
        unsigned crc = i;
        for (int k = 0; k < 8; ++k)
            crc = (crc & 1) ? (crc >> 1) ^ FRAME_POLY : crc >> 1;
        table[i] = static_cast<std::uint16_t>(crc);
    }
    return table;
}

// Shifting left, a byte enters most significant bit first.
std::array<std::uint32_t, 256> make_edcrc_table()
{
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t crc = i << 24;
        for (int k = 0; k < 8; ++k)
            crc = (crc & 0x80000000u) ? (crc << 1) ^ EDCRC_POLY : crc << 1;
        table[i] = crc;
    }
    return table;
}

const std::array<std::uint16_t, 256> FRAME_TABLE = make_frame_table();
const std::array<std::uint32_t, 256> EDCRC_TABLE = make_edcrc_table();

std::uint32_t edcrc_bit(std::uint32_t crc, unsigned bit)
{
    return ((crc >> 31) ^ bit) ? (crc << 1) ^ EDCRC_POLY : crc << 1;
}

} // namespace

std::uint16_t cb_frame_crc16(const unsigned char* data, std::size_t bytes)
{
    unsigned crc = 0;
    for (std::size_t i = 0; i < bytes; ++i)
        crc = (crc >> 8) ^ FRAME_TABLE[(crc ^ data[i]) & 0xFF];
    return static_cast<std::uint16_t>(crc);
}

// A column's bits, eight words at a time, form the bytes fed to the table; the words left over
// at the end of a column go in one by one.
std::uint32_t cb_edcrc(const unsigned char* words, std::size_t count, std::uint32_t seed)
{
    std::vector<std::uint32_t> values(count);
    for (std::size_t r = 0; r < count; ++r)
        values[r] = cb_get_le(words + 4 * r, 4);
    std::uint32_t crc = seed;
    for (int column = 31; column >= 0; --column) {
        std::size_t r = 0;
        for (; r + 8 <= count; r += 8) {
            unsigned byte = 0;
            for (std::size_t i = r; i < r + 8; ++i)
                byte = (byte << 1) | ((values[i] >> column) & 1);
            crc = (crc << 8) ^ EDCRC_TABLE[(crc >> 24) ^ byte];
        }
        for (; r < count; ++r)
            crc = edcrc_bit(crc, (values[r] >> column) & 1);
    }
    return crc;
}
