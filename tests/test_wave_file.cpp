// The ".wvf" trace file: its byte layout, its round trip, and the internal errors of a file or a
// save that cannot be one (every kind of damage through the panel is the mutation test's).
#include "pgmdq_debug_waveform_viewer.h"

#include "wave/wave_file_bytes.h"
#include "wave/wave_test_trace.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace wave_test;

class TEST_WAVE_FILE : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;
    std::string path(const char* name) const { return m_dir.filePath(name).toStdString(); }

    // A saved trace of 1024 samples.
    Bytes saved_trace(const std::vector<std::uint64_t>& samples = structured_trace(1024))
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, samples);
        widget.save_waveform(path("saved.wvf"));
        return read_bytes(path("saved.wvf"));
    }

private slots:
    void saved_layout_of_1024_samples()
    {
        const std::vector<std::uint64_t> samples = structured_trace(1024);
        const Bytes bytes = saved_trace(samples);
        QCOMPARE(bytes.size(), std::size_t(5132));
        QCOMPARE(Bytes(bytes.begin(), bytes.begin() + 8), (Bytes{0x25, 0, 0, 0, 0x00, 0x04, 0, 0}));
        for (std::size_t i : {0, 517, 1023})
            for (unsigned byte = 0; byte < 5; ++byte)
                QCOMPARE(unsigned(bytes[8 + 5 * i + byte]), unsigned(samples[i] >> (8 * byte) & 0xFF));
        QCOMPARE(dword_at(bytes, 5128), byte_sum(bytes, 5128));
    }

    void round_trip_gives_identical_bytes()
    {
        const Bytes first = saved_trace();
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        widget.open_waveform(path("saved.wvf"));
        widget.save_waveform(path("second.wvf"));
        QVERIFY(first == read_bytes(path("second.wvf")));
    }

    void internal_error_data()
    {
        QTest::addColumn<QString>("file");   // what to open: "" saves an empty widget instead
        QTest::addColumn<int>("keep");       // bytes of a saved trace written there, -1 for none
        QTest::addColumn<int>("flip");       // offset of a byte changed after that, -1 for none
        QTest::addColumn<QString>("error");
        QTest::newRow("12-byte file") << "probe.wvf" << 12 << -1 << "file_size > 12";
        QTest::newRow("changed byte") << "probe.wvf" << 5132 << 2600 << "signature == dword_data[0]";
        QTest::newRow("missing file") << "absent.wvf" << -1 << -1
                                      << "FIO_FILE_SYSTEM::exists(path.c_str()) && "
                                         "FIO_FILE_SYSTEM::status(path.c_str(), &stat_info)";
        QTest::newRow("save without a trace") << "" << -1 << -1
                                              << "m_waveform_data != NULL && m_waveform_width > 0 && "
                                                 "m_waveform_depth && PGMDQ_SFL_DEBUG_SIZE == m_waveform_width";
    }
    void internal_error()
    {
        QFETCH(QString, file);
        QFETCH(int, keep);
        QFETCH(int, flip);
        QFETCH(QString, error);
        if (keep >= 0) {
            Bytes bytes = saved_trace();
            bytes.resize(std::size_t(keep));
            if (flip >= 0)
                bytes[std::size_t(flip)] ^= 0x10;
            write_bytes(path(qPrintable(file)), bytes);
        }
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        if (file.isEmpty())
            QCOMPARE(internal_error_of([&] { widget.save_waveform(path("none.wvf")); }), error);
        else
            QCOMPARE(internal_error_of([&] { widget.open_waveform(path(qPrintable(file))); }), error);
    }
};

QTEST_MAIN(TEST_WAVE_FILE)
#include "test_wave_file.moc"
