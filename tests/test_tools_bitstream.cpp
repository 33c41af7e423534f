// The bitstream tools against the programmer library: a release made by the release maker, each
// design converted and emulated by the tools, the emulator's DAT read as the POF checker reads it,
// and the programmer's stream with its control-block fields filled in from first principles. Good
// dies agree on every compared byte; D5D2's emulator disagrees exactly where its model says.
#include "cb_tools.h"
#include "pgm.h"

#include "build_tree.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct RUN_RESULT {
    int status;
    std::string output;  // stdout and stderr
};

RUN_RESULT run(const std::string& command)
{
    RUN_RESULT result{-1, ""};
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        result.output.append(buffer, n);
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

bool exists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

std::string last_line(const std::string& text)
{
    const std::size_t end = text.find_last_not_of('\n');
    const std::size_t begin = text.rfind('\n', end);
    return text.substr(begin == std::string::npos ? 0 : begin + 1, end - (begin == std::string::npos ? 0 : begin + 1) + 1);
}

std::string trim(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// The DAT rules of the POF checker: lines of at most 63 characters, trimmed, blank lines and
// lines starting with "/" skipped, anything from a later "/" cut, then exactly four hex digits.
bool read_dat(const std::string& path, std::vector<unsigned char>& bytes, std::string& problem)
{
    std::ifstream in(path);
    std::string line;
    for (unsigned number = 1; std::getline(in, line); ++number) {
        const std::string where = path + ":" + std::to_string(number) + ": ";
        if (line.size() > 63) {
            problem = where + "line too long for the checker";
            return false;
        }
        line = trim(line);
        if (line.empty() || line[0] == '/')
            continue;
        line = trim(line.substr(0, line.find('/')));
        if (line.size() != 4 || line.find_first_not_of("0123456789ABCDEFabcdef") != std::string::npos) {
            problem = where + "not a word: " + line;
            return false;
        }
        const unsigned word = static_cast<unsigned>(std::stoul(line, nullptr, 16));
        bytes.push_back(static_cast<unsigned char>(word & 0xFF));
        bytes.push_back(static_cast<unsigned char>(word >> 8));
    }
    return true;
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

void put_le(unsigned char* p, std::uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i, value >>= 8)
        p[i] = static_cast<unsigned char>(value & 0xFF);
}

template <class VISIT> void for_each_section(const PGM_DEVICE& device, VISIT visit)
{
    for (const PGM_PCF_TREE_ELEMENT& block : *device.get_pcf_info()->get_pcf_file_info())
        for (const PGM_PCF_TREE_ELEMENT& section : block.get_children())
            visit(section);
}

// The programmer's stream with the control block's fields filled in the way the POF checker
// does: the error-detection CRC computed from 1 over the frame data, the core word taken from the
// ICD data, and each frame's CRC-16 brought up to date.
std::vector<unsigned char> patched_pgm_stream(const PGM_CHAIN_ELEMENT& element, const std::vector<unsigned char>& icd,
                                              std::uint32_t edcrc_seed)
{
    std::vector<unsigned char> stream;
    for (const PGMIO_BIT_VECTOR& vector : element.get_bit_vector_list())
        stream.insert(stream.end(), vector.get_base_address(), vector.get_base_address() + vector.get_byte_size());
    const PGM_DEVICE& device = *element.get_device();
    const unsigned width = device.get_pcf_info()->get_pcf_file_info()->front().get_f2p_constants()->m_cb_data_width;
    for_each_section(device, [&](const PGM_PCF_TREE_ELEMENT& section) {
        const unsigned L = section.get_frame_bits();
        for (std::size_t f = 0; f < section.get_frame_count(); ++f) {
            const std::size_t base = section.get_frame_start_bit(f);
            unsigned char* frame = stream.data() + base / 8;
            if (section.get_type() == PGM_SECTION_EDCRC_FRAMES)
                put_le(frame + (L - 64) / 8,
                       reference_edcrc(stream.data(), base + width, L - 64 - width, edcrc_seed, width), 4);
            else
                std::copy_n(icd.data() + (base + L - 32) / 8, 2, frame + (L - 32) / 8);
            put_le(frame + (L - 16) / 8, PGM_COMMON::calculate_crc16(frame, 0, L - 16, 0, 0xA001), 2);
        }
    });
    return stream;
}

// Byte ranges [start, end) where the two streams differ inside sections of types 2, 3 and 4.
std::vector<std::pair<std::size_t, std::size_t>> compared_differences(const PGM_DEVICE& device,
                                                                      const std::vector<unsigned char>& pgm,
                                                                      const std::vector<unsigned char>& icd)
{
    std::vector<std::pair<std::size_t, std::size_t>> differences;
    for_each_section(device, [&](const PGM_PCF_TREE_ELEMENT& section) {
        if (section.get_type() < PGM_SECTION_EDCRC_FRAMES || section.get_type() > PGM_SECTION_PLAIN_DATA)
            return;
        for (std::size_t i = section.get_start_byte(); i < section.get_end_byte(); ++i)
            if (pgm[i] != icd[i]) {
                if (!differences.empty() && differences.back().second == i)
                    differences.back().second = i + 1;
                else
                    differences.push_back({i, i + 1});
            }
    });
    return differences;
}

class ToolsRelease : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        char pattern[] = "/tmp/test_tools_bitstream.XXXXXX";
        s_root = mkdtemp(pattern);
        s_release = s_root + "/release";
        const RUN_RESULT made = run(build_dir() + "/bin/pgm_release_maker --out " + s_release +
                                    " --dies C5D1,B5D1,D5D1,D5D2,KS50,C5D2 --sofs 3 --gzip-every 3 --seed 9");
        ASSERT_EQ(made.status, 0) << made.output;
    }
    static void TearDownTestSuite() { std::system(("rm -rf " + s_root).c_str()); }

    static std::string die_dir(const std::string& family, const std::string& die)
    {
        return s_release + "/" + family + "/" + die + "/";
    }
    static std::string emulator(const std::string& die) { return s_release + "/icd_emulator/" + die + "/" + die; }
    static std::string converter(const std::string& family)
    {
        return s_release + "/sof2img/" + family + "_sof2img.exe";
    }

    // Converts and emulates one design through the release's own tools; the base is the SOF's path
    // without ".sof", as the checker's scripts name it.
    static void make_dat(const std::string& family, const std::string& die, const std::string& base,
                         const std::string& extra = "")
    {
        const RUN_RESULT converted = run(converter(family) + " " + base + ".sof " + base + ".img -s2i " + die);
        ASSERT_EQ(converted.status, 0) << converted.output;
        const RUN_RESULT emulated = run(emulator(die) + " -o " + base + " -m3 -img " + base + ".img" + extra);
        ASSERT_EQ(emulated.status, 0) << emulated.output;
        EXPECT_EQ(last_line(emulated.output), "End of running " + emulator(die));
    }

    static void load(const std::string& base, PGM_CHAIN_ELEMENT& element, std::vector<unsigned char>& icd)
    {
        element.set_design_file(base + ".sof");
        ASSERT_TRUE(element.create_chain_element(1, 0, nullptr, 0, 0, 0)) << element.get_error();
        std::string problem;
        ASSERT_TRUE(read_dat(base + ".dat", icd, problem)) << problem;
        ASSERT_EQ(icd.size(), element.get_device()->get_stream_byte_size());
    }

    static std::string s_root;
    static std::string s_release;
};

