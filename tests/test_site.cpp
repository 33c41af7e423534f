// The loopback site as the POF checker uses it: log-in scripts of the checker's own shape, run by
// the site's Python command with real pexpect, log in through the site's ssh to the workstation
// and the data-build host, map the share as "S:" and run commands there.
#include "gen.h"

#include "build_tree.h"
#include "shell_run.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string source_dir()
{
    const char* dir = std::getenv("PGMDQ_SOURCE_DIR");
    return dir ? dir : build_dir() + "/..";
}

std::string setting(const std::string& key)
{
    return gen_get_setting("pof_checker/" + key);
}

class SITE : public ::testing::Test {
protected:
    void SetUp() override
    {
        gen_load_settings(build_dir() + "/site/site.ini");
        char pattern[] = "/tmp/test_site_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_temp = pattern;
        m_user = gen_get_setting("loopback/account_user");
        m_password = gen_get_setting("loopback/account_password");
        ASSERT_FALSE(m_user.empty());
        // A folder of the share's data root that this test owns.
        m_share_dir_name = "test_site_" + std::to_string(getpid());
        m_share_dir = setting("linux_rk_test_dir") + m_share_dir_name + "/";
        ASSERT_EQ(mkdir(m_share_dir.c_str(), 0755), 0) << m_share_dir;
    }

    void TearDown() override { run("rm -rf " + m_temp + " " + m_share_dir); }

    RUN_RESULT run_script(const std::string& text)
    {
        const std::string path = m_temp + "/script" + std::to_string(++m_scripts) + ".py";
        std::ofstream(path) << text;
        return run(setting("python_rk_src") + " " + path);
    }

    // `lines` between the log-in preamble every generated Python script begins with and the exit.
    RUN_RESULT run_logged_in(const std::string& host_key, const std::string& lines)
    {
        const std::string preamble =
            "import pexpect\nPROMPT = \"\\$|\\%|\\>\"\nYES_NO = \"yes\"\n"
            "p=pexpect.spawn('ssh " + m_user + "@" + setting(host_key) + "', timeout = 20)\n"
            "i=p.expect([YES_NO, 'assword', PROMPT])\n"
            "if i==0:\n   print \"Answering yes...\"\n   p.sendline('yes')\n"
            "   i=p.expect([YES_NO, 'assword', PROMPT])\n"
            "if i==1:\n   print \"Answering with password\"\n   i=p.sendline('" + m_password + "')\n   p.expect('$')\n"
            "else:\n   print \"Do not need password\"\n";
        return run_script(preamble + lines + "p.sendline('exit')\np.close()\n");
    }

    std::string m_temp;
    std::string m_user;
    std::string m_password;
    std::string m_share_dir_name;
    std::string m_share_dir;
    int m_scripts = 0;
};

// The release's own tools through the site, as the checker's scripts run them: on the
// workstation, mount and the Perl run are sent right after the password without waiting for a
// prompt, the converter takes "S:" paths, and the end is recognised by a text ending in a bare
// line feed; then the die's emulator on the data-build host, whose last line is awaited.
TEST_F(SITE, ImageAndDataStepsRunTheReleaseTools)
{
    const RUN_RESULT made = run(build_dir() + "/bin/pgm_release_maker --out " + m_share_dir + "release --dies C5D1" +
                                " --sofs 1 --emulator-root " + m_share_dir + "emulator");
    ASSERT_EQ(made.status, 0) << made.output;
    const std::string release = "S:/data/" + m_share_dir_name + "/release/";
    std::ofstream(m_share_dir + "img.pl") << "system (\"" << release << "sof2img/calder5_sof2img.exe " << release
                                          << "calder5/C5D1/c5d1_design01.sof " << release
                                          << "calder5/C5D1/c5d1_design01.img -s2i C5D1\");\n"
                                          << "print \"POF CHECKER - IMG CONVERSION DONE\\n\"\n";
    const RUN_RESULT image = run_logged_in("image_build_host",
                                           "p.sendline('mount " + setting("rk_test_dir_mount") + " S:')\n"
                                           "p.sendline('perl S:/data/" + m_share_dir_name + "/img.pl')\n"
                                           "i=p.expect('POF CHECKER - IMG CONVERSION DONE\\n')\n");
    ASSERT_EQ(image.status, 0) << image.output;
    EXPECT_EQ(image.output, "Answering with password\n");

    const std::string base = m_share_dir + "release/calder5/C5D1/c5d1_design01";
    const std::string emulator = m_share_dir + "emulator/C5D1/C5D1";
    const RUN_RESULT data = run_logged_in("data_build_host",
                                          "p.sendline('" + emulator + " -o " + base + " -m3 -img " + base + ".img')\n"
                                          "i=p.expect('End of running " + emulator + "')\n");
    ASSERT_EQ(data.status, 0) << data.output;
    EXPECT_EQ(data.output, "Answering with password\n");
    EXPECT_EQ(access((base + ".dat").c_str(), R_OK), 0);
}

