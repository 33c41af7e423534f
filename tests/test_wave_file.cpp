// The ".wvf" trace file: its byte layout, its signature, and the checks that refuse a file that is
// not a trace of the debug IP, each with its own internal-error text.
#include "pgmdq_debug_waveform_viewer.h"

#include "msg.h"
#include "wave/wave_test_trace.h"

#include <QTemporaryDir>
#include <QtTest>

#include <fstream>
#include <functional>
#include <iterator>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes read_file(const std::string& path)
{
    std::ifstream input(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>());
}

void write_file(const std::string& path, const Bytes& bytes)
{
    std::ofstream output(path, std::ios::binary | std::ios::trunc);
    output.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

std::uint32_t dword_at(const Bytes& bytes, std::size_t offset)
{
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = value << 8 | bytes[offset + i];
    return value;
}

void put_dword(Bytes& bytes, std::size_t offset, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes[offset + i] = static_cast<unsigned char>(value >> (8 * i));
}

std::uint32_t byte_sum(const Bytes& bytes, std::size_t count)
{
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < count; ++i)
        sum += bytes[i];
    return sum;
}

// A file with the given fields and a signature that matches them.
Bytes signed_file(std::uint32_t width, std::uint32_t depth, const Bytes& samples)
{
    Bytes bytes(8 + samples.size() + 4);
    put_dword(bytes, 0, width);
    put_dword(bytes, 4, depth);
    std::copy(samples.begin(), samples.end(), bytes.begin() + 8);
    put_dword(bytes, bytes.size() - 4, byte_sum(bytes, bytes.size() - 4));
    return bytes;
}

// The internal error `action` raised, or "" when it returned; other failures propagate.
QString internal_error_of(const std::function<void()>& action)
{
    try {
        action();
    } catch (const MSG_INTERNAL_ERROR_EXCEPTION& error) {
        if (error.module() != "PGMDQ" || error.file() != "pgmdq_debug_waveform_viewer")
            return QString("wrong origin %1/%2").arg(error.module().c_str(), error.file().c_str());
        return QString::fromStdString(error.text());
    }
    return QString();
}

const char* SIGNATURE_CHECK = "signature == dword_data[0]";

} // namespace

class TEST_WAVE_FILE : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    std::string path(const char* name) const { return m_dir.filePath(name).toStdString(); }

    // A saved trace of 1024 samples.
    Bytes saved_trace(const char* name)
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        wave_test::draw(widget, wave_test::structured_trace(1024));
        widget.save_waveform(path(name));
        return read_file(path(name));
    }

    QString open_error(const Bytes& bytes)
    {
        write_file(path("probe.wvf"), bytes);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        return internal_error_of([&] { widget.open_waveform(path("probe.wvf")); });
    }

