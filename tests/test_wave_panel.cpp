// The waveform viewer panel on the simulated bench: button states after each operation, the
// device list, capturing the trace memory (descriptor, failing reads), Read USEDW, Reset, Save
// and Open, the cable always released with the device count reset; saves that fail (read-only
// folder, missing folder, full disk) told to the user with the previous file kept whole; where
// the trace came from; and a long capture that keeps the window live.
#include "pgmdq_debug_waveform_viewer.h"

#include "bench_trace.h"
#include "wave/wave_file_bytes.h"
#include "wave/wave_panel_driver.h"
#include "wave/wave_test_trace.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QGraphicsScene>
#include <QGraphicsView>
#include <QTemporaryDir>
#include <QTimer>

#include <csignal>
#include <memory>
#include <sys/resource.h>
#include <unistd.h>

using namespace wave_test;

namespace {

const char* const DUT_CABLE = "DUT-USB [1-2]";
const char* const LAB_CABLE = "Lab-USB [1-3]";
const QString FAIL_STARTUP("Fail to startup hardware and/or determine supported IP");
const QString DESCRIPTOR_ERROR(
    "Detected IP does not support waveform debug feature and/or debug size must be greater than 0");

QJsonObject debug_ip(int seed, int depth, int feature = 1)
{
    return QJsonObject{{"seed", seed}, {"depth", depth}, {"feature", feature}};
}

// A DUT cable with one device carrying the debug IP, and a lab cable with three devices.
QJsonArray standard_cables(const QJsonObject& dut_ip = debug_ip(1, 1024), const QJsonObject& dut_faults = {},
                           const QJsonObject& cable_faults = {})
{
    return QJsonArray{
        cable(DUT_CABLE, {device("BR5-TV1-ES", "0x0B4150F3", dut_ip, dut_faults)}, cable_faults),
        cable(LAB_CABLE, {device("CD5-TV2-ES", "0x0B4250F3", debug_ip(2, 2048)),
                          device("Lab flash bridge", "0x020A10DD"), device("DN5-TV3-ES", "0x0B4350F3", debug_ip(3, 1024))}),
    };
}

std::uint64_t sample_value(const unsigned char* sample)
{
    std::uint64_t value = 0;
    for (int byte = 4; byte >= 0; --byte)
        value = value << 8 | sample[byte];
    return value;
}

// The files of a folder with their sizes, "name:size", sorted.
QStringList folder_listing(const QString& folder)
{
    QStringList listing;
    for (const QFileInfo& file : QDir(folder).entryInfoList(QDir::Files | QDir::Hidden | QDir::System, QDir::Name))
        listing << QString("%1:%2").arg(file.fileName()).arg(file.size());
    return listing;
}

// Root writes into a read-only folder regardless; while this lives, the process acts as the user
// "nobody" (effective ids only, so that root comes back at the end).
class AS_ORDINARY_USER {
public:
    AS_ORDINARY_USER()
    {
        if (geteuid() == 0)
            m_switched = setegid(65534) == 0 && seteuid(65534) == 0;
    }
    ~AS_ORDINARY_USER()
    {
        if (m_switched) {
            (void)seteuid(0);
            (void)setegid(0);
        }
    }
    bool can_be_refused() const { return geteuid() != 0; }

private:
    bool m_switched = false;
};

// A disk that is full after `bytes`: files may not grow past that size, and the signal that would
// end the process for trying is ignored (the write fails instead). Both come back at the end.
class FULL_DISK {
public:
    explicit FULL_DISK(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &m_limit);
        m_handler = std::signal(SIGXFSZ, SIG_IGN);
        rlimit limited = m_limit;
        limited.rlim_cur = bytes;
        m_set = setrlimit(RLIMIT_FSIZE, &limited) == 0;
    }
    ~FULL_DISK()
    {
        setrlimit(RLIMIT_FSIZE, &m_limit);
        std::signal(SIGXFSZ, m_handler);
    }
    bool set() const { return m_set; }

private:
    rlimit m_limit{};
    void (*m_handler)(int) = SIG_DFL;
    bool m_set = false;
};

} // namespace

