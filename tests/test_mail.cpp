// The suite's automatic mail over real SMTP: a strict relay on 127.0.0.1 (aiosmtpd) receives what
// PGM_COMMON::send_auto_email_file hands to the site's server, addressed by the site's roles, and
// python3's email parser reads it back.
#include "smtp_sink.h"

#include "gen.h"
#include "msg.h"
#include "pgm_common.h"

#include "build_tree.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <regex>

namespace {

struct WARNINGS : MSG_SINK {
    std::vector<std::string> texts;
    void receive(MSG_KIND kind, int, const std::string& text) override
    {
        if (kind == MSG_KIND::WARNING)
            texts.push_back(text);
    }
};

// The site's settings with the mail server a sink of its own, which offers 8BITMIME unless a test
// says otherwise.
class MAIL : public ::testing::Test {
protected:
    virtual bool offers_8bitmime() const { return true; }
    void SetUp() override
    {
        m_sink = std::make_unique<SMTP_SINK>(build_dir() + "/site/bin", offers_8bitmime());
        ASSERT_NE(m_sink->port(), 0) << "the SMTP sink did not start";
        gen_load_settings(build_dir() + "/site/site.ini");
        gen_set_setting("mail/smtp_server", m_sink->server());
        msg_set_sink(&m_warnings);
    }
    void TearDown() override { msg_set_sink(nullptr); }

    // What the panel sends: the first role, no extras.
    bool send_notification(const std::string& body)
    {
        return PGM_COMMON::send_auto_email_file({PGM_COMMON_INI_EMAIL_ADDR_ENUM(0)}, "POF Checker notification", body,
                                                false, "", {}, {});
    }

