// The Check flow's pieces through the loopback site: the walk's error lines (and whether the run
// goes on), the separators of a die directory, the listing and unpacking of SOFs, personal tests
// with each skip combination, the recursive switch and names of any form, the account's rules,
// and how many log-ins the image step takes.
#include "pof_test_support.h"

#include "pgmdq_miscellaneous_files.h"

#include <algorithm>
#include <functional>

namespace {

const unsigned BOREAL5 = 0, CALDER5 = 1;
const unsigned B5D1 = 0, C5D1 = 6;

std::vector<std::string> sorted(std::vector<std::string> lines)
{
    std::sort(lines.begin(), lines.end());
    return lines;
}

class PofCheck : public ::testing::Test, POF_APPLICATION_FIRST {
protected:
    POF_TEST_SITE site{"pof_check"};
    PGMDQ_POF_CHECKER checker;
    PGMDQ_POF_CHECKER_TEST_ACCESS access{checker};

    std::vector<std::string> missing_dies(const std::string& family, std::vector<std::string> dies) const
    {
        std::vector<std::string> lines;
        for (const std::string& die : dies)
            lines.push_back("Error: File directory of " + die + " is missing (" + site.root() + family + "/" + die +
                            "/)");
        return lines;
    }

    // A regression over a release that has only C5D1: the log from the Calder 5 line on, with
    // `c5d1_lines` in the place of that die's lines. The family's last die is missing, so the
    // run ends with Calder 5.
    std::vector<std::string> regression_log(const std::vector<std::string>& c5d1_lines) const
    {
        std::vector<std::string> log = {"Warning: Skip Boreal 5 - not ready yet", "Info: Checking Calder 5 ..."};
        log.insert(log.end(), c5d1_lines.begin(), c5d1_lines.end());
        for (const std::string& line : missing_dies("calder5", {"C5D2", "C5D3", "C5D4"}))
            log.push_back(line);
        return log;
    }
};

// ---------------------------------------------------------------------------------------------
// The walk's error lines

// Each case breaks one thing in a release that has only C5D1. A missing converter or a die
// without SOFs ends that die before any script and the family goes on; a die directory that
// cannot be cleared stops the family and with it the run; a missing test directory stops the run
// before anything.
TEST_F(PofCheck, WalkErrorsEndTheDieTheFamilyOrTheRun)
{
    const std::string die_dir = site.root() + "calder5/C5D1/";
    const std::string converter = site.root() + "sof2img/calder5_sof2img.exe";
    struct CASE {
        std::function<void()> sabotage;
        std::vector<std::string> log;
    };
    const CASE cases[] = {
        {[&] { pof_test_read_command("rm " + converter); },
         regression_log({"Error: SOF2IMG executable of Calder 5 is missing (" + converter + ")"})},
        {[&] { pof_test_read_command("rm " + die_dir + "*.sof"); },
         regression_log({"Error: Can't detect any sof in directory " + die_dir})},
        {[&] { gen_set_setting("pof_checker/rk_linux_test_dir", site.root() + "nowhere/"); },
         {"Error: Fail to get test directory " + site.root() + "nowhere/"}},
        // Last: the stand-in rm stays on the PATH.
        {[&] {
             pof_test_write(die_dir + "stuck.txt", "");
             site.add_program("rm", "case \"$*\" in *stuck*) exit 1;; esac\nexec /bin/rm \"$@\"\n");
         },
         {"Warning: Skip Boreal 5 - not ready yet", "Info: Checking Calder 5 ...",
          "Error: Fail to clear directory " + die_dir}},
    };
    for (const CASE& c : cases) {
        pof_test_read_command("rm -rf " + site.root() + "*");
        site.clear_runs();
        gen_set_setting("pof_checker/rk_linux_test_dir", site.root());
        ASSERT_TRUE(site.make_release("C5D1", 1, 0));
        c.sabotage();
        site.log_in(access);
        access.clear_log();
        access.check_button()->click();
        EXPECT_EQ(access.log(), c.log);
        EXPECT_TRUE(site.perl_runs().empty());
        EXPECT_TRUE(site.python_runs().empty());
    }
}

// A die without SOFs does not stop the family; a missing redundancy file does.
TEST_F(PofCheck, MissingRedundancyFileStopsTheFamily)
{
    ASSERT_TRUE(site.make_release("C5D1", 1, 0));
    pof_test_read_command("mkdir -p " + site.root() + "boreal5/B5D1 && touch " + site.root() + "boreal5/B5D1/B5D1.rif");
    access.set_current_path(site.root());
    access.set_family_die(BOREAL5, B5D1);
    EXPECT_FALSE(checker.check_family_pof("boreal5"));
    EXPECT_EQ(access.log(), (std::vector<std::string>{
                                "Error: Can't detect any sof in directory " + site.root() + "boreal5/B5D1/",
                                "Error: Redundancy file of B5D2 is missing (" + site.root() + "boreal5/B5D2/B5D2.rif)"}));
    EXPECT_EQ(pof_test_internal_error([&] { checker.check_family_pof(""); }), "!family.empty()");
    EXPECT_EQ(pof_test_internal_error([&] { checker.check_family_pof("osprey"); }), "found");
    access.set_current_path("");
    EXPECT_EQ(pof_test_internal_error([&] { checker.check_die_dir("calder5", "C5D1"); }), "m_current_path.size() > 0");
}

// The die directory takes the separator the work directory's path ends with.
TEST_F(PofCheck, DieDirectorySeparatorFollowsThePathsForm)
{
    for (const auto& [current_path, die_dir] : std::vector<std::pair<std::string, std::string>>{
             {"R:\\rel", "R:\\rel\\calder5\\C5D1\\"}, {"R:\\rel\\", "R:\\rel\\calder5\\C5D1\\"},
             {"/nowhere/rel", "/nowhere/rel/calder5/C5D1/"}, {"/nowhere/rel/", "/nowhere/rel/calder5/C5D1/"},
             {"R:\\rel/", "R:\\rel/calder5/C5D1/"}, {"R:\\rel/x\\", "R:\\rel/x\\calder5/C5D1/"}}) {
        access.set_current_path(current_path);
        EXPECT_FALSE(checker.check_die_dir("calder5", "C5D1"));
        EXPECT_EQ(access.die_dir(), die_dir) << current_path;
        EXPECT_EQ(access.checked_path(), die_dir);
        EXPECT_EQ(access.rk_die_dir(), site.root() + "calder5/C5D1/");
    }
}

// Compressed SOFs are unpacked in place, up to a hundred by one script, more split over threads.
// A 3-byte file that is all gzip header is a SOF but never counts as compressed; other files are
// no SOFs.
TEST_F(PofCheck, SofsAreListedAndUnpackedInPlace)
{
    struct CASE {
        unsigned compressed;
        std::vector<std::string> scripts;
    };
    for (const CASE& c : {CASE{0, {}}, CASE{100, {"auto_unzipped.pl"}}, CASE{101, {"auto_unzipped0.pl", "auto_unzipped1.pl"}}}) {
        const std::string dir = site.root() + "sofs/";
        pof_test_read_command("rm -rf " + dir + "; mkdir -p " + dir + " && cd " + dir +
                              " && printf 'plain' > a.sof && printf '\\037\\213\\010' > c.sof && touch d.img; for i in $(seq 100 " +
                              std::to_string(99 + c.compressed) + "); do echo design$i | gzip > s$i.sof; done");
        access.set_die(CALDER5, C5D1, dir);
        site.clear_runs();
        EXPECT_TRUE(checker.check_sof());
        EXPECT_EQ(access.sof_size(), c.compressed + 2) << c.compressed;
        std::vector<std::string> expected;
        for (const std::string& script : c.scripts)
            expected.push_back(dir + script);
        EXPECT_EQ(sorted(site.perl_runs()), expected) << c.compressed;
        EXPECT_EQ(pof_test_read(dir + "a.sof"), "plain");
        EXPECT_EQ(pof_test_read(dir + "c.sof"), "\x1f\x8b\x08");
        EXPECT_EQ(pof_test_read_command("cat " + dir + "s*.sof 2>/dev/null | grep -c design"), std::to_string(c.compressed) + "\n");
        EXPECT_EQ(pof_test_read_command("ls " + dir + " | grep -v -c '^[acs][0-9]*[.]sof$\\|^d[.]img$'"), "0\n")
            << "scripts are gone";
    }
}

// ---------------------------------------------------------------------------------------------
// Personal tests

class PofPersonal : public PofCheck {
protected:
    std::string dir;
    std::vector<std::string> sofs = {"c5d1_design01", "c5d1_design02", "c5d1_design03"};

