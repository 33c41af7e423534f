// A check as the engineer lives it: the window stays live and drops input while the check runs,
// Cancel ends what runs, every command has an upper time, and planted links are left alone.
// ("Save msg" writes through the same helper as the Kiopru panel's, whose failures its tests
// drive.)
#include "pof_test_support.h"

#include "tfcq.h"

#include <QElapsedTimer>
#include <QTest>
#include <QTimer>
#include <QWindow>


namespace {

const unsigned CALDER5 = 1;
const unsigned C5D1 = 6;

class PofLive : public ::testing::Test, POF_APPLICATION_FIRST {
protected:
    POF_TEST_SITE site{"pof_live"};
    PGMDQ_POF_CHECKER checker;
    PGMDQ_POF_CHECKER_TEST_ACCESS access{checker};

    // Clicks "Check" and, `delay` ms into the run, hands its busy dialog to `during`.
    template <typename DURING>
    void check_and_meanwhile(int delay, DURING during)
    {
        QTimer::singleShot(delay, [during] {
            auto* busy = qobject_cast<TFCQ_BUSY_DLG*>(QApplication::activeModalWidget());
            ASSERT_NE(busy, nullptr) << "the check shows its busy dialog";
            during(*busy);
        });
        access.check_button()->click();
    }
    // A personal check of the die directory of C5D1 in the release.
    std::string personal_check_of_c5d1()
    {
        access.personal_test_check()->click();
        access.dir_edit()->setText(QString::fromStdString(site.name() + "/calder5/C5D1"));
        return site.root() + "calder5/C5D1/";
    }
    std::string processes(const std::string& pattern) const
    {
        // The bracket keeps the pattern from matching the shell that runs pgrep.
        return pof_test_read_command("pgrep -f -- '[" + pattern.substr(0, 1) + "]" + pattern.substr(1) + "'");
    }
};

// The event loop turns all through a regression (the busy dialog's clock runs, it says where the
// check is), and a click on "Check" made meanwhile is dropped, not kept for afterwards.
TEST_F(PofLive, RegressionKeepsTheWindowLiveAndDropsInput)
{
    ASSERT_TRUE(site.make_release("C5D4,D5D5", 3, 0));
    site.log_in(access);
    checker.show();
    QElapsedTimer clock;
    qint64 last_turn = 0, longest_gap = 0;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        longest_gap = std::max(longest_gap, clock.elapsed() - last_turn);
        last_turn = clock.elapsed();
    });
    QString progress, elapsed;
    QTimer::singleShot(1300, [&] {
        if (auto* busy = qobject_cast<TFCQ_BUSY_DLG*>(QApplication::activeModalWidget()))
            elapsed = busy->elapsed_text();
    });
    clock.start();
    ticker.start(10);
    check_and_meanwhile(300, [&](TFCQ_BUSY_DLG& busy) {
        progress = busy.progress();
        QPushButton* check = access.check_button();
        QTest::mouseClick(check->window()->windowHandle(), Qt::LeftButton, Qt::NoModifier,
                          check->mapTo(check->window(), check->rect().center()));
    });
    ticker.stop();

    EXPECT_LT(longest_gap, 250) << "ms without a turn of the event loop";
    EXPECT_EQ(elapsed, "Elapsed time: 00:00:01");
    EXPECT_TRUE(progress.startsWith("Checking Calder 5 C5D4 - ")) << progress.toStdString();
    EXPECT_TRUE(progress.endsWith(" of 12 dies done")) << progress.toStdString();
    const std::vector<std::string> log = access.log();
    EXPECT_EQ(std::count(log.begin(), log.end(), "Info: Checking Calder 5 ..."), 1) << "one run";
    EXPECT_EQ(site.python_runs().size(), 8u) << "an image and three DAT log-ins per die, once";
}

