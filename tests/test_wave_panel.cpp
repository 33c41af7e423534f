// The waveform viewer panel on the simulated bench: button states after each operation, the
// device list, capturing the trace memory (descriptor, failing reads), Read USEDW, Reset, Save
// and Open, the cable always released with the device count reset; saves and exports that fail
// (read-only folder, missing folder, full disk) told to the user with the previous file kept
// whole; where the trace came from; and a long capture that keeps the window live.
#include "pgmdq_debug_waveform_viewer.h"

#include "bench_trace.h"
#include "widget_test_support.h"
#include "wave/wave_file_bytes.h"
#include "wave/wave_panel_driver.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>

using namespace wave_test;

namespace {

const char* const DUT_CABLE = "DUT-USB [1-2]";
const char* const LAB_CABLE = "Lab-USB [1-3]";

QJsonObject debug_ip(int seed, int depth, int feature = 1)
{
    return QJsonObject{{"seed", seed}, {"depth", depth}, {"feature", feature}};
}

// A DUT cable with one device carrying the debug IP, and a lab cable with three devices.
QJsonArray standard_cables(const QJsonObject& dut_ip = debug_ip(1, 1024), const QJsonObject& cable_faults = {})
{
    return QJsonArray{
        cable(DUT_CABLE, {device("BR5-TV1-ES", "0x0B4150F3", dut_ip)}, cable_faults),
        cable(LAB_CABLE, {device("CD5-TV2-ES", "0x0B4250F3", debug_ip(2, 2048)),
                          device("Lab flash bridge", "0x020A10DD"), device("DN5-TV3-ES", "0x0B4350F3", debug_ip(3, 1024))}),
    };
}

// The files of a folder with their sizes, "name:size", sorted.
QStringList folder_listing(const QString& folder)
{
    QStringList listing;
    for (const QFileInfo& file : QDir(folder).entryInfoList(QDir::Files | QDir::Hidden | QDir::System, QDir::Name))
        listing << QString("%1:%2").arg(file.fileName()).arg(file.size());
    return listing;
}

} // namespace

class TEST_WAVE_PANEL : public QObject {
    Q_OBJECT
    std::unique_ptr<PGMDQ_DEBUG_WAVEFORM_VIEWER> m_panel;
    std::unique_ptr<MESSAGES> m_messages;
    QTemporaryDir m_dir;

    QWidget* panel() const { return m_panel.get(); }
    QComboBox* devices() const { return m_panel->findChildren<QComboBox*>().first(); }
    QString hardware_shown() const { return m_panel->findChild<QLineEdit*>()->text(); }

    // The samples of the trace drawn (none without one).
    static std::vector<std::uint64_t> drawn(const PGMDQ_DEBUG_WAVEFORM_VIEWER& viewer)
    {
        const auto trace = viewer.waveform_widget()->trace();
        return trace ? trace->packed_samples() : std::vector<std::uint64_t>();
    }

    // Every hardware operation ends unlocked with the device count reset, whatever happened.
    void verify_released() const
    {
        QVERIFY(!m_panel->engine()->is_locked(true));
        QCOMPARE(m_panel->engine()->get_dut_count(), 0u);
    }

private slots:
    void init()
    {
        QVERIFY(load_bench(standard_cables()));
        m_panel = std::make_unique<PGMDQ_DEBUG_WAVEFORM_VIEWER>();
        m_messages = std::make_unique<MESSAGES>(m_panel.get());
    }
    void cleanup()
    {
        m_messages.reset();
        m_panel.reset();
        TFCQ_FILE_DLG::clear_preset_answers();
    }