    std::unique_ptr<SMTP_SINK> m_sink;
    WARNINGS m_warnings;
};

// The log as body, whatever decides its form: 8-bit text and the server's 8BITMIME, lines longer
// than SMTP's 998 characters, bytes no plain line may hold, lines SMTP itself would read as the end
// of the mail or as headers. The relay refuses 8-bit data it was not told of and lines past the
// limit; the parser finds no defect and decodes the text that was sent.
struct BODY_CASE {
    const char* name;
    std::string body;
    bool offers_8bitmime;
    const char* encoding;
    std::string text;  // as decoded; the body itself when empty
};

const std::string LATIN = "POF Error: Prüfung – fehlgeschlagen für d5d2_design01.sof";

const BODY_CASE BODY_CASES[] = {
    {"Log", "Info: Checking Calder 5 ...\nPOF Error: POF checking failed - c5d1.sof\n", true, "7bit", ""},
    {"EmptyLog", "", true, "7bit", ""},
    {"DotsHeadersAndNoLastLineEnd", ".\n..two dots\nSubject: not a header\r\nlast line without end", false, "7bit",
     ".\n..two dots\nSubject: not a header\nlast line without end\n"},
    {"EightBitTextTo8BitMime", LATIN + "\n", true, "8bit", ""},
    {"EightBitTextWithout8BitMime", LATIN + "\n", false, "quoted-printable", ""},
    {"LineOfTheLimit", std::string(998, 'y') + "\n", false, "7bit", ""},
    {"LineOverTheLimit", std::string(999, 'y') + "\n", true, "quoted-printable", ""},
    {"LongEightBitLineTo8BitMime", LATIN + std::string(2000, '=') + "\n", true, "quoted-printable", ""},
    {"BlanksEndingLinesAndEquals", "ä = \n\t\n" + std::string(80, ' ') + "x\n", false, "quoted-printable", ""},
    {"CarriageReturnInALine", "progress 50%\r100%\n", true, "quoted-printable", ""},
};

class BODY : public MAIL, public ::testing::WithParamInterface<BODY_CASE> {
    bool offers_8bitmime() const override { return GetParam().offers_8bitmime; }
};

TEST_P(BODY, ReachesTheFirstRoleAndDecodesAsSent)
{
    const BODY_CASE& c = GetParam();
    ASSERT_TRUE(send_notification(c.body)) << (m_warnings.texts.empty() ? "" : m_warnings.texts[0]);
    const auto mails = m_sink->mails();
    ASSERT_EQ(mails.size(), 1u);
    const SMTP_SINK_MAIL& mail = mails[0];
    EXPECT_EQ(mail.mail_from, gen_get_setting("mail/sender"));
    EXPECT_EQ(mail.rcpt_to, std::vector<std::string>{gen_get_setting("mail/bench_team")});
    EXPECT_EQ(mail.header("From"), gen_get_setting("mail/sender"));
    EXPECT_EQ(mail.header("To"), gen_get_setting("mail/bench_team"));
    EXPECT_EQ(mail.header("Subject"), "POF Checker notification");
    EXPECT_EQ(mail.header("Content-Type"), "text/plain; charset=UTF-8");
    EXPECT_EQ(mail.header("Content-Transfer-Encoding"), c.encoding);
    EXPECT_EQ(mail.mail_options, c.encoding == std::string("8bit") ? std::vector<std::string>{"BODY=8BITMIME"}
                                                                   : std::vector<std::string>{});
    EXPECT_EQ(mail.defects, std::vector<std::string>{});
    EXPECT_EQ(mail.text, c.text.empty() ? c.body : c.text);
    if (c.encoding == std::string("7bit")) {
        EXPECT_EQ(mail.body(), std::regex_replace(mail.text, std::regex("\n"), "\r\n"));
    }
    EXPECT_TRUE(m_warnings.texts.empty());
}

INSTANTIATE_TEST_SUITE_P(Cases, BODY, ::testing::ValuesIn(BODY_CASES),
                         [](const ::testing::TestParamInfo<BODY_CASE>& info) { return info.param.name; });

// Each role's address from the settings, copies in the envelope and the Cc header, blind copies in
// the envelope only, the reply address and HTML as asked, a Message-ID of each mail's own; a
// subject cannot add headers.
TEST_F(MAIL, EnvelopeAndHeadersFollowTheRoles)
{
    const std::string release = gen_get_setting("mail/release_team");
    const std::string administrator = gen_get_setting("mail/administrator");
    ASSERT_TRUE(PGM_COMMON::send_auto_email_file({PGM_COMMON_INI_EMAIL_ADDR_ADMINISTRATOR}, "subject", "body\n", true,
                                                 "", {}, {}));
    ASSERT_TRUE(PGM_COMMON::send_auto_email_file(
        {PGM_COMMON_INI_EMAIL_ADDR_RELEASE_TEAM, PGM_COMMON_INI_EMAIL_ADDR_ADMINISTRATOR},
        "report\r\nBcc: someone@else.invalid", "body\n", false, "answers@loopback.invalid", {"copy@loopback.invalid"},
        {"hidden@loopback.invalid"}));
    const auto mails = m_sink->mails();
    ASSERT_EQ(mails.size(), 2u);
    EXPECT_EQ(mails[0].rcpt_to, std::vector<std::string>{administrator});
    EXPECT_EQ(mails[0].header("To"), administrator);
    EXPECT_EQ(mails[0].header("Cc"), "");
    EXPECT_EQ(mails[0].header("Reply-To"), "");
    EXPECT_EQ(mails[0].header("Content-Type"), "text/html; charset=UTF-8");
    EXPECT_EQ(mails[1].rcpt_to, (std::vector<std::string>{release, administrator, "copy@loopback.invalid",
                                                           "hidden@loopback.invalid"}));
    EXPECT_EQ(mails[1].header("To"), release + ", " + administrator);
    EXPECT_EQ(mails[1].header("Cc"), "copy@loopback.invalid");
    EXPECT_EQ(mails[1].header("Reply-To"), "answers@loopback.invalid");
    EXPECT_EQ(mails[1].header("Content-Type"), "text/plain; charset=UTF-8");
    EXPECT_EQ(mails[1].data.find("hidden@"), std::string::npos);
    EXPECT_EQ(mails[1].header("Subject"), "report  Bcc: someone@else.invalid");
    EXPECT_EQ(mails[1].header("Bcc"), "");
    EXPECT_NE(mails[0].header("Message-ID"), "");
    EXPECT_NE(mails[0].header("Message-ID"), mails[1].header("Message-ID"));
}

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
    const std::string value =
        c.value == std::string("closed port") ? "127.0.0.1:" + std::to_string(smtp_sink_closed_port()) : c.value;
    // Overrides last for the process: the old value comes back before any check can end the test.
    const std::string old_value = gen_get_setting(c.setting);
    gen_set_setting(c.setting, value);
    const auto start = std::chrono::steady_clock::now();
    const bool sent = send_notification("log\n");
    const auto took = std::chrono::steady_clock::now() - start;
    gen_set_setting(c.setting, old_value);
    EXPECT_FALSE(sent);
    EXPECT_LT(took, std::chrono::seconds(3));
    EXPECT_TRUE(m_sink->mails().empty());
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
    EXPECT_TRUE(m_sink->mails().empty());
}

} // namespace
