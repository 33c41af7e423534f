#include "pgmdq_pof_checker_private.h"

#include "pgm.h"

#include <array>

using namespace pgmdq_pof;

// ---------------------------------------------------------------------------------------------
// CRCs

namespace {

const unsigned CRC16_POLY_REFLECTED = 0xA001;
const std::uint32_t CRC32_POLY = 0xF4ACFB13;
const std::uint32_t CRC32_POLY_REFLECTED = 0xC8DF352F;

inline std::uint64_t crc_key(unsigned index, unsigned bits)
{
    return std::uint64_t(index) << 32 | bits;
}

// Arithmetic on remainders modulo the CRC-32 polynomial (coefficient of x^31 in the top bit).
inline std::uint32_t times_x(std::uint32_t a)
{
    return (a << 1) ^ (CRC32_POLY & (0u - (a >> 31)));
}

// Walks b's bits from its highest set one, so a small b (an initial value of 1) costs little.
std::uint32_t multiply_mod(std::uint32_t a, std::uint32_t b)
{
    std::uint32_t product = 0;
    for (int bit = b ? 31 - __builtin_clz(b) : -1; bit >= 0; --bit) {
        product = times_x(product);
        if ((b >> bit) & 1)
            product ^= a;
    }
    return product;
}

// x^n modulo the polynomial.
std::uint32_t x_power_mod(std::uint64_t n)
{
    std::uint32_t result = 1;
    std::uint32_t square = 2;  // x
    for (; n; n >>= 1) {
        if (n & 1)
            result = multiply_mod(result, square);
        square = multiply_mod(square, square);
    }
    return result;
}

// Up to 32 bits of the buffer from bit `position`, least significant first. `safe` reads only
// the bytes the bits lie in; otherwise eight bytes are loaded at once.
inline std::uint32_t read_bits(const unsigned char* data, std::uint64_t position, unsigned count, bool safe)
{
    const unsigned char* first = data + position / 8;
    const unsigned shift = unsigned(position % 8);
    std::uint64_t value = 0;
    std::memcpy(&value, first, safe ? (shift + count + 7) / 8 : 8);
    return std::uint32_t((value >> shift) & ((std::uint64_t(1) << count) - 1));
}

// The fast parallel form. By linearity the column-major CRC is a sum of single-bit terms: bit j
// of word r of `rows` words adds x^(32 + j*rows + rows-1-r) to crc * x^num_bits. So each word
// adds G(word) * x^(rows-1-r) with G(word) = sum of its bits' x^(32 + j*rows), which tables of
// 11-bit chunks give (three lookups for a 32-bit word, 24 KiB that stay in the first-level
// cache), and a Horner step (multiply by x) per word collects the words in order.
const unsigned CHUNK_BITS = 11;
const unsigned CHUNK_MASK = (1u << CHUNK_BITS) - 1;

struct COLUMN_CRC_TABLES {
    std::uint64_t rows = 0;
    unsigned width = 0;
    std::uint32_t x_to_num_bits = 0;
    std::vector<std::array<std::uint32_t, 1u << CHUNK_BITS>> chunk_tables;

    void build(std::uint64_t new_rows, unsigned new_width)
    {
        rows = new_rows;
        width = new_width;
        x_to_num_bits = x_power_mod(rows * width);
        std::vector<std::uint32_t> bit_terms(width);
        const std::uint32_t x_to_rows = x_power_mod(rows);
        bit_terms[0] = CRC32_POLY;  // x^32
        for (unsigned j = 1; j < width; ++j)
            bit_terms[j] = multiply_mod(bit_terms[j - 1], x_to_rows);
        chunk_tables.assign((width + CHUNK_BITS - 1) / CHUNK_BITS, {});
        for (unsigned c = 0; c < chunk_tables.size(); ++c)
            for (unsigned v = 1; v <= CHUNK_MASK; ++v) {
                const unsigned j = CHUNK_BITS * c + unsigned(__builtin_ctz(v));
                chunk_tables[c][v] = chunk_tables[c][v & (v - 1)] ^ (j < width ? bit_terms[j] : 0);
            }
    }

