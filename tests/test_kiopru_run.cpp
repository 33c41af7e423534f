// Test runs through the Kiopru panel on the simulated bench, with the dialogs answered the way a
// user would answer them: cables in the hardware dialog, processes in the process dialog, a file
// name in the save dialog. Runs inside the host application, which survives internal errors.
#include "kiopru_test_support.h"

#include "host_application.h"

#include "gen.h"
#include "pgmd_cm.h"

#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QTemporaryDir>

#include <memory>

namespace {

const QString DETAIL_PREFIX = "==========> ";

QString file_text(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(file.readAll()) : QString();
}

bool is_detail(const QString& line)
{
    return line.startsWith(DETAIL_PREFIX);
}

} // namespace

class TEST_KIOPRU_RUN : public QObject {
    Q_OBJECT
    QTemporaryDir m_work_dir;
    std::unique_ptr<PGMDQ_COOKIE_MONSTER> m_panel;

    QString raw_file() const { return QDir(m_work_dir.path()).filePath("kiopru_batch.raw"); }

    // Passive Serial on the first flash with DCLK, at one or every supply voltage; then a run with
    // the process dialog confirmed.
    void create_tests(const QString& dut, const QString& vccpgm)
    {
        QVERIFY(kiopru_choose(*m_panel, "m_dut_combo", dut));
        QVERIFY(kiopru_choose(*m_panel, "m_vccpgm_combo", vccpgm));
        kiopru_click(kiopru_button(*m_panel, "Create Test"));
    }
    void run(const QStringList& boxes_to_tick = {})
    {
        kiopru_answer_process_dialog(boxes_to_tick);
        kiopru_click(kiopru_button(*m_panel, "Run Test"));
    }

    // Every verdict is dark green or red by its text, and its details follow in its colour.
    void check_result_colours(int first_result_row)
    {
        const QStringList lines = kiopru_lines(*m_panel);
        QVERIFY(first_result_row < lines.size());
        QVERIFY(!is_detail(lines[first_result_row]));
        QColor verdict_colour;
        for (int row = first_result_row; row < lines.size(); ++row) {
            if (!is_detail(lines[row])) {
                QVERIFY2(lines[row].contains(" - Pass") != lines[row].contains(" - Fail"), qPrintable(lines[row]));
                verdict_colour = lines[row].contains(" - Pass") ? QColor(Qt::darkGreen) : QColor(Qt::red);
            }
            QCOMPARE(kiopru_line_color(*m_panel, row), verdict_colour);
        }
    }

private slots:
    void initTestCase()
    {
        kiopru_quiet_offscreen_warnings();
        QVERIFY(m_work_dir.isValid());
        gen_set_setting("kiopru/work_dir", m_work_dir.path().toStdString());
    }
    void init()
    {
        std::string error;
        QVERIFY2(pgmd_cm_reload_bench(&error), error.c_str());
        QFile::remove(raw_file());
        m_panel = std::make_unique<PGMDQ_COOKIE_MONSTER>();
        m_panel->show();
        kiopru_choose_cable(*m_panel, false, BENCH_CABLE);
        kiopru_choose_cable(*m_panel, true, DUT_CABLE);
    }
    void cleanup()
    {
        m_panel.reset();
        TFCQ_DIALOG::clear_preset_answers();
        TFCQ_FILE_DLG::clear_preset_answers();
    }

    void run_appends_processes_and_coloured_verdicts()
    {
        create_tests(BR5, "All");
        run();
        const QStringList lines = kiopru_lines(*m_panel);
        for (int row = 0; row < 3; ++row) {
            QVERIFY(lines[row].startsWith("CMD @BR5-TV1-ES @Passive Serial @"));
            QCOMPARE(kiopru_line_color(*m_panel, row), QColor(Qt::darkYellow));
        }
        QCOMPARE(lines.mid(3, 3),
                 (QStringList{"PROCESS +Generate SOF", "PROCESS +Generate PFL IP", "PROCESS +Generate PFL POF"}));
        for (int row = 3; row < 6; ++row)
            QCOMPARE(kiopru_line_color(*m_panel, row), QColor(Qt::blue));
        check_result_colours(6);
        QCOMPARE(lines.mid(6).filter(" - Pass").size(), 3);
        QVERIFY(lines.mid(6).filter(" - Fail").isEmpty());
        QVERIFY(is_detail(lines[7]));

        const QString raw = file_text(raw_file());
        QCOMPARE(raw.count("\nTEST\t"), 3);
        QCOMPARE(raw.count("\nPROCESS\tRUN\t"), 3);

        // A second run starts again from the commands: the old processes and results go.
        run();
        QCOMPARE(kiopru_lines(*m_panel).size(), lines.size());
        QCOMPARE(kiopru_lines(*m_panel).mid(0, 6), lines.mid(0, 6));
    }