private slots:
    void saved_layout_of_1024_samples()
    {
        const std::vector<std::uint64_t> samples = wave_test::structured_trace(1024);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        wave_test::draw(widget, samples);
        widget.save_waveform(path("layout.wvf"));
        const Bytes bytes = read_file(path("layout.wvf"));

        QCOMPARE(bytes.size(), std::size_t(5132));
        QCOMPARE(Bytes(bytes.begin(), bytes.begin() + 8), (Bytes{0x25, 0, 0, 0, 0x00, 0x04, 0, 0}));
        for (std::size_t i : {std::size_t(0), std::size_t(517), std::size_t(1023)})
            for (unsigned byte = 0; byte < 5; ++byte)
                QCOMPARE(unsigned(bytes[8 + 5 * i + byte]), unsigned(samples[i] >> (8 * byte) & 0xFF));
        QCOMPARE(dword_at(bytes, 5128), byte_sum(bytes, 5128));
    }

    void changed_byte_fails_the_signature_data()
    {
        QTest::addColumn<int>("offset");
        for (int offset : {0, 3, 4, 7, 8, 12, 2600, 5127})
            QTest::addRow("byte %d", offset) << offset;
    }
    void changed_byte_fails_the_signature()
    {
        QFETCH(int, offset);
        Bytes bytes = saved_trace("changed.wvf");
        bytes[offset] ^= 0x10;
        QCOMPARE(open_error(bytes), QString(SIGNATURE_CHECK));
    }

    void swapped_sample_bytes_keep_the_signature()
    {
        Bytes bytes = saved_trace("swapped.wvf");
        bytes[8] = 0x08; // sample 0: ir_in = 1 in its low byte
        bytes[13] = 0x01;
        put_dword(bytes, 5128, byte_sum(bytes, 5128));
        std::swap(bytes[8], bytes[13]);

        write_file(path("swapped.wvf"), bytes);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        widget.open_waveform(path("swapped.wvf"));
        QCOMPARE(widget.waveform_depth(), 1024u);
        QCOMPARE(unsigned(widget.sample(0)[0]), 0x01u);
        QCOMPARE(unsigned(widget.sample(1)[0]), 0x08u);
    }

    void twelve_byte_file_is_too_short()
    {
        QCOMPARE(open_error(signed_file(37, 0, {})), QString("file_size > 12"));
    }

    void checks_in_their_order_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("error");
        const Bytes one_sample(5, 0);
        const auto bytes = [](const Bytes& b) { return QByteArray(reinterpret_cast<const char*>(b.data()), int(b.size())); };
        QTest::newRow("empty") << QByteArray() << "file_size > 12";
        QTest::newRow("one byte short of a sample") << bytes(signed_file(37, 1, Bytes(4, 0))) << "file_size == (4 + 4 + 4 + memory_byte_size * depth)";
        QTest::newRow("wrong width, bad signature") << bytes([&] { Bytes b = signed_file(36, 1, one_sample); b[0] = 1; return b; }()) << SIGNATURE_CHECK;
        QTest::newRow("wrong width") << bytes(signed_file(36, 1, one_sample)) << "width == PGMDQ_SFL_DEBUG_SIZE";
        QTest::newRow("width 0") << bytes(signed_file(0, 1, one_sample)) << "width == PGMDQ_SFL_DEBUG_SIZE";
        QTest::newRow("depth too large") << bytes(signed_file(37, 2, one_sample)) << "file_size == (4 + 4 + 4 + memory_byte_size * depth)";
        QTest::newRow("depth 0 with a sample") << bytes(signed_file(37, 0, one_sample)) << "file_size == (4 + 4 + 4 + memory_byte_size * depth)";
        QTest::newRow("depth near 2^32") << bytes(signed_file(37, 0xFFFFFFFFu, one_sample)) << "file_size == (4 + 4 + 4 + memory_byte_size * depth)";
        QTest::newRow("valid single sample") << bytes(signed_file(37, 1, one_sample)) << "";
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
        const Bytes first = saved_trace("first.wvf");
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        widget.open_waveform(path("first.wvf"));
        widget.save_waveform(path("second.wvf"));
        QVERIFY(first == read_file(path("second.wvf")));
    }

    void unwritable_path_is_not_reported()
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        wave_test::draw(widget, wave_test::structured_trace(16));
        const std::string path = m_dir.filePath("missing_folder/trace.wvf").toStdString();
        QCOMPARE(internal_error_of([&] { widget.save_waveform(path); }), QString());
        QVERIFY(!QFile::exists(QString::fromStdString(path)));
    }

    void saving_without_a_trace_is_an_internal_error()
    {
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        const QString save_check("m_waveform_data != NULL && m_waveform_width > 0 && m_waveform_depth && "
                                 "PGMDQ_SFL_DEBUG_SIZE == m_waveform_width");
        QCOMPARE(internal_error_of([&] { widget.save_waveform(path("none.wvf")); }), save_check);

        // Forgetting the trace (width 0) makes a later save fail the same way.
        wave_test::draw(widget, wave_test::structured_trace(16));
        widget.draw_waveform(0, 0, nullptr, nullptr, 0, 0);
        QCOMPARE(internal_error_of([&] { widget.save_waveform(path("none.wvf")); }), save_check);
    }
};

QTEST_MAIN(TEST_WAVE_FILE)
#include "test_wave_file.moc"
