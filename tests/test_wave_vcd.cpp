// The ".wvf" to VCD converter, checked by a third-party reader: GTKWave, headless under Xvfb, must
// find the 15 signals of a saved trace and read the sample values at chosen times; files that are
// not traces make the converter fail with a message and no output.
#include "pgmdq_debug_waveform_viewer.h"

#include "wave/wave_test_trace.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString CONVERTER = qEnvironmentVariable("PGMDQ_BUILD_DIR") + "/bin/wvf2vcd";
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

bool write_file(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

// GTKWave's way of showing a value: a bit as 0 or 1, a bus in hexadecimal with all its digits.
QString gtkwave_value(std::uint64_t sample, unsigned first_bit, unsigned width)
{
    const std::uint64_t value = (sample >> first_bit) & ((std::uint64_t(1) << width) - 1);
    if (width == 1)
        return QString::number(value);
    return QString("%1").arg(value, int((width + 3) / 4), 16, QChar('0')).toUpper();
}

QString gtkwave_name(const PGMDQ_DEBUG_SIGNAL& signal)
{
    const QString name = "debug_ip." + QString::fromStdString(signal.name);
    return signal.width == 1 ? name : name + QString("[%1:0]").arg(signal.width - 1);
}

} // namespace

class TEST_WAVE_VCD : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString path(const char* name) const { return m_dir.filePath(name); }

private slots:
    void gtkwave_reads_the_converted_trace()
    {
        if (QStandardPaths::findExecutable("gtkwave").isEmpty() || QStandardPaths::findExecutable("xvfb-run").isEmpty())
            QSKIP("GTKWave or xvfb-run is not installed");
        const std::vector<std::uint64_t> samples = wave_test::structured_trace(400, 7);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        wave_test::draw(widget, samples);
        widget.save_waveform(path("trace.wvf").toStdString());

        const RUN converter = run(CONVERTER, {path("trace.wvf"), path("trace.vcd")});
        QCOMPARE(converter.exit_code, 0);
        QVERIFY2(converter.errors.isEmpty(), qPrintable(converter.errors));

        const QList<unsigned> times{0, 1, 2, 57, 150, 398, 399};
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("WAVE_PROBE_TIMES", "0 1 2 57 150 398 399");
        const QString probe = qEnvironmentVariable("PGMDQ_SOURCE_DIR") + "/tests/wave/gtkwave_probe.tcl";
        const RUN gtkwave = run("xvfb-run", {"-a", "gtkwave", "-S", probe, path("trace.vcd")}, environment);
        const QString all_output = gtkwave.output + gtkwave.errors;
        QVERIFY2(gtkwave.exit_code == 0, qPrintable(all_output));
        QVERIFY2(!all_output.contains(QRegularExpression("near byte|malformed", QRegularExpression::CaseInsensitiveOption)),
                 qPrintable(all_output));

        QStringList found_signals;
        QMap<QString, QString> found_values;
        for (const QString& line : gtkwave.output.split('\n')) {
            const QStringList words = line.split(' ');
            if (words.size() == 2 && words[0] == "signal")
                found_signals << words[1];
            else if (words.size() == 4 && words[0] == "value")
                found_values[words[1] + " " + words[2]] = words[3];
        }
        QStringList expected_signals;
        unsigned first_bit = 0;
        for (const PGMDQ_DEBUG_SIGNAL* signal = PGMDQ_SFL_DEBUG_SIGNALS; signal->width; first_bit += signal++->width) {
            expected_signals << gtkwave_name(*signal);
            for (unsigned time : times)
                QCOMPARE(found_values.value(QString::number(time) + " " + expected_signals.last()),
                         gtkwave_value(samples[time], first_bit, signal->width));
        }
        found_signals.sort();
        expected_signals.sort();
        QCOMPARE(found_signals, expected_signals);
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
        QTest::newRow("header only") << ONE_SAMPLE.left(12) << "too short";
        QTest::newRow("extended") << ONE_SAMPLE + QByteArray(1, 0) << "does not match";
        QTest::newRow("bad signature") << bad_signature << "signature";
        QTest::newRow("wrong width") << wrong_width << "width is 36";
    }
    void refuses_what_is_not_a_trace()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, reason);
        QVERIFY(write_file(path("bad.wvf"), file));
        QFile::remove(path("bad.vcd"));

        const RUN converter = run(CONVERTER, {path("bad.wvf"), path("bad.vcd")});
        QCOMPARE(converter.exit_code, 1);
        QVERIFY2(converter.errors.contains("not a valid waveform trace"), qPrintable(converter.errors));
        QVERIFY2(converter.errors.contains(reason), qPrintable(converter.errors));
        QVERIFY(!QFile::exists(path("bad.vcd")));
    }

    void converts_the_valid_one_sample_trace()
    {
        QVERIFY(write_file(path("one.wvf"), ONE_SAMPLE));
        const RUN converter = run(CONVERTER, {path("one.wvf")});
        QCOMPARE(converter.exit_code, 0);
        QVERIFY(converter.output.contains("$timescale 1ns $end"));
        QVERIFY(converter.output.contains("$var wire 12 $ ir_in [11:0] $end"));
        QVERIFY(converter.output.contains("b1 $\n"));
        QVERIFY(converter.output.endsWith("#1\n"));
    }
};

QTEST_MAIN(TEST_WAVE_VCD)
#include "test_wave_vcd.moc"
