// The ".wvf" trace file: its byte layout, its round trip, and the internal errors of a missing file
// and of a save without a trace (every kind of damaged file is the mutation test's, through the
// panel in the host).
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

private slots:
    // Width 37 and depth, the samples' five bytes each in order, then the sum of all those bytes;
    // opened and saved again, the same bytes.
    void layout_and_round_trip()
    {
        const std::vector<std::uint64_t> samples = structured_trace(1024);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, samples);
        QVERIFY(widget.save_waveform(path("saved.wvf")));
        const Bytes saved = read_bytes(path("saved.wvf"));
        Bytes expected{0x25, 0, 0, 0, 0x00, 0x04, 0, 0};
        for (std::uint64_t sample : samples)
            for (unsigned byte = 0; byte < 5; ++byte)
                expected.push_back(static_cast<unsigned char>(sample >> (8 * byte)));
        QCOMPARE(saved.size(), std::size_t(5132));
        QVERIFY(Bytes(saved.begin(), saved.end() - 4) == expected);
        QCOMPARE(dword_at(saved, 5128), byte_sum(saved, 5128));

        PGMDQ_DEBUG_WAVEFORM_WIDGET reader;
        reader.open_waveform(path("saved.wvf"));
        QVERIFY(reader.save_waveform(path("again.wvf")));
        QVERIFY(read_bytes(path("again.wvf")) == saved);
    }

    void internal_errors()
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        QCOMPARE(internal_error_of([&] { widget.open_waveform(path("absent.wvf")); }),
                 QString("FIO_FILE_SYSTEM::exists(path.c_str()) && FIO_FILE_SYSTEM::status(path.c_str(), &stat_info)"));
        QCOMPARE(internal_error_of([&] { widget.save_waveform(path("none.wvf")); }),
                 QString("m_waveform_data != NULL && m_waveform_width > 0 && m_waveform_depth && "
                         "PGMDQ_SFL_DEBUG_SIZE == m_waveform_width"));
    }
};

QTEST_MAIN(TEST_WAVE_FILE)
#include "test_wave_file.moc"