std::string ToolsRelease::s_root;
std::string ToolsRelease::s_release;

struct GOOD_DIE {
    const char* family;
    const char* die;
    const char* rif;
};

class GoodDie : public ToolsRelease, public testing::WithParamInterface<GOOD_DIE> {};

TEST_P(GoodDie, EmulatorDataMatchesTheProgrammerOnEveryComparedByte)
{
    const GOOD_DIE& param = GetParam();
    std::string lower = param.die;
    for (char& c : lower)
        c = static_cast<char>(std::tolower(c));
    for (const char* design : {"_design01", "_design02"}) {
        const std::string base = die_dir(param.family, param.die) + lower + design;
        const std::string rif = *param.rif ? " -rif " + die_dir(param.family, param.die) + param.rif : "";
        make_dat(param.family, param.die, base, rif);
        PGM_CHAIN_ELEMENT element(nullptr);
        std::vector<unsigned char> icd;
        load(base, element, icd);
        if (HasFatalFailure())
            return;
        const std::vector<unsigned char> pgm = patched_pgm_stream(element, icd, 1);
        EXPECT_TRUE(compared_differences(*element.get_device(), pgm, icd).empty()) << base;
        EXPECT_TRUE(pgm == icd) << "the option block is carried over unchanged as well";
    }
}

INSTANTIATE_TEST_SUITE_P(Release, GoodDie,
                         testing::Values(GOOD_DIE{"calder5", "C5D1", ""}, GOOD_DIE{"calder5", "C5D2", ""},
                                         GOOD_DIE{"dunlin5", "D5D1", ""}, GOOD_DIE{"kestrel", "KS50", ""},
                                         GOOD_DIE{"boreal5", "B5D1", "B5D1.rif"}),
                         [](const testing::TestParamInfo<GOOD_DIE>& info) { return std::string(info.param.die); });

