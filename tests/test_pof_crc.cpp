// The POF checker's CRCs: catalogue check values, the fast column-major CRC-32 against its
// bit-serial definition, the CRC-16 contribution cache and its linearity.
#include "pof_test_support.h"

#include "pgm_common.h"

#include <random>

namespace {

const unsigned char CHECK_STRING[] = "123456789";
const unsigned CHECK_BITS = 72;

class PofCrc : public ::testing::Test, POF_APPLICATION_FIRST {
protected:
    PGMDQ_POF_CHECKER checker;
    PGMDQ_POF_CHECKER_TEST_ACCESS access{checker};
};

std::uint32_t reverse_bits(std::uint32_t value)
{
    std::uint32_t reversed = 0;
    for (unsigned i = 0; i < 32; ++i)
        reversed |= ((value >> i) & 1u) << (31 - i);
    return reversed;
}

std::vector<unsigned char> random_bytes(std::mt19937& random, size_t size)
{
    std::vector<unsigned char> bytes(size);
    for (auto& byte : bytes)
        byte = (unsigned char)random();
    return bytes;
}

} // namespace

// The serial CRC-32 reads bit 0 of each byte first into a right-shifting register with the
// reflected polynomial: CRC-32/AUTOSAR once inverted. With one-bit words the
// column-major form feeds the same bits into a left-shifting register with the unreflected
// polynomial, the mirror image: its result, reflected, is the catalogue value again.
TEST(PofCrcReference, CatalogueCheckValues)
{
    EXPECT_EQ(PGMDQ_POF_CHECKER::calculate_crc32(CHECK_STRING, 0, CHECK_BITS, 0xFFFFFFFF, 32, true) ^ 0xFFFFFFFFu,
              0x1697D06Au);
    EXPECT_EQ(reverse_bits(PGMDQ_POF_CHECKER::calculate_crc32(CHECK_STRING, 0, CHECK_BITS, 0xFFFFFFFF, 1, false)) ^ 0xFFFFFFFFu,
              0x1697D06Au);
    EXPECT_EQ(reverse_bits(PGMDQ_POF_CHECKER::calculate_crc32_by_columns(CHECK_STRING, 0, CHECK_BITS, 0xFFFFFFFF, 1)) ^
                  0xFFFFFFFFu,
              0x1697D06Au);
}

TEST(PofCrcReference, EdgeCases)
{
    for (bool serial : {true, false})
        EXPECT_EQ(PGMDQ_POF_CHECKER::calculate_crc32(CHECK_STRING, 5, 0, 0x12345678, 32, serial), 0x12345678u)
            << "no bits keep the initial value";
    EXPECT_EQ(pof_test_internal_error([] { PGMDQ_POF_CHECKER::calculate_crc32(CHECK_STRING, 0, 40, 1, 32, false); }),
              "(num_bits % cb_data_width) == 0");
}

// The fast form against the definition, over random data, starts, lengths and initial values.
// The buffer ends exactly where the range does, so the reads near the end are exercised too.
class PofCrc32Widths : public ::testing::TestWithParam<unsigned> {};

TEST_P(PofCrc32Widths, FastFormEqualsColumnDefinition)
{
    const unsigned width = GetParam();
    std::mt19937 random(width);
    for (int round = 0; round < 40; ++round) {
        const unsigned start = random() % 80;
        const unsigned rows = round == 0 ? 0 : random() % 300;
        const unsigned num_bits = rows * width;
        const auto data = random_bytes(random, (start + num_bits + 7) / 8 + (round % 2));
        const unsigned init = round % 3 == 0 ? 1u : unsigned(random());
        EXPECT_EQ(PGMDQ_POF_CHECKER::calculate_crc32(data.data(), start, num_bits, init, width, false),
                  PGMDQ_POF_CHECKER::calculate_crc32_by_columns(data.data(), start, num_bits, init, width))
            << "width " << width << " start " << start << " rows " << rows;
    }
}

INSTANTIATE_TEST_SUITE_P(Widths, PofCrc32Widths,
                         ::testing::Values(1u, 3u, 7u, 8u, 9u, 16u, 24u, 31u, 32u, 33u, 40u, 57u, 64u, 70u));

// A frame's CRC-16 brought up to date through the cache equals the CRC-16 recomputed over the
// changed frame.
struct LINEARITY_CASE {
    unsigned bits;   // message length
    unsigned index;  // first bit of the 16-bit change
};

class PofCrcLinearity : public PofCrc, public ::testing::WithParamInterface<LINEARITY_CASE> {};

TEST_P(PofCrcLinearity, RecalculatedEqualsRecomputed)
{
    const LINEARITY_CASE c = GetParam();
    std::mt19937 random(c.bits ^ c.index);
    auto message = random_bytes(random, c.bits / 8);
    unsigned crc = PGM_COMMON::calculate_crc16(message.data(), 0, c.bits, 0, 0xA001);
    for (int change = 0; change < 8; ++change) {
        const unsigned diff = change == 0 ? 0xFFFF : random() & 0xFFFF;
        for (unsigned j = 0; j < 16; ++j)
            if ((diff >> j) & 1)
                message[(c.index + j) / 8] ^= (unsigned char)(1u << ((c.index + j) % 8));
        crc = checker.recalculate_crc(crc, diff, c.index, c.bits);
        EXPECT_EQ(crc, PGM_COMMON::calculate_crc16(message.data(), 0, c.bits, 0, 0xA001)) << "change " << change;
    }
    EXPECT_EQ(access.crc_entries(), 16u) << "one block of contributions per position";
}

INSTANTIATE_TEST_SUITE_P(Frames, PofCrcLinearity,
                         ::testing::Values(LINEARITY_CASE{16, 0}, LINEARITY_CASE{240, 176}, LINEARITY_CASE{240, 192},
                                           LINEARITY_CASE{240, 208}, LINEARITY_CASE{8176, 8128},
                                           LINEARITY_CASE{8176, 3}));

// No change keeps the CRC and still caches the block; entries are per position and message
// length, so frames of another length never take them.
TEST_F(PofCrc, CacheEntriesArePerPositionAndLength)
{
    EXPECT_EQ(checker.check_crc_list(176, 240), 0xFFFFFFFFu) << "an empty cache has no entry";
    EXPECT_EQ(checker.recalculate_crc(0x1234, 0, 176, 240), 0x1234u);
    EXPECT_EQ(access.crc_entries(), 16u);
    EXPECT_NE(checker.check_crc_list(176, 240), 0xFFFFFFFFu);
    EXPECT_NE(checker.check_crc_list(191, 240), 0xFFFFFFFFu);
    EXPECT_EQ(checker.check_crc_list(192, 240), 0xFFFFFFFFu);
    EXPECT_EQ(checker.check_crc_list(176, 248), 0xFFFFFFFFu);
}

TEST_F(PofCrc, BrokenCacheUseIsAnInternalError)
{
    EXPECT_EQ(pof_test_internal_error([&] { checker.calculate_crc(64, 64); }), "index < bits");
    EXPECT_EQ(pof_test_internal_error([&] { checker.calculate_crc(60, 0); }), "(bits % 8) == 0");
    checker.calculate_crc(240, 16);
    // A new block may not start inside or just before a cached one.
    EXPECT_EQ(pof_test_internal_error([&] { checker.recalculate_crc(0, 1, 8, 240); }),
              "check_crc_list(index + i, bits) == DWORD(-1)");
    // A cached start whose block does not reach the changed bit.
    EXPECT_EQ(pof_test_internal_error([&] { checker.recalculate_crc(0, 0x8000, 17, 240); }), "temp != DWORD(-1)");
}