    // After a scanned chain, on another bench: choosing the hardware again (accepted or not)
    // or a scan that fails disables the device operations.
    void choosing_and_scanning_data()
    {
        QTest::addColumn<QJsonArray>("cables");
        QTest::addColumn<QString>("step");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("states");
        QTest::addColumn<int>("listed");
        const auto faulty = [](const QJsonObject& faults) { return standard_cables(debug_ip(1, 1024), faults); };
        QTest::newRow("accepted") << standard_cables() << "Setup ..." << DUT_CABLE << DUT_CABLE << "10000" << 1;
        QTest::newRow("cancelled") << standard_cables() << "Setup ..." << QString() << "No hardware" << "00000" << 1;
        QTest::newRow("unknown cable") << standard_cables() << "Setup ..." << "Spare-USB [9-9]" << "No hardware" << "00000" << 1;
        QTest::newRow("cable refuses to open") << faulty({{"refuse_open", true}}) << "Setup ..." << DUT_CABLE << "No hardware"
                                               << "00000" << 1;
        QTest::newRow("scan, TDO stuck low") << faulty({{"tdo_stuck", 0}}) << "Scan ..." << "" << DUT_CABLE << "10000" << 0;
        QTest::newRow("scan, lock refused") << faulty({{"refuse_lock", true}}) << "Scan ..." << "" << DUT_CABLE << "10000" << 0;
        QTest::newRow("scan, no device") << QJsonArray{cable(DUT_CABLE, QJsonArray())} << "Scan ..." << "" << DUT_CABLE
                                         << "10000" << 0;
    }
    void choosing_and_scanning()
    {
        QFETCH(QJsonArray, cables);
        QFETCH(QString, step);
        QFETCH(QString, answer);
        QFETCH(QString, shown);
        QFETCH(QString, states);
        QFETCH(int, listed);
        QCOMPARE(button_states(panel()), QString("00000"));
        QVERIFY(button(panel(), "Setup ...")->isEnabled() && button(panel(), "Open")->isEnabled());
        QCOMPARE(hardware_shown(), QString("No hardware"));
        choose_and_scan(panel(), DUT_CABLE);
        QCOMPARE(button_states(panel()), QString("10111"));
        QVERIFY(load_bench(cables));
        const QByteArray cable_name = answer.toUtf8();
        if (step == "Setup ...")
            pgmwq_set_preset_answer(answer.isNull() ? nullptr : cable_name.constData());
        click(panel(), step);
        QCOMPARE(hardware_shown(), shown);
        QCOMPARE(button_states(panel()), states);
        QCOMPARE(devices()->count(), listed);
    }

    // The operations on the DUT of another bench than the one scanned, with Save enabled as after
    // an earlier capture. Start: descriptor 17 (and 0x23, twice as deep) captures the whole
    // memory, 16 and 15 are internal errors; a sample read that fails stops the reading, the
    // memory drawn all the same with zeros for the rest, and takes Save away. Without the IP, or
    // with the cable's lock refused, Start and Reset say so and take Save away; Read USEDW stays
    // silent.
    void device_operation_data()
    {
        const QString refused("Detected IP does not support waveform debug feature and/or debug size must be greater than 0");
        const QStringList fail_startup{"Fail to startup hardware and/or determine supported IP"};
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QJsonObject>("ip");
        QTest::addColumn<QJsonObject>("faults"); // the device's, or the cable's for a refused lock
        QTest::addColumn<QString>("error");
        QTest::addColumn<QStringList>("messages");
        QTest::addColumn<QString>("states");
        const QJsonObject none;
        const QJsonObject lock_refused{{"refuse_lock", true}};
        QTest::newRow("descriptor 17") << "Start" << debug_ip(5, 1024) << none << QString() << QStringList() << "11111";
        QTest::newRow("descriptor 0x23") << "Start" << debug_ip(5, 2048, 3) << none << QString() << QStringList() << "11111";
        QTest::newRow("descriptor 16") << "Start" << debug_ip(5, 1024, 0) << none << refused << QStringList() << "11111";
        QTest::newRow("descriptor 15") << "Start" << debug_ip(5, 0, 15) << none << refused << QStringList() << "11111";
        QTest::newRow("sample read fails at 512") << "Start" << debug_ip(5, 1024) << QJsonObject{{"fail_sample_read_after", 512}}
                                                  << QString() << QStringList{"Fail to read memory"} << "10111";
        for (const char* operation : {"Start", "Reset", "Read USEDW"}) {
            const QStringList told = QString(operation) == "Read USEDW" ? QStringList() : fail_startup;
            const QString states = told.isEmpty() ? "11111" : "10111";
            QTest::newRow(qPrintable(QString("%1 without the IP").arg(operation)))
                << operation << none << none << QString() << told << states;
            QTest::newRow(qPrintable(QString("%1, lock refused").arg(operation)))
                << operation << debug_ip(5, 1024) << lock_refused << QString() << told << states;
        }
    }
    void device_operation()
    {
        QFETCH(QString, operation);
        QFETCH(QJsonObject, ip);
        QFETCH(QJsonObject, faults);
        QFETCH(QString, error);
        QFETCH(QStringList, messages);
        QFETCH(QString, states);
        choose_and_scan(panel(), DUT_CABLE);
        const bool cable_fault = faults.contains("refuse_lock");
        QVERIFY(load_bench({cable(DUT_CABLE, {device("BR5-TV1-ES", "0x0B4150F3", ip, cable_fault ? QJsonObject() : faults)},
                                  cable_fault ? faults : QJsonObject())}));
        button(panel(), "Save")->setEnabled(true);
        QCOMPARE(internal_error_of([&] { button(panel(), operation)->click(); }), error);
        verify_released();
        QCOMPARE(m_messages->texts, messages);
        QCOMPARE(button_states(panel()), states);
        std::vector<std::uint64_t> expected;
        if (operation == "Start" && error.isEmpty() && !cable_fault && !ip.isEmpty()) {
            expected = bench_generate_trace(5, unsigned(ip["depth"].toInt()));
            std::fill(expected.begin() + faults.value("fail_sample_read_after").toInt(int(expected.size())), expected.end(), 0);
        }
        QVERIFY(drawn(*m_panel) == expected);
    }

