// The comparison of PGM and ICD raw binaries on a release made by the release maker, with images
// from the family converters and DAT files from each die's control-block emulator: a good die
// passes, a flipped DAT bit fails exactly its SOF, the disagreeing emulator fails every SOF,
// missing inputs are reported and the others still compared, and the debug box writes the core
// sections.
#include "pof_test_support.h"

#include "pgm.h"

#include <cstdlib>
#include <functional>

namespace {

const unsigned CALDER5 = 1, DUNLIN5 = 2;
const unsigned C5D1 = 6, D5D2 = 11;
const unsigned SOFS = 3;

bool succeeds(const std::string& command)
{
    return run(command).status == 0;
}

class PofCompare : public ::testing::Test, POF_APPLICATION_FIRST {
protected:
    static std::string release;

    // One release for the program: small dies, uncompressed designs.
    static void SetUpTestSuite()
    {
        release = pof_test_temp_dir("pof_compare");
        ASSERT_TRUE(succeeds(build_dir() + "/bin/pgm_release_maker --out " + release + " --sofs " + std::to_string(SOFS) +
                        " --gzip-every 0 --dies C5D1,D5D2"));
    }
    static void TearDownTestSuite() { run("rm -rf " + release); }

    PGMDQ_POF_CHECKER checker;
    PGMDQ_POF_CHECKER_TEST_ACCESS access{checker};
    std::string die_dir;
    std::vector<std::string> sofs;

    // A fresh copy of a die directory with every SOF's image and DAT made by the suite's tools,
    // as the image and DAT steps leave it.
    void prepare_die(unsigned family_row, unsigned die_row)
    {
        const std::string family = PGMDQ_POF_FAMILY_LIST[family_row].key;
        const std::string die = PGMDQ_POF_DIE_LIST[die_row].die;
        die_dir = pof_test_temp_dir("pof_die");
        ASSERT_TRUE(succeeds("cp " + release + family + "/" + die + "/*.sof " + die_dir));
        const std::set<std::string> copied = pof_test_files(die_dir);
        sofs.assign(copied.begin(), copied.end());
        ASSERT_EQ(sofs.size(), SOFS);
        for (unsigned i = 0; i < SOFS; ++i) {
            ASSERT_TRUE(succeeds(release + "sof2img/" + family + "_sof2img.exe " + path(i, "sof") + " " + path(i, "img") +
                                 " -s2i " + die));
            ASSERT_TRUE(succeeds(release + "icd_emulator/" + die + "/" + die + " -o " + base(i) + " -m3 -img " + path(i, "img")));
        }
        access.set_die(family_row, die_row, die_dir);
        access.set_sof_files(sofs);
    }
    ~PofCompare() override { run("rm -rf " + die_dir); }

    std::string base(unsigned i) const { return die_dir + sofs[i].substr(0, sofs[i].size() - 4); }
    std::string path(unsigned i, const std::string& tail) const { return base(i) + "." + tail; }

    std::vector<std::string> verdicts(const std::vector<bool>& passed) const
    {
        std::vector<std::string> lines;
        for (unsigned i = 0; i < passed.size(); ++i)
            lines.push_back(passed[i] ? "Info: POF checking passed - " + die_dir + sofs[i]
                                      : "POF Error: POF checking failed - " + die_dir + sofs[i]);
        return lines;
    }

    // Flips the lowest bit of the word in the middle of a DAT file.
    void flip_bit_in_dat(const std::string& dat)
    {
        std::string text = pof_test_read(dat);
        size_t word_line = text.find('\n', text.size() / 2) + 1;
        while (text[word_line] == '/')
            word_line = text.find('\n', word_line) + 1;
        char& digit = text[word_line + 3];
        const int value = std::stoi(std::string(1, digit), nullptr, 16) ^ 1;
        digit = "0123456789ABCDEF"[value];
        pof_test_write(dat, text);
    }
};

std::string PofCompare::release;

} // namespace