class TEST_WAVE_PANEL : public QObject {
    Q_OBJECT
    std::unique_ptr<PGMDQ_DEBUG_WAVEFORM_VIEWER> m_panel;
    std::unique_ptr<MESSAGES> m_messages;
    QTemporaryDir m_dir;

    QWidget* panel() const { return m_panel.get(); }
    QComboBox* devices() const { return m_panel->findChildren<QComboBox*>().first(); }

    // The internal error a click raises, delivered straight through the button's signal.
    QString error_of_click(const char* text) const
    {
        return internal_error_of([&] { button(panel(), text)->click(); });
    }

    // The first `count` samples drawn, of a trace as deep as `expected`.
    void verify_samples(const std::vector<std::uint64_t>& expected, unsigned count) const
    {
        QCOMPARE(m_panel->waveform_widget()->waveform_depth(), unsigned(expected.size()));
        for (unsigned i = 0; i < count; ++i)
            QCOMPARE(sample_value(m_panel->waveform_widget()->sample(i)), expected[i]);
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

    void choosing_hardware_data()
    {
        QTest::addColumn<QJsonArray>("cables");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("states");
        QTest::newRow("accepted") << standard_cables() << DUT_CABLE << DUT_CABLE << "10000";
        QTest::newRow("cancelled") << standard_cables() << QString() << "No hardware" << "00000";
        QTest::newRow("unknown cable") << standard_cables() << "Spare-USB [9-9]" << "No hardware" << "00000";
        QTest::newRow("cable refuses to open") << standard_cables(debug_ip(1, 1024), {}, {{"refuse_open", true}})
                                               << DUT_CABLE << "No hardware" << "00000";
    }
    void choosing_hardware()
    {
        QFETCH(QJsonArray, cables);
        QFETCH(QString, answer);
        QFETCH(QString, shown);
        QFETCH(QString, states);
        QCOMPARE(button_states(panel()), QString("00000"));
        QVERIFY(button(panel(), "Setup ...")->isEnabled() && button(panel(), "Open")->isEnabled());
        QCOMPARE(panel()->findChild<QLineEdit*>()->text(), QString("No hardware"));
        QVERIFY(load_bench(cables));
        // A scanned chain first, so that choosing again visibly disables the device operations.
        choose_and_scan(panel(), LAB_CABLE);
        QCOMPARE(button_states(panel()), QString("10111"));

        const QByteArray cable_name = answer.toUtf8();
        pgmwq_set_preset_answer(answer.isNull() ? nullptr : cable_name.constData());
        click(panel(), "Setup ...");
        QCOMPARE(panel()->findChild<QLineEdit*>()->text(), shown);
        QCOMPARE(button_states(panel()), states);
    }

    void scanning_lists_the_chain_and_start_reads_the_chosen_device()
    {
        choose_and_scan(panel(), LAB_CABLE);
        QStringList items;
        for (int i = 0; i < devices()->count(); ++i)
            items << devices()->itemText(i);
        QCOMPARE(items, (QStringList{"@1 - CD5-TV2-ES", "@2 - Lab flash bridge", "@3 - DN5-TV3-ES"}));
        QCOMPARE(button_states(panel()), QString("10111"));

        devices()->setCurrentIndex(2);
        click(panel(), "Start");
        verify_samples(bench_generate_trace(3, 1024), 101);
        devices()->setCurrentIndex(0);
        click(panel(), "Start");
        QCOMPARE(m_panel->waveform_widget()->waveform_depth(), 2048u);
        verify_released();
    }

    void scan_error_disables_the_device_operations_data()
    {
        QTest::addColumn<QJsonArray>("cables");
        const auto faulty = [](const QJsonObject& faults) { return standard_cables(debug_ip(1, 1024), {}, faults); };
        QTest::newRow("TDO stuck low") << faulty({{"tdo_stuck", 0}});
        QTest::newRow("lock refused") << faulty({{"refuse_lock", true}});
        QTest::newRow("no device") << QJsonArray{cable(DUT_CABLE, QJsonArray())};
    }
    void scan_error_disables_the_device_operations()
    {
        QFETCH(QJsonArray, cables);
        choose_and_scan(panel(), DUT_CABLE);
        QCOMPARE(button_states(panel()), QString("10111"));
        QVERIFY(load_bench(cables));
        click(panel(), "Scan ...");
        QCOMPARE(devices()->count(), 0);
        QCOMPARE(button_states(panel()), QString("10000"));
    }

    // Descriptor 17 (and 0x23, twice as deep) captures the whole memory; 16 and 15 stop.
    void start_by_the_descriptor_data()
    {
        QTest::addColumn<int>("feature");
        QTest::addColumn<int>("depth");
        QTest::addColumn<QString>("error");
        QTest::newRow("descriptor 17") << 1 << 1024 << QString();
        QTest::newRow("descriptor 0x23") << 3 << 2048 << QString();
        QTest::newRow("descriptor 16") << 0 << 1024 << DESCRIPTOR_ERROR;
        QTest::newRow("descriptor 15") << 15 << 0 << DESCRIPTOR_ERROR;
    }
    void start_by_the_descriptor()
    {
        QFETCH(int, feature);
        QFETCH(int, depth);
        QFETCH(QString, error);
        QVERIFY(load_bench(standard_cables(debug_ip(5, depth, feature))));
        choose_and_scan(panel(), DUT_CABLE);
        QCOMPARE(error_of_click("Start"), error);
        verify_released();
        if (!error.isEmpty()) {
            QVERIFY(m_panel->waveform_widget()->sample(0) == nullptr);
            return;
        }
        verify_samples(bench_generate_trace(5, unsigned(depth)), unsigned(depth));
        QCOMPARE(m_panel->waveform_widget()->waveform_scene()->sceneRect().width(), (depth + 10) * 15.0);
        QCOMPARE(button_states(panel()), QString("11111"));
        QVERIFY(m_messages->texts.isEmpty());
    }

    void failing_sample_read_draws_the_whole_memory()
    {
        QVERIFY(load_bench(standard_cables(debug_ip(1, 1024), {{"fail_sample_read_after", 512}})));
        choose_and_scan(panel(), DUT_CABLE);
        click(panel(), "Start");
        std::vector<std::uint64_t> expected = bench_generate_trace(1, 1024);
        std::fill(expected.begin() + 512, expected.end(), 0);
        verify_samples(expected, 1024);
        QCOMPARE(m_messages->texts, QStringList{"Fail to read memory"});
        QCOMPARE(button_states(panel()), QString("10111"));
        verify_released();
    }

    void no_debug_ip_or_no_start_up_data()
    {
        QTest::addColumn<QJsonArray>("cables");
        QTest::addColumn<int>("device");
        QTest::newRow("device without the IP") << standard_cables() << 1;
        QTest::newRow("cable refuses the lock") << standard_cables(debug_ip(1, 1024), {}, {{"refuse_lock", true}}) << -1;
    }
    void no_debug_ip_or_no_start_up()
    {
        QFETCH(QJsonArray, cables);
        QFETCH(int, device);
        choose_and_scan(panel(), device < 0 ? DUT_CABLE : LAB_CABLE);
        if (device < 0)
            QVERIFY(load_bench(cables));
        else
            devices()->setCurrentIndex(device);

        // Start and Reset report the failure and take Save away; Read USEDW stays silent.
        for (const char* operation : {"Start", "Reset", "Read USEDW"}) {
            const bool reports = QString(operation) != "Read USEDW";
            button(panel(), "Save")->setEnabled(reports); // as after an earlier capture
            m_messages->texts.clear();
            click(panel(), operation);
            QCOMPARE(m_messages->texts, reports ? QStringList{FAIL_STARTUP} : QStringList());
            QCOMPARE(button_states(panel()), QString("10111"));
            verify_released();
        }
    }

    void read_usedw_posts_the_fill_level()
    {
        choose_and_scan(panel(), DUT_CABLE);
        click(panel(), "Read USEDW");
        QCOMPARE(m_messages->texts, QStringList{"USEDW count: 1024"});
        QCOMPARE(m_messages->busy_texts,
                 (QStringList{"Programmer Debug Waveform Viewer", "Please wait while Programmer is processing..."}));
        QCOMPARE(button_states(panel()), QString("10111"));
        verify_released();
    }

    void reset_forgets_the_trace_but_keeps_save()
    {
        choose_and_scan(panel(), DUT_CABLE);
        click(panel(), "Start");
        click(panel(), "Reset");
        PGMDQ_DEBUG_WAVEFORM_WIDGET* widget = m_panel->waveform_widget();
        QCOMPARE(widget->waveform_scene()->items().size(), 0);
        QCOMPARE(widget->text_scene()->items().size(), 15);
        QVERIFY(widget->sample(0) == nullptr);
        QCOMPARE(button_states(panel()), QString("11111"));
        verify_released();

        TFCQ_FILE_DLG::preset_answer(m_dir.filePath("after_reset"));
        QCOMPARE(error_of_click("Save"), QString("m_waveform_data != NULL && m_waveform_width > 0 && m_waveform_depth && "
                                                 "PGMDQ_SFL_DEBUG_SIZE == m_waveform_width"));
        // The reset reached the IP: it recorded a new session since.
        click(panel(), "Start");
        verify_samples(bench_generate_trace(bench_trace_epoch_seed(1, 1), 1024), 8);
    }

    void save_and_open_through_the_panel()
    {
        // Over an older file: replaced whole, nothing else left in the folder.
        const QString folder = m_dir.filePath("replace");
        QVERIFY(QDir().mkpath(folder));
        write_bytes(QDir(folder).filePath("captured.wvf").toStdString(), Bytes(100, 0x5A));
        choose_and_scan(panel(), DUT_CABLE);
        click(panel(), "Start");
        TFCQ_FILE_DLG::preset_answer(QDir(folder).filePath("captured"));
        click(panel(), "Save");
        QCOMPARE(folder_listing(folder), QStringList{"captured.wvf:5132"});
        QVERIFY(m_messages->texts.isEmpty());

        // Opening needs no hardware and never enables Save.
        PGMDQ_DEBUG_WAVEFORM_VIEWER fresh;
        TFCQ_FILE_DLG::preset_answer(QDir(folder).filePath("captured.wvf"));
        click(&fresh, "Open");
        QCOMPARE(fresh.waveform_widget()->waveform_depth(), 1024u);
        QCOMPARE(sample_value(fresh.waveform_widget()->sample(9)), bench_generate_trace(1, 1024)[9]);
        QCOMPARE(button_states(&fresh), QString("00000"));
        // A cancelled dialog changes nothing.
        TFCQ_FILE_DLG::preset_answer(QString());
        click(&fresh, "Open");
        QCOMPARE(fresh.waveform_widget()->waveform_depth(), 1024u);

        // With Save enabled by a capture, opening leaves it enabled.
        TFCQ_FILE_DLG::preset_answer(QDir(folder).filePath("captured"));
        click(panel(), "Open");
        QCOMPARE(button_states(panel()), QString("11111"));
    }

    // A save that cannot be completed says so once, naming the file, and leaves the folder as it
    // was: the previous trace whole, no empty or half-written file beside it.
    void failed_save_is_told_and_keeps_the_previous_file_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("failure");
        QTest::addColumn<int>("depth");
        QTest::newRow("read-only folder") << "readonly" << "read-only" << 1024;
        QTest::newRow("missing folder") << "missing" << "missing" << 1024;
        QTest::newRow("full disk, 4096 samples") << "full4096" << "full" << 4096;
        QTest::newRow("full disk, 1024 samples") << "full1024" << "full" << 1024;
    }
    void failed_save_is_told_and_keeps_the_previous_file()
    {
        QFETCH(QString, folder);
        QFETCH(QString, failure);
        QFETCH(int, depth);
        QVERIFY(load_bench(standard_cables(debug_ip(1, depth))));
        // The folders are reachable by an ordinary user; the read-only one is made so after the
        // previous trace was saved into it.
        QFile::setPermissions(m_dir.path(), QFile::permissions(m_dir.path()) | QFileDevice::ExeOther | QFileDevice::ExeGroup);
        const QString target_folder = m_dir.filePath(folder);
        if (failure != "missing") {
            QVERIFY(QDir().mkpath(target_folder));
            PGMDQ_DEBUG_WAVEFORM_WIDGET previous;
            draw(previous, structured_trace(64, 4));
            QVERIFY(previous.save_waveform(QDir(target_folder).filePath("trace.wvf").toStdString()));
        }
        const Bytes previous_bytes = read_bytes(QDir(target_folder).filePath("trace.wvf").toStdString());
        const QStringList listing_before = folder_listing(target_folder);
        if (failure == "read-only")
            QVERIFY(QFile::setPermissions(target_folder, QFileDevice::ReadOwner | QFileDevice::ExeOwner | QFileDevice::ReadGroup |
                                                             QFileDevice::ExeGroup | QFileDevice::ReadOther |
                                                             QFileDevice::ExeOther));

        choose_and_scan(panel(), DUT_CABLE);
        click(panel(), "Start");
        QCOMPARE(button_states(panel()), QString("11111"));
        m_messages->texts.clear();
        TFCQ_FILE_DLG::preset_answer(QDir(target_folder).filePath("trace"));
        {
            std::unique_ptr<AS_ORDINARY_USER> ordinary;
            std::unique_ptr<FULL_DISK> full;
            if (failure == "read-only") {
                ordinary = std::make_unique<AS_ORDINARY_USER>();
                if (!ordinary->can_be_refused())
                    QSKIP("running as root without the right to act as another user");
            }
            if (failure == "full") {
                // Room for the previous trace (332 bytes), not for this one (12 + 5 depth).
                full = std::make_unique<FULL_DISK>(4096);
                QVERIFY(full->set());
            }
            click(panel(), "Save");
        }
        const qint64 file_size = 12 + 5 * qint64(depth);
        QFile::setPermissions(target_folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);

        const QString target = QDir(target_folder).filePath("trace.wvf");
        QCOMPARE(m_messages->texts.size(), 1);
        QVERIFY2(m_messages->texts[0].startsWith("Can't save or open file " + target + " ("), qPrintable(m_messages->texts[0]));
        QCOMPARE(folder_listing(target_folder), listing_before);
        QVERIFY(read_bytes(target.toStdString()) == previous_bytes);
        if (failure == "missing")
            QVERIFY(!QFileInfo::exists(target_folder));
        // The panel goes on: the trace is still there to be saved elsewhere.
        QVERIFY(m_panel->trace_origin().startsWith("Captured from @1 - BR5-TV1-ES at "));
        TFCQ_FILE_DLG::preset_answer(m_dir.filePath("elsewhere"));
        click(panel(), "Save");
        QCOMPARE(QFile(m_dir.filePath("elsewhere.wvf")).size(), file_size);
        QCOMPARE(m_panel->trace_origin(), "File: " + m_dir.filePath("elsewhere.wvf"));
    }