// Cancel ends a hung command and the log-in sessions under way with their whole process
// groups, leaves no script, work folder or DAT file, says so once, and the next check runs.
TEST_F(PofLive, CancelEndsHungCommandsAndCleansUp)
{
    ASSERT_TRUE(site.make_release("C5D1", 3, 0));
    site.log_in(access);
    const std::string die_dir = personal_check_of_c5d1();
    // The emulator hangs on the data-build host, inside the ssh session of a log-in script.
    const std::string hung = site.root() + "hung_emulator";
    pof_test_write(hung, "#!/bin/sh\nsleep 3601\n");
    pof_test_read_command("chmod +x " + hung);
    gen_set_setting("icd_emulator/C5D1", hung);

    // Cancel once the emulators hang (or after a minute, which fails the test).
    QElapsedTimer waiting, cancelling;
    bool emulators_ran = false;
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, [&] {
        auto* busy = qobject_cast<TFCQ_BUSY_DLG*>(QApplication::activeModalWidget());
        emulators_ran = processes("sleep 3601") != "";
        if (!busy || (!emulators_ran && waiting.elapsed() < 60000))
            return;
        watch.stop();
        cancelling.start();
        QTest::mouseClick(busy->findChild<QPushButton*>(), Qt::LeftButton);
    });
    waiting.start();
    watch.start(100);
    access.check_button()->click();
    EXPECT_TRUE(emulators_ran);
    // Within two seconds of the click the check is back and the hung commands are gone.
    EXPECT_LT(cancelling.elapsed(), 2000);
    while (processes("sleep 3601") != "" && cancelling.elapsed() < 2000)
        QTest::qWait(50);
    EXPECT_EQ(processes("sleep 3601"), "");
    EXPECT_EQ(access.last_log(), "Warning: POF check cancelled");
    EXPECT_EQ(pof_test_read_command("ls -A " + die_dir + " | grep -v -c '[.]sof$'"), "0\n")
        << "no script, work folder, image or DAT file is left";
    EXPECT_EQ(site.files_with_password(site.root()), "");

    access.clear_log();
    gen_set_setting("icd_emulator/C5D1", site.root() + "icd_emulator/C5D1/C5D1");
    ASSERT_TRUE(access.check_button()->isEnabled());
    access.check_button()->click();
    EXPECT_EQ(access.last_log(), "Info: POF checking passed - " + die_dir + "c5d1_design03.sof");
}

// A command that outlives its upper time is ended and named; the run goes on without it.
TEST_F(PofLive, CommandsEndAtTheirUpperTime)
{
    const std::string dir = site.root() + "slow/";
    pof_test_read_command("mkdir -p " + dir + " && cd " + dir + " && printf x | gzip > a.sof");
    access.set_die(CALDER5, C5D1, dir);
    site.add_program("perl", "#!/bin/sh\nexec sleep 30\n");
    gen_set_setting("pof_checker/command_timeout_seconds", "1");
    EXPECT_TRUE(checker.check_sof());
    gen_set_setting("pof_checker/command_timeout_seconds", "");
    EXPECT_EQ(access.log(), std::vector<std::string>{"Error: Ended after 1 seconds: perl '" + dir + "auto_unzipped.pl'"});
    EXPECT_EQ(processes("sleep 30"), "");
}

// Links planted where the check writes or removes are left as they are and reported; their
// targets are never touched.
TEST_F(PofLive, PlantedLinksAreLeftAloneAndReported)
{
    ASSERT_TRUE(site.make_release("C5D4", 3, 2));
    site.log_in(access);
    const std::string target = site.root() + "engineers_file";
    pof_test_write(target, "precious");
    const std::string tmp_link = site.root() + "c5d4_design02.sof.tmp";
    const std::string rbf_link = site.root() + "calder5/C5D4/c5d4_design01.rbf";
    for (const std::string& link : {tmp_link, rbf_link})
        ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    access.check_button()->click();
    EXPECT_EQ(pof_test_read(target), "precious");
    const std::vector<std::string> log = access.log();
    for (const std::string& link : {tmp_link, rbf_link}) {
        EXPECT_EQ(std::count(log.begin(), log.end(), "Warning: Left symbolic link " + link + " untouched"), 1) << link;
        EXPECT_EQ(pof_test_read_command("readlink " + link), target + "\n");
    }
    EXPECT_EQ(pof_test_read_command("ls " + site.root() + " | grep -c '[.]tmp$'"), "1\n") << "only the planted link";
}

} // namespace
