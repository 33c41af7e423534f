// The suite's automatic mail over real SMTP: a sink on 127.0.0.1 receives what
// PGM_COMMON::send_auto_email_file hands to the site's server, addressed by the site's roles.
#include "smtp_sink.h"

#include "gen.h"
#include "msg.h"
#include "pgm_common.h"

#include "build_tree.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <chrono>
#include <netinet/in.h>
#include <sys/socket.h>

namespace {

struct WARNINGS : MSG_SINK {
    std::vector<std::string> texts;
    void receive(MSG_KIND kind, int, const std::string& text) override
    {
        if (kind == MSG_KIND::WARNING)
            texts.push_back(text);
    }
};

// A port of 127.0.0.1 on which nothing listens: taken from the system, then let go.
int closed_port()
{
    const int socket_fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bind(socket_fd, reinterpret_cast<sockaddr*>(&address), size);
    getsockname(socket_fd, reinterpret_cast<sockaddr*>(&address), &size);
    close(socket_fd);
    return ntohs(address.sin_port);
}

const std::vector<PGM_COMMON_INI_EMAIL_ADDR_ENUM> FIRST_ROLE{PGM_COMMON_INI_EMAIL_ADDR_ENUM(0)};

class MAIL : public ::testing::Test {
protected:
    MAIL() : m_sink(build_dir() + "/site/bin") {}

    void SetUp() override
    {
        ASSERT_NE(m_sink.port(), 0) << "the SMTP sink did not start";
        gen_load_settings(build_dir() + "/site/site.ini");
        gen_set_setting("mail/smtp_server", m_sink.server());
        msg_set_sink(&m_warnings);
    }
    void TearDown() override { msg_set_sink(nullptr); }

    // What the panel sends: one role, no extras.
    bool send_notification(const std::string& body)
    {
        return PGM_COMMON::send_auto_email_file(FIRST_ROLE, "POF Checker notification", body, false, "", {}, {});
    }