    // The default bench holds a BR5 on the DUT chain: its test passes, the CD5 test meets the
    // wrong device and fails in red with the reason, and the run goes on.
    void wrong_device_on_the_dut_chain_fails_in_red()
    {
        create_tests(BR5, "1.8 V");
        create_tests(CD5, "1.8 V");
        run();
        const QStringList lines = kiopru_lines(*m_panel);
        const int first_result = lines.indexOf(QRegExp(".* - (Pass|Fail)"));
        QVERIFY(first_result > 0);
        check_result_colours(first_result);
        const QStringList results = lines.mid(first_result);
        QCOMPARE(results.filter(" - Pass").size(), 1);
        QCOMPARE(results.filter(" - Fail").size(), 1);
        QVERIFY(results.filter(" - Pass").first().contains(BR5));
        QVERIFY(results.filter(" - Fail").first().contains(CD5));
        QVERIFY(!results.filter(DETAIL_PREFIX + "DUT chain holds no CD5-TV2-ES").isEmpty());
    }

    void skipped_engine_writes_the_raw_file_only()
    {
        create_tests(BR5, "All");
        run({"Skip engine operation", "PROCESS +Generate PFL IP"});
        const QStringList lines = kiopru_lines(*m_panel);
        QCOMPARE(lines.size(), 6);
        QCOMPARE(lines.mid(3), (QStringList{"PROCESS +Generate SOF", "PROCESS -Generate PFL IP", "PROCESS +Generate PFL POF"}));
        const QString raw = file_text(raw_file());
        QCOMPARE(raw.count("\nTEST\t"), 3);
        QVERIFY(raw.contains("\nPROCESS\tSKIP\tGenerate PFL IP\n"));
    }

    void cancelled_process_dialog_ends_the_run()
    {
        create_tests(BR5, "1.8 V");
        TFCQ_DIALOG::preset_answer([](TFCQ_DIALOG*) { return int(QDialog::Rejected); });
        kiopru_click(kiopru_button(*m_panel, "Run Test"));
        QCOMPARE(kiopru_lines(*m_panel).size(), 1);
        QVERIFY(!QFile::exists(raw_file()));
    }

    void deleting_the_last_command_keeps_save()
    {
        create_tests(BR5, "All");
        run();
        QListWidget* list = kiopru_list(*m_panel);
        QPushButton* remove = kiopru_button(*m_panel, "Delete Test");
        QVERIFY(!remove->isEnabled());
        // Select the three command lines as a user does: click the first, shift-click the third.
        auto row_centre = [&](int row) { return list->visualItemRect(list->item(row)).center(); };
        QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, row_centre(0));
        QVERIFY(remove->isEnabled());
        QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::ShiftModifier, row_centre(2));
        QCOMPARE(list->selectedItems().size(), 3);
        kiopru_click(remove);

        const QStringList lines = kiopru_lines(*m_panel);
        QVERIFY(!lines.isEmpty());
        QVERIFY(lines.filter(QRegExp("^CMD")).isEmpty());
        QVERIFY(!kiopru_button(*m_panel, "Run Test")->isEnabled());
        QVERIFY(kiopru_button(*m_panel, "Save msg")->isEnabled());
        QVERIFY(!remove->isEnabled());
    }

    // Choosing a cable again enables "Run Test" for the result lines alone; the run then finds no
    // commands, and the raw-file step reports the empty batch.
    void old_results_alone_stop_on_an_internal_error()
    {
        auto* host = qobject_cast<HOST_APPLICATION*>(qApp);
        create_tests(BR5, "1.8 V");
        run();
        kiopru_list(*m_panel)->item(0)->setSelected(true);
        kiopru_click(kiopru_button(*m_panel, "Delete Test"));
        QVERIFY(!kiopru_button(*m_panel, "Run Test")->isEnabled());
        kiopru_choose_cable(*m_panel, true, DUT_CABLE);

        const int errors_before = host->internal_error_count();
        run();
        QCOMPARE(host->internal_error_count(), errors_before + 1);
        QMessageBox* error_dialog = host->internal_error_dialog();
        QVERIFY(error_dialog);
        QCOMPARE(error_dialog->text(), QString("count > 0"));
        QVERIFY(error_dialog->informativeText().contains("pgmdq_cookie_monster"));
        error_dialog->close();
        QVERIFY(kiopru_lines(*m_panel).isEmpty());
        // The raw file is still the one of the earlier run.
        QCOMPARE(file_text(raw_file()).count("\nTEST\t"), 1);
    }

    void saved_batch_is_the_plain_list_data()
    {
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<QString>("written");
        QTest::newRow("extension added") << "batch" << "batch.txt";
        QTest::newRow("extension kept") << "kept.txt" << "kept.txt";
        QTest::newRow("cancelled") << "" << "";
    }
    void saved_batch_is_the_plain_list()
    {
        QFETCH(QString, chosen);
        QFETCH(QString, written);
        create_tests(BR5, "1.8 V");
        run();
        const QDir dir(m_work_dir.path());
        const QStringList before = dir.entryList(QDir::Files);
        TFCQ_FILE_DLG::preset_answer(chosen.isEmpty() ? QString() : dir.filePath(chosen));
        kiopru_click(kiopru_button(*m_panel, "Save msg"));
        if (written.isEmpty())
            QCOMPARE(dir.entryList(QDir::Files), before);
        else
            QCOMPARE(file_text(dir.filePath(written)), kiopru_lines(*m_panel).join("\n") + "\n");
        QVERIFY(kiopru_lines(*m_panel).size() > 4);
    }
};

int main(int argc, char** argv)
{
    HOST_APPLICATION app(argc, argv);
    TEST_KIOPRU_RUN test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_kiopru_run.moc"