    // The panel says where the trace shown came from: nothing, a capture and when, or a file.
    void shows_where_the_trace_came_from()
    {
        QCOMPARE(m_panel->trace_origin(), QString("No trace"));
        QVERIFY(!button(panel(), "Export VCD...")->isEnabled());
        choose_and_scan(panel(), LAB_CABLE);
        devices()->setCurrentIndex(2);
        const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
        click(panel(), "Start");
        const QString origin = m_panel->trace_origin();
        QVERIFY2(origin.startsWith("Captured from @3 - DN5-TV3-ES at "), qPrintable(origin));
        const QDateTime when = QDateTime::fromString(origin.mid(origin.lastIndexOf(" at ") + 4), "yyyy-MM-dd hh:mm:ss");
        QVERIFY(when.isValid() && when >= before && when <= QDateTime::currentDateTime());
        QVERIFY(button(panel(), "Export VCD...")->isEnabled());

        TFCQ_FILE_DLG::preset_answer(m_dir.filePath("origin"));
        click(panel(), "Save");
        TFCQ_FILE_DLG::preset_answer(m_dir.filePath("origin.wvf"));
        click(panel(), "Open");
        QCOMPARE(m_panel->trace_origin(), "File: " + m_dir.filePath("origin.wvf"));

        click(panel(), "Reset");
        QCOMPARE(m_panel->trace_origin(), QString("No trace"));
        QVERIFY(!button(panel(), "Export VCD...")->isEnabled());
    }