    SMTP_SINK m_sink;
    WARNINGS m_warnings;
};

TEST_F(MAIL, NotificationReachesTheFirstRolesAddress)
{
    ASSERT_TRUE(send_notification("Info: Checking Calder 5 ...\nPOF Error: POF checking failed - c5d1.sof\n"));
    const auto mails = m_sink.mails();
    ASSERT_EQ(mails.size(), 1u);
    const SMTP_SINK_MAIL& mail = mails[0];
    EXPECT_EQ(mail.mail_from, gen_get_setting("mail/sender"));
    EXPECT_EQ(mail.rcpt_to, std::vector<std::string>{gen_get_setting("mail/bench_team")});
    EXPECT_EQ(mail.header("Subject"), "POF Checker notification");
    EXPECT_EQ(mail.header("To"), gen_get_setting("mail/bench_team"));
    EXPECT_EQ(mail.header("From"), gen_get_setting("mail/sender"));
    EXPECT_EQ(mail.header("Content-Type"), "text/plain; charset=UTF-8");
    EXPECT_EQ(mail.body(), "Info: Checking Calder 5 ...\r\nPOF Error: POF checking failed - c5d1.sof\r\n");
    EXPECT_TRUE(m_warnings.texts.empty());
}

TEST_F(MAIL, EmptyLogSendsAnEmptyBody)
{
    ASSERT_TRUE(send_notification(""));
    const auto mails = m_sink.mails();
    ASSERT_EQ(mails.size(), 1u);
    EXPECT_EQ(mails[0].header("Subject"), "POF Checker notification");
    EXPECT_EQ(mails[0].body(), "");
}

// Lines that SMTP itself would read as the end of the mail or as headers arrive as written.
TEST_F(MAIL, BodyLinesSurviveTheTransport)
{
    const std::string body = ".\n..two dots\nSubject: not a header\r\nlast line without end";
    ASSERT_TRUE(send_notification(body));
    const auto mails = m_sink.mails();
    ASSERT_EQ(mails.size(), 1u);
    EXPECT_EQ(mails[0].body(), ".\r\n..two dots\r\nSubject: not a header\r\nlast line without end\r\n");
    EXPECT_EQ(mails[0].header("Subject"), "POF Checker notification");
}

TEST_F(MAIL, SubjectCannotAddHeaders)
{
    ASSERT_TRUE(PGM_COMMON::send_auto_email_file(FIRST_ROLE, "report\r\nBcc: someone@else.invalid", "x", false, "",
                                                 {}, {}));
    const auto mails = m_sink.mails();
    ASSERT_EQ(mails.size(), 1u);
    EXPECT_EQ(mails[0].header("Subject"), "report  Bcc: someone@else.invalid");
    EXPECT_EQ(mails[0].header("Bcc"), "");
    EXPECT_EQ(mails[0].rcpt_to.size(), 1u);
}

struct ADDRESSING_CASE {
    const char* name;
    std::vector<PGM_COMMON_INI_EMAIL_ADDR_ENUM> roles;
    bool html;
    std::string reply_to;
    std::vector<std::string> cc;
    std::vector<std::string> bcc;
    std::vector<std::string> rcpt_to;  // the envelope, setting names in brackets
    std::string to;
    std::string cc_header;
    std::string content_type;
};

// The text with every "[role]" replaced by that role's address from the settings.
std::string expand(std::string text)
{
    for (std::size_t open; (open = text.find('[')) != std::string::npos;) {
        const std::size_t close = text.find(']', open);
        text.replace(open, close - open + 1, gen_get_setting("mail/" + text.substr(open + 1, close - open - 1)));
    }
    return text;
}

const ADDRESSING_CASE ADDRESSING_CASES[] = {
    {"ReleaseTeam", {PGM_COMMON_INI_EMAIL_ADDR_RELEASE_TEAM}, false, "", {}, {}, {"[release_team]"},
     "[release_team]", "", "text/plain; charset=UTF-8"},
    {"AdministratorInHtml", {PGM_COMMON_INI_EMAIL_ADDR_ADMINISTRATOR}, true, "", {}, {}, {"[administrator]"},
     "[administrator]", "", "text/html; charset=UTF-8"},
    {"TwoRolesCopyAndBlindCopy",
     {PGM_COMMON_INI_EMAIL_ADDR_BENCH_TEAM, PGM_COMMON_INI_EMAIL_ADDR_ADMINISTRATOR},
     false,
     "answers@loopback.invalid",
     {"copy@loopback.invalid"},
     {"hidden@loopback.invalid"},
     {"[bench_team]", "[administrator]", "copy@loopback.invalid", "hidden@loopback.invalid"},
     "[bench_team], [administrator]",
     "copy@loopback.invalid",
     "text/plain; charset=UTF-8"},
};

class ADDRESSING : public MAIL, public ::testing::WithParamInterface<ADDRESSING_CASE> {};

TEST_P(ADDRESSING, EnvelopeAndHeadersFollowTheRoles)
{
    const ADDRESSING_CASE& c = GetParam();
    ASSERT_TRUE(PGM_COMMON::send_auto_email_file(c.roles, "subject", "body\n", c.html, c.reply_to, c.cc, c.bcc));
    const auto mails = m_sink.mails();
    ASSERT_EQ(mails.size(), 1u);
    std::vector<std::string> rcpt_to;
    for (const std::string& address : c.rcpt_to)
        rcpt_to.push_back(expand(address));
    EXPECT_EQ(mails[0].rcpt_to, rcpt_to);
    EXPECT_EQ(mails[0].header("To"), expand(c.to));
    EXPECT_EQ(mails[0].header("Cc"), c.cc_header);
    EXPECT_EQ(mails[0].header("Reply-To"), c.reply_to);
    EXPECT_EQ(mails[0].header("Content-Type"), c.content_type);
    EXPECT_EQ(mails[0].data.find("hidden@"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Cases, ADDRESSING, ::testing::ValuesIn(ADDRESSING_CASES),
                         [](const ::testing::TestParamInfo<ADDRESSING_CASE>& info) { return info.param.name; });

// A setting changed for one test; overrides last for the process, so the old value comes back.
class SETTING_CHANGE {
public:
    SETTING_CHANGE(const std::string& key, const std::string& value) : m_key(key), m_old(gen_get_setting(key))
    {
        gen_set_setting(key, value);
    }
    ~SETTING_CHANGE() { gen_set_setting(m_key, m_old); }

private:
    std::string m_key;
    std::string m_old;
};

// Nothing is sent, the caller gets false at once and the host's message window says why.
struct FAILURE_CASE {
    const char* name;
    const char* setting;
    const char* value;  // "closed port" stands for a port of 127.0.0.1 that nothing listens on
    const char* reason;
};

const FAILURE_CASE FAILURE_CASES[] = {
    {"UnreachableServer", "mail/smtp_server", "closed port", "Failed to connect"},
    {"NoServer", "mail/smtp_server", "", "no SMTP server in the settings (mail/smtp_server)"},
    {"NoSender", "mail/sender", "", "no sender address in the settings (mail/sender)"},
    {"RoleWithoutAddress", "mail/bench_team", "", "a recipient role has no address in the settings"},
    {"AddressThatIsNotOne", "mail/bench_team", "two words@x.invalid", "not a mail address: \"two words@x.invalid\""},
};

class FAILURE : public MAIL, public ::testing::WithParamInterface<FAILURE_CASE> {};

TEST_P(FAILURE, ReturnsFalseQuicklyAndWarns)
{
    const FAILURE_CASE& c = GetParam();
    const std::string value = c.value == std::string("closed port") ? "127.0.0.1:" + std::to_string(closed_port())
                                                                     : c.value;
    const SETTING_CHANGE change(c.setting, value);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(send_notification("log\n"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_TRUE(m_sink.mails().empty());
    ASSERT_EQ(m_warnings.texts.size(), 1u);
    EXPECT_EQ(m_warnings.texts[0].rfind("Automatic mail \"POF Checker notification\" was not sent: ", 0), 0u)
        << m_warnings.texts[0];
    EXPECT_NE(m_warnings.texts[0].find(c.reason), std::string::npos) << m_warnings.texts[0];
}

INSTANTIATE_TEST_SUITE_P(Cases, FAILURE, ::testing::ValuesIn(FAILURE_CASES),
                         [](const ::testing::TestParamInfo<FAILURE_CASE>& info) { return info.param.name; });

TEST_F(MAIL, RoleOutsideTheListIsAnInternalError)
{
    try {
        PGM_COMMON::send_auto_email_file({PGM_COMMON_INI_EMAIL_ADDR_COUNT}, "s", "b", false, "", {}, {});
        FAIL() << "no internal error";
    } catch (const MSG_INTERNAL_ERROR_EXCEPTION& error) {
        EXPECT_EQ(error.text(), "static_cast<unsigned>(role) < PGM_COMMON_INI_EMAIL_ADDR_COUNT");
        EXPECT_EQ(error.module(), "PGM");
        EXPECT_EQ(error.file(), "pgm_common_mail");
    }
    EXPECT_TRUE(m_sink.mails().empty());
}

} // namespace