// D5D2's emulator models a control block whose error-detection CRC starts from 0: every periphery
// frame differs in its CRC-32 field and CRC-16, nothing else does, and seeding the programmer's
// side with 0 instead reproduces the emulator exactly.
TEST_F(ToolsRelease, D5d2DisagreesInEveryErrorDetectionCrcAndNowhereElse)
{
    const std::string base = die_dir("dunlin5", "D5D2") + "d5d2_design01";
    make_dat("dunlin5", "D5D2", base);
    PGM_CHAIN_ELEMENT element(nullptr);
    std::vector<unsigned char> icd;
    load(base, element, icd);
    if (HasFatalFailure())
        return;
    const PGM_DEVICE& device = *element.get_device();
    std::vector<std::pair<std::size_t, std::size_t>> expected;
    for_each_section(device, [&](const PGM_PCF_TREE_ELEMENT& section) {
        if (section.get_type() != PGM_SECTION_EDCRC_FRAMES)
            return;
        for (std::size_t f = 0; f < section.get_frame_count(); ++f) {
            const std::size_t end = (section.get_frame_start_bit(f) + section.get_frame_bits()) / 8;
            expected.push_back({end - 8, end - 4});
            expected.push_back({end - 2, end});
        }
    });
    ASSERT_EQ(expected.size(), 2u * 128);
    EXPECT_EQ(compared_differences(device, patched_pgm_stream(element, icd, 1), icd), expected);
    EXPECT_TRUE(patched_pgm_stream(element, icd, 0) == icd);
}

// A core word is the XOR of the frame's 16-bit words before it; with the redundancy file, the
// repaired core frames' words carry their fuses as well.
TEST_F(ToolsRelease, RedundancyFusesRepairTheirCoreFrames)
{
    const std::string dir = die_dir("boreal5", "B5D1");
    const std::string base = dir + "b5d1_design02";
    make_dat("boreal5", "B5D1", base, " -rif " + dir + "B5D1.rif");
    std::vector<unsigned char> with_fuses, cram;
    std::string problem;
    ASSERT_TRUE(read_dat(base + ".dat", with_fuses, problem)) << problem;
    ASSERT_TRUE(cb_read_file(base + ".cram", cram));
    EXPECT_TRUE(cram == with_fuses) << "the DAT holds the configuration RAM's contents";

    std::ofstream(dir + "none.rif") << "# no repairs\nDIE B5D1\n";
    make_dat("boreal5", "B5D1", base, " -rif " + dir + "none.rif");
    std::vector<unsigned char> without;
    ASSERT_TRUE(read_dat(base + ".dat", without, problem)) << problem;

    CB_FUSES fuses;
    ASSERT_TRUE(cb_read_rif(dir + "B5D1.rif", *cb_find_die("B5D1"), fuses, problem)) << problem;
    ASSERT_EQ(fuses.size(), 4u);
    const std::size_t core_start = 64 + 64 * 32, frame_bytes = 32;
    for (std::size_t frame = 0; frame < 32; ++frame) {
        const std::size_t word = core_start + frame * frame_bytes + frame_bytes - 4;
        const unsigned difference = (with_fuses[word] ^ without[word]) | (with_fuses[word + 1] ^ without[word + 1]) << 8;
        const auto fuse = fuses.find(frame);
        EXPECT_EQ(difference, fuse == fuses.end() ? 0u : fuse->second) << "core frame " << frame;
        unsigned fold = 0;
        for (std::size_t i = word - (frame_bytes - 4); i < word; i += 2)
            fold ^= without[i] | without[i + 1] << 8;
        EXPECT_EQ(without[word] | without[word + 1] << 8, fold) << "core frame " << frame;
    }
}

TEST_F(ToolsRelease, DatFileKeepsToTheCheckersFormat)
{
    const std::string base = die_dir("kestrel", "KS50") + "ks50_design01";
    make_dat("kestrel", "KS50", base);
    std::ifstream in(base + ".dat");
    std::string line;
    unsigned words = 0, comment_lines = 0, trailing_comments = 0;
    while (std::getline(in, line)) {
        ASSERT_LE(line.size(), 63u) << line;
        if (line.compare(0, 2, "//") == 0)
            ++comment_lines;
        else if (line.size() == 4 && line.find_first_not_of("0123456789ABCDEF") == std::string::npos)
            ++words;
        else if (line.size() > 4 && line.compare(4, 4, " // ") == 0)
            ++words, ++trailing_comments;
        else
            ADD_FAILURE() << "unexpected line " << line;
    }
    EXPECT_EQ(words * 2, PGM_DEVICE(*PGM_DEVICE_DATABASE::find_die("KS50")).get_stream_byte_size());
    EXPECT_GE(comment_lines, 6u);
    EXPECT_EQ(trailing_comments, 1u);
    for (const char* extension : {".cram", ".redfuses", ".s4_debug", ".s4_info", ".option_bits_out", ".cff"})
        EXPECT_TRUE(exists(base + extension)) << extension;
    EXPECT_FALSE(exists(base + ".dat.part"));
}

