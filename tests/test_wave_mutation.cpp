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
    if (bytes.size() != 12 + 5 * std::uint64_t(dword_at(bytes, 4)))
        return CHECKS[3];
    return QString();
}

struct MUTANT {
    QString name;
    Bytes bytes;
};

// Every kind of damage, each with and without a signature that matches the damaged contents.
std::vector<MUTANT> mutants(const Bytes& good)
{
    std::vector<MUTANT> result;
    const auto add = [&](const QString& name, Bytes bytes) {
        result.push_back({name, bytes});
        result.push_back({name + ", signed", signed_bytes(bytes)});
    };
    for (std::size_t size : {0, 1, 4, 8, 11, 12, 13, 16, 17, 100, 333})
        add(QString("truncated to %1").arg(size), Bytes(good.begin(), good.begin() + size));
    for (std::size_t cut : {1, 4, 5, 6})
        add(QString("truncated by %1").arg(cut), Bytes(good.begin(), good.end() - cut));
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
    const std::pair<std::size_t, std::vector<std::uint32_t>> wrong_fields[] = {
        {0, {0u, 1u, 36u, 38u, 64u, 0xFFFFFFFFu}}, {4, {0u, 1u, 63u, 65u, 1000u, 0x33333334u, 0xFFFFFFFFu}}};
    for (const auto& field : wrong_fields)
        for (std::uint32_t value : field.second) {
            Bytes wrong = good;
            put_dword(wrong, field.first, value);
            add(QString(field.first ? "depth %1" : "width %1").arg(value), wrong);
        }
    return result;
}

// "Internal Error: TEXT (module PGMDQ, source S, line N)" as the host posts it -> TEXT.
QString internal_error_text(const QString& posted)
{
    const QString prefix("Internal Error: ");
    const int origin = posted.lastIndexOf(" (module PGMDQ, source pgmdq_debug_waveform_viewer, line ");
    if (!posted.startsWith(prefix) || origin < 0)
        return "unexpected message: " + posted;
    return posted.mid(prefix.size(), origin - prefix.size());
}

} // namespace

class TEST_WAVE_MUTATION : public QObject {
    Q_OBJECT

private slots:
    void every_damaged_file_opens_or_fails_its_check()
    {
        auto* host = qobject_cast<HOST_APPLICATION*>(qApp);
        QVERIFY(host);
        QTemporaryDir dir;
        PGMDQ_DEBUG_WAVEFORM_VIEWER panel;
        panel.show();
        MESSAGES messages(&panel);

        const QString good_path = dir.filePath("good.wvf");
        {
            PGMDQ_DEBUG_WAVEFORM_WIDGET widget;
            draw(widget, structured_trace(64, 9));
            widget.save_waveform(good_path.toStdString());
        }
        const Bytes good = read_bytes(good_path.toStdString());
        QCOMPARE(good.size(), std::size_t(12 + 5 * 64));

        int opened = 0;
        int refused = 0;
        QSet<QString> raised_checks;
        for (const MUTANT& mutant : mutants(good)) {
            const QString path = dir.filePath("mutant.wvf");
            write_bytes(path.toStdString(), mutant.bytes);
            const QString expected = first_failed_check(mutant.bytes);
            const int errors_before = host->internal_error_count();
            messages.texts.clear();

            TFCQ_FILE_DLG::preset_answer(path);
            QTest::mouseClick(button(&panel, "Open"), Qt::LeftButton);

            if (expected.isEmpty()) {
                QVERIFY2(host->internal_error_count() == errors_before, qPrintable(mutant.name));
                QCOMPARE(panel.waveform_widget()->waveform_depth(), dword_at(mutant.bytes, 4));
                ++opened;
                continue;
            }
            QVERIFY2(host->internal_error_count() == errors_before + 1, qPrintable(mutant.name));
            QVERIFY2(!messages.texts.isEmpty(), qPrintable(mutant.name));
            const QString raised = internal_error_text(messages.texts.last());
            QVERIFY2(raised == expected, qPrintable(mutant.name + ": " + raised + " instead of " + expected));
            raised_checks.insert(raised);
            QVERIFY(host->internal_error_dialog());
            QCOMPARE(host->internal_error_dialog()->windowTitle(), QString("Internal Error"));
            host->internal_error_dialog()->close();
            ++refused;
        }
        qInfo("%d files opened, %d refused", opened, refused);
        QVERIFY(opened >= 10);
        QVERIFY(refused >= 80);
        QCOMPARE(raised_checks.size(), CHECKS.size()); // every check was reached

        // The host kept running and the panel still works.
        QTest::qWait(20);
        TFCQ_FILE_DLG::preset_answer(good_path);
        QTest::mouseClick(button(&panel, "Open"), Qt::LeftButton);
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