    // A session on the lab cable's third device, as a user has it: the chain listed, Read USEDW
    // posting the fill level under the busy dialog, a capture, a save over an older file (replaced
    // whole, nothing left beside it), Reset (the waves and the trace go, the names and Save stay,
    // the IP records a new session) and Open (which needs no hardware, never enables Save and
    // leaves it enabled; a cancelled dialog changes nothing); the trace's origin all along.
    void session_with_capture_save_reset_and_open()
    {
        QCOMPARE(m_panel->trace_origin(), QString("No trace"));
        QVERIFY(!button(panel(), "Export VCD...")->isEnabled());
        choose_and_scan(panel(), LAB_CABLE);
        QStringList items;
        for (int i = 0; i < devices()->count(); ++i)
            items << devices()->itemText(i);
        QCOMPARE(items, (QStringList{"@1 - CD5-TV2-ES", "@2 - Lab flash bridge", "@3 - DN5-TV3-ES"}));
        devices()->setCurrentIndex(2);
        click(panel(), "Read USEDW");
        QCOMPARE(m_messages->texts, QStringList{"USEDW count: 1024"});
        QCOMPARE(m_messages->busy_texts,
                 (QStringList{"Programmer Debug Waveform Viewer", "Please wait while Programmer is processing..."}));
        QCOMPARE(button_states(panel()), QString("10111"));

        const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
        click(panel(), "Start");
        verify_released();
        const QString origin = m_panel->trace_origin();
        QVERIFY2(origin.startsWith("Captured from @3 - DN5-TV3-ES at "), qPrintable(origin));
        const QDateTime when = QDateTime::fromString(origin.mid(origin.lastIndexOf(" at ") + 4), "yyyy-MM-dd hh:mm:ss");
        QVERIFY(when.isValid() && when >= before && when <= QDateTime::currentDateTime());
        QVERIFY(button(panel(), "Export VCD...")->isEnabled());

        const QString folder = m_dir.filePath("replace");
        const QString file = QDir(folder).filePath("captured.wvf");
        QVERIFY(QDir().mkpath(folder));
        write_bytes(file.toStdString(), Bytes(100, 0x5A));
        click_with_file(panel(), "Save", QDir(folder).filePath("captured"));
        QCOMPARE(folder_listing(folder), QStringList{"captured.wvf:5132"});
        QCOMPARE(m_messages->texts.size(), 1);
        QCOMPARE(m_panel->trace_origin(), "File: " + file);

        click(panel(), "Reset");
        QCOMPARE(m_panel->waveform_widget()->waveform_scene()->items().size(), 0);
        QCOMPARE(m_panel->waveform_widget()->text_scene()->items().size(), 15);
        QVERIFY(drawn(*m_panel).empty());
        QCOMPARE(button_states(panel()), QString("11111"));
        QCOMPARE(m_panel->trace_origin(), QString("No trace"));
        QVERIFY(!button(panel(), "Export VCD...")->isEnabled());
        verify_released();
        click(panel(), "Start");
        QVERIFY(drawn(*m_panel) == bench_generate_trace(bench_trace_epoch_seed(3, 1), 1024));

        click_with_file(panel(), "Open", QDir(folder).filePath("captured"));
        QCOMPARE(m_panel->trace_origin(), "File: " + file);
        QCOMPARE(button_states(panel()), QString("11111"));
        PGMDQ_DEBUG_WAVEFORM_VIEWER fresh;
        click_with_file(&fresh, "Open", file);
        QVERIFY(drawn(fresh) == bench_generate_trace(3, 1024));
        QCOMPARE(button_states(&fresh), QString("00000"));
        click_with_file(&fresh, "Open", QString());
        QCOMPARE(fresh.waveform_widget()->waveform_depth(), 1024u);
    }

