// A regression through the real panel and the loopback site: "Check" walks the families and dies
// of a release made by the release maker, the images come from the family converters run on the
// workstation over the site's ssh, the DAT files from each die's emulator on the data-build host,
// and the log holds a verdict per SOF, genuinely: the die whose emulator disagrees fails.
#include "pof_test_support.h"

#include <chrono>
#include <set>

namespace {

const unsigned SOFS = 3;

class PofRegression : public ::testing::Test, POF_APPLICATION_FIRST {
protected:
    POF_TEST_SITE site{"pof_regression"};
    PGMDQ_POF_CHECKER checker;
    PGMDQ_POF_CHECKER_TEST_ACCESS access{checker};

    std::string die_dir(const std::string& family, const std::string& die) const
    {
        return site.root() + family + "/" + die + "/";
    }
};

// Every second SOF of the release is stored compressed (the 2nd of each die). In a regression the
// unpacked copies are named from the test directory, not the die directory, so compressed SOFs
// stay as they are and the converter makes no image of them: only the plain SOFs get a verdict.
TEST_F(PofRegression, ChecksEveryReadyFamilyDieByDie)
{
    // Each family's last die is there (a family whose last die fails ends the run), but for
    // the last family's.
    ASSERT_TRUE(site.make_release("C5D4,D5D2,D5D5,KS50", SOFS, 2));
    site.log_in(access);
    ASSERT_TRUE(access.check_button()->isEnabled());

    const auto begin = std::chrono::steady_clock::now();
    access.check_button()->click();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    std::printf("regression wall time: %.1f s\n", seconds);
    RecordProperty("regression_seconds", std::to_string(seconds));

    // Per family, its dies in order: missing from the release, or there with an emulator that
    // agrees or disagrees with the programmer.
    enum DIE_STATE { MISSING, AGREES, DISAGREES };
    struct FAMILY {
        std::string key, title;
        std::vector<std::pair<std::string, DIE_STATE>> dies;
    };
    const std::vector<FAMILY> families = {
        {"calder5", "Calder 5", {{"C5D1", MISSING}, {"C5D2", MISSING}, {"C5D3", MISSING}, {"C5D4", AGREES}}},
        {"dunlin5", "Dunlin 5", {{"D5D1", MISSING}, {"D5D2", DISAGREES}, {"D5D3", MISSING}, {"D5D4", MISSING}, {"D5D5", AGREES}}},
        {"kestrel", "Kestrel", {{"KS50", AGREES}, {"KS120", MISSING}, {"KS470", MISSING}}}};
    // One log-in for each die's images and one for each plain SOF's DAT file; the die directories
    // hold their SOFs and the three raw binaries of each compared SOF only.
    std::vector<std::string> expected = {"Warning: Skip Boreal 5 - not ready yet"}, logins, summary;
    for (const FAMILY& family : families) {
        expected.push_back("Info: Checking " + family.title + " ...");
        for (const auto& [die, state] : family.dies) {
            if (state == MISSING) {
                expected.push_back("Error: File directory of " + die + " is missing (" + die_dir(family.key, die) + ")");
                continue;
            }
            expected.push_back("Info: Found 2 image file(s)");
            logins.push_back(site.root() + "auto_gen_img.py");
            std::set<std::string> die_files;
            for (unsigned number = 1; number <= SOFS; ++number) {
                const std::string name = pof_test_design(die, number);
                const std::string base = die_dir(family.key, die) + name;
                die_files.insert(name + ".sof");
                if (number == 2) {
                    summary.push_back("Warning: Summary: " + base + ".sof has no verdict: stored compressed, which a "
                                      "regression leaves as it is: no image is made of it");
                    continue;
                }
                if (state == DISAGREES)
                    summary.push_back("Warning: Summary: " + base + ".sof failed: the bit streams first differ at byte ");
                expected.push_back((state == AGREES ? "Info: POF checking passed - " : "POF Error: POF checking failed - ") +
                                   base + ".sof");
                logins.push_back(base + ".py");
                for (const char* rbf : {".rbf", ".icd.rbf", ".pgm.icd.rbf"})
                    die_files.insert(name + rbf);
            }
            EXPECT_EQ(pof_test_files(die_dir(family.key, die)), die_files) << die;
        }
    }
    EXPECT_EQ(access.log(), expected);
    // The summary: the counts, then each design without a pass in the walk's order; a failure
    // says where its streams first differ.
    std::vector<std::string> got = access.summary();
    ASSERT_EQ(got.size(), summary.size() + 1);
    EXPECT_EQ(got.front(), "Info: Summary: 12 designs checked, 6 passed, 2 failed, 4 skipped");
    for (size_t i = 0; i < summary.size(); ++i)
        EXPECT_EQ(got[i + 1].substr(0, summary[i].size()), summary[i]);
    EXPECT_TRUE(access.send_button()->isEnabled());  // a POF error was logged
    EXPECT_EQ(site.python_runs(), logins);

    // No script is left anywhere and the password is in no file of the share or of the hosts'
    // sessions.
    EXPECT_EQ(pof_test_files(site.root(), "-name '*.py' -o -name '*.pl' -o -name '*.tmp' -o -type d -name 'auto_gen_*'"),
              std::set<std::string>());
    EXPECT_EQ(site.files_with_password(site.root()), "");
    EXPECT_EQ(site.files_with_password(site.build() + "/site/hosts"), "");
}

} // namespace
