// The ".wvf" trace file: its byte layout, its signature, and the checks that refuse a file that is
// not a trace of the debug IP, each with its own internal-error text.
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
            QCOMPARE(open_error(bytes), QString("signature == dword_data[0]"));
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

    // Damage of every kind, each with its check, is the mutation test's; this is the boundary.
    void twelve_byte_file_is_too_short()
    {
        const Bytes bytes = saved_trace();
        QCOMPARE(open_error(Bytes(bytes.begin(), bytes.begin() + 12)), QString("file_size > 12"));
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

    // A save that cannot happen is told, naming the file (the panel's tests try every way).
    void unwritable_path_is_told()
    {
        struct SINK : MSG_SINK {
            QStringList texts;
            void receive(MSG_KIND, int, const std::string& text) override { texts << QString::fromStdString(text); }
        } sink;
        msg_set_sink(&sink);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        draw(widget, structured_trace(16));
        const std::string unwritable = path("missing_folder/trace.wvf");
        bool saved = true;
        QCOMPARE(internal_error_of([&] { saved = widget.save_waveform(unwritable); }), QString());
        msg_set_sink(nullptr);
        QVERIFY(!saved);
        QVERIFY(!QFile::exists(QString::fromStdString(unwritable)));
        QCOMPARE(sink.texts.size(), 1);
        QVERIFY2(sink.texts[0].startsWith(QString::fromStdString("Can't save or open file " + unwritable)),
                 qPrintable(sink.texts[0]));
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
