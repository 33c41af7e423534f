// The Check flow's pieces through the loopback site: the walk's error lines (and whether the run
// goes on), the separators of a die directory, the listing and unpacking of SOFs, names that are
// never commands, personal tests with each skip combination and the recursive switch, and the
// generated Perl and Python scripts, character for character.
#include "pof_test_support.h"

#include "pgmdq_miscellaneous_files.h"

#include <chrono>

#include <algorithm>
#include <sys/stat.h>

namespace {

const unsigned BOREAL5 = 0, CALDER5 = 1;
const unsigned B5D1 = 0, C5D1 = 6;

std::vector<std::string> sorted(std::vector<std::string> lines)
{
    std::sort(lines.begin(), lines.end());
    return lines;
}

std::vector<std::string> distinct(std::vector<std::string> lines)
{
    lines = sorted(lines);
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    return lines;
}

std::string preamble(const std::string& host, const std::string& timeout)
{
    return pof_test_python_preamble("engineer@" + host, timeout);
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
        const auto add = [&log](const std::vector<std::string>& lines) { log.insert(log.end(), lines.begin(), lines.end()); };
        add(c5d1_lines);
        add(missing_dies("calder5", {"C5D2", "C5D3", "C5D4"}));
        return log;
    }

    // A folder with the given files for check_sof, as the die directory and work directory.
    std::string sof_dir(const std::string& make_files)
    {
        const std::string dir = site.root() + "sofs/";
        pof_test_read_command("mkdir -p " + dir + " && cd " + dir + " && " + make_files);
        access.set_die(CALDER5, C5D1, dir);
        return dir;
    }
};

// ---------------------------------------------------------------------------------------------
// The walk's error lines

// A missing converter or a die without SOFs ends that die before any script; the run goes on.
TEST_F(PofCheck, DieLevelErrorsEndOnlyTheDie)
{
    const std::string die_dir = site.root() + "calder5/C5D1/";
    const std::string converter = site.root() + "sof2img/calder5_sof2img.exe";
    for (const auto& [removed, line] : std::vector<std::pair<std::string, std::string>>{
             {converter, "Error: SOF2IMG executable of Calder 5 is missing (" + converter + ")"},
             {die_dir + "*.sof", "Error: Can't detect any sof in directory " + die_dir}}) {
        pof_test_read_command("rm -rf " + site.root() + "*");
        site.clear_runs();
        ASSERT_TRUE(site.make_release("C5D1", 1, 0));
        pof_test_read_command("rm " + removed);
        site.log_in(access);
        access.clear_log();
        access.check_button()->click();
        EXPECT_EQ(access.log(), regression_log({line}));
        EXPECT_TRUE(site.perl_runs().empty());
        EXPECT_TRUE(site.python_runs().empty());
    }
}

// A die directory that cannot be cleared stops the family and with it the run.
TEST_F(PofCheck, FailedClearingStopsTheRun)
{
    ASSERT_TRUE(site.make_release("C5D1", 1, 0));
    const std::string die_dir = site.root() + "calder5/C5D1/";
    pof_test_write(die_dir + "stuck.txt", "");
    site.add_program("rm", "case \"$*\" in *stuck*) exit 1;; esac\nexec /bin/rm \"$@\"\n");
    site.log_in(access);
    access.check_button()->click();
    EXPECT_EQ(access.log(), (std::vector<std::string>{"Warning: Skip Boreal 5 - not ready yet",
                                                      "Info: Checking Calder 5 ...",
                                                      "Error: Fail to clear directory " + die_dir}));
    EXPECT_TRUE(site.python_runs().empty());
}