// A good die passes and its directory is cleaned; a flipped DAT bit fails exactly that SOF; the
// die whose emulator disagrees with the programmer fails every SOF.
TEST_F(PofCompare, VerdictsFollowTheComparedBytes)
{
    struct CASE {
        unsigned family_row, die_row;
        int flipped;  // the SOF whose DAT gets a flipped bit, -1 for none
        std::vector<bool> passed;
    };
    for (const CASE& c : {CASE{CALDER5, C5D1, -1, {true, true, true}}, CASE{CALDER5, C5D1, 1, {true, false, true}},
                          CASE{DUNLIN5, D5D2, -1, {false, false, false}}}) {
        access.clear_log();
        prepare_die(c.family_row, c.die_row);
        if (c.flipped >= 0)
            flip_bit_in_dat(path(unsigned(c.flipped), "dat"));
        EXPECT_TRUE(checker.create_rbf_in_thread());
        EXPECT_EQ(access.log(), verdicts(c.passed));
        for (unsigned i = 0; i < SOFS; ++i) {
            if (!c.passed[i])
                continue;
            EXPECT_TRUE(pof_test_exists(path(i, "rbf")));
            EXPECT_EQ(pof_test_read(path(i, "pgm.icd.rbf")), pof_test_read(path(i, "icd.rbf")) + std::string(24, '\0'))
                << "the patched stream with the control block's padding";
            for (const char* input : {"img", "dat", "cram"})
                EXPECT_FALSE(pof_test_exists(path(i, input)));
            EXPECT_FALSE(pof_test_exists(base(i) + "_icdcore_0.rbf")) << "core sections only with the debug box";
        }
        run("rm -rf " + die_dir);
    }
}

// Missing or unreadable inputs are reported and the other SOFs are still compared: an ICD RBF
// missing where the user skipped making them, a design the programmer cannot read, and no image
// at all (so no DAT file either).
TEST_F(PofCompare, MissingInputsAreReported)
{
    struct CASE {
        std::function<void()> sabotage;
        bool skip_all, thread, result;
        std::function<std::vector<std::string>()> log;
    };
    const CASE cases[] = {
        {[&] {
             for (unsigned i = 0; i < SOFS; ++i)
                 checker.create_icd_rbf(path(i, "dat"));
             run("rm " + path(1, "icd.rbf"));
         },
         true, false, true,
         [&] {
             return std::vector<std::string>{verdicts({true})[0],
                                             "POF Error: Fail to get source file(s) - comparison terminated : " + path(1, "icd.rbf"),
                                             verdicts({true, true, true})[2]};
         }},
        {[&] { pof_test_write(die_dir + sofs[2], "not a design"); }, false, true, true,
         [&] {
             std::vector<std::string> lines = verdicts({true, true});
             lines.push_back("POF Error: Programmer fail to generate RBF for " + die_dir + sofs[2]);
             return lines;
         }},
        {[&] { run("rm " + die_dir + "*.img"); }, false, false, false,
         [] { return std::vector<std::string>{"Error: Fail to create any dat file for C5D1"}; }},
    };
    for (const CASE& c : cases) {
        access.clear_log();
        prepare_die(CALDER5, C5D1);
        c.sabotage();
        access.set_skips(c.skip_all, c.skip_all, c.skip_all);
        EXPECT_EQ(c.thread ? checker.create_rbf_in_thread() : checker.create_rbf(), c.result);
        EXPECT_EQ(access.log(), c.log());
        if (c.skip_all) {
            EXPECT_TRUE(pof_test_exists(path(0, "img"))) << "skipped steps keep their inputs";
        }
        run("rm -rf " + die_dir);
    }
}

TEST_F(PofCompare, DebugBoxWritesEachCoreSection)
{
    prepare_die(CALDER5, C5D1);
    access.debug_check()->setChecked(true);
    EXPECT_TRUE(checker.create_rbf_in_thread());
    const PGM_DIE_INFO* die = PGM_DEVICE_DATABASE::find_die("C5D1");
    ASSERT_NE(die, nullptr);
    for (unsigned i = 0; i < SOFS; ++i)
        for (unsigned n = 0; n < die->core_sections; ++n) {
            const std::string icd = pof_test_read(base(i) + "_icdcore_" + std::to_string(n) + ".rbf");
            EXPECT_EQ(icd.size(), size_t(die->core_frames) * die->frame_bits / 8);
            EXPECT_EQ(pof_test_read(base(i) + "_pgmcore_" + std::to_string(n) + ".rbf"), icd) << "passed: equal";
        }
    EXPECT_FALSE(pof_test_exists(base(0) + "_icdcore_" + std::to_string(die->core_sections) + ".rbf"));
}
