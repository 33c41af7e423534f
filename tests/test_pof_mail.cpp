// "Send" mails the POF checker's log through the suite's automatic mail: a strict relay on
// 127.0.0.1 receives it and the button goes grey; a server that is not there leaves the button
// enabled for another try and the host application running (the program runs inside the host's
// application object).
#include "pof_test_support.h"

#include "host_application.h"
#include "smtp_sink.h"

#include <QTimer>

namespace {

class PofMail : public ::testing::Test {
protected:
    SMTP_SINK sink{build_dir() + "/site/bin"};
    PGMDQ_POF_CHECKER checker;
    PGMDQ_POF_CHECKER_TEST_ACCESS access{checker};

    void SetUp() override
    {
        ASSERT_NE(sink.port(), 0) << "the SMTP sink did not start";
        gen_load_settings(build_dir() + "/site/site.ini");
        gen_set_setting("mail/smtp_server", sink.server());
    }
};

// "Send" (enabled by a POF error) mails the log once to the first role; the slot itself sends an
// empty log as an empty body. Either way the button is grey afterwards.
TEST_F(PofMail, SendMailsTheLogToTheFirstRoleOnce)
{
    access.update_msg(PGMDQ_MSG_TYPE_INFO, "Checking Calder 5 ...");
    access.update_msg(PGMDQ_MSG_TYPE_POF_ERROR, "POF checking failed - /r/x.sof");
    ASSERT_TRUE(access.send_button()->isEnabled());
    access.send_button()->click();
    EXPECT_FALSE(access.send_button()->isEnabled());
    access.clear_log();
    ASSERT_TRUE(QMetaObject::invokeMethod(&checker, "on_send_email"));
    EXPECT_FALSE(access.send_button()->isEnabled());
    const auto mails = sink.mails();
    ASSERT_EQ(mails.size(), 2u);
    for (const SMTP_SINK_MAIL& mail : mails) {
        EXPECT_EQ(mail.header("Subject"), "POF Checker notification");
        EXPECT_EQ(mail.rcpt_to, std::vector<std::string>{gen_get_setting("mail/bench_team")});
    }
    EXPECT_EQ(mails[0].body(), "Info: Checking Calder 5 ...\r\nPOF Error: POF checking failed - /r/x.sof\r\n");
    EXPECT_EQ(mails[1].body(), "");
}

// The mail fails (and says so as a host warning); the panel goes on with "Send" still enabled, so
// the user can try again, and the application keeps handling events without an internal error.
// Once a try succeeds the button goes grey.
TEST_F(PofMail, FailedSendCanBeRetried)
{
    gen_set_setting("mail/smtp_server", "127.0.0.1:" + std::to_string(smtp_sink_closed_port()));
    POF_TEST_SINK messages;
    access.update_msg(PGMDQ_MSG_TYPE_POF_ERROR, "POF checking failed - /r/x.sof");
    access.send_button()->click();
    EXPECT_TRUE(access.send_button()->isEnabled());
    EXPECT_EQ(messages.texts(MSG_KIND::WARNING).size(), 1u);
    bool handled = false;
    QTimer::singleShot(0, [&handled] { handled = true; });
    QCoreApplication::processEvents();
    EXPECT_TRUE(handled);
    EXPECT_EQ(static_cast<HOST_APPLICATION*>(QCoreApplication::instance())->internal_error_count(), 0);
    EXPECT_TRUE(sink.mails().empty());

    gen_set_setting("mail/smtp_server", sink.server());
    access.send_button()->click();
    EXPECT_FALSE(access.send_button()->isEnabled());
    ASSERT_EQ(sink.mails().size(), 1u);
    EXPECT_EQ(sink.mails()[0].text, "POF Error: POF checking failed - /r/x.sof\n");
}

} // namespace

int main(int argc, char** argv)
{
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    HOST_APPLICATION app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