TEST_F(PofCheck, MissingTestDirectoryStopsBeforeAnything)
{
    gen_set_setting("pof_checker/rk_linux_test_dir", site.root() + "nowhere/");
    site.log_in(access);
    access.check_button()->click();
    EXPECT_EQ(access.log(), std::vector<std::string>{"Error: Fail to get test directory " + site.root() + "nowhere/"});
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

// ---------------------------------------------------------------------------------------------
// Listing and unpacking SOFs

TEST_F(PofCheck, CompressedSofsAreUnpackedInPlaceAndThreeBytesNeverCount)
{
    const std::string dir = sof_dir("printf 'plain' > a.sof && printf 'packed' | gzip > b.sof && "
                                    "printf '\\037\\213\\010' > c.sof && touch d.img");
    EXPECT_TRUE(checker.check_sof());
    ASSERT_EQ(access.sof_size(), 3u);
    EXPECT_EQ(access.sof_fullpath(1), dir + "b.sof");
    EXPECT_EQ(pof_test_read(dir + "a.sof"), "plain");
    EXPECT_EQ(pof_test_read(dir + "b.sof"), "packed");
    EXPECT_EQ(pof_test_read(dir + "c.sof"), "\x1f\x8b\x08");
    EXPECT_EQ(site.perl_runs(), std::vector<std::string>{dir + "auto_unzipped.pl"});
    EXPECT_EQ(pof_test_read_command("ls " + dir), "a.sof\nb.sof\nc.sof\nd.img\n");
}

// Up to a hundred compressed SOFs take one unpacking script, more are split over threads.
TEST_F(PofCheck, UnpackingScriptsFollowTheCountOfCompressedSofs)
{
    struct CASE {
        unsigned compressed;
        std::vector<std::string> scripts;
    };
    for (const CASE& c : {CASE{0, {}}, CASE{100, {"auto_unzipped.pl"}}, CASE{101, {"auto_unzipped0.pl", "auto_unzipped1.pl"}}}) {
        pof_test_read_command("rm -rf " + site.root() + "sofs");
        site.clear_runs();
        const std::string dir = sof_dir("printf 'plain' > a.sof; for i in $(seq 100 " + std::to_string(99 + c.compressed) +
                                        "); do echo design$i | gzip > s$i.sof; done");
        EXPECT_TRUE(checker.check_sof());
        std::vector<std::string> expected;
        for (const std::string& script : c.scripts)
            expected.push_back(dir + script);
        EXPECT_EQ(sorted(site.perl_runs()), expected) << c.compressed;
        EXPECT_EQ(pof_test_read_command("cat " + dir + "*.sof | grep -c design"), std::to_string(c.compressed) + "\n");
        EXPECT_EQ(pof_test_read_command("ls " + dir + " | grep -v -c '^[as][0-9]*[.]sof$'"), "0\n") << "scripts are gone";
    }
}

// A wrong password ends the log-in at once (no time-out is waited out): the host is named once,
// with the walk's own line after it, and the run stops at that die.
TEST_F(PofCheck, RefusedLogInNamesTheHostAndStopsTheDie)
{
    ASSERT_TRUE(site.make_release("C5D4", 2, 0));
    site.log_in(access);
    access.password_edit()->setText("wrong");
    const auto begin = std::chrono::steady_clock::now();
    access.check_button()->click();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
    std::vector<std::string> expected = {"Warning: Skip Boreal 5 - not ready yet", "Info: Checking Calder 5 ..."};
    for (const std::string& line : missing_dies("calder5", {"C5D1", "C5D2", "C5D3"}))
        expected.push_back(line);
    expected.push_back("Error: loopback-ws refused the log-in: wrong user name or password");
    expected.push_back("POF Error: Found 0 image file(s)");
    EXPECT_EQ(access.log(), expected);
}

// Every name a file system allows is a name: unpacked and removed as it is, and nothing it
// spells runs.
TEST_F(PofCheck, HostileNamesAreNamesNeverCommands)
{
    const char* const names[] = {"a;touch injected;", "b$(touch injected)", "it's `touch injected`", "my sof",
                                 "-lead", "\"quoted\" @x \\ \u00e9"};
    std::string make;
    for (const char* name : names)
        make += "printf design | gzip > " + pgmdq_shell_quote(std::string(name) + ".sof") + "; ";
    const std::string dir = sof_dir(make);
    EXPECT_TRUE(checker.check_sof());
    EXPECT_EQ(access.sof_size(), std::size(names));
    EXPECT_EQ(pof_test_read_command("cd " + dir + " && cat -- *.sof | grep -a -o design | wc -l"), "6\n")
        << "every SOF unpacked in place";
    EXPECT_EQ(pof_test_read_command("ls -A " + dir + " | grep -c -v '[.]sof$'"), "0\n") << "no copy or script is left";
    for (const char* name : names)
        EXPECT_TRUE(checker.rm_rf_file(dir + name + ".sof")) << name;
    EXPECT_FALSE(pof_test_exists(dir + "injected"));
    EXPECT_EQ(pof_test_read_command("ls -A " + dir), "");
}

// ---------------------------------------------------------------------------------------------
// Personal tests

struct PERSONAL_CASE {
    const char* name;
    QCheckBox* (PGMDQ_POF_CHECKER_TEST_ACCESS::*click)();  // the skip box clicked, if any
    std::vector<std::string> premade;   // made before the run: "img", "dat", "icd.rbf"
    std::vector<std::string> logins;    // the Python scripts run, sorted ("<dir>" stands for the directory)
    std::vector<std::string> kept;      // extensions left beside the SOFs besides the raw binaries
};

class PofPersonal : public PofCheck, public ::testing::WithParamInterface<PERSONAL_CASE> {
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
    std::string listing() const { return pof_test_read_command("cd " + dir + " && find . -maxdepth 1 -type f | sort"); }
    std::string expected_listing(std::vector<std::string> kept) const
    {
        kept.insert(kept.end(), {"sof", "rbf", "icd.rbf", "pgm.icd.rbf"});
        std::vector<std::string> names;
        for (const std::string& sof : sofs)
            for (const std::string& ext : kept)
                names.push_back("./" + sof + "." + ext);
        std::string text;
        for (const std::string& name : sorted(names))
            text += name + "\n";
        return text;
    }
    std::vector<std::string> with_dir(const std::vector<std::string>& names) const
    {
        std::vector<std::string> paths;
        for (const std::string& name : names)
            paths.push_back(dir + name);
        return paths;
    }
};

TEST_P(PofPersonal, SkipBoxesLeaveOutTheirStepsAndKeepTheirInputs)
{
    const PERSONAL_CASE& c = GetParam();
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
    Skips, PofPersonal,
    ::testing::Values(
        PERSONAL_CASE{"Nothing", nullptr, {}, {"auto_gen_dat0.py", "auto_gen_dat1.py", "auto_gen_dat2.py", "auto_gen_img.py"}, {}},
        PERSONAL_CASE{"Images", &PGMDQ_POF_CHECKER_TEST_ACCESS::skip_img_check, {"img"}, {"auto_gen_dat0.py", "auto_gen_dat1.py", "auto_gen_dat2.py"}, {"img"}},
        PERSONAL_CASE{"ImagesAndDat", &PGMDQ_POF_CHECKER_TEST_ACCESS::skip_dat_check, {"img", "dat"}, {}, {"img", "dat"}},
        PERSONAL_CASE{"Everything", &PGMDQ_POF_CHECKER_TEST_ACCESS::skip_icd_rbf_check, {"img", "dat", "icd.rbf"}, {}, {"img", "dat"}}),
    [](const ::testing::TestParamInfo<PERSONAL_CASE>& info) { return std::string(info.param.name); });

// A folder and SOFs with blanks, quotes, "$", ";", backquotes, a leading "-" and non-ASCII in
// their names are checked like any other, through every script and log-in, and nothing their
// names spell runs.
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

// One SOF never makes DAT files in threads: its DAT comes from its own script. With the
// recursive switch and no sub-directory the directory itself is checked.
TEST_F(PofPersonal, OneSofTakesTheOneSofDatScript)
{
    gen_set_setting("switches/PGMDQ_RECURSIVE_PERSONEL_TEST", "on");
    prepare(1);
    access.check_button()->click();
    gen_set_setting("switches/PGMDQ_RECURSIVE_PERSONEL_TEST", "off");
    EXPECT_EQ(access.log(), passed_lines(true));
    EXPECT_EQ(site.python_runs(), with_dir({"auto_gen_img.py", "c5d1_design01.py"}));
}

// Sub-directories are named with a backslash appended, on every platform, so here each is
// reported as holding no SOF.
TEST_F(PofPersonal, RecursiveSwitchChecksEachSubDirectory)
{
    prepare(1);
    pof_test_read_command("mkdir " + dir + "a " + dir + "b && cp " + dir + "*.sof " + dir + "a/");
    gen_set_setting("switches/PGMDQ_RECURSIVE_PERSONEL_TEST", "on");
    access.check_button()->click();
    gen_set_setting("switches/PGMDQ_RECURSIVE_PERSONEL_TEST", "off");
    EXPECT_EQ(sorted(access.log()), (std::vector<std::string>{"Error: Can't detect any sof in directory " + dir + "a\\",
                                                              "Error: Can't detect any sof in directory " + dir + "b\\"}));
    EXPECT_TRUE(site.python_runs().empty());
}

TEST_F(PofPersonal, WithoutTheSwitchSubDirectoriesAreNotChecked)
{
    prepare(1);
    pof_test_read_command("mkdir " + dir + "a");
    access.check_button()->click();
    EXPECT_EQ(access.log(), passed_lines(true));
}


// ---------------------------------------------------------------------------------------------
// Generated scripts

class PofScripts : public PofCheck {
protected:
    std::string dir;   // the work directory, a personal test's
    std::string kept;  // where the stand-in Python command keeps each script it was given

    void SetUp() override
    {
        dir = site.root() + "d/";
        kept = site.root() + "kept/";
        pof_test_read_command("mkdir -p " + dir + " " + kept);
        access.personal_test_check()->setChecked(true);  // a personal test unless a test says otherwise
        site.log_in(access);
        access.set_die(CALDER5, C5D1, dir);
        checker.check_sof2img();
        access.clear_log();
        gen_set_setting("icd_emulator/C5D1", "/emu/C5D1");
        gen_set_setting("icd_emulator/B5D1", "/emu/B5D1");
        // A Python command that keeps a copy of each script and its mode, and logs in nowhere.
        pof_test_write(kept + "keep.sh", "cp \"$1\" " + kept + "$(basename \"$1\")\nstat -c %a \"$1\" > " + kept +
                                             "$(basename \"$1\").mode\n");
        gen_set_setting("pof_checker/python_rk_src", "sh " + kept + "keep.sh");
    }
    void set_sofs(unsigned count)
    {
        std::vector<std::string> names;
        for (unsigned i = 0; i < count; ++i)
            names.push_back("s" + std::to_string(10 + i) + ".sof");
        access.set_sof_files(names);
    }
    std::string kept_script(const std::string& name) const { return pof_test_read(kept + name); }
    std::string kept_mode(const std::string& name) const { return pof_test_read(kept + name + ".mode"); }
    std::string image_line(const std::string& base, unsigned i) const
    {
        const std::string sof = "s" + std::to_string(10 + i);
        return "system (\"'S:/data/" + site.name() + "/sof2img/calder5_sof2img.exe' '" + base + sof + ".sof' '" + base +
               sof + ".img' -s2i C5D1\");\n";
    }
    // The image Python script of a personal test of "me/die", for the whole list or one part.
    std::string image_python(const std::string& part, const char* timeout, const char* tail) const
    {
        return preamble("loopback-ws", timeout) + "print(\"Doing mounting\")\n" +
               "p.sendline('mount //loopback-fs/pofshare S:')\n" + "p.sendline('perl \\'S:/data/me/die/" + part + ".pl\\'')\n" +
               "i=p.expect('POF CHECKER - IMG CONVERSION DONE\\r?\\n')\n" + "p.sendline('exit')\n" + "p.close()\n" + tail;
    }
    static std::string mode(const std::string& path)
    {
        struct stat info;
        return stat(path.c_str(), &info) == 0 ? std::to_string(info.st_mode & 0777) : "none";
    }
};

// A regression's image script names the die directory, a personal test's its own directory.
TEST_F(PofScripts, ImagePerlScriptNamesTheDirectoryOfTheMode)
{
    const std::string done = "print \"POF CHECKER - IMG CONVERSION DONE\\n\"\n";
    set_sofs(1);
    access.dir_edit()->setText("me\\die");
    EXPECT_TRUE(checker.create_img_perl());
    EXPECT_EQ(pof_test_read(dir + "auto_gen_img.pl"), image_line("S:/data/me/die/", 0) + done);

    set_sofs(2);
    access.set_regression(true);
    EXPECT_TRUE(checker.create_img_perl());
    const std::string base = "S:/data/" + site.name() + "/calder5/C5D1/";
    EXPECT_EQ(pof_test_read(dir + "auto_gen_img.pl"), image_line(base, 0) + image_line(base, 1) + done);
    EXPECT_EQ(mode(dir + "auto_gen_img.pl"), std::to_string(0600));
}

TEST_F(PofScripts, SixteenSofsSplitTheImagePerlScriptInSix)
{
    set_sofs(16);
    access.dir_edit()->setText("me/die");
    EXPECT_TRUE(checker.create_img_perl());
    EXPECT_FALSE(pof_test_exists(dir + "auto_gen_img.pl"));
    for (unsigned k = 0; k < 6; ++k) {
        std::string expected;
        for (unsigned i = k; i < 16; i += 6)
            expected += image_line("S:/data/me/die/", i);
        expected += "print \"POF CHECKER - IMG CONVERSION DONE\\n\"\n\n";
        EXPECT_EQ(pof_test_read(dir + "auto_gen_img" + std::to_string(k) + ".pl"), expected) << k;
    }
}

TEST_F(PofScripts, ImagePythonScriptLogsInOnceMountsAndRunsThePerlScript)
{
    set_sofs(15);
    access.dir_edit()->setText("me/die");
    EXPECT_FALSE(checker.create_img());
    EXPECT_EQ(kept_script("auto_gen_img.py"), image_python("auto_gen_img", "4500", ""));
    EXPECT_EQ(kept_mode("auto_gen_img.py"), "600\n");
    EXPECT_FALSE(pof_test_exists(dir + "auto_gen_img.py"));
    EXPECT_EQ(access.log(), std::vector<std::string>{"POF Error: Found 0 image file(s)"});
}

// Each of the six parts logs in by itself; a part that ends far sooner than expected (here all
// of them, as the stand-in does nothing) is run twice more.
TEST_F(PofScripts, SixteenSofsTakeSixLogInsOnSixThreads)
{
    set_sofs(16);
    access.dir_edit()->setText("me/die");
    EXPECT_FALSE(checker.create_img());
    for (unsigned k = 0; k < 6; ++k) {
        const std::string part = "auto_gen_img" + std::to_string(k);
        EXPECT_EQ(kept_script(part + ".py"), image_python(part, "600", "\n")) << k;
        EXPECT_EQ(kept_mode(part + ".py"), "600\n");
        EXPECT_FALSE(pof_test_exists(dir + part + ".py"));
    }
    EXPECT_EQ(access.thread_batch(), nullptr);
}

TEST_F(PofScripts, DatPerlScriptPerFolderWithoutRifForAFamilyWithout)
{
    set_sofs(2);
    for (bool moved : {false, true}) {
        EXPECT_TRUE(checker.create_icd_dat_perl(moved));
        for (unsigned t = 0; t < 2; ++t) {
            const std::string folder = dir + "auto_gen_dat" + std::to_string(t);
            const std::string sof = "s" + std::to_string(10 + t);
            std::string expected = "system (\"/emu/C5D1 -o '" + folder + "/" + sof + "' -m3 -img '" +
                                   (moved ? folder + "/" : dir) + sof + ".img'\");\n";
            for (const char* leftover : {"cram", "redfuses", "s4_debug", "s4_info", "option_bits_out", "cff"})
                expected += "system (\"rm -rf '" + folder + "'/*." + leftover + "\");\n";
            expected += "system (\"mv '" + folder + "/" + sof + ".dat' '" + dir + ".'\");\n";
            expected += "print \"POF CHECKER - DAT CONVERSION DONE\"\n";
            EXPECT_EQ(pof_test_read(folder + ".pl"), expected) << t << moved;
        }
    }
}

TEST_F(PofScripts, DatPerlScriptNamesTheRedundancyFileOfAFamilyWithOne)
{
    access.set_family_die(BOREAL5, B5D1);
    checker.check_rif();
    set_sofs(1);
    EXPECT_TRUE(checker.create_icd_dat_perl(false));
    const std::string script = pof_test_read(dir + "auto_gen_dat0.pl");
    EXPECT_EQ(script.substr(0, script.find('\n')), "system (\"/emu/B5D1 -o '" + dir + "auto_gen_dat0/s10' -m3 -img '" + dir + "s10.img' -rif '" +
                              site.root() + "boreal5/B5D1/B5D1.rif'\");");
}

TEST_F(PofScripts, DatPythonScriptsOnePerFolderEachWithItsOwnLogIn)
{
    set_sofs(2);
    EXPECT_TRUE(checker.create_icd_dat());
    ASSERT_NE(access.thread_batch(), nullptr);  // left running: the RBF step waits for each DAT
    access.finish_batch();
    for (unsigned t = 0; t < 2; ++t) {
        const std::string part = "auto_gen_dat" + std::to_string(t);
        EXPECT_EQ(kept_script(part + ".py"), preamble("loopback-linux", "1200") + "p.sendline('perl \\'" +
                                                 dir + part + ".pl\\'')\n" +
                                                 "i=p.expect('POF CHECKER - DAT CONVERSION DONE')\n" +
                                                 "p.sendline('exit')\n" + "p.close()\n\n");
        EXPECT_EQ(kept_mode(part + ".py"), "600\n");
        EXPECT_FALSE(pof_test_exists(dir + part + ".py"));
    }
    EXPECT_FALSE(pof_test_exists(dir + "auto_gen_dat.py"));
}

// The password may hold any character and reaches the log-in through the script's environment
// only, unchanged; no script holds it.
TEST_F(PofScripts, PasswordReachesTheLogInThroughItsEnvironmentOnly)
{
    const std::string password = "it's \\ \"$HOME\" `x` \u00e9";
    set_sofs(1);
    access.password_edit()->setText(QString::fromStdString(password));
    pof_test_write(kept + "keep.sh", "cp \"$1\" " + kept + "\nprintf %s \"$POF_CHECKER_PASSWORD\" > " + kept + "password\n");
    checker.create_img();
    EXPECT_EQ(pof_test_read(kept + "password"), password);
    EXPECT_EQ(pof_test_read_command("grep -rlF -- " + pgmdq_shell_quote(password) + " " + kept + "*.py"), "");
}

// Only a login name goes onto ssh's command line: anything else stops the check before it starts.
TEST_F(PofScripts, UserNameMustBeALoginName)
{
    const std::string rule = "\": a user name is letters, digits, \".\", \"_\" and \"-\", does not start with \"-\" and "
                             "has at most 32 characters";
    for (const std::string& name : {std::string("-oProxyCommand=touch${IFS}/tmp/x x"), std::string("a b"),
                                    std::string(33, 'a'), std::string("\u00e9")}) {
        access.clear_log();
        access.dir_edit()->setText("me/die");
        access.username_edit()->setText(QString::fromStdString(name));
        access.check_button()->click();
        EXPECT_EQ(access.log(), std::vector<std::string>{"Error: Can't log in as \"" + name + rule}) << name;
    }
    EXPECT_TRUE(site.python_runs().empty());
}

// The real workstation: 15 SOFs are converted over one log-in by one Perl run, 16 by six parts,
// each over its own log-in.
TEST_F(PofCheck, FifteenSofsOneLogInSixteenSixParts)
{
    ASSERT_TRUE(site.make_release("C5D1", 16, 0));
    site.log_in(access);
    const std::string die_dir = site.root() + "calder5/C5D1/";
    access.set_die(CALDER5, C5D1, die_dir);
    access.set_current_path(site.root());
    access.set_regression(true);
    ASSERT_TRUE(checker.check_sof2img());
    std::vector<std::string> names;
    for (unsigned i = 1; i <= 16; ++i)
        names.push_back("c5d1_design" + std::string(i < 10 ? "0" : "") + std::to_string(i) + ".sof");

    access.set_sof_files(std::vector<std::string>(names.begin(), names.begin() + 15));
    EXPECT_TRUE(checker.create_img());
    EXPECT_EQ(access.last_log(), "Info: Found 15 image file(s)");
    EXPECT_EQ(site.python_runs(), std::vector<std::string>{site.root() + "auto_gen_img.py"});
    EXPECT_EQ(site.perl_runs(), std::vector<std::string>{"S:/data/" + site.name() + "/auto_gen_img.pl"});

    pof_test_read_command("rm " + die_dir + "*.img");
    site.clear_runs();
    access.set_sof_files(names);
    EXPECT_TRUE(checker.create_img());
    EXPECT_EQ(access.last_log(), "Info: Found 16 image file(s)");
    std::vector<std::string> expected_python, expected_perl;
    for (unsigned k = 0; k < 6; ++k) {
        expected_python.push_back(site.root() + "auto_gen_img" + std::to_string(k) + ".py");
        expected_perl.push_back("S:/data/" + site.name() + "/auto_gen_img" + std::to_string(k) + ".pl");
    }
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
