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
    std::string sof(const std::string& family, const std::string& die, unsigned number) const
    {
        std::string lower = die;
        for (char& c : lower)
            c = char(std::tolower(static_cast<unsigned char>(c)));
        return die_dir(family, die) + lower + "_design0" + std::to_string(number) + ".sof";
    }
    std::set<std::string> files(const std::string& dir, const std::string& find_options = "") const
    {
        std::set<std::string> names;
        const std::string listing = pof_test_read_command("cd " + dir + " && find . " + find_options + " -type f");
        for (size_t begin = 0, end; (end = listing.find('\n', begin)) != std::string::npos; begin = end + 1)
            names.insert(listing.substr(begin + 2, end - begin - 2));
        return names;
    }
    // What a die directory holds after its check: the SOFs, and the three raw binaries of every
    // SOF that was compared.
    std::set<std::string> checked_die_files(const std::string& die, const std::set<unsigned>& compared) const
    {
        std::set<std::string> names;
        std::string lower = die;
        for (char& c : lower)
            c = char(std::tolower(static_cast<unsigned char>(c)));
        for (unsigned number = 1; number <= SOFS; ++number) {
            const std::string base = lower + "_design0" + std::to_string(number) + ".";
            names.insert(base + "sof");
            if (compared.count(number))
                for (const char* rbf : {"rbf", "icd.rbf", "pgm.icd.rbf"})
                    names.insert(base + rbf);
        }
        return names;
    }
};

// Every second SOF of the release is stored compressed (the 2nd of each die). In a regression the
// unpacked copies are named from the test directory, not the die directory, so compressed SOFs
// stay as they are and the converter makes no image of them: only the plain SOFs get a verdict.
TEST_F(PofRegression, ChecksEveryReadyFamilyDieByDie)
{
    ASSERT_TRUE(site.make_release("C5D1,D5D1,D5D2,KS50", SOFS, 2));
    site.log_in(access);
    ASSERT_TRUE(access.check_button()->isEnabled());

    const auto begin = std::chrono::steady_clock::now();
    access.check_button()->click();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    std::printf("regression wall time: %.1f s\n", seconds);
    RecordProperty("regression_seconds", std::to_string(seconds));

    const std::string root = site.root();
    const auto missing = [&](const std::string& family, const std::string& die) {
        return "Error: File directory of " + die + " is missing (" + die_dir(family, die) + ")";
    };
    const auto passed = [&](const std::string& family, const std::string& die) {
        return std::vector<std::string>{"Info: Found 2 image file(s)",
                                        "Info: POF checking passed - " + sof(family, die, 1),
                                        "Info: POF checking passed - " + sof(family, die, 3)};
    };
    std::vector<std::string> expected = {"Warning: Skip Boreal 5 - not ready yet", "Info: Checking Calder 5 ..."};
    for (const std::string& line : passed("calder5", "C5D1"))
        expected.push_back(line);
    for (const char* die : {"C5D2", "C5D3", "C5D4"})
        expected.push_back(missing("calder5", die));
    expected.push_back("Info: Checking Dunlin 5 ...");
    for (const std::string& line : passed("dunlin5", "D5D1"))
        expected.push_back(line);
    expected.push_back("Info: Found 2 image file(s)");
    expected.push_back("POF Error: POF checking failed - " + sof("dunlin5", "D5D2", 1));
    expected.push_back("POF Error: POF checking failed - " + sof("dunlin5", "D5D2", 3));
    for (const char* die : {"D5D3", "D5D4", "D5D5"})
        expected.push_back(missing("dunlin5", die));
    expected.push_back("Info: Checking Kestrel ...");
    for (const std::string& line : passed("kestrel", "KS50"))
        expected.push_back(line);
    for (const char* die : {"KS120", "KS470"})
        expected.push_back(missing("kestrel", die));
    EXPECT_EQ(access.log(), expected);
    EXPECT_TRUE(access.send_button()->isEnabled());  // a POF error was logged

    // One log-in for each die's images and one for each plain SOF's DAT file.
    std::vector<std::string> logins;
    for (const auto& [family, die] : std::vector<std::pair<std::string, std::string>>{
             {"calder5", "C5D1"}, {"dunlin5", "D5D1"}, {"dunlin5", "D5D2"}, {"kestrel", "KS50"}}) {
        logins.push_back(root + "auto_gen_img.py");
        for (unsigned number : {1u, 3u}) {
            const std::string path = sof(family, die, number);
            logins.push_back(path.substr(0, path.size() - 4) + ".py");
        }
    }
    EXPECT_EQ(site.python_runs(), logins);

    // The die directories hold their SOFs and raw binaries only; no script is left anywhere and
    // the password is in no file of the share or of the hosts' sessions.
    EXPECT_EQ(files(die_dir("calder5", "C5D1")), checked_die_files("C5D1", {1, 3}));
    EXPECT_EQ(files(die_dir("dunlin5", "D5D1")), checked_die_files("D5D1", {1, 3}));
    EXPECT_EQ(files(die_dir("dunlin5", "D5D2")), checked_die_files("D5D2", {1, 3}));
    EXPECT_EQ(files(die_dir("kestrel", "KS50")), checked_die_files("KS50", {1, 3}));
    EXPECT_EQ(files(root, "-name '*.py' -o -name '*.pl' -o -type d -name 'auto_gen_*'"), std::set<std::string>());
    EXPECT_EQ(site.files_with_password(root), "");
    EXPECT_EQ(site.files_with_password(site.build() + "/site/hosts"), "");
}

} // namespace
