// Test runs through the Kiopru panel on the simulated bench, with the dialogs answered the way a
// user would answer them: cables in the hardware dialog, processes in the process dialog, a file
// name in the save dialog. Runs inside the host application, which survives internal errors.
#include "kiopru_test_support.h"

#include "host_application.h"

#include "gen.h"
#include "pgmd_cm.h"

#include <QDir>
#include <QFile>
#include <QLabel>
#include <QMessageBox>
#include <QSet>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>

namespace {

const QString DETAIL_PREFIX = "==========> ";

QString file_text(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(file.readAll()) : QString();
}

bool write_file(const QString& path, const QByteArray& contents)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size();
}

} // namespace

class TEST_KIOPRU_RUN : public QObject {
    Q_OBJECT
    QTemporaryDir m_work_dir;
    std::unique_ptr<PGMDQ_COOKIE_MONSTER> m_panel;

    QString raw_file() const { return QDir(m_work_dir.path()).filePath("kiopru_batch.raw"); }
    void create_tests(const QString& dut, const QString& vccpgm) { kiopru_create_test(*m_panel, dut, {{"m_vccpgm_combo", vccpgm}}); }
    void run(const QStringList& boxes_to_tick = {}) { kiopru_run(*m_panel, boxes_to_tick); }
    void choose_file_and_click(const QString& file, const QString& button)
    {
        TFCQ_FILE_DLG::preset_answer(file);
        kiopru_click(kiopru_button(*m_panel, button));
    }
    QString result_counts() const { return m_panel->findChild<QLabel*>("m_result_counts_label")->text(); }