    // The personal directory below the data root with the release's three C5D1 SOFs, the 2nd of
    // them compressed.
    void prepare(unsigned count)
    {
        ASSERT_TRUE(site.make_release("C5D1", 3, 2));
        sofs.resize(count);
        dir = site.data_root() + site.name() + "/personal/";
        pof_test_read_command("mkdir " + dir);
        for (const std::string& sof : sofs)
            pof_test_read_command("cp " + site.root() + "calder5/C5D1/" + sof + ".sof " + dir);
        site.log_in(access);
        access.personal_test_check()->click();
        access.dir_edit()->setText(QString::fromStdString(site.name() + "/personal"));
        access.family_combo()->setCurrentIndex(0);
        access.die_combo()->setCurrentIndex(0);
    }
    // Products a skipped step would have made, by the release's own tools.
    void premake(const std::vector<std::string>& products)
    {
        // The tools read plain SOFs; with nothing made beforehand the run unpacks them itself.
        for (const std::string& sof : products.empty() ? std::vector<std::string>() : sofs) {
            const std::string base = dir + sof;
            pof_test_read_command("cd " + dir + " && (gzip -t " + sof + ".sof 2>/dev/null && zcat " + sof + ".sof > u && mv u " +
                                  sof + ".sof); true");
            for (const std::string& product : products) {
                if (product == "img")
                    pof_test_read_command(site.root() + "sof2img/calder5_sof2img.exe " + base + ".sof " + base +
                                          ".img -s2i C5D1");
                if (product == "dat")
                    pof_test_read_command(site.root() + "icd_emulator/C5D1/C5D1 -o " + base + " -m3 -img " + base +
                                          ".img && rm -f " + base + ".cram " + base + ".redfuses " + base +
                                          ".s4_* " + base + ".option_bits_out " + base + ".cff");
                if (product == "icd.rbf")
                    checker.create_icd_rbf(base + ".dat");
            }
        }
    }
    std::vector<std::string> passed_lines(bool with_images) const
    {
        std::vector<std::string> lines;
        if (with_images)
            lines.push_back("Info: Found " + std::to_string(sofs.size()) + " image file(s)");
        for (const std::string& sof : sofs)
            lines.push_back("Info: POF checking passed - " + dir + sof + ".sof");
        return lines;
    }
    std::set<std::string> listing() const { return pof_test_files(dir, "-maxdepth 1 -type f"); }
    std::set<std::string> expected_listing(std::vector<std::string> kept) const
    {
        kept.insert(kept.end(), {"sof", "rbf", "icd.rbf", "pgm.icd.rbf"});
        std::set<std::string> names;
        for (const std::string& sof : sofs)
            for (const std::string& ext : kept)
                names.insert(sof + "." + ext);
        return names;
    }
    std::vector<std::string> with_dir(const std::vector<std::string>& names) const
    {
        std::vector<std::string> paths;
        for (const std::string& name : names)
            paths.push_back(dir + name);
        return paths;
    }
};

struct SKIP_CASE {
    const char* name;
    QCheckBox* (PGMDQ_POF_CHECKER_TEST_ACCESS::*click)();  // the skip box clicked, if any
    std::vector<std::string> premade;   // made before the run: "img", "dat", "icd.rbf"
    std::vector<std::string> logins;    // the Python scripts run, sorted, in the directory
    std::vector<std::string> kept;      // extensions left beside the SOFs besides the raw binaries
};

class PofSkips : public PofPersonal, public ::testing::WithParamInterface<SKIP_CASE> {};

TEST_P(PofSkips, SkipBoxesLeaveOutTheirStepsAndKeepTheirInputs)
{
    const SKIP_CASE& c = GetParam();
    prepare(3);
    premake(c.premade);
    if (c.click)
        (access.*c.click)()->click();
    access.check_button()->click();
    EXPECT_EQ(access.log(), passed_lines(c.click == nullptr));
    EXPECT_EQ(sorted(site.python_runs()), with_dir(c.logins));
    EXPECT_EQ(listing(), expected_listing(c.kept));
    EXPECT_EQ(site.files_with_password(site.data_root() + site.name()), "");
}

INSTANTIATE_TEST_SUITE_P(
    Skips, PofSkips,
    ::testing::Values(
        SKIP_CASE{"Nothing", nullptr, {}, {"auto_gen_dat0.py", "auto_gen_dat1.py", "auto_gen_dat2.py", "auto_gen_img.py"}, {}},
        SKIP_CASE{"Images", &PGMDQ_POF_CHECKER_TEST_ACCESS::skip_img_check, {"img"}, {"auto_gen_dat0.py", "auto_gen_dat1.py", "auto_gen_dat2.py"}, {"img"}},
        SKIP_CASE{"ImagesAndDat", &PGMDQ_POF_CHECKER_TEST_ACCESS::skip_dat_check, {"img", "dat"}, {}, {"img", "dat"}},
        SKIP_CASE{"Everything", &PGMDQ_POF_CHECKER_TEST_ACCESS::skip_icd_rbf_check, {"img", "dat", "icd.rbf"}, {}, {"img", "dat"}}),
    [](const ::testing::TestParamInfo<SKIP_CASE>& info) { return std::string(info.param.name); });

// One SOF never makes DAT files in threads: its DAT comes from its own script. With the
// recursive switch each sub-directory is checked instead of the directory, or the directory
// itself when it has none. Sub-directories are named with a backslash appended, on every
// platform, so each is reported as holding no SOF.
struct RECURSION_CASE {
    const char* name;
    bool recursive;
    std::vector<std::string> sub_dirs;  // the first with a copy of the SOF
};

class PofRecursion : public PofPersonal, public ::testing::WithParamInterface<RECURSION_CASE> {};

TEST_P(PofRecursion, SwitchDecidesWhichDirectoriesAreChecked)
{
    const RECURSION_CASE& c = GetParam();
    prepare(1);
    for (const std::string& sub : c.sub_dirs)
        pof_test_read_command("mkdir " + dir + sub + (sub == c.sub_dirs[0] ? " && cp " + dir + "*.sof " + dir + sub : ""));
    gen_set_setting("switches/PGMDQ_RECURSIVE_PERSONEL_TEST", c.recursive ? "on" : "off");
    access.check_button()->click();
    gen_set_setting("switches/PGMDQ_RECURSIVE_PERSONEL_TEST", "off");
    if (c.recursive && !c.sub_dirs.empty()) {
        std::vector<std::string> errors;
        for (const std::string& sub : c.sub_dirs)
            errors.push_back("Error: Can't detect any sof in directory " + dir + sub + "\\");
        EXPECT_EQ(sorted(access.log()), errors);
        EXPECT_TRUE(site.python_runs().empty());
    } else {
        EXPECT_EQ(access.log(), passed_lines(true));
        EXPECT_EQ(site.python_runs(), with_dir({"auto_gen_img.py", "c5d1_design01.py"}));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Switch, PofRecursion,
    ::testing::Values(RECURSION_CASE{"OnWithoutSubDirectories", true, {}}, RECURSION_CASE{"OnWithSubDirectories", true, {"a", "b"}},
                      RECURSION_CASE{"Off", false, {"a"}}),
    [](const ::testing::TestParamInfo<RECURSION_CASE>& info) { return std::string(info.param.name); });

// Scripts a killed run left behind go when the folder is checked again, even when no clean-up of
// the folder runs: here the images are given (the folder is not cleared first) and the log-ins
// are refused (the die stops before its last clean-up).
TEST_F(PofPersonal, ScriptsOfAKilledRunGoWhenTheFolderIsCheckedAgain)
{
    prepare(3);
    premake({"img"});
    for (const char* leftover : {"auto_gen_img4.py", "auto_gen_dat7.pl", "c5d1_design03.py"})
        pof_test_write(dir + leftover, "p.sendline('a password of an older run')\n");
    access.skip_img_check()->click();
    access.password_edit()->setText("wrong");
    access.check_button()->click();
    EXPECT_EQ(access.log().back(), "Error: loopback-linux refused the log-in: wrong user name or password");
    EXPECT_EQ(pof_test_read_command("cd " + dir + " && ls *.py *.pl 2>/dev/null"), "");
}

// A folder and SOFs with blanks, quotes, "$", ";", backquotes, a leading "-" and non-ASCII in
// their names are checked like any other, through every script and log-in (one of them is
// unpacked first), the products are removed by their names, and nothing their names spell runs.
TEST_F(PofPersonal, NamesOfAnyFormAreChecked)
{
    prepare(2);
    const std::string folder = "it's a \"$dir\"; `touch injected` \u00e9";
    const std::string renamed = site.data_root() + site.name() + "/" + folder + "/";
    pof_test_read_command("mv " + pgmdq_shell_quote(dir) + " " + pgmdq_shell_quote(renamed));
    const std::vector<std::string> names = {"-my sof $1", "b;`touch injected`"};
    for (size_t i = 0; i < names.size(); ++i)
        pof_test_read_command("mv " + pgmdq_shell_quote(renamed + sofs[i] + ".sof") + " " +
                              pgmdq_shell_quote(renamed + names[i] + ".sof"));
    dir = renamed;
    sofs = names;
    access.dir_edit()->setText(QString::fromStdString(site.name() + "/" + folder));
    access.check_button()->click();
    EXPECT_EQ(access.log(), passed_lines(true));
    EXPECT_EQ(listing(), expected_listing({})) << "products removed by their names";
    EXPECT_EQ(pof_test_read_command("find " + site.build() + " -name injected"), "");
}

// An internal error in the middle of a run (here a split script that cannot be created, as an
// old one of its name cannot be removed) still leaves no script with the password behind.
TEST_F(PofPersonal, ScriptsAreGoneAfterAnInternalError)
{
    prepare(3);
    premake({"img"});
    access.skip_img_check()->click();
    site.add_program("rm", "case \"$*\" in *auto_gen_dat0.py) exit 1;; esac\nexec /bin/rm \"$@\"\n");
    pof_test_write(dir + "auto_gen_dat0.py", "");
    EXPECT_EQ(pof_test_internal_error([&] { QMetaObject::invokeMethod(&checker, "on_pof_check"); }),
              "output_array[i] != NULL");
    EXPECT_TRUE(site.python_runs().empty());
    EXPECT_EQ(site.files_with_password(site.data_root() + site.name()), "");
    EXPECT_EQ(pof_test_read_command("cd " + dir + " && ls *.py *.pl 2>/dev/null"), "auto_gen_dat0.py\n");
    EXPECT_EQ(access.thread_batch(), nullptr);
}

// ---------------------------------------------------------------------------------------------
// The account

// Only a login name goes onto ssh's command line: anything else stops the check before it starts.
TEST_F(PofCheck, UserNameMustBeALoginName)
{
    const std::string rule = "\": a user name is letters, digits, \".\", \"_\" and \"-\", does not start with \"-\" and "
                             "has at most 32 characters";
    site.log_in(access);
    access.personal_test_check()->setChecked(true);
    access.dir_edit()->setText("me/die");
    for (const std::string& name : {std::string("-oProxyCommand=touch${IFS}/tmp/x x"), std::string("a b"),
                                    std::string(33, 'a'), std::string("\u00e9")}) {
        access.clear_log();
        access.username_edit()->setText(QString::fromStdString(name));
        access.check_button()->click();
        EXPECT_EQ(access.log(), std::vector<std::string>{"Error: Can't log in as \"" + name + rule}) << name;
    }
    EXPECT_TRUE(site.python_runs().empty());
}

// ---------------------------------------------------------------------------------------------
// The image step

// The real workstation: more than 15 SOFs are converted by six parts, each over its own log-in
// and Perl run on the share's "S:" path. (Up to 15 take one log-in, as in every personal test.)
TEST_F(PofCheck, SixteenSofsAreConvertedInSixParts)
{
    ASSERT_TRUE(site.make_release("C5D1", 16, 0));
    site.log_in(access);
    access.set_die(CALDER5, C5D1, site.root() + "calder5/C5D1/");
    access.set_current_path(site.root());
    access.set_regression(true);
    ASSERT_TRUE(checker.check_sof2img());
    const std::set<std::string> sofs = pof_test_files(site.root() + "calder5/C5D1/", "-name '*.sof'");
    access.set_sof_files({sofs.begin(), sofs.end()});
    EXPECT_TRUE(checker.create_img());
    EXPECT_EQ(access.last_log(), "Info: Found 16 image file(s)");
    std::set<std::string> expected_python, expected_perl;
    for (unsigned k = 0; k < 6; ++k) {
        expected_python.insert(site.root() + "auto_gen_img" + std::to_string(k) + ".py");
        expected_perl.insert("S:/data/" + site.name() + "/auto_gen_img" + std::to_string(k) + ".pl");
    }
    const auto distinct = [](const std::vector<std::string>& lines) { return std::set<std::string>(lines.begin(), lines.end()); };
    EXPECT_EQ(distinct(site.python_runs()), expected_python) << "a part may be retried";
    EXPECT_EQ(distinct(site.perl_runs()), expected_perl);
}

TEST_F(PofCheck, WineVariantConvertsHereAndRoundTripsTheImages)
{
    ASSERT_TRUE(site.make_release("C5D1", 2, 0));
    const std::string die_dir = site.root() + "calder5/C5D1/";
    access.set_die(CALDER5, C5D1, die_dir);
    ASSERT_TRUE(checker.check_sof2img());
    access.set_sof_files({"c5d1_design01.sof", "c5d1_design02.sof"});
    EXPECT_TRUE(checker.create_img_with_wine());
    EXPECT_EQ(access.log(), std::vector<std::string>{"Info: Found 2 image file(s)"});
    EXPECT_EQ(pof_test_read_command("cd " + die_dir + " && ls *.img*"), "c5d1_design01.img\nc5d1_design02.img\n");
    EXPECT_FALSE(pof_test_exists(die_dir + "auto_gen_img.pl"));
}

} // namespace
