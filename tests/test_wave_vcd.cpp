// The ".wvf" to VCD converter, checked by a third-party reader: GTKWave, headless under Xvfb, must
// find the 15 signals of a saved trace and read the sample values at chosen times; files that are
// not traces make the converter fail with a message and no output.
#include "pgmdq_debug_waveform_viewer.h"

#include "wave/wave_test_trace.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QString build_path(const char* relative)
{
    return qEnvironmentVariable("PGMDQ_BUILD_DIR") + "/" + relative;
}

QString source_path(const char* relative)
{
    return qEnvironmentVariable("PGMDQ_SOURCE_DIR") + "/" + relative;
}

struct RUN {
    int exit_code = -1;
    QString output;
    QString errors;
};

RUN run(const QString& program, const QStringList& arguments, const QProcessEnvironment& environment =
                                                                   QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    RUN result;
    if (!process.waitForFinished(120000)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.exit_code = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.output = QString::fromLocal8Bit(process.readAllStandardOutput());
    result.errors = QString::fromLocal8Bit(process.readAllStandardError());
    return result;
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

        const RUN converter = run(build_path("bin/wvf2vcd"), {path("trace.wvf"), path("trace.vcd")});
        QCOMPARE(converter.exit_code, 0);
        QVERIFY2(converter.errors.isEmpty(), qPrintable(converter.errors));

        const QList<unsigned> times{0, 1, 2, 57, 150, 398, 399};
        QStringList time_list;
        for (unsigned time : times)
            time_list << QString::number(time);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("WAVE_PROBE_TIMES", time_list.join(' '));
        const RUN gtkwave = run("xvfb-run", {"-a", "gtkwave", "-S", source_path("tests/wave/gtkwave_probe.tcl"),
                                             path("trace.vcd")},
                                environment);
        const QString all_output = gtkwave.output + gtkwave.errors;
        QVERIFY2(gtkwave.exit_code == 0, qPrintable(all_output));
        QVERIFY2(!all_output.contains("Near byte", Qt::CaseInsensitive), qPrintable(all_output));
        QVERIFY2(!all_output.contains("malformed", Qt::CaseInsensitive), qPrintable(all_output));

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
        for (const PGMDQ_DEBUG_SIGNAL* signal = PGMDQ_SFL_DEBUG_SIGNALS; signal->width; ++signal)
            expected_signals << gtkwave_name(*signal);
        found_signals.sort();
        expected_signals.sort();
        QCOMPARE(found_signals, expected_signals);

        for (unsigned time : times) {
            unsigned first_bit = 0;
            for (const PGMDQ_DEBUG_SIGNAL* signal = PGMDQ_SFL_DEBUG_SIGNALS; signal->width; ++signal) {
                const QString key = QString::number(time) + " " + gtkwave_name(*signal);
                QCOMPARE(found_values.value(key), gtkwave_value(samples[time], first_bit, signal->width));
                first_bit += signal->width;
            }
        }
    }

    void refuses_what_is_not_a_trace_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("reason");
        // A valid one-sample trace: width 37, depth 1, sample 08 00 00 00 00, sum 0x2E.
        const QByteArray valid = QByteArray::fromHex("25000000010000000800000000" "2e000000");
        QByteArray bad_signature = valid;
        bad_signature[8] = 0x09;
        QByteArray wrong_width = valid;
        wrong_width[0] = 0x24;
        wrong_width[16] = 0x2D;
        QByteArray wrong_depth = valid;
        wrong_depth[4] = 0x02;
        wrong_depth[16] = 0x2F;
        QTest::newRow("empty") << QByteArray() << "too short";
        QTest::newRow("header only") << valid.left(12) << "too short";
        QTest::newRow("truncated") << valid.left(16) << "too short";
        QTest::newRow("extended") << valid + QByteArray(1, 0) << "does not match";
        QTest::newRow("bad signature") << bad_signature << "signature";
        QTest::newRow("wrong width") << wrong_width << "width is 36";
        QTest::newRow("wrong depth") << wrong_depth << "does not match";
    }
    void refuses_what_is_not_a_trace()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, reason);
        QFile input(path("bad.wvf"));
        QVERIFY(input.open(QIODevice::WriteOnly | QIODevice::Truncate));
        input.write(file);
        input.close();
        QFile::remove(path("bad.vcd"));

        const RUN converter = run(build_path("bin/wvf2vcd"), {path("bad.wvf"), path("bad.vcd")});
        QCOMPARE(converter.exit_code, 1);
        QVERIFY2(converter.errors.contains("not a valid waveform trace"), qPrintable(converter.errors));
        QVERIFY2(converter.errors.contains(reason), qPrintable(converter.errors));
        QVERIFY(!QFile::exists(path("bad.vcd")));
    }

    void converts_the_valid_one_sample_trace()
    {
        QFile input(path("one.wvf"));
        QVERIFY(input.open(QIODevice::WriteOnly | QIODevice::Truncate));
        input.write(QByteArray::fromHex("25000000010000000800000000" "2e000000"));
        input.close();
        const RUN converter = run(build_path("bin/wvf2vcd"), {path("one.wvf")});
        QCOMPARE(converter.exit_code, 0);
        QVERIFY(converter.output.contains("$timescale 1ns $end"));
        QVERIFY(converter.output.contains("$var wire 12 $ ir_in [11:0] $end"));
        QVERIFY(converter.output.contains("b1 $\n"));
        QVERIFY(converter.output.endsWith("#1\n"));
    }
};

QTEST_MAIN(TEST_WAVE_VCD)
#include "test_wave_vcd.moc"
