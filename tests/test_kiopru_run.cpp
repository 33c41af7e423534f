// Test runs through the Kiopru panel on the simulated bench, with the dialogs answered the way a
// user would answer them: cables in the hardware dialog, processes in the process dialog, a file
// name in the save dialog. Runs inside the host application, which survives internal errors.
#include "kiopru_test_support.h"

#include "host_application.h"

#include "gen.h"
#include "pgmd_cm.h"
#include "pgmwq.h"
#include "tfcq.h"

#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QTemporaryDir>

#include <memory>

namespace {

const QString BR5 = "BR5-TV1-ES";
const QString CD5 = "CD5-TV2-ES";
const char* const BENCH_CABLE = "Bench-USB [1-1]";
const char* const DUT_CABLE = "DUT-USB [1-2]";
const QString DETAIL_PREFIX = "==========> ";

// The default bench with a CD5 device where the BR5 belongs.
const char* const WRONG_DUT_BENCH = R"({
  "cables": [
    { "name": "Bench-USB [1-1]",
      "chain": [ { "name": "Kiopru bench controller", "idcode": "0x0C1E00DD", "ir_length": 10,
                   "configuration_hardware": { "target": { "cable": "DUT-USB [1-2]", "device": 1 } } } ] },
    { "name": "DUT-USB [1-2]",
      "chain": [ { "name": "CD5-TV2-ES", "idcode": "0x0B4250F3", "ir_length": 10,
                   "configuration": { "schemes": ["ps", "fppx8", "fppx16", "asx1", "asx4"],
                                      "passive_vccpgm_mv": [1800, 2500, 3000, 3300],
                                      "active_vccpgm_mv": [1800, 3000, 3300] } } ] }
  ]
})";

QString file_text(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromLocal8Bit(file.readAll());
}

QCheckBox* dialog_box(TFCQ_DIALOG* dialog, const QString& text)
{
    for (QCheckBox* box : dialog->findChildren<QCheckBox*>())
        if (box->text() == text)
            return box;
    return nullptr;
}

// The next process dialog is confirmed with "Ok", after ticking the named boxes.
void answer_process_dialog(const QStringList& boxes_to_tick = {})
{
    TFCQ_DIALOG::preset_answer([boxes_to_tick](TFCQ_DIALOG* dialog) {
        for (const QString& text : boxes_to_tick)
            kiopru_click(dialog_box(dialog, text));
        for (QPushButton* button : dialog->findChildren<QPushButton*>())
            if (button->text() == "Ok")
                kiopru_click(button);
        return dialog->result();
    });
}

bool is_detail(const QString& line)
{
    return line.startsWith(DETAIL_PREFIX);
}

} // namespace

class TEST_KIOPRU_RUN : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    void run_appends_processes_and_coloured_verdicts();
    void mixed_batch_colours_each_verdict_with_its_details();
    void skipped_engine_writes_the_raw_file_only();
    void cancelled_process_dialog_ends_the_run();
    void deleting_the_last_command_keeps_save();
    void old_results_alone_stop_on_an_internal_error();
    void saved_batch_is_the_plain_list_data();
    void saved_batch_is_the_plain_list();
    void wrong_device_on_the_dut_chain_fails_in_red();

private:
    void create_tests(const QString& dut, const QString& vccpgm);
    void choose_cable(bool dut, const char* cable);
    void run();
    QString raw_file() const { return QDir(m_work_dir.path()).filePath("kiopru_batch.raw"); }
    void check_result_colours(int first_result_row);

    QTemporaryDir m_work_dir;
    std::unique_ptr<PGMDQ_COOKIE_MONSTER> m_panel;
};

void TEST_KIOPRU_RUN::initTestCase()
{
    kiopru_quiet_offscreen_warnings();
    QVERIFY(m_work_dir.isValid());
    gen_set_setting("kiopru/work_dir", m_work_dir.path().toStdString());
}

void TEST_KIOPRU_RUN::init()
{
    std::string error;
    QVERIFY2(pgmd_cm_reload_bench(&error), error.c_str());
    QFile::remove(raw_file());
    m_panel = std::make_unique<PGMDQ_COOKIE_MONSTER>();
    m_panel->show();
    choose_cable(false, BENCH_CABLE);
    choose_cable(true, DUT_CABLE);
}

void TEST_KIOPRU_RUN::cleanup()
{
    m_panel.reset();
    TFCQ_DIALOG::clear_preset_answers();
    TFCQ_FILE_DLG::clear_preset_answers();
}

void TEST_KIOPRU_RUN::choose_cable(bool dut, const char* cable)
{
    pgmwq_set_preset_answer(cable);
    kiopru_click(kiopru_jtag_button(*m_panel, dut));
}

// Passive Serial on the first flash with DCLK, at one or every supply voltage.
void TEST_KIOPRU_RUN::create_tests(const QString& dut, const QString& vccpgm)
{
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_dut_combo"), dut));
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_vccpgm_combo"), vccpgm));
    kiopru_click(kiopru_button(*m_panel, "Create Test"));
}

void TEST_KIOPRU_RUN::run()
{
    kiopru_click(kiopru_button(*m_panel, "Run Test"));
}

// Every verdict is dark green or red by its text, and its details follow in its colour.
void TEST_KIOPRU_RUN::check_result_colours(int first_result_row)
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

