// The bitstream tools against the programmer library: a release made by the release maker, each
// design converted and emulated by the tools, the emulator's DAT read as the POF checker reads it,
// and the programmer's stream with its control-block fields filled in from first principles. Good
// dies agree on every byte; D5D2's emulator agrees only with the error-detection seed its model
// documents, so the checker's seed fails it.
#include "cb_tools.h"
#include "pgm.h"

#include "build_tree.h"
#include "shell_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <unistd.h>

namespace {

bool exists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

std::string last_line(const std::string& text)
{
    const std::size_t end = text.find_last_not_of('\n');
    const std::size_t begin = text.rfind('\n', end) + 1;  // 0 when there is no earlier line
    return text.substr(begin, end + 1 - begin);
}

// The emulator's DAT: "//" comment lines and words of four hex digits, low byte first in the
// stream, each optionally followed by a " //" comment. The POF checker's own reading of it is
// checked where the checker compares these files.
std::vector<unsigned char> read_dat(const std::string& path)
{
    std::vector<unsigned char> bytes;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        if (line.compare(0, 2, "//") != 0) {
            const unsigned long word = std::stoul(line.substr(0, 4), nullptr, 16);
            bytes.insert(bytes.end(), {static_cast<unsigned char>(word), static_cast<unsigned char>(word >> 8)});
        }
    return bytes;
}

// The error-detection CRC as defined: bit columns from the most significant down, rows in order,
// one bit at a time into a register shifted left with polynomial 0xF4ACFB13.
std::uint32_t reference_edcrc(const unsigned char* data, std::size_t start, std::size_t bits, std::uint32_t crc,
                              unsigned width)
{
    const std::size_t rows = bits / width;
    for (unsigned c = 0; c < width; ++c)
        for (std::size_t r = 0; r < rows; ++r) {
            const std::size_t q = start + width - 1 - c + r * width;
            const std::uint32_t bit = (data[q / 8] >> (q % 8)) & 1;
            crc = (((bit << 31) ^ crc) & 0x80000000u) ? (crc << 1) ^ 0xF4ACFB13u : crc << 1;
        }
    return crc;
}

// The programmer's stream with the control block's fields filled in the way the POF checker
// does: the error-detection CRC computed from the seed over the frame data, the core word taken
// from the ICD data, and each frame's CRC-16 brought up to date.
std::vector<unsigned char> patched_pgm_stream(const PGM_CHAIN_ELEMENT& element, const std::vector<unsigned char>& icd,
                                              std::uint32_t edcrc_seed)
{
    std::vector<unsigned char> stream;
    for (const PGMIO_BIT_VECTOR& vector : element.get_bit_vector_list())
        stream.insert(stream.end(), vector.get_base_address(), vector.get_base_address() + vector.get_byte_size());
    const PGM_PCF_TREE_LIST& tree = *element.get_device()->get_pcf_info()->get_pcf_file_info();
    const unsigned width = tree.front().get_f2p_constants()->m_cb_data_width;
    for (const PGM_PCF_TREE_ELEMENT& block : tree)
        for (const PGM_PCF_TREE_ELEMENT& section : block.get_children()) {
            const unsigned L = section.get_frame_bits();
            for (std::size_t f = 0; f < section.get_frame_count(); ++f) {
                const std::size_t base = section.get_frame_start_bit(f);
                unsigned char* frame = stream.data() + base / 8;
                if (section.get_type() == PGM_SECTION_EDCRC_FRAMES)
                    cb_put_le(frame + (L - 64) / 8,
                              reference_edcrc(stream.data(), base + width, L - 64 - width, edcrc_seed, width), 4);
                else
                    std::copy_n(icd.data() + (base + L - 32) / 8, 2, frame + (L - 32) / 8);
                cb_put_le(frame + (L - 16) / 8, PGM_COMMON::calculate_crc16(frame, 0, L - 16, 0, 0xA001), 2);
            }
        }
    return stream;
}

// One release for the whole suite, laid out as the release maker lays it out.
class ToolsRelease : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        char pattern[] = "/tmp/test_tools_bitstream.XXXXXX";
        s_release = std::string(mkdtemp(pattern)) + "/release";
        const RUN_RESULT made = run(build_dir() + "/bin/pgm_release_maker --out " + s_release +
                                    " --dies C5D1,B5D1,D5D1,D5D2,KS50,C5D2 --sofs 3 --gzip-every 3 --seed 9");
        ASSERT_EQ(made.status, 0) << made.output;
    }
    static void TearDownTestSuite() { std::system(("rm -rf " + s_release.substr(0, s_release.rfind('/'))).c_str()); }

    // A design's path without ".sof", as the checker's scripts name it.
    static std::string design_base(const std::string& family, const std::string& die, int number)
    {
        std::string name = die;
        std::transform(name.begin(), name.end(), name.begin(), [](char c) { return std::tolower(c); });
        return s_release + "/" + family + "/" + die + "/" + name + "_design0" + std::to_string(number);
    }
    static RUN_RESULT convert(const std::string& family, const std::string& die, const std::string& base)
    {
        return run(s_release + "/sof2img/" + family + "_sof2img.exe " + base + ".sof " + base + ".img -s2i " + die);
    }

    static std::string s_release;
};

std::string ToolsRelease::s_release;

struct DIE_CASE {
    const char* family;
    const char* die;
    const char* rif;
    std::uint32_t emulator_edcrc_seed;  // 1 where the emulator agrees with the checker
};

