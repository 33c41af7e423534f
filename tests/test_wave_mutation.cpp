// Damaged trace files opened through the real panel's Open button inside the host application:
// truncated, extended, bytes changed, wrong width, wrong depth, with and without a matching
// signature. Each file either opens or raises exactly the check that refuses it; the host shows
// the internal error, keeps running, and the panel still opens a good file afterwards.
#include "pgmdq_debug_waveform_viewer.h"

#include "host_application.h"
#include "wave/wave_file_bytes.h"
#include "wave/wave_panel_driver.h"
#include "wave/wave_test_trace.h"

#include <QMessageBox>
#include <QTemporaryDir>

#include <random>

using namespace wave_test;

namespace {

const QStringList CHECKS{"file_size > 12", "signature == dword_data[0]", "width == PGMDQ_SFL_DEBUG_SIZE",
                         "file_size == (4 + 4 + 4 + memory_byte_size * depth)"};

// The check a file must fail first, or "" for a file that is a trace.
QString first_failed_check(const Bytes& bytes)
{
    if (bytes.size() <= 12)
        return CHECKS[0];
    if (byte_sum(bytes, bytes.size() - 4) != dword_at(bytes, bytes.size() - 4))
        return CHECKS[1];
    if (dword_at(bytes, 0) != 37)
        return CHECKS[2];
    return bytes.size() == 12 + 5 * std::uint64_t(dword_at(bytes, 4)) ? QString() : CHECKS[3];
}

// Every kind of damage to a good trace of 64 samples (332 bytes), each with and without a
// signature that matches the damaged contents.
std::vector<std::pair<QString, Bytes>> mutants(const Bytes& good)
{
    std::vector<std::pair<QString, Bytes>> result;
    const auto add = [&](const QString& name, const Bytes& bytes) {
        result.push_back({name, bytes});
        result.push_back({name + ", signed", signed_bytes(bytes)});
    };
    for (std::size_t size : {0, 1, 4, 8, 11, 12, 13, 16, 17, 100, 326, 327, 328, 331})
        add(QString("truncated to %1").arg(size), Bytes(good.begin(), good.begin() + size));
    for (std::size_t extra : {1, 4, 5, 10, 4096}) {
        Bytes extended = good;
        extended.insert(extended.end(), extra, 0x5A);
        add(QString("extended by %1").arg(extra), extended);
        // Extended by whole samples with the depth raised to match: a longer, valid trace.
        if (extra % 5 == 0) {
            put_dword(extended, 4, dword_at(good, 4) + std::uint32_t(extra / 5));
            add(QString("extended by %1 with its depth").arg(extra), extended);
        }
    }
    std::mt19937 random(4);
    for (int i = 0; i < 24; ++i) {
        Bytes changed = good;
        const std::size_t offset = random() % good.size();
        changed[offset] ^= static_cast<unsigned char>(1 + random() % 255);
        add(QString("byte %1 changed").arg(offset), changed);
    }
    for (std::size_t field : {0, 4})
        for (std::uint32_t value : {0u, 1u, 36u, 38u, 63u, 65u, 1000u, 0xFFFFFFFFu}) {
            Bytes wrong = good;
            put_dword(wrong, field, value);
            add(QString(field ? "depth %1" : "width %1").arg(value), wrong);
        }
    // A depth whose byte count wraps around in 32 bits to what the file holds (16 bytes).
    Bytes forged(good.begin(), good.begin() + 16);
    put_dword(forged, 4, 0x33333334u);
    add("depth wrapping around to the size", forged);
    return result;
}

} // namespace

class TEST_WAVE_MUTATION : public QObject {
    Q_OBJECT

private slots:
    void every_damaged_file_opens_or_fails_its_check()
    {
        auto* host = qobject_cast<HOST_APPLICATION*>(qApp);
        QTemporaryDir dir;
        PGMDQ_DEBUG_WAVEFORM_VIEWER panel;
        panel.show();
        MESSAGES messages(&panel);
        const QString good_path = dir.filePath("good.wvf");
        {
            PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
            draw(widget, structured_trace(64, 9));
            QVERIFY(widget.save_waveform(good_path.toStdString()));
        }
        int opened = 0;
        QSet<QString> raised_checks;
        for (const auto& mutant : mutants(read_bytes(good_path.toStdString()))) {
            const QString name = mutant.first;
            write_bytes(dir.filePath("mutant.wvf").toStdString(), mutant.second);
            const QString expected = first_failed_check(mutant.second);
            const int errors_before = host->internal_error_count();
            messages.texts.clear();
            click_with_file(&panel, "Open", dir.filePath("mutant.wvf"));
            if (expected.isEmpty()) {
                QVERIFY2(host->internal_error_count() == errors_before, qPrintable(name));
                QCOMPARE(panel.waveform_widget()->waveform_depth(), dword_at(mutant.second, 4));
                ++opened;
                continue;
            }
            // Posted as "Internal Error: TEXT (module PGMDQ, source S, line N)".
            QVERIFY2(host->internal_error_count() == errors_before + 1 && messages.texts.size() == 1, qPrintable(name));
            const QString posted = messages.texts[0];
            QVERIFY2(posted.startsWith("Internal Error: " + expected +
                                       " (module PGMDQ, source pgmdq_debug_waveform_viewer, line "),
                     qPrintable(name + ": " + posted));
            raised_checks.insert(expected);
            QCOMPARE(host->internal_error_dialog()->windowTitle(), QString("Internal Error"));
            host->internal_error_dialog()->close();
        }
        QVERIFY(opened >= 10);
        QCOMPARE(raised_checks.size(), CHECKS.size());

        // The host kept running and the panel still works.
        QTest::qWait(20);
        click_with_file(&panel, "Open", good_path);
        QCOMPARE(panel.waveform_widget()->waveform_depth(), 64u);
        QCOMPARE(panel.waveform_widget()->waveform_scene()->sceneRect().width(), (64.0 + 10) * 15);
    }
};

int main(int argc, char** argv)
{
    HOST_APPLICATION app(argc, argv);
    TEST_WAVE_MUTATION test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_wave_mutation.moc"
