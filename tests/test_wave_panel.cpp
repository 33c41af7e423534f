// The waveform viewer panel on the simulated bench: button states after each operation, the
// device list, capturing the trace memory (descriptor, failing reads), Read USEDW, Reset, Save
// and Open, and the cable always released with the device count reset.
#include "pgmdq_debug_waveform_viewer.h"

#include "bench_trace.h"
#include "wave/wave_file_bytes.h"
#include "wave/wave_panel_driver.h"

#include <QGraphicsScene>
#include <QTemporaryDir>

#include <memory>

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
        choose_and_scan(panel(), DUT_CABLE);
        click(panel(), "Start");
        TFCQ_FILE_DLG::preset_answer(m_dir.filePath("captured"));
        click(panel(), "Save");
        QCOMPARE(QFile(m_dir.filePath("captured.wvf")).size(), qint64(5132));

        // Opening needs no hardware and never enables Save.
        PGMDQ_DEBUG_WAVEFORM_VIEWER fresh;
        TFCQ_FILE_DLG::preset_answer(m_dir.filePath("captured.wvf"));
        click(&fresh, "Open");
        QCOMPARE(fresh.waveform_widget()->waveform_depth(), 1024u);
        QCOMPARE(sample_value(fresh.waveform_widget()->sample(9)), bench_generate_trace(1, 1024)[9]);
        QCOMPARE(button_states(&fresh), QString("00000"));
        // A cancelled dialog changes nothing.
        TFCQ_FILE_DLG::preset_answer(QString());
        click(&fresh, "Open");
        QCOMPARE(fresh.waveform_widget()->waveform_depth(), 1024u);

        // With Save enabled by a capture, opening leaves it enabled.
        TFCQ_FILE_DLG::preset_answer(m_dir.filePath("captured"));
        click(panel(), "Open");
        QCOMPARE(button_states(panel()), QString("11111"));
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
