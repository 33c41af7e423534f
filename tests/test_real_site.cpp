// A real site: Debian's OpenSSH server on 127.0.0.1 and a throwaway account, both set up by
// tests/real_site.sh, which runs this program as that account. The log-in table the loopback's
// ssh answers too, the release's tools through both hosts, and the POF checker's panel: a personal
// check meeting both hosts for the first time, the same again with the hosts known, then a
// regression; every design gets its verdict and no log-in waits out a time-out.
#include "login_cases.h"
#include "pof_test_support.h"

#include <chrono>

namespace {

std::string environment(const char* name)
{
    const char* value = std::getenv(name);
    return value ? value : "";
}

// The prompt the account's start-up sets: "\u@\h:\w> " in its home.
std::string account_prompt(const std::string& account)
{
    char host[256] = "";
    gethostname(host, sizeof host - 1);
    const std::string name = host;
    return account + "@" + name.substr(0, name.find('.')) + ":~> ";
}

class REAL_SITE : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(m_dir.empty()) << "run through tests/real_site.sh: it starts the server and adds the account";
        gen_load_settings(m_dir + "/site.ini");
        setenv("LOGIN_PASSWORD", environment("REAL_SITE_PASSWORD").c_str(), 1);
    }

    std::string setting(const std::string& key) const { return gen_get_setting("pof_checker/" + key); }
    LOGIN_SITE site_of(const std::string& host_key) const
    {
        return {m_account, setting(host_key), account_prompt(m_account), m_dir + "/banner", m_dir + "/motd", ""};
    }

    const std::string m_account = environment("REAL_SITE_ACCOUNT");
    const std::string m_dir = environment("REAL_SITE_DIR");
    const std::string m_home = environment("HOME");
};

class REAL_LOGIN : public REAL_SITE, public ::testing::WithParamInterface<LOGIN_CASE> {};

TEST_P(REAL_LOGIN, OpenSshSaysAndAsks)
{
    expect_login_case(site_of("image_build_host"), GetParam(), m_home);
}

INSTANTIATE_TEST_SUITE_P(Cases, REAL_LOGIN, ::testing::ValuesIn(LOGIN_CASES),
                         [](const ::testing::TestParamInfo<LOGIN_CASE>& info) { return login_case_name(info.param); });

TEST_F(REAL_SITE, BothHostsRunTheReleaseTools)
{
    run("rm -f " + m_home + "/.ssh/known_hosts");
    expect_release_tools_run(site_of("image_build_host"), site_of("data_build_host"), setting("linux_rk_test_dir"),
                             setting("rk_test_dir_mount"));
}

// ---------------------------------------------------------------------------------------------
// The panel, with plain python3 as the Python command (the harness's settings)

const unsigned SOFS = 3;  // the 2nd of each die stored compressed

struct DIE {
    const char* family_key;
    const char* die;
    bool agrees;  // whether its emulator agrees with the programmer
};

// Each family's last die is there (a family whose last die fails ends a regression), but for the
// last family's.
const DIE RELEASE_DIES[] = {{"calder5", "C5D1", true},
                            {"calder5", "C5D4", true},
                            {"dunlin5", "D5D2", false},
                            {"dunlin5", "D5D5", true},
                            {"kestrel", "KS50", true}};

class REAL_SITE_PANEL : public REAL_SITE, POF_APPLICATION_FIRST {
protected:
    void SetUp() override
    {
        REAL_SITE::SetUp();
        m_name = "real_site_" + std::to_string(getpid());
        m_root = setting("linux_rk_test_dir") + m_name + "/";
        std::string dies;
        for (const DIE& die : RELEASE_DIES) {
            dies += (dies.empty() ? "" : ",") + std::string(die.die);
            gen_set_setting(std::string("icd_emulator/") + die.die, m_root + "icd_emulator/" + die.die + "/" + die.die);
        }
        const RUN_RESULT made = run(build_dir() + "/bin/pgm_release_maker --out " + m_root + " --emulator-root " +
                                    m_root + "icd_emulator --sofs " + std::to_string(SOFS) + " --gzip-every 2 --dies " +
                                    dies);
        ASSERT_EQ(made.status, 0) << made.output;
        for (const char* key : {"pof_checker/rk_linux_test_dir", "pof_checker/nv_linux_test_dir"})
            gen_set_setting(key, m_root);
        gen_set_setting("pof_checker/test_short_dir", m_name + "/");
        access.username_edit()->setText(QString::fromStdString(m_account));
        access.password_edit()->setText(QString::fromStdString(environment("REAL_SITE_PASSWORD")));
    }

