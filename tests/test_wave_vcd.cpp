// The ".wvf" to VCD converter and the panel's "Export VCD...", checked by third-party readers:
// GTKWave, headless under Xvfb, finds the 15 signals of a converted trace and reads every sample
// of each with buses as vectors; sigrok-cli, a reader without vector support, reads every sample
// of the form with buses as single-bit wires. The panel writes what the converter writes. Files
// that are not traces make the converter fail with a message and no output.
#include "pgmdq_debug_waveform_viewer.h"

#include "wave/wave_panel_driver.h"
#include "wave/wave_test_trace.h"

#include <QCheckBox>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString CONVERTER = qEnvironmentVariable("PGMDQ_BUILD_DIR") + "/bin/wvf2vcd";
const int DEPTH = 1500;
// A valid one-sample trace: width 37, depth 1, sample 08 00 00 00 00, sum 0x2E.
const QByteArray ONE_SAMPLE = QByteArray::fromHex("25000000010000000800000000" "2e000000");

struct RUN {
    int exit_code = -1; // also when it crashed or hung
    QString output;
    QString errors;
};

RUN run(const QString& program, const QStringList& arguments,
        const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    const bool finished = process.waitForFinished(120000);
    if (!finished)
        process.kill();
    return {finished && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromLocal8Bit(process.readAllStandardOutput()), QString::fromLocal8Bit(process.readAllStandardError())};
}

bool installed(std::initializer_list<const char*> programs)
{
    for (const char* program : programs)
        if (QStandardPaths::findExecutable(program).isEmpty())
            return false;
    return true;
}

quint64 field(std::uint64_t sample, unsigned first_bit, unsigned width)
{
    return sample >> first_bit & ((quint64(1) << width) - 1);
}

QByteArray read_file(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "missing " + path.toUtf8();
}

} // namespace

class TEST_WAVE_VCD : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;
    std::vector<std::uint64_t> m_samples;
    QString path(const char* name) const { return m_dir.filePath(name); }