// Every refusal names its reason, leaves no DAT behind, and the emulator still ends with the line
// the remote scripts wait for.
struct REFUSAL {
    const char* name;
    const char* command;  // $R is the release, $D the C5D1 design base, $B the B5D1 design base
    int status;
    const char* reason;
};

class Refusal : public ToolsRelease, public testing::WithParamInterface<REFUSAL> {};

TEST_P(Refusal, NamesItsReason)
{
    const std::string c5d1 = die_dir("calder5", "C5D1") + "c5d1_design01";
    const std::string b5d1 = die_dir("boreal5", "B5D1") + "b5d1_design01";
    run(converter("calder5") + " " + c5d1 + ".sof " + c5d1 + ".img -s2i C5D1");
    run(converter("boreal5") + " " + b5d1 + ".sof " + b5d1 + ".img -s2i B5D1");
    std::remove((c5d1 + ".dat").c_str());
    std::string command = GetParam().command;
    for (const auto& variable : {std::make_pair("$R", s_release), std::make_pair("$D", c5d1), std::make_pair("$B", b5d1)})
        for (std::size_t at; (at = command.find(variable.first)) != std::string::npos;)
            command.replace(at, 2, variable.second);
    const RUN_RESULT result = run(command);
    EXPECT_EQ(result.status, GetParam().status) << result.output;
    EXPECT_NE(result.output.find(GetParam().reason), std::string::npos) << result.output;
    EXPECT_FALSE(exists(c5d1 + ".dat"));
    if (command.find("icd_emulator") != std::string::npos) {
        EXPECT_EQ(last_line(result.output).compare(0, 15, "End of running "), 0) << result.output;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Tools, Refusal,
    testing::Values(
        REFUSAL{"WrongDie", "$R/sof2img/calder5_sof2img.exe $D.sof $D.x.img -s2i C5D2", 2,
                "is a design for C5D1, not C5D2"},
        REFUSAL{"WrongFamily", "$R/sof2img/dunlin5_sof2img.exe $D.sof $D.x.img -s2i C5D1", 2,
                "is a calder5 design, not dunlin5"},
        REFUSAL{"Compressed", "$R/sof2img/calder5_sof2img.exe $R/calder5/C5D1/c5d1_design03.sof $D.x.img -s2i C5D1", 2,
                "is gzip-compressed; unpack it first"},
        REFUSAL{"NotASof", "$R/sof2img/calder5_sof2img.exe $R/RELEASE.txt $D.x.img -s2i C5D1", 2,
                "is not a SOF design file"},
        REFUSAL{"ConverterUsage", "$R/sof2img/calder5_sof2img.exe $D.sof", 1, "usage:"},
        REFUSAL{"OtherDiesImage", "$R/icd_emulator/C5D1/C5D1 -o $D -m3 -img $B.img", 2,
                "is an image for B5D1; this emulator is built for C5D1"},
        REFUSAL{"MissingRif", "$R/icd_emulator/B5D1/B5D1 -o $D -m3 -img $B.img", 2,
                "B5D1 needs its redundancy file (-rif)"},
        REFUSAL{"RifOfNoRedundancy", "$R/icd_emulator/C5D1/C5D1 -o $D -m3 -img $D.img -rif $R/boreal5/B5D1/B5D1.rif",
                2, "C5D1 has no redundancy; -rif does not apply"},
        REFUSAL{"OtherDiesRif", "$R/icd_emulator/B5D1/B5D1 -o $D -m3 -img $B.img -rif $D.sof", 2, "bad line"},
        REFUSAL{"Mode", "$R/icd_emulator/C5D1/C5D1 -o $D -m2 -img $D.img", 2, "mode 2 is not supported; use -m3"},
        REFUSAL{"DamagedImage", "printf 'X' | dd of=$D.img bs=1 seek=60 conv=notrunc 2>/dev/null; "
                                "$R/icd_emulator/C5D1/C5D1 -o $D -m3 -img $D.img",
                2, "is damaged"},
        REFUSAL{"EmulatorUsage", "$R/icd_emulator/C5D1/C5D1 -o $D", 1, "usage:"}),
    [](const testing::TestParamInfo<REFUSAL>& info) { return std::string(info.param.name); });

TEST_F(ToolsRelease, TreeLayout)
{
    for (const char* family : {"boreal5", "calder5", "dunlin5", "kestrel"})
        EXPECT_EQ(access(converter(family).c_str(), X_OK), 0) << family;
    const std::vector<std::pair<std::string, std::string>> dies = {
        {"boreal5", "B5D1"}, {"calder5", "C5D1"}, {"calder5", "C5D2"}, {"dunlin5", "D5D1"}, {"dunlin5", "D5D2"},
        {"kestrel", "KS50"}};
    for (const auto& [family, die] : dies) {
        std::string lower = die;
        for (char& c : lower)
            c = static_cast<char>(std::tolower(c));
        for (int k = 1; k <= 3; ++k) {
            const std::string path = die_dir(family, die) + lower + "_design0" + std::to_string(k) + ".sof";
            std::vector<unsigned char> bytes;
            ASSERT_TRUE(cb_read_file(path, bytes)) << path;
            const bool gzipped = bytes.size() > 3 && bytes[0] == 0x1F && bytes[1] == 0x8B && bytes[2] == 0x08;
            EXPECT_EQ(gzipped, k == 3) << path;
        }
        EXPECT_EQ(exists(die_dir(family, die) + die + ".rif"), family == "boreal5") << die;
        EXPECT_EQ(access(emulator(die).c_str(), X_OK), 0) << die;
        EXPECT_TRUE(exists(emulator(die) + ".model")) << die;
    }
    EXPECT_FALSE(exists(s_release + "/kestrel/KS470"));
    std::ifstream notes(s_release + "/RELEASE.txt");
    const std::string text((std::istreambuf_iterator<char>(notes)), {});
    EXPECT_NE(text.find("disagreement D5D2: "), std::string::npos) << text;
}

// A compressed design unpacks into one the programmer reads.
TEST_F(ToolsRelease, CompressedDesignsAreRealGzip)
{
    const std::string packed = die_dir("kestrel", "KS50") + "ks50_design03.sof";
    const std::string plain = s_root + "/ks50_design03.sof";
    gzFile in = gzopen(packed.c_str(), "rb");
    ASSERT_NE(in, nullptr);
    std::vector<unsigned char> bytes(1 << 16);
    const int size = gzread(in, bytes.data(), static_cast<unsigned>(bytes.size()));
    EXPECT_EQ(gzclose(in), Z_OK);
    ASSERT_GT(size, 0);
    ASSERT_TRUE(cb_write_file(plain, bytes.data(), static_cast<std::size_t>(size)));
    PGM_CHAIN_ELEMENT element(nullptr);
    element.set_design_file(plain);
    EXPECT_TRUE(element.create_chain_element(1, 0, "KS50", 0, 0, 0)) << element.get_error();
}

TEST(ReleaseMaker, RefusesUnknownDiesAndBadOptions)
{
    const std::string maker = build_dir() + "/bin/pgm_release_maker";
    const RUN_RESULT unknown = run(maker + " --out /tmp/never_made --dies C5D1,X9");
    EXPECT_EQ(unknown.status, 2);
    EXPECT_NE(unknown.output.find("unknown die X9"), std::string::npos) << unknown.output;
    for (const char* options : {"", "--out", "--out /tmp/never_made --sofs 0", "--out /tmp/never_made --colour red"})
        EXPECT_EQ(run(maker + " " + options).status, 1) << options;
    EXPECT_FALSE(exists("/tmp/never_made"));
}

// The tools' own arithmetic against outside references: the frame CRC is CRC-16/ARC, and the
// error-detection engine equals the bit-by-bit definition for any number of words.
TEST(ControlBlockArithmetic, FrameCrcIsArcAndEdcrcFollowsTheDefinition)
{
    const unsigned char check[] = "123456789";
    EXPECT_EQ(cb_frame_crc16(check, 9), 0xBB3D);
    std::mt19937 random(3);
    std::vector<unsigned char> data(4 * 40);
    for (unsigned char& byte : data)
        byte = static_cast<unsigned char>(random());
    for (std::size_t words = 0; words <= 40; words += (words < 17 ? 1 : 23))
        for (std::uint32_t seed : {0u, 1u, 0xFFFFFFFFu})
            EXPECT_EQ(cb_edcrc(data.data(), words, seed), reference_edcrc(data.data(), 0, 32 * words, seed, 32))
                << words << " words, seed " << seed;
}

} // namespace
