// The programmer library: CRC-16 against catalogue values, the section trees of the device
// database, compiled designs, and design files read back or refused.
#include "pgm.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <unistd.h>

// Catalogue check values for "123456789": CRC-16/ARC (the frame CRC), CRC-16/KERMIT (another
// reflected polynomial) and CRC-16/MODBUS (a non-zero initial value). Frame CRCs over whole designs
// are compared with the release tools' own table-driven CRC where their streams are compared.
TEST(Crc16, CatalogueValues)
{
    const unsigned char check[] = "123456789";
    EXPECT_EQ(PGM_COMMON::calculate_crc16(check, 0, 72, 0x0000, 0xA001), 0xBB3D) << "ARC";
    EXPECT_EQ(PGM_COMMON::calculate_crc16(check, 0, 72, 0x0000, 0x8408), 0x2189) << "KERMIT";
    EXPECT_EQ(PGM_COMMON::calculate_crc16(check, 0, 72, 0xFFFF, 0xA001), 0x4B37) << "MODBUS";
}

class SectionTree : public testing::TestWithParam<PGM_DIE_INFO> {};

// Blocks tile the stream from byte 0, sections tile their block, only the option block starts at
// byte 0, and frames tile their section: the POF checker walks all dies by this tree.
TEST_P(SectionTree, TilesTheStreamWithTheDocumentedTypes)
{
    const PGM_DEVICE device(GetParam());
    const PGM_PCF_TREE_LIST& tree = *device.get_pcf_info()->get_pcf_file_info();
    ASSERT_EQ(tree.front().get_f2p_constants()->m_cb_data_width, 32u);
    std::size_t position = 0;
    std::string types;  // a letter for each section: Options, Edcrc frames, Core frames, Plain data
    for (const PGM_PCF_TREE_ELEMENT& block : tree) {
        EXPECT_EQ(block.get_start_byte(), position);
        for (const PGM_PCF_TREE_ELEMENT& section : block.get_children()) {
            types += "-BECPO"[section.get_type() % 6];
            EXPECT_EQ(section.get_start_byte(), position);
            EXPECT_EQ(section.get_start_byte() > 0, types.back() != 'O');
            const unsigned frame_bits = section.get_frame_bits();
            EXPECT_EQ(frame_bits > 0, types.back() == 'E' || types.back() == 'C');
            if (frame_bits > 0) {
                EXPECT_EQ(frame_bits % 32, 0u);
                ASSERT_GT(section.get_frame_count(), 0u);
                EXPECT_EQ(section.get_frame_count() * frame_bits, section.get_byte_size() * 8);
                EXPECT_EQ(section.get_frame_start_bit(section.get_frame_count() - 1),
                          section.get_end_byte() * 8 - frame_bits);
            }
            position = section.get_end_byte();
        }
        EXPECT_EQ(block.get_end_byte(), position);
    }
    EXPECT_EQ(device.get_stream_byte_size(), position);
    EXPECT_EQ(position % 2, 0u) << "the control block emits 16-bit words";
    // Option block, periphery with error-detection CRCs, at least two core sections, RAM if any.
    EXPECT_TRUE(std::regex_match(types, std::regex(GetParam().eram_bytes > 0 ? "OECC+P" : "OECC+"))) << types;
}

INSTANTIATE_TEST_SUITE_P(EveryDie, SectionTree, testing::ValuesIn(PGM_DEVICE_DATABASE::get_dies()),
                         [](const testing::TestParamInfo<PGM_DIE_INFO>& info) { return std::string(info.param.die); });

// A compiled design depends on its seed alone: a release made twice ships the same files.
TEST(Design, DependsOnItsSeedAlone)
{
    const PGM_DEVICE device(*PGM_DEVICE_DATABASE::find_die("C5D1"));
    const std::vector<PGMIO_BIT_VECTOR> design = pgm_compile_design(device, 5).vectors;
    EXPECT_TRUE(pgm_compile_design(device, 5).vectors == design);
    EXPECT_FALSE(pgm_compile_design(device, 6).vectors == design);
}

