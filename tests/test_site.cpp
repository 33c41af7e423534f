// The loopback site as the POF checker's log-in scripts meet it: its ssh says and asks what
// OpenSSH does (the same table runs against a real server in test_real_site), the workstation maps
// the share as "S:" and runs the release's tools, a session killed from outside leaves nothing, and
// the settings describe one consistent site.
#include "gen.h"

#include "login_cases.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

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
        m_home = pattern;
        m_user = gen_get_setting("loopback/account_user");
        ASSERT_FALSE(m_user.empty());
        setenv("LOGIN_PASSWORD", gen_get_setting("loopback/account_password").c_str(), 1);
        // The client's home is the test's own, so every test starts with no known host.
        m_environment = "HOME=" + m_home + " PATH=" + build_dir() + "/site/bin:$PATH";
    }

    void TearDown() override { run("rm -rf " + m_home); }

    LOGIN_SITE site_of(const std::string& host) const
    {
        return {m_user, host, m_user + "@" + host + ":~> ", build_dir() + "/site/banner", build_dir() + "/site/motd",
                m_environment};
    }

    std::string m_home;
    std::string m_user;
    std::string m_environment;
};

class LOGIN : public SITE, public ::testing::WithParamInterface<LOGIN_CASE> {};

TEST_P(LOGIN, SaysAndAsksWhatOpenSshDoes)
{
    expect_login_case(site_of(setting("image_build_host")), GetParam(), m_home);
}

INSTANTIATE_TEST_SUITE_P(Cases, LOGIN, ::testing::ValuesIn(LOGIN_CASES),
                         [](const ::testing::TestParamInfo<LOGIN_CASE>& info) { return login_case_name(info.param); });

TEST_F(SITE, WorkstationAndDataHostRunTheReleaseTools)
{
    expect_release_tools_run(site_of(setting("image_build_host")), site_of(setting("data_build_host")),
                             setting("linux_rk_test_dir"), setting("rk_test_dir_mount"));
}

// However the session ends, from inside or killed from outside (SIGKILL included), no process of
// it is left, background jobs included, and its home folder is gone.
TEST_F(SITE, SessionLeavesNothingBehind)
{
    for (const std::string kill : {"SIGKILL", "SIGTERM", "SIGHUP", ""}) {
        const RUN_RESULT result = run_login(site_of(setting("data_build_host")), "yes,right",
                                            {"echo $$ $HOME", "sleep 1231 & sleep 1232 &", kill.empty() ? "exit 3" : "sleep 1233"},
                                            kill);
        const std::string::size_type output = result.output.find("output ");
        ASSERT_NE(output, std::string::npos) << result.output;
        std::istringstream words(result.output.substr(output + 7));
        std::string session_id, home;
        words >> session_id >> home;
        EXPECT_EQ(result.output.find("killed\n") != std::string::npos, !kill.empty()) << kill;
        // Killed outright, ssh cannot end the session itself: its reaper does, a moment later.
        const std::string left = "ps -o pid=,stat= -s " + session_id + " | grep -v Z; test ! -e " + home + " || echo home";
        for (int waited = 0; waited < 30 && !run(left).output.empty(); ++waited)
            usleep(100000);
        EXPECT_EQ(run(left).output, "") << kill;
    }
}

// Refusals that come before any question, without a terminal: ssh's own words and status 255.
TEST_F(SITE, RefusalsBeforeTheLogInAreSshs)
{
    const std::string ssh = build_dir() + "/site/bin/ssh ";
    const std::string host = setting("data_build_host");
    const std::pair<std::string, std::string> cases[] = {
        {"engineer@nowhere.invalid", "ssh: Could not resolve hostname nowhere.invalid: Name or service not known\r\n"},
        {"-p 2222 engineer@" + host, "ssh: connect to host " + host + " port 2222: Connection refused\r\n"},
        {"-o StrictHostKeyChecking=yes -l engineer " + host,
         "No ED25519 host key is known for " + host + " and you have requested strict checking.\r\n"
         "Host key verification failed.\r\n"},
        {"engineer@" + host, "Host key verification failed.\r\n"},  // no terminal to ask on
    };
    for (const auto& [arguments, said] : cases) {
        const RUN_RESULT result = run("HOME=" + m_home + " setsid --wait " + ssh + arguments);
        EXPECT_EQ(result.status, 255) << arguments;
        EXPECT_EQ(result.output, said);
    }
}

// The host passes the settings it runs with; their account is the one the hosts accept.
TEST_F(SITE, AccountComesFromTheSettingsTheHostNames)
{
    const std::string settings = m_home + "/other.ini";
    ASSERT_EQ(run("sed 's/^account_password=.*/account_password=other-secret/' " + build_dir() + "/site/site.ini > " +
                  settings)
                  .status,
              0);
    m_environment += " PGMDQ_SITE_SETTINGS=" + settings;
    const LOGIN_SITE site = site_of(setting("data_build_host"));
    EXPECT_EQ(run_login(site, "yes,other-secret", {"exit 3"}).output, first_session_events({}));
    EXPECT_EQ(run_login(site, "right,right,right", {"exit 3"}).output,
              "banner\npassword\ndenied\npassword\ndenied\npassword\nrefused\nstatus 255\n");
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
    const std::string build = m_home + "/build";
    ASSERT_EQ(run("mkdir -p " + build + " && ln -s " + build_dir() + "/bin " + build + "/bin").status, 0);
    const RUN_RESULT prepared = run(source_dir() + "/site/prepare_release.sh " + build);
    ASSERT_EQ(prepared.status, 0) << prepared.output;
    // The settings name the real build tree; the same layout below the temporary one.
    const auto moved = [&](const std::string& path) { return build + path.substr(build_dir().size()); };
    const std::string release = moved(setting("rk_linux_test_dir"));
    for (const char* die : {"C5D4", "D5D2", "D5D5", "KS50"}) {
        const std::string emulator = moved(gen_get_setting(std::string("icd_emulator/") + die));
        EXPECT_EQ(access(emulator.c_str(), X_OK), 0) << emulator;
    }
    for (const char* file : {"calder5/C5D4/c5d4_design01.sof", "dunlin5/D5D2/d5d2_design02.sof",
                             "kestrel/KS50/ks50_design01.sof", "sof2img/calder5_sof2img.exe"})
        EXPECT_EQ(access((release + file).c_str(), R_OK), 0) << release + file;
}

} // namespace