    // Every line in the colour its text calls for (commands dark yellow, processes blue, verdicts
    // dark green or red, and after each verdict its details in its colour), and drawn in it.
    void check_colours() const
    {
        const QStringList lines = kiopru_lines(*m_panel);
        QColor verdict;
        QSet<QRgb> used;
        for (int row = 0; row < lines.size(); ++row) {
            const QString& line = lines[row];
            const bool command = line.startsWith("CMD @"), process = line.startsWith("PROCESS ");
            if (line.contains(" - Pass") || line.contains(" - Fail"))
                verdict = line.contains(" - Pass") ? QColor(Qt::darkGreen) : QColor(Qt::red);
            else if (!command && !process)
                QVERIFY2(line.startsWith(DETAIL_PREFIX) && verdict.isValid(), qPrintable(line));
            const QColor colour = command ? QColor(Qt::darkYellow) : process ? QColor(Qt::blue) : verdict;
            QCOMPARE(kiopru_line_color(*m_panel, row), colour);
            used.insert(colour.rgb());
        }
        const QImage picture = m_panel->grab().toImage().convertToFormat(QImage::Format_RGB32);
        for (QRgb colour : used) {
            int pixels = 0;
            for (int y = 0; y < picture.height(); ++y)
                for (int x = 0; x < picture.width(); ++x)
                    pixels += picture.pixel(x, y) == colour;
            QVERIFY2(pixels > 20, qPrintable(QColor(colour).name()));
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

    // A cancelled process dialog ends the run before it starts. A run appends the processes and a
    // coloured verdict per test, and writes the raw file; the next run starts again from the
    // commands, here with the engine skipped: the raw file and the processes as the dialog left them.
    void run_appends_processes_and_coloured_verdicts()
    {
        create_tests(BR5, "All");
        TFCQ_DIALOG::preset_answer([](TFCQ_DIALOG*) { return int(QDialog::Rejected); });
        kiopru_click(kiopru_button(*m_panel, "Run Test"));
        const QStringList commands = kiopru_lines(*m_panel);
        QCOMPARE(commands.size(), 3);
        QVERIFY(!QFile::exists(raw_file()));

        run();
        QCOMPARE(kiopru_lines(*m_panel).mid(3, 3),
                 (QStringList{"PROCESS +Generate SOF", "PROCESS +Generate PFL IP", "PROCESS +Generate PFL POF"}));
        QVERIFY(kiopru_lines(*m_panel)[7].startsWith(DETAIL_PREFIX));
        check_colours();
        QCOMPARE(result_counts(), QString("3 passed, 0 failed"));
        QCOMPARE(file_text(raw_file()).count("\nPROCESS\tRUN\t"), 3);

        run({"Skip engine operation", "PROCESS +Generate PFL IP"});
        QCOMPARE(kiopru_lines(*m_panel), QStringList(commands) << "PROCESS +Generate SOF" << "PROCESS -Generate PFL IP"
                                                                << "PROCESS +Generate PFL POF");
        const QString raw = file_text(raw_file());
        QCOMPARE(raw.count("\nTEST\t"), 3);
        QVERIFY(raw.contains("\nPROCESS\tSKIP\tGenerate PFL IP\n"));
    }

    // Deleting every command keeps the run's lines for saving. Choosing a cable again enables
    // "Run Test" for those lines alone; the run then finds no commands, and the raw-file step
    // reports the empty batch as an internal error that the host shows.
    void deleting_every_command_leaves_nothing_to_run()
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
        QVERIFY(!kiopru_lines(*m_panel).isEmpty());
        QVERIFY(kiopru_lines(*m_panel).filter(QRegExp("^CMD")).isEmpty());
        QVERIFY(!kiopru_button(*m_panel, "Run Test")->isEnabled() && !remove->isEnabled());
        // What is saved is what the list shows.
        const QString saved = QDir(m_work_dir.path()).filePath("after_delete.txt");
        choose_file_and_click(saved, "Save msg");
        QCOMPARE(file_text(saved), kiopru_lines(*m_panel).join("\n") + "\n");

        auto* host = qobject_cast<HOST_APPLICATION*>(qApp);
        const int errors_before = host->internal_error_count();
        kiopru_choose_cable(*m_panel, true, DUT_CABLE);
        run();
        QCOMPARE(host->internal_error_count(), errors_before + 1);
        QMessageBox* error_dialog = host->internal_error_dialog();
        QVERIFY(error_dialog);
        QCOMPARE(error_dialog->text(), QString("count > 0"));
        QVERIFY(error_dialog->informativeText().contains("pgmdq_cookie_monster"));
        error_dialog->close();
        QVERIFY(kiopru_lines(*m_panel).isEmpty());
        QCOMPARE(file_text(raw_file()).count("\nTEST\t"), 3); // the earlier run's raw file stays
    }

    // A file that cannot be written whole is told once, naming it, and the previous one stays.
    void failed_writes_keep_the_previous_file_data()
    {
        QTest::addColumn<bool>("raw_file");
        QTest::addColumn<UNWRITABLE>("place");
        for (const bool raw_file : {false, true}) {
            const QString what = raw_file ? "raw file" : "Save msg";
            QTest::newRow(qPrintable(what + ", read-only folder")) << raw_file << UNWRITABLE::READ_ONLY_FOLDER;
            QTest::newRow(qPrintable(what + ", missing folder")) << raw_file << UNWRITABLE::MISSING_FOLDER;
            QTest::newRow(qPrintable(what + ", full disk")) << raw_file << UNWRITABLE::FULL_DISK;
        }
    }
    void failed_writes_keep_the_previous_file()
    {
        QFETCH(bool, raw_file);
        QFETCH(UNWRITABLE, place);
        const QTemporaryDir scratch;
        const QDir work(scratch.path());
        // The raw file's folder is made when missing, unless a file stands in the way.
        QVERIFY(write_file(work.filePath("blocker"), ""));
        const QString folder = place != UNWRITABLE::MISSING_FOLDER ? work.filePath("unwritable")
                               : raw_file                     ? work.filePath("blocker/below")
                                                              : work.filePath("missing");
        const QString file = QDir(folder).filePath(raw_file ? "kiopru_batch.raw" : "batch.txt");
        const QByteArray previous = "previous contents\n";
        if (place != UNWRITABLE::MISSING_FOLDER)
            QVERIFY(QDir().mkpath(folder) && write_file(file, previous));
        create_tests(BR5, "1.8 V");

        KIOPRU_MESSAGES messages;
        if (raw_file) {
            gen_set_setting("kiopru/work_dir", folder.toStdString());
            while_unwritable(place, folder, [&] { run(); });
            gen_set_setting("kiopru/work_dir", m_work_dir.path().toStdString());
            QCOMPARE(kiopru_lines(*m_panel).filter(" - Pass").size(), 1);
        } else {
            run();
            while_unwritable(place, folder, [&] { choose_file_and_click(file, "Save msg"); });
        }
        QCOMPARE(messages.errors.size(), 1);
        const QString told = (raw_file ? "Can't write the raw test file " : "Can't save or open file ") + file + " (";
        QVERIFY2(messages.errors[0].startsWith(told), qPrintable(messages.errors[0]));
        QCOMPARE(file_text(file).toUtf8(), place == UNWRITABLE::MISSING_FOLDER ? QByteArray() : previous);
        QCOMPARE(QDir(folder).entryList(QDir::Files | QDir::Hidden),
                 place == UNWRITABLE::MISSING_FOLDER ? QStringList() : QStringList(QFileInfo(file).fileName()));
    }

    // The busy dialog is modal for the whole run: a click on "Run Test" that the window system
    // delivers meanwhile is discarded, and no second run follows.
    void click_during_a_run_starts_no_second_run()
    {
        create_tests(BR5, "All");
        int process_dialogs = 0;
        for (int answer = 0; answer < 2; ++answer)
            TFCQ_DIALOG::preset_answer([&process_dialogs](TFCQ_DIALOG* dialog) {
                ++process_dialogs;
                kiopru_click(kiopru_button(*dialog, "Ok"));
                return dialog->result();
            });
        QPushButton* run_button = kiopru_button(*m_panel, "Run Test");
        QString busy_text;
        QTimer::singleShot(0, [&] {
            if (auto* busy = qobject_cast<TFCQ_BUSY_DLG*>(QApplication::activeModalWidget()))
                busy_text = busy->text();
            QWidget* window = run_button->window();
            QTest::mouseClick(window->windowHandle(), Qt::LeftButton, Qt::NoModifier,
                              run_button->mapTo(window, run_button->rect().center()));
        });
        kiopru_click(run_button);
        QTest::qWait(50);
        QCOMPARE(process_dialogs, 1);
        QCOMPARE(busy_text, QString("Please wait while Monster is processing..."));
        QCOMPARE(kiopru_lines(*m_panel).filter(" - Pass").size(), 3);
    }

    // The default bench holds a BR5 on the DUT chain: its test passes, the CD5 test meets the
    // wrong device and fails in red, and the run goes on. The batch saved after the run (".txt"
    // added) is the plain list, and loads back as its commands; the run's own lines stay out.
    void saved_batch_loads_back_as_its_commands()
    {
        create_tests(BR5, "1.8 V");
        create_tests(CD5, "1.8 V");
        run();
        const QStringList commands = kiopru_lines(*m_panel).filter(QRegExp("^CMD"));
        QCOMPARE(commands.size(), 2);
        check_colours();
        QVERIFY(kiopru_lines(*m_panel).filter(" - Fail").join("").contains(CD5));
        QCOMPARE(result_counts(), QString("1 passed, 1 failed"));
        const QDir dir(m_work_dir.path());
        const QStringList files = dir.entryList(QDir::Files);
        choose_file_and_click(QString(), "Save msg"); // cancelled
        QCOMPARE(dir.entryList(QDir::Files), files);
        choose_file_and_click(dir.filePath("saved"), "Save msg");
        const QString saved = dir.filePath("saved.txt");
        QCOMPARE(file_text(saved), kiopru_lines(*m_panel).join("\n") + "\n");
        const int run_lines = kiopru_lines(*m_panel).size() - commands.size();

        init();
        KIOPRU_MESSAGES messages;
        choose_file_and_click(saved, "Load batch");
        QCOMPARE(kiopru_lines(*m_panel), commands);
        QCOMPARE(kiopru_line_color(*m_panel, 1), QColor(Qt::darkYellow));
        QCOMPARE(messages.errors, QStringList());
        const QString earlier_run = ": %1 line(s) of an earlier run (processes, results) not loaded";
        QCOMPARE(messages.infos, QStringList(saved + earlier_run.arg(run_lines)));
        QVERIFY(result_counts().isEmpty());
        run();
        QCOMPARE(result_counts(), QString("1 passed, 1 failed"));
    }

    // Two panels at once, the frame's on the site's bench and another on a bench of its own whose
    // cables are named otherwise: each reaches only its own cables, and a memory programmed
    // through one is still blank on the other bench.
    void two_panels_on_two_benches()
    {
        const QString second_bench = QString::fromStdString(pgmd_cm_default_bench()).replace("[1-", "[2-");
        std::string error;
        const std::shared_ptr<PGMD_CM_BENCH> bench = pgmd_cm_bench_from_json(second_bench.toStdString(), &error);
        QVERIFY2(bench, error.c_str());
        PGMDQ_COOKIE_MONSTER other(bench);
        other.show();
        QVERIFY(other.set_hardware(false, 1) && other.set_hardware(true, 2));
        QCOMPARE(kiopru_edit_text(other, true), QString("DUT-USB [2-2]"));
        QCOMPARE(kiopru_edit_text(*m_panel, true), QString(DUT_CABLE));

        kiopru_create_test(other, BR5, {{"m_vccpgm_combo", "1.8 V"}});
        create_tests(BR5, "1.8 V");
        kiopru_run(other);
        QCOMPARE(kiopru_lines(other).filter(" - Pass").size(), 1);
        const QString blank = DETAIL_PREFIX + "Configuration failed: the memory holds no configuration image";
        run({"Skip flash programming / verification"});
        QCOMPARE(kiopru_lines(*m_panel).filter(" - Fail").size(), 1);
        QVERIFY(!kiopru_lines(*m_panel).filter(blank).isEmpty());
        kiopru_run(other, {"Skip flash programming / verification"});
        QCOMPARE(kiopru_lines(other).filter(" - Pass").size(), 1);
    }

    // Each line of a saved batch is checked as "Create Test" checks its choices: what is not
    // loaded is told with its line number and reason, and the rest is loaded and can run.
    void batch_lines_are_validated_as_create_test_does_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("reason");
        const QString ps = "CMD @BR5-TV1-ES @Passive Serial @1.8 V @P30 2Gb 16-bits CFI flash";
        const QString as = "CMD @BR5-TV1-ES @Active Serial ";
        QTest::newRow("unknown option") << "CMD @BR5-TV1-ES @Passive Serial @1.9 V @P30 2Gb 16-bits CFI flash @DCLK"
                                        << "unknown VCCPGM \"1.9 V\"";
        QTest::newRow("scheme") << "CMD @CD5-TV2-ES @Fast Passive Parallel x32 @1.8 V @P30 2Gb 16-bits CFI flash @DCLK"
                                << "For dut CD5-TV2-ES, configure scheme - Fast Passive Parallel x32 is invalid";
        QTest::newRow("supply") << as + "@1.8 V @P30 2Gb 16-bits CFI flash @DCLK"
                                << "For dut BR5-TV1-ES, combination of configure scheme - Active Serial and VCCPGM - "
                                   "1.8 V is invalid";
        QTest::newRow("memory") << as + "@3.0 V @P30 2Gb 16-bits CFI flash @DCLK"
                                << "For dut BR5-TV1-ES, combination of configure scheme - Active Serial, VCCPGM - 3.0 V "
                                   "and memory storage - P30 2Gb 16-bits CFI flash is invalid";
        QTest::newRow("clock") << ps + " @External CLKUSR"
                               << "For dut BR5-TV1-ES, combination of configure scheme - Passive Serial, VCCPGM - 1.8 V, "
                                  "memory storage - P30 2Gb 16-bits CFI flash and configuration frequency - External "
                                  "CLKUSR is invalid";
        QTest::newRow("field missing") << "CMD @BR5-TV1-ES @Passive Serial"
                                       << "\"CMD @BR5-TV1-ES @Passive Serial\" is not a test command (CMD @dut "
                                          "@scheme @VCCPGM @memory storage @frequency)";
    }
    void batch_lines_are_validated_as_create_test_does()
    {
        QFETCH(QString, line);
        QFETCH(QString, reason);
        const QString valid = "CMD @BR5-TV1-ES @Passive Serial @1.8 V @P30 2Gb 16-bits CFI flash @DCLK";
        const QString batch = QDir(m_work_dir.path()).filePath("edited.txt");
        QVERIFY(write_file(batch, (valid + "\n\n" + line + "\r\n").toUtf8()));
        KIOPRU_MESSAGES messages;
        choose_file_and_click(batch, "Load batch");
        QCOMPARE(kiopru_lines(*m_panel), QStringList(valid));
        QCOMPARE(messages.errors, QStringList(QString("Line 3 of %1 not loaded: %2").arg(batch, reason)));
        QVERIFY(kiopru_button(*m_panel, "Run Test")->isEnabled());
    }
};

int main(int argc, char** argv)
{
    HOST_APPLICATION app(argc, argv);
    TEST_KIOPRU_RUN test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_kiopru_run.moc"