class Die : public ToolsRelease, public testing::WithParamInterface<DIE_CASE> {};

// The programmer's stream patched from first principles with the emulator's error-detection seed
// equals the emulator's DAT byte for byte. D5D2's emulator models a control block whose CRC starts
// from 0, so the checker's seed of 1 cannot match it. Besides the DAT, the emulator leaves its
// intermediate files and no partly written DAT.
TEST_P(Die, EmulatorDataMatchesTheProgrammerOnEveryByte)
{
    const DIE_CASE& param = GetParam();
    const std::string emulator = s_release + "/icd_emulator/" + param.die + "/" + param.die;
    const std::string base = design_base(param.family, param.die, 1);
    const RUN_RESULT converted = convert(param.family, param.die, base);
    ASSERT_EQ(converted.status, 0) << converted.output;
    const std::string rif = *param.rif ? " -rif " + base.substr(0, base.rfind('/') + 1) + param.rif : "";
    const RUN_RESULT emulated = run(emulator + " -o " + base + " -m3 -img " + base + ".img" + rif);
    ASSERT_EQ(emulated.status, 0) << emulated.output;
    EXPECT_EQ(last_line(emulated.output), "End of running " + emulator);

    PGM_CHAIN_ELEMENT element(nullptr);
    element.set_design_file(base + ".sof");
    ASSERT_TRUE(element.create_chain_element(1, 0, nullptr, 0, 0, 0)) << element.get_error();
    const std::vector<unsigned char> icd = read_dat(base + ".dat");
    ASSERT_EQ(icd.size(), element.get_device()->get_stream_byte_size());
    EXPECT_TRUE(patched_pgm_stream(element, icd, param.emulator_edcrc_seed) == icd);
    EXPECT_EQ(patched_pgm_stream(element, icd, 1) == icd, param.emulator_edcrc_seed == 1);
    for (const char* extension : {".cram", ".redfuses", ".s4_debug", ".s4_info", ".option_bits_out", ".cff"})
        EXPECT_TRUE(exists(base + extension)) << extension;
    EXPECT_FALSE(exists(base + ".dat.part"));
}

INSTANTIATE_TEST_SUITE_P(Release, Die,
                         testing::Values(DIE_CASE{"calder5", "C5D1", "", 1}, DIE_CASE{"calder5", "C5D2", "", 1},
                                         DIE_CASE{"dunlin5", "D5D1", "", 1}, DIE_CASE{"kestrel", "KS50", "", 1},
                                         DIE_CASE{"boreal5", "B5D1", "B5D1.rif", 1},
                                         DIE_CASE{"dunlin5", "D5D2", "", 0}),
                         [](const testing::TestParamInfo<DIE_CASE>& info) { return std::string(info.param.die); });

// A few refusals of each tool: each names its reason and leaves no DAT behind, and the emulator
// still ends with the line the remote scripts wait for.
struct REFUSAL {
    const char* name;
    const char* command;  // shell variables: $M the release maker, $S converters, $E emulators,
                          // $D the C5D1 and $B the B5D1 design base
    int status;
    const char* reason;
};

class Refusal : public ToolsRelease, public testing::WithParamInterface<REFUSAL> {};

TEST_P(Refusal, NamesItsReason)
{
    const std::string c5d1 = design_base("calder5", "C5D1", 1);
    const std::string b5d1 = design_base("boreal5", "B5D1", 1);
    convert("calder5", "C5D1", c5d1);
    convert("boreal5", "B5D1", b5d1);
    std::remove((c5d1 + ".dat").c_str());
    const std::string command = GetParam().command;
    const RUN_RESULT result = run("M=" + build_dir() + "/bin/pgm_release_maker S=" + s_release + "/sof2img E=" +
                                  s_release + "/icd_emulator D=" + c5d1 + " B=" + b5d1 + "; " + command);
    EXPECT_EQ(result.status, GetParam().status) << result.output;
    EXPECT_NE(result.output.find(GetParam().reason), std::string::npos) << result.output;
    EXPECT_FALSE(exists(c5d1 + ".dat"));
    if (command.find("$E") != std::string::npos) {
        EXPECT_EQ(last_line(result.output).compare(0, 15, "End of running "), 0) << result.output;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Tools, Refusal,
    testing::Values(
        REFUSAL{"WrongDie", "$S/calder5_sof2img.exe $D.sof $D.x.img -s2i C5D2", 2, "is a design for C5D1, not C5D2"},
        REFUSAL{"Compressed", "$S/calder5_sof2img.exe ${D%01}03.sof $D.x.img -s2i C5D1", 2,
                "is gzip-compressed; unpack it first"},
        REFUSAL{"MissingRif", "$E/B5D1/B5D1 -o $D -m3 -img $B.img", 2, "B5D1 needs its redundancy file (-rif)"},
        REFUSAL{"DamagedImage",
                "printf X | dd of=$D.img bs=1 seek=60 conv=notrunc 2>/dev/null; $E/C5D1/C5D1 -o $D -m3 -img $D.img", 2,
                "is damaged"},
        REFUSAL{"EmulatorUsage", "$E/C5D1/C5D1 -o $D", 1, "usage:"},
        REFUSAL{"UnknownDie", "$M --out ${D%/*}/never_made --dies C5D1,X9", 2, "unknown die X9"}),
    [](const testing::TestParamInfo<REFUSAL>& info) { return std::string(info.param.name); });

} // namespace
