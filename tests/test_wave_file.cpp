// The ".wvf" trace file: its byte layout, its signature, and the checks that refuse a file that is
// not a trace of the debug IP, each with its own internal-error text.
#include "pgmdq_debug_waveform_viewer.h"

#include "wave/wave_file_bytes.h"
#include "wave/wave_test_trace.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace wave_test;

namespace {

// A file with the given fields and a signature that matches them.
QByteArray trace_file(std::uint32_t width, std::uint32_t depth, const Bytes& samples)
{
    Bytes bytes(8, 0);
    put_dword(bytes, 0, width);
    put_dword(bytes, 4, depth);
    bytes.insert(bytes.end(), samples.begin(), samples.end());
    bytes.resize(bytes.size() + 4);
    bytes = signed_bytes(bytes);
    return QByteArray(reinterpret_cast<const char*>(bytes.data()), int(bytes.size()));
}

const char* const SIGNATURE_CHECK = "signature == dword_data[0]";
const char* const SIZE_CHECK = "file_size == (4 + 4 + 4 + memory_byte_size * depth)";

} // namespace

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

    QString open_error(const Bytes& bytes)
    {
        write_bytes(path("probe.wvf"), bytes);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        return internal_error_of([&] { widget.open_waveform(path("probe.wvf")); });
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

    void changed_byte_fails_the_signature()
    {
        for (int offset : {0, 4, 8, 2600, 5127}) {
            Bytes bytes = saved_trace();
            bytes[offset] ^= 0x10;
            QCOMPARE(open_error(bytes), QString(SIGNATURE_CHECK));
        }
    }

    void swapped_sample_bytes_keep_the_signature()
    {
        Bytes bytes = saved_trace();
        bytes[8] = 0x08; // sample 0: ir_in = 1 in its low byte
        bytes[13] = 0x01;
        bytes = signed_bytes(bytes);
        std::swap(bytes[8], bytes[13]);
        write_bytes(path("swapped.wvf"), bytes);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        widget.open_waveform(path("swapped.wvf"));
        QCOMPARE(widget.waveform_depth(), 1024u);
        QCOMPARE(unsigned(widget.sample(0)[0]), 0x01u);
        QCOMPARE(unsigned(widget.sample(1)[0]), 0x08u);
    }

    // The damage of every kind is covered by the mutation test; these pin the boundaries.
    void checks_in_their_order_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("error");
        const Bytes one_sample(5, 0);
        QByteArray bad_signature_and_width = trace_file(36, 1, one_sample);
        bad_signature_and_width[0] = 1;
        QTest::newRow("12 bytes") << trace_file(37, 0, {}) << "file_size > 12";
        QTest::newRow("one byte short of a sample") << trace_file(37, 1, Bytes(4, 0)) << SIZE_CHECK;
        QTest::newRow("signature before width") << bad_signature_and_width << SIGNATURE_CHECK;
        QTest::newRow("wrong width") << trace_file(36, 1, one_sample) << "width == PGMDQ_SFL_DEBUG_SIZE";
        QTest::newRow("depth near 2^32") << trace_file(37, 0xFFFFFFFFu, one_sample) << SIZE_CHECK;
        QTest::newRow("valid single sample") << trace_file(37, 1, one_sample) << "";
    }
    void checks_in_their_order()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, error);
        QCOMPARE(open_error(Bytes(file.begin(), file.end())), error);
    }

    void missing_file_is_an_internal_error()
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        QCOMPARE(internal_error_of([&] { widget.open_waveform(path("absent.wvf")); }),
                 QString("FIO_FILE_SYSTEM::exists(path.c_str()) && FIO_FILE_SYSTEM::status(path.c_str(), &stat_info)"));
    }

    void ir_in_is_bits_3_to_14()
    {
        const unsigned char sample[5] = {0x08, 0, 0, 0, 0};
        unsigned first_bit = 0;
        for (const PGMDQ_DEBUG_SIGNAL* signal = PGMDQ_SFL_DEBUG_SIGNALS; signal->width; ++signal) {
            QCOMPARE(pgmdq_sample_bits(sample, first_bit, signal->width), signal->name == "ir_in" ? 1u : 0u);
            first_bit += signal->width;
        }
        QCOMPARE(first_bit, PGMDQ_SFL_DEBUG_SIZE);
    }

    void round_trip_gives_identical_bytes()
    {
        const Bytes first = saved_trace();
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        widget.open_waveform(path("saved.wvf"));
        widget.save_waveform(path("second.wvf"));
        QVERIFY(first == read_bytes(path("second.wvf")));
    }

    void unwritable_path_is_not_reported()
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, structured_trace(16));
        const std::string unwritable = path("missing_folder/trace.wvf");
        QCOMPARE(internal_error_of([&] { widget.save_waveform(unwritable); }), QString());
        QVERIFY(!QFile::exists(QString::fromStdString(unwritable)));
    }

    void saving_without_a_trace_is_an_internal_error()
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        QCOMPARE(internal_error_of([&] { widget.save_waveform(path("none.wvf")); }),
                 QString("m_waveform_data != NULL && m_waveform_width > 0 && m_waveform_depth && "
                         "PGMDQ_SFL_DEBUG_SIZE == m_waveform_width"));
    }
};

QTEST_MAIN(TEST_WAVE_FILE)
#include "test_wave_file.moc"