void TEST_KIOPRU_RUN::run_appends_processes_and_coloured_verdicts()
{
    create_tests(BR5, "All");
    answer_process_dialog();
    run();

    const QStringList lines = kiopru_lines(*m_panel);
    for (int row = 0; row < 3; ++row) {
        QVERIFY(lines[row].startsWith("CMD @BR5-TV1-ES @Passive Serial @"));
        QCOMPARE(kiopru_line_color(*m_panel, row), QColor(Qt::darkYellow));
    }
    const QStringList processes{"PROCESS +Generate SOF", "PROCESS +Generate PFL IP", "PROCESS +Generate PFL POF"};
    QCOMPARE(lines.mid(3, 3), processes);
    for (int row = 3; row < 6; ++row)
        QCOMPARE(kiopru_line_color(*m_panel, row), QColor(Qt::blue));
    check_result_colours(6);
    const QStringList verdicts = lines.mid(6).filter(" - Pass");
    QCOMPARE(verdicts.size(), 3);
    QVERIFY(lines.mid(6).filter(" - Fail").isEmpty());
    QVERIFY(is_detail(lines[7]));

    const QString raw = file_text(raw_file());
    QVERIFY2(!raw.isEmpty(), qPrintable(raw_file()));
    QCOMPARE(raw.count("\nTEST\t"), 3);
    QCOMPARE(raw.count("\nPROCESS\tRUN\t"), 3);

    // A second run starts again from the commands: the old processes and results go.
    answer_process_dialog();
    run();
    QCOMPARE(kiopru_lines(*m_panel).size(), lines.size());
    QCOMPARE(kiopru_lines(*m_panel).mid(0, 6), lines.mid(0, 6));
}

void TEST_KIOPRU_RUN::mixed_batch_colours_each_verdict_with_its_details()
{
    // The bench holds a BR5 on the DUT chain: its tests pass, the CD5 tests fail.
    create_tests(BR5, "1.8 V");
    create_tests(CD5, "1.8 V");
    answer_process_dialog();
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

void TEST_KIOPRU_RUN::skipped_engine_writes_the_raw_file_only()
{
    create_tests(BR5, "All");
    answer_process_dialog({"Skip engine operation", "PROCESS +Generate PFL IP"});
    run();
    const QStringList lines = kiopru_lines(*m_panel);
    QCOMPARE(lines.size(), 6);
    QCOMPARE(lines.mid(3), (QStringList{"PROCESS +Generate SOF", "PROCESS -Generate PFL IP", "PROCESS +Generate PFL POF"}));
    const QString raw = file_text(raw_file());
    QCOMPARE(raw.count("\nTEST\t"), 3);
    QVERIFY(raw.contains("\nPROCESS\tSKIP\tGenerate PFL IP\n"));
}

void TEST_KIOPRU_RUN::cancelled_process_dialog_ends_the_run()
{
    create_tests(BR5, "1.8 V");
    TFCQ_DIALOG::preset_answer([](TFCQ_DIALOG*) { return int(QDialog::Rejected); });
    run();
    QCOMPARE(kiopru_lines(*m_panel).size(), 1);
    QVERIFY(!QFile::exists(raw_file()));
}

void TEST_KIOPRU_RUN::deleting_the_last_command_keeps_save()
{
    create_tests(BR5, "All");
    answer_process_dialog();
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
void TEST_KIOPRU_RUN::old_results_alone_stop_on_an_internal_error()
{
    auto* host = qobject_cast<HOST_APPLICATION*>(qApp);
    QVERIFY(host);
    create_tests(BR5, "1.8 V");
    answer_process_dialog();
    run();
    QListWidget* list = kiopru_list(*m_panel);
    list->item(0)->setSelected(true);
    kiopru_click(kiopru_button(*m_panel, "Delete Test"));
    QVERIFY(!kiopru_button(*m_panel, "Run Test")->isEnabled());
    choose_cable(true, DUT_CABLE);
    QVERIFY(kiopru_button(*m_panel, "Run Test")->isEnabled());

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

void TEST_KIOPRU_RUN::saved_batch_is_the_plain_list_data()
{
    QTest::addColumn<QString>("chosen");
    QTest::addColumn<QString>("written");
    QTest::newRow("extension added") << "batch" << "batch.txt";
    QTest::newRow("extension kept") << "kept.txt" << "kept.txt";
    QTest::newRow("cancelled") << "" << "";
}

void TEST_KIOPRU_RUN::saved_batch_is_the_plain_list()
{
    QFETCH(QString, chosen);
    QFETCH(QString, written);
    create_tests(BR5, "1.8 V");
    answer_process_dialog();
    run();
    const QStringList lines = kiopru_lines(*m_panel);
    const QDir dir(m_work_dir.path());
    TFCQ_FILE_DLG::preset_answer(chosen.isEmpty() ? QString() : dir.filePath(chosen));
    const QStringList before = dir.entryList(QDir::Files);
    kiopru_click(kiopru_button(*m_panel, "Save msg"));
    if (written.isEmpty()) {
        QCOMPARE(dir.entryList(QDir::Files), before);
        return;
    }
    QCOMPARE(file_text(dir.filePath(written)), lines.join("\n") + "\n");
    QVERIFY(lines.size() > 4);
}

void TEST_KIOPRU_RUN::wrong_device_on_the_dut_chain_fails_in_red()
{
    std::string error;
    QVERIFY2(pgmd_cm_load_bench(WRONG_DUT_BENCH, &error), error.c_str());
    create_tests(BR5, "All");
    answer_process_dialog();
    run();
    const QStringList results = kiopru_lines(*m_panel).mid(6);
    QCOMPARE(results.filter(" - Fail").size(), 3);
    QVERIFY(results.filter(" - Pass").isEmpty());
    check_result_colours(6);
    for (const QString& line : results)
        if (is_detail(line))
            QVERIFY2(line.contains("DUT chain holds no BR5-TV1-ES"), qPrintable(line));
}

int main(int argc, char** argv)
{
    HOST_APPLICATION app(argc, argv);
    TEST_KIOPRU_RUN test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_kiopru_run.moc"