    // Presses "Check" and gives the log; a log-in that waited out a time-out (600 s at least)
    // would show in the time.
    std::vector<std::string> check()
    {
        access.clear_log();
        const auto begin = std::chrono::steady_clock::now();
        access.check_button()->click();
        const auto took = std::chrono::steady_clock::now() - begin;
        EXPECT_LT(took, std::chrono::seconds(60));
        return access.log();
    }

    bool hosts_known() const
    {
        return host_is_known(site_of("image_build_host"), m_home) && host_is_known(site_of("data_build_host"), m_home);
    }

    std::string m_name;
    std::string m_root;
    PGMDQ_POF_CHECKER checker;
    PGMDQ_POF_CHECKER_TEST_ACCESS access{checker};
};

// The verdict lines of a regression over the release: compressed SOFs keep no image in a
// regression, so only the plain ones (1st and 3rd of each die) get a verdict.
std::vector<std::string> regression_verdicts(const std::string& root)
{
    std::vector<std::string> verdicts;
    for (const DIE& die : RELEASE_DIES)
        for (unsigned number = 1; number <= SOFS; number += 2)
            verdicts.push_back((die.agrees ? "Info: POF checking passed - " : "POF Error: POF checking failed - ") +
                               root + die.family_key + "/" + die.die + "/" + pof_test_design(die.die, number) + ".sof");
    return verdicts;
}

std::vector<std::string> lines_holding(const std::vector<std::string>& lines, const std::string& text)
{
    std::vector<std::string> holding;
    for (const std::string& line : lines)
        if (line.find(text) != std::string::npos)
            holding.push_back(line);
    return holding;
}

TEST_F(REAL_SITE_PANEL, PersonalChecksAtFirstContactAndKnownThenARegression)
{
    run("rm -f " + m_home + "/.ssh/known_hosts");
    const std::string personal = m_root + "personal/";
    ASSERT_EQ(run("mkdir " + personal + " && cp " + m_root + "calder5/C5D1/*.sof " + personal).status, 0);
    access.personal_test_check()->click();
    access.dir_edit()->setText(QString::fromStdString(m_name + "/personal"));
    access.family_combo()->setCurrentIndex(0);
    access.die_combo()->setCurrentIndex(0);
    std::vector<std::string> passed = {"Info: Found 3 image file(s)"};
    for (unsigned number = 1; number <= SOFS; ++number)
        passed.push_back("Info: POF checking passed - " + personal + "c5d1_design0" + std::to_string(number) + ".sof");

    ASSERT_FALSE(hosts_known());
    EXPECT_EQ(check(), passed) << "first contact with both hosts";
    EXPECT_TRUE(hosts_known());
    EXPECT_EQ(check(), passed) << "both hosts known";

    access.personal_test_check()->click();
    const std::vector<std::string> log = check();
    EXPECT_EQ(lines_holding(log, "POF checking"), regression_verdicts(m_root));
    EXPECT_EQ(lines_holding(log, "image file(s)"), std::vector<std::string>(std::size(RELEASE_DIES), "Info: Found 2 image file(s)"));
    EXPECT_EQ(run("grep -rlF -- " + pgmdq_shell_quote(environment("REAL_SITE_PASSWORD")) + " " + m_home).output, "")
        << "no file holds the password";
}

} // namespace
