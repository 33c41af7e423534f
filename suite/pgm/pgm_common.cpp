#include "pgm_common.h"

#include "pgm_assert.h"

namespace {

constexpr std::uint16_t ARC_POLY = 0xA001;

// Slicing-by-16 tables of the frame polynomial: the programmer checks every frame of a design when
// it reads one, so whole streams of tens of megabytes go through here.
constexpr int SLICES = 16;

struct CRC16_TABLES {
    std::uint16_t slice[SLICES][256];

    explicit CRC16_TABLES(std::uint16_t poly)
    {
        for (unsigned i = 0; i < 256; ++i) {
            std::uint16_t crc = static_cast<std::uint16_t>(i);
            for (int bit = 0; bit < 8; ++bit)
                crc = (crc & 1) ? static_cast<std::uint16_t>((crc >> 1) ^ poly) : static_cast<std::uint16_t>(crc >> 1);
            slice[0][i] = crc;
        }
        for (int k = 1; k < SLICES; ++k)
            for (unsigned i = 0; i < 256; ++i)
                slice[k][i] = static_cast<std::uint16_t>((slice[k - 1][i] >> 8) ^ slice[0][slice[k - 1][i] & 0xFF]);
    }
};

const CRC16_TABLES& arc_tables()
{
    static const CRC16_TABLES tables(ARC_POLY);
    return tables;
}

std::uint16_t feed_bits(std::uint16_t crc, const unsigned char* data, std::size_t start, std::size_t count,
                        std::uint16_t poly)
{
    for (std::size_t b = start; b < start + count; ++b) {
        crc ^= (data[b / 8] >> (b % 8)) & 1;
        crc = (crc & 1) ? static_cast<std::uint16_t>((crc >> 1) ^ poly) : static_cast<std::uint16_t>(crc >> 1);
    }
    return crc;
}

std::uint16_t feed_bytes(std::uint16_t crc, const unsigned char* p, std::size_t count, const CRC16_TABLES& t)
{
    for (; count >= SLICES; count -= SLICES, p += SLICES) {
        const unsigned low = (p[0] | (p[1] << 8)) ^ crc;
        crc = static_cast<std::uint16_t>(
            t.slice[15][low & 0xFF] ^ t.slice[14][low >> 8] ^ t.slice[13][p[2]] ^ t.slice[12][p[3]] ^
            t.slice[11][p[4]] ^ t.slice[10][p[5]] ^ t.slice[9][p[6]] ^ t.slice[8][p[7]] ^ t.slice[7][p[8]] ^
            t.slice[6][p[9]] ^ t.slice[5][p[10]] ^ t.slice[4][p[11]] ^ t.slice[3][p[12]] ^ t.slice[2][p[13]] ^
            t.slice[1][p[14]] ^ t.slice[0][p[15]]);
    }
    for (; count > 0; --count, ++p)
        crc = static_cast<std::uint16_t>((crc >> 8) ^ t.slice[0][(crc ^ *p) & 0xFF]);
    return crc;
}

} // namespace

std::uint16_t PGM_COMMON::calculate_crc16(const unsigned char* data, std::size_t start, std::size_t bits,
                                          std::uint16_t init, std::uint16_t poly)
{
    PGM_ASSERT(data != nullptr || bits == 0, "pgm_common");
    if (poly != ARC_POLY)
        return feed_bits(init, data, start, bits, poly);

    const std::size_t head = std::min(bits, (8 - start % 8) % 8);
    std::uint16_t crc = feed_bits(init, data, start, head, poly);
    start += head;
    bits -= head;
    crc = feed_bytes(crc, data + start / 8, bits / 8, arc_tables());
    return feed_bits(crc, data, start + bits / 8 * 8, bits % 8, poly);
}