namespace {

std::string temp_dir()
{
    char pattern[] = "/tmp/test_pgm_library.XXXXXX";
    return std::string(mkdtemp(pattern)) + "/";
}

void set_name(std::vector<unsigned char>& bytes, std::size_t offset, const char* name)
{
    std::memset(bytes.data() + offset, 0, 16);
    std::memcpy(bytes.data() + offset, name, std::strlen(name));
}

// Byte offsets in the B5D1 file: 64-byte header, 4 table entries, then the stream.
constexpr std::size_t STREAM = 64 + 4 * 16;
constexpr std::size_t FIRST_FRAME = STREAM + 64;

// Rewrites the file's vector checksum so that only the deeper checks can catch a change.
void reseal(std::vector<unsigned char>& bytes)
{
    const uLong crc = crc32(0L, bytes.data() + STREAM, static_cast<uInt>(bytes.size() - STREAM));
    for (int i = 0; i < 4; ++i)
        bytes[48 + i] = static_cast<unsigned char>(crc >> (8 * i));
}

// The design as the release maker writes it reads back as it was compiled (each frame sealed with
// its CRC-16, the control block's fields empty, the option block's sync word, IDCODE and size);
// damaged, foreign and missing files are refused with their reason and nothing of them held.
struct SOF_CASE {
    const char* name;
    std::function<void(std::vector<unsigned char>&)> damage;
    const char* error;                // empty: the file reads back
    const char* file = "design.sof";  // what is opened, beside the written design
};

const auto UNTOUCHED = [](auto&) {};

const SOF_CASE SOF_CASES[] = {
    {"Intact", UNTOUCHED, ""},
    {"Missing", UNTOUCHED, "cannot open the file", "missing.sof"},
    {"Gzip", [](auto& b) { b.insert(b.begin(), {0x1F, 0x8B, 0x08}); }, "the file is gzip-compressed"},  // gzip's magic
    {"Magic", [](auto& b) { b[0] = 'X'; }, "not a design file"},
    {"Version", [](auto& b) { b[8] = 2; }, "unsupported design file version 2"},
    {"Truncated", [](auto& b) { b.pop_back(); }, "the file is truncated"},
    {"HugeVector", [](auto& b) { b[64 + 7] = 0x7F; }, "the file is truncated"},
    {"Checksum", [](auto& b) { b[FIRST_FRAME + 5] ^= 0x10; }, "checksum mismatch"},
    {"UnknownDie", [](auto& b) { set_name(b, 28, "B5D9"); }, "unknown die B5D9"},
    // The cases below reseal the checksum so that only the deeper checks can catch them.
    {"Idcode", [](auto& b) { b[STREAM + 4] ^= 1, reseal(b); }, "the option block is for another device"},
    {"FrameBit", [](auto& b) { b[FIRST_FRAME + 32 + 5] ^= 0x04, reseal(b); },
     "frame 1 of section periphery: CRC-16 mismatch"},
};

} // namespace

class SofFile : public testing::TestWithParam<SOF_CASE> {};

TEST_P(SofFile, ReadsBackOrIsRefusedWithItsReason)
{
    const std::string dir = temp_dir();
    const PGM_SOF_DESIGN design = pgm_compile_design(PGM_DEVICE(*PGM_DEVICE_DATABASE::find_die("B5D1")), 3);
    ASSERT_TRUE(pgm_sof_write(dir + "design.sof", design));
    std::ifstream in(dir + "design.sof", std::ios::binary);
    std::vector<unsigned char> bytes{std::istreambuf_iterator<char>(in), {}};
    GetParam().damage(bytes);
    std::ofstream(dir + "design.sof", std::ios::binary).write(reinterpret_cast<char*>(bytes.data()), bytes.size());

    const std::string path = dir + GetParam().file;
    const bool intact = *GetParam().error == '\0';
    PGM_CHAIN_ELEMENT element(nullptr);
    element.set_design_file(path);
    EXPECT_EQ(element.create_chain_element(1, 0, nullptr, 0, 0, 0), intact);
    EXPECT_EQ(element.get_error(), intact ? "" : path + ": " + GetParam().error);
    EXPECT_EQ(element.get_device() ? element.get_device()->get_name() : "none", intact ? "B5D1" : "none");
    EXPECT_TRUE(element.get_bit_vector_list() == (intact ? design.vectors : std::vector<PGMIO_BIT_VECTOR>()));
    std::system(("rm -rf " + dir).c_str());
}

INSTANTIATE_TEST_SUITE_P(Files, SofFile, testing::ValuesIn(SOF_CASES),
                         [](const testing::TestParamInfo<SOF_CASE>& info) { return info.param.name; });
