// The ".wvf" to VCD converter and the panel's "Export VCD...", checked by third-party readers:
// GTKWave, headless under Xvfb, must find the 15 signals of a saved trace and read the sample
// values at chosen times; GTKWave's vcd2fst and fst2vcd carry both forms (buses as vectors, buses
// as single-bit wires) through its own FST format and back, every sample of every signal intact;
// sigrok-cli, a reader without vector support, reads every sample of the split form. The panel
// writes what the converter writes. Files that are not traces make the converter fail with a
// message and no output.
#include "pgmdq_debug_waveform_viewer.h"

#include "wave/wave_panel_driver.h"
#include "wave/wave_test_trace.h"

#include <QCheckBox>
#include <QFile>
#include <QFileInfo>
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

// The signals' references as a VCD names them: a bit "tck", a bus "ir_in [11:0]", or each bit of a
// bus "ir_in [3]" in the split form; with the sample bits each stands for.
struct REFERENCE {
    QString name;
    unsigned first_bit;
    unsigned width;
};

QVector<REFERENCE> expected_references(bool split)
{
    QVector<REFERENCE> references;
    unsigned first_bit = 0;
    for (const PGMDQ_DEBUG_SIGNAL* signal = PGMDQ_SFL_DEBUG_SIGNALS; signal->width; first_bit += signal++->width) {
        const QString name = QString::fromStdString(signal->name);
        if (signal->width == 1)
            references.append({name, first_bit, 1});
        else if (!split)
            references.append({QString("%1 [%2:0]").arg(name).arg(signal->width - 1), first_bit, signal->width});
        else
            for (unsigned bit = 0; bit < signal->width; ++bit)
                references.append({QString("%1 [%2]").arg(name).arg(bit), first_bit + bit, 1});
    }
    return references;
}

// A VCD read on its own terms: each variable's value at every time step from 0 to `depth` - 1,
// by reference ("name" and its index joined by a blank).
struct VCD_READING {
    QStringList references;
    QMap<QString, QVector<quint64>> values;
    QString error;
};

VCD_READING read_vcd(const QString& text, unsigned depth)
{
    VCD_READING reading;
    QMap<QString, QString> reference_of; // identifier -> reference
    QMap<QString, quint64> current;      // identifier -> value
    const QStringList tokens = text.split(QRegularExpression("\\s+"), Qt::SkipEmptyParts);
    quint64 time = 0;
    const auto fill_until = [&](quint64 end) {
        for (; time < end && time < depth; ++time)
            for (auto id = reference_of.cbegin(); id != reference_of.cend(); ++id)
                reading.values[id.value()].append(current.value(id.key()));
    };
    for (int i = 0; i < tokens.size(); ++i) {
        const QString& token = tokens[i];
        if (token == "$var") {
            // $var type width identifier reference [index] $end
            const int end = tokens.indexOf("$end", i);
            const QString identifier = tokens.value(i + 3);
            const QString reference = tokens.mid(i + 4, end - i - 4).join(' ');
            reference_of[identifier] = reference;
            reading.references << reference;
            i = end;
        } else if (token.startsWith('$')) {
            // Sections of text ($comment, $date, $version, $timescale, $scope ...) end with $end;
            // $dumpvars and its $end only frame value changes.
            if (token != "$dumpvars" && token != "$end" && token != "$enddefinitions")
                i = tokens.indexOf("$end", i);
        } else if (token.startsWith('#')) {
            fill_until(token.mid(1).toULongLong());
        } else if (token.startsWith('b') || token.startsWith('B')) {
            current[tokens.value(++i)] = token.mid(1).toULongLong(nullptr, 2);
        } else if (token[0] == '0' || token[0] == '1') {
            current[token.mid(1)] = token[0] == '1';
        } else {
            reading.error = "unexpected token " + token;
            return reading;
        }
    }
    fill_until(depth);
    return reading;
}

// Every sample of every signal of `samples` in a reading of its VCD.
void compare_every_sample(const VCD_READING& reading, const std::vector<std::uint64_t>& samples, bool split)
{
    QVERIFY2(reading.error.isEmpty(), qPrintable(reading.error));
    const QVector<REFERENCE> references = expected_references(split);
    QStringList expected_names;
    for (const REFERENCE& reference : references)
        expected_names << reference.name;
    QStringList found = reading.references;
    found.sort();
    expected_names.sort();
    QCOMPARE(found, expected_names);
    for (const REFERENCE& reference : references) {
        const QVector<quint64> values = reading.values.value(reference.name);
        QCOMPARE(values.size(), int(samples.size()));
        for (std::size_t i = 0; i < samples.size(); ++i)
            if (values[int(i)] != (samples[i] >> reference.first_bit & ((quint64(1) << reference.width) - 1)))
                QFAIL(qPrintable(QString("%1 at sample %2: %3").arg(reference.name).arg(i).arg(values[int(i)])));
    }
}

bool has_program(const char* name)
{
    return !QStandardPaths::findExecutable(name).isEmpty();
}

} // namespace

