// The suite's dialogs answer preset answers instead of blocking, and the busy dialog shows its
// text, title and the time that has passed.
#include "tfcq.h"
#include "thr.h"

#include <QCheckBox>
#include <QtTest>

class TEST_DIALOGS : public QObject {
    Q_OBJECT
private slots:
    void file_dialog_takes_the_scripted_answer();
    void dialog_answer_acts_on_the_widgets();
    void busy_dialog_shows_elapsed_time();
};

void TEST_DIALOGS::file_dialog_takes_the_scripted_answer()
{
    qputenv("TFCQ_FILE_DLG_ANSWER", "cancel");
    TFCQ_FILE_DLG dialog(nullptr, TFCQ_FILE_DLG::SAVE_FILE, "Save", "*");
    QCOMPARE(dialog.exec(), int(QDialog::Rejected));
    qputenv("TFCQ_FILE_DLG_ANSWER", "/tmp/b.wvf");
    QCOMPARE(dialog.exec(), int(QDialog::Accepted));
    QCOMPARE(dialog.selected_files(), QStringList("/tmp/b.wvf"));
    qunsetenv("TFCQ_FILE_DLG_ANSWER");
}

void TEST_DIALOGS::dialog_answer_acts_on_the_widgets()
{
    TFCQ_DIALOG dialog;
    auto* box = new QCheckBox("Skip", &dialog);
    bool shown_while_answering = false;
    TFCQ_DIALOG::preset_answer([&](TFCQ_DIALOG* d) {
        shown_while_answering = d->isVisible();
        QTest::mouseClick(box, Qt::LeftButton);
        return int(QDialog::Accepted);
    });
    QCOMPARE(dialog.exec(), int(QDialog::Accepted));
    QVERIFY(shown_while_answering);
    QVERIFY(box->isChecked());
    QVERIFY(!dialog.isVisible());
}

void TEST_DIALOGS::busy_dialog_shows_elapsed_time()
{
    TFCQ_BUSY_DLG busy("Please wait while Programmer is processing...", "Programmer Debug Waveform Viewer");
    QVERIFY(busy.isVisible());
    QCOMPARE(busy.text(), QStringLiteral("Please wait while Programmer is processing..."));
    QCOMPARE(busy.windowTitle(), QStringLiteral("Programmer Debug Waveform Viewer"));
    QCOMPARE(busy.elapsed_text(), QStringLiteral("Elapsed time: 00:00:00"));
    thr_msleep(1400);  // the GUI thread keeps handling the dialog's timer while it sleeps
    QCOMPARE(busy.elapsed_text(), QStringLiteral("Elapsed time: 00:00:01"));
}

QTEST_MAIN(TEST_DIALOGS)
#include "test_dialogs.moc"