    // A save or export that cannot be completed says so once, naming the file, and leaves the
    // folder as it was: the previous file whole, nothing half-written beside it. The trace is
    // still there to be written elsewhere.
    void failed_write_is_told_and_keeps_the_previous_file_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<UNWRITABLE>("place");
        // The previous file is the user's to write: only the folder is read-only.
        QTest::newRow("save into a read-only folder") << "Save" << UNWRITABLE::READ_ONLY_FOLDER;
        QTest::newRow("save into a missing folder") << "Save" << UNWRITABLE::MISSING_FOLDER;
        // The new file fits in one write buffer: a buffered write would only fail when the file
        // is closed.
        QTest::newRow("save onto a full disk") << "Save" << UNWRITABLE::FULL_DISK;
        QTest::newRow("export into a missing folder") << "Export VCD..." << UNWRITABLE::MISSING_FOLDER;
        QTest::newRow("export onto a full disk") << "Export VCD..." << UNWRITABLE::FULL_DISK;
    }
    void failed_write_is_told_and_keeps_the_previous_file()
    {
        QFETCH(QString, operation);
        QFETCH(UNWRITABLE, place);
        const bool missing = place == UNWRITABLE::MISSING_FOLDER;
        const QString extension = operation == "Save" ? ".wvf" : ".vcd";
        const QString folder = m_dir.filePath(QTest::currentDataTag());
        const QString target = QDir(folder).filePath("trace" + extension);
        const Bytes previous(332, 0x5A);
        if (!missing) {
            QVERIFY(QDir().mkpath(folder));
            write_bytes(target.toStdString(), previous);
        }
        const QStringList listing_before = folder_listing(folder);
        choose_and_scan(panel(), DUT_CABLE);
        click(panel(), "Start");
        m_messages->texts.clear();
        while_unwritable(place, folder, [&] { click_with_file(panel(), operation, QDir(folder).filePath("trace")); });
        QCOMPARE(m_messages->texts.size(), 1);
        QVERIFY2(m_messages->texts[0].startsWith("Can't save or open file " + target + " ("), qPrintable(m_messages->texts[0]));
        QCOMPARE(folder_listing(folder), listing_before);
        QCOMPARE(QFileInfo::exists(folder), !missing);
        QVERIFY(missing || read_bytes(target.toStdString()) == previous);
        QVERIFY(m_panel->trace_origin().startsWith("Captured from @1 - BR5-TV1-ES at "));
        click_with_file(panel(), operation, m_dir.filePath("elsewhere"));
        QVERIFY(QFileInfo(m_dir.filePath("elsewhere" + extension)).size() > 5000);
    }

    // A capture of two million samples (about two seconds on the simulated cable): the event
    // loop never waits 250 ms, so the window repaints, and the busy dialog's clock advances.
    void long_capture_keeps_the_window_live()
    {
        const int depth = 2 * 1024 * 1024;
        QVERIFY(load_bench(standard_cables(debug_ip(6, depth))));
        m_panel->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_panel.get()));
        choose_and_scan(panel(), DUT_CABLE);
        QElapsedTimer clock;
        qint64 last_turn = 0;
        qint64 longest_gap = 0;
        QStringList elapsed_shown;
        QTimer ticker;
        connect(&ticker, &QTimer::timeout, [&] {
            longest_gap = std::max(longest_gap, clock.elapsed() - last_turn);
            last_turn = clock.elapsed();
            for (TFCQ_BUSY_DLG* busy : m_panel->findChildren<TFCQ_BUSY_DLG*>())
                if (busy->isVisible() && !elapsed_shown.contains(busy->elapsed_text()))
                    elapsed_shown << busy->elapsed_text();
        });
        clock.start();
        ticker.start(10);
        click(panel(), "Start");
        ticker.stop();
        QCOMPARE(m_panel->waveform_widget()->waveform_depth(), unsigned(depth));
        QVERIFY2(longest_gap < 250, qPrintable(QString::number(longest_gap)));
        if (clock.elapsed() > 1200)
            QVERIFY2(elapsed_shown.contains("Elapsed time: 00:00:01"), qPrintable(elapsed_shown.join(", ")));
        verify_released();
    }

    void operations_without_their_input_are_internal_errors()
    {
        TFCQ_FILE_DLG::preset_answer(m_dir.filePath("nowhere.wvf"));
        QCOMPARE(internal_error_of([&] { button(panel(), "Open")->click(); }),
                 QString("FIO_FILE_SYSTEM::exists(path.fullpath().c_str())"));
        for (const char* slot : {"on_start", "on_reset", "on_read_usedw"})
            QCOMPARE(internal_error_of([&] { QMetaObject::invokeMethod(m_panel.get(), slot); }),
                     QString("DWORD(m_device_combo->count()) == DWORD(m_device_id.size()) && m_device_id.size() > 0"));
        verify_released();
    }
};

QTEST_MAIN(TEST_WAVE_PANEL)
#include "test_wave_panel.moc"