private slots:
    // One trace for every reader, saved and converted to both forms.
    void initTestCase()
    {
        m_samples = wave_test::structured_trace(DEPTH, 21);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        wave_test::draw(widget, m_samples);
        QVERIFY(widget.save_waveform(path("trace.wvf").toStdString()));
        for (const QStringList& arguments : {QStringList{path("trace.wvf"), path("vectors.vcd")},
                                             QStringList{"-s", path("trace.wvf"), path("split.vcd")}}) {
            const RUN converter = run(CONVERTER, arguments);
            QVERIFY2(converter.exit_code == 0 && converter.errors.isEmpty(), qPrintable(converter.errors));
        }
    }

    // GTKWave lists the signals ("debug_ip.ir_in[11:0]") and reads every value at every sample
    // (a bit 0 or 1, a bus in hexadecimal with all its digits) through tests/wave/gtkwave_probe.tcl.
    void gtkwave_reads_every_sample_of_the_vectors()
    {
        if (!installed({"gtkwave", "xvfb-run"}))
            QSKIP("GTKWave or xvfb-run is not installed");
        QStringList times;
        for (int time = 0; time < DEPTH; ++time)
            times << QString::number(time);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("WAVE_PROBE_TIMES", times.join(' '));
        const QString probe = qEnvironmentVariable("PGMDQ_SOURCE_DIR") + "/tests/wave/gtkwave_probe.tcl";
        const RUN gtkwave = run("xvfb-run", {"-a", "gtkwave", "-S", probe, path("vectors.vcd")}, environment);
        const QString all_output = gtkwave.output + gtkwave.errors;
        QVERIFY2(gtkwave.exit_code == 0 &&
                     !all_output.contains(QRegularExpression("near byte|malformed", QRegularExpression::CaseInsensitiveOption)),
                 qPrintable(all_output));
        QStringList expected;
        unsigned first_bit = 0;
        for (const PGMDQ_DEBUG_SIGNAL* signal = PGMDQ_SFL_DEBUG_SIGNALS; signal->width; first_bit += signal++->width) {
            const unsigned width = signal->width;
            const QString name = "debug_ip." + QString::fromStdString(signal->name) +
                                 (width > 1 ? QString("[%1:0]").arg(width - 1) : QString());
            expected << "signal " + name;
            for (int time = 0; time < DEPTH; ++time) {
                const quint64 value = field(m_samples[std::size_t(time)], first_bit, width);
                expected << QString("value %1 %2 %3").arg(time).arg(name, QString("%1").arg(value, int(width + 3) / 4, 16, QChar('0')).toUpper());
            }
        }
        QStringList found = gtkwave.output.split('\n').filter(QRegularExpression("^(signal|value) "));
        found.sort();
        expected.sort();
        QCOMPARE(found, expected);
    }

    // GTKWave takes a vector's width from its declaration and lets a wrong range pass: the
    // declarations themselves, identifiers aside.
    void vectors_are_declared_with_their_ranges()
    {
        QStringList declared;
        for (const QString& line : QString(read_file(path("vectors.vcd"))).split('\n'))
            if (line.startsWith("$var ")) {
                QStringList words = line.split(' ');
                words[3] = "ID";
                declared << words.join(' ');
            }
        QStringList expected;
        for (const PGMDQ_DEBUG_SIGNAL* signal = PGMDQ_SFL_DEBUG_SIGNALS; signal->width; ++signal)
            expected << QString("$var wire %1 ID %2%3 $end").arg(signal->width).arg(QString::fromStdString(signal->name),
                                signal->width > 1 ? QString(" [%1:0]").arg(signal->width - 1) : "");
        QCOMPARE(declared, expected);
    }

    // sigrok lists the channels ("ir_in[3]") and writes a CSV row of 37 bits per sample.
    void sigrok_reads_every_sample_of_the_split_form()
    {
        if (!installed({"sigrok-cli"}))
            QSKIP("sigrok-cli is not installed");
        const RUN sigrok = run("sigrok-cli", {"-I", "vcd", "-i", path("split.vcd"), "-O", "csv"});
        QVERIFY2(sigrok.exit_code == 0, qPrintable(sigrok.errors));
        QStringList channels;
        QStringList rows;
        for (const QString& line : sigrok.output.split('\n', Qt::SkipEmptyParts)) {
            const int listed = line.indexOf("): ");
            if (line.startsWith("; Channels") && listed > 0)
                channels = line.mid(listed + 3).split(", ");
            else if (!line.startsWith(';') && !line.startsWith("META") && !line.startsWith("logic"))
                rows << line;
        }
        QMap<QString, unsigned> bit_of;
        unsigned first_bit = 0;
        for (const PGMDQ_DEBUG_SIGNAL* signal = PGMDQ_SFL_DEBUG_SIGNALS; signal->width; first_bit += signal++->width)
            for (unsigned k = 0; k < signal->width; ++k)
                bit_of[QString::fromStdString(signal->name) + (signal->width > 1 ? QString("[%1]").arg(k) : "")] = first_bit + k;
        QStringList sorted_channels = channels;
        sorted_channels.sort();
        QCOMPARE(sorted_channels, QStringList(bit_of.keys()));
        QStringList expected;
        for (std::uint64_t sample : m_samples) {
            QStringList bits;
            for (const QString& channel : channels)
                bits << QString::number(field(sample, bit_of[channel], 1));
            expected << bits.join(',');
        }
        QCOMPARE(rows, expected);
    }

    // "Export VCD..." writes what the converter writes, in both forms; only the first line, the
    // comment saying where the trace came from, differs.
    void panel_export_writes_what_the_converter_writes()
    {
        PGMDQ_DEBUG_WAVEFORM_VIEWER panel;
        wave_test::click_with_file(&panel, "Open", path("trace.wvf"));
        auto* split_box = panel.findChild<QCheckBox*>();
        QCOMPARE(split_box->text(), QString("Buses as single-bit wires"));
        const auto after_first_line = [](const QByteArray& text) { return text.mid(text.indexOf('\n') + 1); };
        for (bool split : {false, true}) {
            split_box->setChecked(split);
            const QString exported = path(split ? "exported_split" : "exported_vectors");
            wave_test::click_with_file(&panel, "Export VCD...", exported);
            const QByteArray written = read_file(exported + ".vcd");
            QCOMPARE(after_first_line(written), after_first_line(read_file(path(split ? "split.vcd" : "vectors.vcd"))));
            QCOMPARE(written.left(written.indexOf('\n') + 1),
                     "$comment exported by the Debug Waveform Viewer from File: " + path("trace.wvf").toUtf8() + " $end\n");
        }
        TFCQ_FILE_DLG::clear_preset_answers();
    }

    void refuses_what_is_not_a_trace_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("reason");
        QByteArray bad_signature = ONE_SAMPLE;
        bad_signature[8] = 0x09;
        QByteArray wrong_width = ONE_SAMPLE;
        wrong_width[0] = 0x24;
        wrong_width[16] = 0x2D;
        QTest::newRow("header only") << ONE_SAMPLE.left(12) << "too short (12 bytes) to hold one sample";
        QTest::newRow("extended") << ONE_SAMPLE + QByteArray(1, 0) << "size 18 does not match the 1 samples it declares";
        QTest::newRow("bad signature") << bad_signature << "signature does not match its contents";
        QTest::newRow("wrong width") << wrong_width << "sample width is 36 bits, expected 37";
    }
    void refuses_what_is_not_a_trace()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, reason);
        QFile bad(path("bad.wvf"));
        QVERIFY(bad.open(QIODevice::WriteOnly | QIODevice::Truncate) && bad.write(file) == file.size());
        bad.close();
        QFile::remove(path("bad.vcd"));
        const RUN converter = run(CONVERTER, {path("bad.wvf"), path("bad.vcd")});
        QCOMPARE(converter.exit_code, 1);
        QCOMPARE(converter.errors, QString("wvf2vcd: %1: not a valid waveform trace: %2\n").arg(path("bad.wvf"), reason));
        QVERIFY(!QFile::exists(path("bad.vcd")));
    }
};

QTEST_MAIN(TEST_WAVE_VCD)
#include "test_wave_vcd.moc"