// Script lines of the session, not the log-in preamble: the exact prompt, a share the workstation
// does not know, the end of the session with its status and its home folder gone, and refusal.
struct SESSION_CASE {
    const char* name;
    bool right_password;
    const char* script;      // python3 lines that drive `p` after the password was sent
    const char* expected;    // the script's whole output
};

const SESSION_CASE SESSION_CASES[] = {
    {"PromptUnknownShareAndExit", true,
     "p.expect_exact('$ ')\n"
     "p.sendline('mount //elsewhere/share S: || echo mount=$?')\n"
     "p.expect('mount=2')\n"
     "print(p.before.decode().splitlines()[-1])\n"
     "p.sendline('test -e S: || echo no-$((1+1))-drive')\n"
     "p.expect('no-2-drive')\n"
     "p.sendline('echo \"home=$HOME.\"')\n"
     "p.expect('home=(/[^\\n]*)[.]\\n')\n"
     "home = p.match.group(1).decode()\n"
     "p.sendline('exit 3')\n"
     "p.expect(pexpect.EOF)\n"
     "p.close()\n"
     "import os\n"
     "print('exit status', p.exitstatus, 'home left', os.path.exists(home))\n",
     "mount: the network name //elsewhere/share cannot be found\nexit status 3 home left False\n"},
    {"WrongPasswordRefused", false,
     "p.expect(pexpect.EOF)\n"
     "print(p.before.decode().strip())\n"
     "p.close()\n"
     "print('exit status', p.exitstatus)\n",
     "engineer@loopback-ws: Permission denied (password).\nexit status 255\n"},
};

class SESSION : public SITE, public ::testing::WithParamInterface<SESSION_CASE> {};

TEST_P(SESSION, BehavesAsAnSshLogIn)
{
    const SESSION_CASE& c = GetParam();
    const std::string host = setting("image_build_host");
    const std::string prompt = m_user + "@" + host + "'s password: ";
    const std::string script = "import pexpect\n"
                               "p = pexpect.spawn('ssh " + m_user + "@" + host + "', timeout=10)\n"
                               "p.expect_exact(\"" + prompt + "\")\n"
                               "p.sendline('" + (c.right_password ? m_password : "not" + m_password) + "')\n" +
                               c.script;
    const RUN_RESULT result = run_script(script);
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(result.output, c.expected);
}

INSTANTIATE_TEST_SUITE_P(Cases, SESSION, ::testing::ValuesIn(SESSION_CASES),
                         [](const ::testing::TestParamInfo<SESSION_CASE>& info) { return info.param.name; });

// Refusals that come before any session: no shell, ssh's own status 255.
TEST_F(SITE, UnknownHostAndWrongUserAreRefused)
{
    const std::string ssh = build_dir() + "/site/bin/ssh";
    const RUN_RESULT unknown = run(ssh + " " + m_user + "@nowhere.invalid");
    EXPECT_EQ(unknown.status, 255);
    EXPECT_EQ(unknown.output, "ssh: Could not resolve hostname nowhere.invalid: Name or service not known\n");

    const RUN_RESULT wrong_user = run("echo " + m_password + " | " + ssh + " other@" + setting("data_build_host"));
    EXPECT_EQ(wrong_user.status, 255);
    EXPECT_NE(wrong_user.output.find("other@" + setting("data_build_host") + ": Permission denied (password)."),
              std::string::npos)
        << wrong_user.output;
}