    std::uint32_t word_term(std::uint64_t word) const
    {
        std::uint32_t term = 0;
        for (const auto& table : chunk_tables) {
            term ^= table[word & CHUNK_MASK];
            word >>= CHUNK_BITS;
        }
        return term;
    }
};

// x^4 times a remainder: the four bits shifted out of the top come back through this table.
struct TIMES_X4_TABLE {
    std::array<std::uint32_t, 16> reduce;
    TIMES_X4_TABLE()
    {
        for (unsigned top = 0; top < 16; ++top) {
            std::uint32_t value = 0;
            for (int bit = 3; bit >= 0; --bit)
                value = times_x(value) ^ (((top >> bit) & 1) ? CRC32_POLY : 0);
            reduce[top] = value;
        }
    }
};
const TIMES_X4_TABLE TIMES_X4;

inline std::uint32_t times_x4(std::uint32_t a)
{
    return (a << 4) ^ TIMES_X4.reduce[a >> 28];
}

// Byte-aligned 32-bit words, the control block's own case: one load per word, and rows dealt to
// four interleaved Horner chains (each multiplies by x^4 per word), so a multiply by x does not
// wait for the one before; one more Horner step over the four chains joins them.
std::uint32_t aligned_words_sum(const unsigned char* words, std::uint64_t rows, const COLUMN_CRC_TABLES& tables)
{
    const auto& t = tables.chunk_tables;
    const auto term = [&t](const unsigned char* bytes) {
        std::uint32_t w;
        std::memcpy(&w, bytes, 4);
        return t[0][w & CHUNK_MASK] ^ t[1][(w >> CHUNK_BITS) & CHUNK_MASK] ^ t[2][w >> (2 * CHUNK_BITS)];
    };
    std::uint32_t chain0 = 0, chain1 = 0, chain2 = 0, chain3 = 0;
    const std::uint64_t blocks = rows / 4;
    for (std::uint64_t b = 0; b < blocks; ++b, words += 16) {
        chain0 = times_x4(chain0) ^ term(words);
        chain1 = times_x4(chain1) ^ term(words + 4);
        chain2 = times_x4(chain2) ^ term(words + 8);
        chain3 = times_x4(chain3) ^ term(words + 12);
    }
    std::uint32_t sum = times_x(times_x(times_x(chain0) ^ chain1) ^ chain2) ^ chain3;
    for (std::uint64_t r = 4 * blocks; r < rows; ++r, words += 4)
        sum = times_x(sum) ^ term(words);
    return sum;
}

std::uint32_t fast_column_crc32(const unsigned char* data, std::uint64_t start, std::uint64_t num_bits,
                                std::uint32_t crc, unsigned width)
{
    // Frames of one section share their shape: keep the tables of the last shape per thread.
    thread_local COLUMN_CRC_TABLES tables;
    const std::uint64_t rows = num_bits / width;
    if (tables.rows != rows || tables.width != width)
        tables.build(rows, width);
    std::uint32_t sum = 0;
    if (width == 32 && start % 8 == 0) {
        sum = aligned_words_sum(data + start / 8, rows, tables);
    } else {
        const std::uint64_t end_byte = (start + num_bits + 7) / 8;
        const unsigned low_bits = std::min(width, 32u);
        std::uint64_t position = start;
        for (std::uint64_t r = 0; r < rows; ++r, position += width) {
            const bool safe = position / 8 + 16 > end_byte;
            std::uint64_t word = read_bits(data, position, low_bits, safe);
            if (width > 32)
                word |= std::uint64_t(read_bits(data, position + 32, width - 32, safe)) << 32;
            sum = times_x(sum) ^ tables.word_term(word);
        }
    }
    return multiply_mod(tables.x_to_num_bits, crc) ^ sum;
}

inline unsigned buffer_bit(const unsigned char* data, std::uint64_t bit)
{
    return (data[bit / 8] >> (bit % 8)) & 1u;
}

const unsigned FAST_CRC32_MAX_WIDTH = 64;

} // namespace

void PGMDQ_POF_CHECKER::clear_crc_lists()
{
    m_crc_index.clear();
    m_crc_total_bits.clear();
    m_crc_value.clear();
    m_crc_lookup.clear();
    m_crc_lookup_indexed = 0;
}