    // A capture of two million samples (about two seconds on the simulated cable): the busy
    // dialog's clock advances, the window repaints, and the event loop never waits 250 ms.
    void long_capture_keeps_the_window_live()
    {
        const int depth = 2 * 1024 * 1024;
        QVERIFY(load_bench(standard_cables(debug_ip(6, depth))));
        m_panel->resize(900, 700);
        m_panel->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_panel.get()));
        choose_and_scan(panel(), DUT_CABLE);

        QWidget* waves = m_panel->waveform_widget()->waveform_view()->viewport();
        struct PAINTS : QObject {
            int count = 0;
            bool eventFilter(QObject*, QEvent* event) override
            {
                count += event->type() == QEvent::Paint;
                return false;
            }
        } paints;
        waves->installEventFilter(&paints);
        QElapsedTimer clock;
        qint64 last_turn = -1;
        qint64 longest_gap = 0;
        QStringList elapsed_shown;
        QTimer ticker;
        ticker.setInterval(10);
        connect(&ticker, &QTimer::timeout, [&] {
            const qint64 now = clock.elapsed();
            if (last_turn >= 0)
                longest_gap = std::max(longest_gap, now - last_turn);
            last_turn = now;
            waves->update();
            for (TFCQ_BUSY_DLG* busy : m_panel->findChildren<TFCQ_BUSY_DLG*>())
                if (busy->isVisible() && !elapsed_shown.contains(busy->elapsed_text()))
                    elapsed_shown << busy->elapsed_text();
        });
        clock.start();
        ticker.start();
        click(panel(), "Start");
        const qint64 took = clock.elapsed();
        ticker.stop();

        QCOMPARE(m_panel->waveform_widget()->waveform_depth(), unsigned(depth));
        qInfo("capture of %d samples: %lld ms, longest gap between event loop turns %lld ms, %d repaints, shown: %s",
              depth, took, longest_gap, paints.count, qPrintable(elapsed_shown.join(", ")));
        QVERIFY2(longest_gap < 250, qPrintable(QString::number(longest_gap)));
        QVERIFY(paints.count >= int(took / 250));
        if (took > 1200)
            QVERIFY2(elapsed_shown.contains("Elapsed time: 00:00:01"), qPrintable(elapsed_shown.join(", ")));
        verify_released();
    }

    void operations_without_their_input_are_internal_errors()
    {
        TFCQ_FILE_DLG::preset_answer(m_dir.filePath("nowhere.wvf"));
        QCOMPARE(error_of_click("Open"), QString("FIO_FILE_SYSTEM::exists(path.fullpath().c_str())"));
        for (const char* slot : {"on_start", "on_reset", "on_read_usedw"})
            QCOMPARE(internal_error_of([&] { QMetaObject::invokeMethod(m_panel.get(), slot); }),
                     QString("DWORD(m_device_combo->count()) == DWORD(m_device_id.size()) && m_device_id.size() > 0"));
        verify_released();
    }
};

QTEST_MAIN(TEST_WAVE_PANEL)
#include "test_wave_panel.moc"