// The host passes the settings it runs with; their account is the one the hosts accept.
TEST_F(SITE, AccountComesFromTheSettingsTheHostNames)
{
    const std::string settings = m_temp + "/other.ini";
    ASSERT_EQ(run("sed 's/^account_password=.*/account_password=other-secret/' " + build_dir() +
                  "/site/site.ini > " + settings)
                  .status,
              0);
    const std::string ssh = "PGMDQ_SITE_SETTINGS=" + settings + " " + build_dir() + "/site/bin/ssh " + m_user + "@" +
                            setting("data_build_host");
    EXPECT_EQ(run("printf 'other-secret\\nexit 7\\n' | " + ssh).status, 7);
    EXPECT_EQ(run("printf '" + m_password + "\\nexit 7\\n' | " + ssh).status, 255);
}

// The settings as the checker reads them: the Windows roots come out of the escaped INI values
// as UNC paths, the regression directory lies in the data root that "S:/data/" maps to, and every
// die has its emulator in the site.
TEST_F(SITE, SettingsDescribeOneConsistentSite)
{
    for (const std::string root : {"rk", "nv"}) {
        EXPECT_EQ(setting("window_" + root + "_test_dir"), "\\\\loopback-fs\\pofshare\\data\\");
        const std::string linux_root = setting("linux_" + root + "_test_dir");
        EXPECT_EQ(setting(root + "_linux_test_dir"), linux_root + setting("test_short_dir"));
    }
    EXPECT_EQ(gen_get_setting("loopback/share_root") + "/data/", setting("linux_rk_test_dir"));
    for (const std::string die : {"B5D1", "B5D2", "B5D3", "B5D4", "B5D5", "B5D6", "C5D1", "C5D2", "C5D3", "C5D4",
                                  "D5D1", "D5D2", "D5D3", "D5D4", "D5D5", "KS50", "KS120", "KS470"})
        EXPECT_EQ(gen_get_setting("icd_emulator/" + die), build_dir() + "/site/icd_emulator/" + die + "/" + die);
}

// The script that prepares the sample release puts it where the settings look for it: the
// regression directory with the ready families' dies and converters, and the dies' emulators.
TEST_F(SITE, PreparedReleaseLiesWhereTheSettingsPointTo)
{
    const std::string build = m_temp + "/build";
    ASSERT_EQ(run("mkdir -p " + build + " && ln -s " + build_dir() + "/bin " + build + "/bin").status, 0);
    const RUN_RESULT prepared = run(source_dir() + "/site/prepare_release.sh " + build);
    ASSERT_EQ(prepared.status, 0) << prepared.output;
    // The settings name the real build tree; the same layout below the temporary one.
    const auto moved = [&](const std::string& path) { return build + path.substr(build_dir().size()); };
    const std::string release = moved(setting("rk_linux_test_dir"));
    for (const char* die : {"C5D1", "D5D1", "D5D2", "KS50"}) {
        const std::string emulator = moved(gen_get_setting(std::string("icd_emulator/") + die));
        EXPECT_EQ(access(emulator.c_str(), X_OK), 0) << emulator;
    }
    for (const char* file : {"calder5/C5D1/c5d1_design01.sof", "dunlin5/D5D2/d5d2_design02.sof",
                             "kestrel/KS50/ks50_design01.sof", "sof2img/calder5_sof2img.exe"})
        EXPECT_EQ(access((release + file).c_str(), R_OK), 0) << release + file;
}

TEST_F(SITE, WineRunsTheLoopbackConvertersAsTheyAre)
{
    const RUN_RESULT result = run(setting("wine_linux32_path") + " /bin/echo converted");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "converted\n");
}

} // namespace