void PGMDQ_POF_CHECKER::calculate_crc(unsigned bits, unsigned index)
{
    PGMDQ_ASSERT(index < bits);
    PGMDQ_ASSERT((bits % 8) == 0);
    // Sized for the sixteen positions too, though positions past the message add nothing.
    std::vector<unsigned char> buffer(std::max<size_t>(bits / 8, (size_t(index) + 16 + 7) / 8), 0);
    for (unsigned p = index; p < index + 16; ++p) {
        buffer[p / 8] |= (unsigned char)(1u << (p % 8));
        const unsigned c = PGM_COMMON::calculate_crc16(buffer.data(), 0, bits, 0, CRC16_POLY_REFLECTED);
        buffer[p / 8] &= (unsigned char)~(1u << (p % 8));
        m_crc_index.push_back(p);
        m_crc_total_bits.push_back(bits);
        m_crc_value.push_back(c & 0xFFFF);
    }
}

unsigned PGMDQ_POF_CHECKER::check_crc_list(unsigned index, unsigned bits)
{
    PGMDQ_ASSERT(m_crc_index.size() == m_crc_value.size());
    PGMDQ_ASSERT(m_crc_total_bits.size() == m_crc_value.size());
    if (m_crc_index.size() < m_crc_lookup_indexed) {
        m_crc_lookup.clear();
        m_crc_lookup_indexed = 0;
    }
    for (; m_crc_lookup_indexed < m_crc_index.size(); ++m_crc_lookup_indexed)
        m_crc_lookup.emplace(crc_key(m_crc_index[m_crc_lookup_indexed], m_crc_total_bits[m_crc_lookup_indexed]),
                             unsigned(m_crc_lookup_indexed));
    const auto found = m_crc_lookup.find(crc_key(index, bits));
    return found == m_crc_lookup.end() ? DWORD(-1) : m_crc_value[found->second];
}

unsigned PGMDQ_POF_CHECKER::recalculate_crc(unsigned crc, unsigned diff, unsigned index, unsigned bits)
{
    if (check_crc_list(index, bits) == DWORD(-1)) {
        // Entries come sixteen at a time: a block never starts inside another.
        for (unsigned i = 1; i < 16; ++i)
            PGMDQ_ASSERT(check_crc_list(index + i, bits) == DWORD(-1));
        calculate_crc(bits, index);
    }
    for (unsigned j = 0; j < 16; ++j) {
        if (!((diff >> j) & 1))
            continue;
        const unsigned temp = check_crc_list(index + j, bits);
        PGMDQ_ASSERT(temp != DWORD(-1));
        crc ^= temp;
    }
    return crc;
}

unsigned PGMDQ_POF_CHECKER::calculate_crc32(const unsigned char* data, unsigned start, unsigned num_bits,
                                            unsigned crc, unsigned cb_data_width, bool serial)
{
    if (serial) {
        for (std::uint64_t bit = start; bit < std::uint64_t(start) + num_bits; ++bit)
            crc = ((crc ^ buffer_bit(data, bit)) & 1) ? (crc >> 1) ^ CRC32_POLY_REFLECTED : crc >> 1;
        return crc;
    }
    PGMDQ_ASSERT((num_bits % cb_data_width) == 0);
    if (cb_data_width > FAST_CRC32_MAX_WIDTH)
        return calculate_crc32_by_columns(data, start, num_bits, crc, cb_data_width);
    return fast_column_crc32(data, start, num_bits, crc, cb_data_width);
}

unsigned PGMDQ_POF_CHECKER::calculate_crc32_by_columns(const unsigned char* data, unsigned start, unsigned num_bits,
                                                       unsigned crc, unsigned cb_data_width)
{
    PGMDQ_ASSERT((num_bits % cb_data_width) == 0);
    const unsigned rows = num_bits / cb_data_width;
    for (unsigned c = 0; c < cb_data_width; ++c) {
        const std::uint64_t q = std::uint64_t(start) + cb_data_width - 1 - c;
        for (unsigned r = 0; r < rows; ++r) {
            const std::uint32_t bit = buffer_bit(data, q + std::uint64_t(r) * cb_data_width);
            crc = (((bit << 31) ^ crc) & 0x80000000u) ? (crc << 1) ^ CRC32_POLY : crc << 1;
        }
    }
    return crc;
}