class TEST_WAVE_VCD : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString path(const char* name) const { return m_dir.filePath(name); }

    // A saved trace of `depth` samples and its two VCD forms from the converter.
    std::vector<std::uint64_t> saved_and_converted(std::size_t depth)
    {
        const std::vector<std::uint64_t> samples = wave_test::structured_trace(depth, 21);
        PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
        wave_test::draw(widget, samples);
        widget.save_waveform(path("both.wvf").toStdString());
        for (const QStringList& arguments : {QStringList{path("both.wvf"), path("vectors.vcd")},
                                             QStringList{"-s", path("both.wvf"), path("split.vcd")}}) {
            const RUN converter = run(CONVERTER, arguments);
            if (converter.exit_code != 0)
                qWarning("wvf2vcd: %s", qPrintable(converter.errors));
        }
        return samples;
    }

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

    // Both forms go through GTKWave's own format and back unchanged.
    void both_forms_survive_gtkwaves_fst_round_trip_data()
    {
        QTest::addColumn<bool>("split");
        QTest::newRow("buses as vectors") << false;
        QTest::newRow("buses as single-bit wires") << true;
    }
    void both_forms_survive_gtkwaves_fst_round_trip()
    {
        QFETCH(bool, split);
        if (!has_program("vcd2fst") || !has_program("fst2vcd"))
            QSKIP("GTKWave's vcd2fst and fst2vcd are not installed");
        const std::vector<std::uint64_t> samples = saved_and_converted(3000);
        const QString vcd = path(split ? "split.vcd" : "vectors.vcd");
        // The converter's own output reads back too.
        QFile original(vcd);
        QVERIFY(original.open(QIODevice::ReadOnly));
        compare_every_sample(read_vcd(QString::fromLatin1(original.readAll()), 3000), samples, split);

        const RUN to_fst = run("vcd2fst", {vcd, path("round.fst")});
        QVERIFY2(to_fst.exit_code == 0, qPrintable(to_fst.output + to_fst.errors));
        const RUN back = run("fst2vcd", {path("round.fst")});
        QVERIFY2(back.exit_code == 0, qPrintable(back.errors));
        compare_every_sample(read_vcd(back.output, 3000), samples, split);
    }

    // sigrok 0.5 reads no vectors: the split form gives it every bit of every sample.
    void sigrok_reads_every_sample_of_the_split_form()
    {
        if (!has_program("sigrok-cli"))
            QSKIP("sigrok-cli is not installed");
        const std::vector<std::uint64_t> samples = saved_and_converted(3000);
        const RUN sigrok = run("sigrok-cli", {"-I", "vcd", "-i", path("split.vcd"), "-O", "csv"});
        QVERIFY2(sigrok.exit_code == 0, qPrintable(sigrok.errors));
        QStringList channels;
        QVector<QStringList> rows;
        for (const QString& line : sigrok.output.split('\n', Qt::SkipEmptyParts)) {
            const int listed = line.indexOf("): ");
            if (line.startsWith("; Channels") && listed > 0)
                channels = line.mid(listed + 3).split(", ");
            else if (!line.startsWith(';') && !line.startsWith("META") && !line.startsWith("logic"))
                rows.append(line.split(','));
        }
        QCOMPARE(channels.size(), 37);
        QCOMPARE(rows.size(), 3000);
        const QVector<REFERENCE> references = expected_references(true);
        for (int channel = 0; channel < channels.size(); ++channel) {
            // sigrok joins a reference's name and index: "ir_in[3]".
            const auto reference = std::find_if(references.begin(), references.end(), [&](const REFERENCE& r) {
                return QString(r.name).remove(' ') == channels[channel];
            });
            QVERIFY2(reference != references.end(), qPrintable(channels[channel]));
            for (int i = 0; i < rows.size(); ++i)
                if (rows[i].value(channel) != QString::number(samples[std::size_t(i)] >> reference->first_bit & 1))
                    QFAIL(qPrintable(QString("%1 at sample %2").arg(channels[channel]).arg(i)));
        }
    }

    // "Export VCD..." writes what the converter writes, in both forms; only the comment saying
    // where the trace came from differs.
    void panel_export_writes_what_the_converter_writes()
    {
        saved_and_converted(1500);
        PGMDQ_DEBUG_WAVEFORM_VIEWER panel;
        QVERIFY(!wave_test::button(&panel, "Export VCD...")->isEnabled());
        TFCQ_FILE_DLG::preset_answer(path("both.wvf"));
        wave_test::click(&panel, "Open");
        QPushButton* export_button = wave_test::button(&panel, "Export VCD...");
        QVERIFY(export_button->isEnabled());
        auto* split_box = panel.findChild<QCheckBox*>();
        QVERIFY(split_box);
        QCOMPARE(split_box->text(), QString("Buses as single-bit wires"));
        const auto body = [](const QString& file) {
            QFile vcd(file);
            if (!vcd.open(QIODevice::ReadOnly))
                return QByteArray("missing ") + file.toUtf8();
            const QByteArray text = vcd.readAll();
            return text.mid(text.indexOf('\n') + 1);
        };
        for (bool split : {false, true}) {
            split_box->setChecked(split);
            const QString exported = path(split ? "exported_split" : "exported_vectors");
            TFCQ_FILE_DLG::preset_answer(exported);
            QTest::mouseClick(export_button, Qt::LeftButton);
            QCOMPARE(body(exported + ".vcd"), body(path(split ? "split.vcd" : "vectors.vcd")));
            QFile written(exported + ".vcd");
            QVERIFY(written.open(QIODevice::ReadOnly));
            QCOMPARE(written.readLine(), QByteArray("$comment exported by the Debug Waveform Viewer from File: ") +
                                             path("both.wvf").toUtf8() + " $end\n");
        }
        // A folder that is not there: told, nothing written.
        wave_test::MESSAGES messages(&panel);
        TFCQ_FILE_DLG::preset_answer(path("nowhere/exported"));
        QTest::mouseClick(export_button, Qt::LeftButton);
        QCOMPARE(messages.texts.size(), 1);
        QVERIFY(messages.texts[0].startsWith("Can't save or open file " + path("nowhere/exported.vcd")));
        QVERIFY(!QFileInfo::exists(path("nowhere")));
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
};

QTEST_MAIN(TEST_WAVE_VCD)
#include "test_wave_vcd.moc"
