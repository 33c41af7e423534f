// The suite's file dialog answers a scripted run from the environment instead of blocking. (Preset
// answers and the busy dialog are driven by the panel tests, through the panels that use them.)
#include "tfcq.h"

#include <QtTest>

class TEST_DIALOGS : public QObject {
    Q_OBJECT
private slots:
    void file_dialog_takes_the_scripted_answer();
};

void TEST_DIALOGS::file_dialog_takes_the_scripted_answer()
{
    qputenv("TFCQ_FILE_DLG_ANSWER", "cancel");
    TFCQ_FILE_DLG dialog(nullptr, TFCQ_FILE_DLG::SAVE_FILE, "Save", "*");
    QCOMPARE(dialog.exec(), int(QDialog::Rejected));
    QCOMPARE(dialog.selected_files(), QStringList());
    qputenv("TFCQ_FILE_DLG_ANSWER", "/tmp/b.wvf");
    QCOMPARE(dialog.exec(), int(QDialog::Accepted));
    QCOMPARE(dialog.selected_files(), QStringList("/tmp/b.wvf"));
    qunsetenv("TFCQ_FILE_DLG_ANSWER");
}

QTEST_MAIN(TEST_DIALOGS)
#include "test_dialogs.moc"
