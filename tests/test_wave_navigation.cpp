// Zoom, pan, ruler, cursors, values and find of the waveform widget, driven as a user does (mouse,
// wheel and keys through QTest on a shown window) and checked by what is on screen: the ruler's
// labels and cursor flags, the values beside the names, the cursor lines over the waves, the
// names' alignment with their waves after a vertical scroll, the status line.
#include "pgmdq_debug_waveform_viewer.h"

#include "wave/wave_test_trace.h"

#include <QApplication>
#include <QComboBox>
#include <QFontMetrics>
#include <QGraphicsView>
#include <QLineEdit>
#include <QScrollBar>
#include <QtTest>

#include <cmath>
#include <memory>
#include <tuple>

using namespace wave_test;

namespace {

// The values column as it should read at a sample: each signal's value in upper-case hexadecimal.
QStringList values_at(std::uint64_t sample)
{
    QStringList values;
    for (const PGMDQ_DEBUG_SIGNAL* signal = PGMDQ_SFL_DEBUG_SIGNALS; signal->width; sample >>= signal++->width)
        values << QString::number(sample & ((1u << signal->width) - 1), 16).toUpper();
    return values;
}

void wheel(QWidget* target, const QPoint& position, int delta, Qt::KeyboardModifiers modifiers)
{
    QWheelEvent event(position, target->mapToGlobal(position), QPoint(), QPoint(0, delta), Qt::NoButton, modifiers,
                      Qt::NoScrollPhase, false);
    QApplication::sendEvent(target, &event);
}

// A move of the mouse with `buttons` held, as the window system delivers it during a drag.
void drag_to(QWidget* target, const QPoint& position, Qt::MouseButtons buttons)
{
    QMouseEvent event(QEvent::MouseMove, position, target->mapToGlobal(position), Qt::NoButton, buttons, Qt::NoModifier);
    QApplication::sendEvent(target, &event);
}

#define VERIFY_NEAR(actual, expected, tolerance)                                                                     \
    QVERIFY2(std::abs((actual) - (expected)) < (tolerance), qPrintable(QString("%1, not %2").arg(actual).arg(expected)))

} // namespace

class TEST_WAVE_NAVIGATION : public QObject {
    Q_OBJECT
    std::unique_ptr<PGMDQ_DEBUG_WAVEFORM_WIDGET> m_widget;
    std::vector<std::uint64_t> m_samples;

    QGraphicsView* waves() const { return m_widget->waveform_view(); }
    QWidget* viewport() const { return waves()->viewport(); }
    int viewport_width() const { return viewport()->width(); }
    PGMDQ_DEBUG_WAVEFORM_RULER* ruler() const { return m_widget->ruler(); }
    // Viewport y of the middle of row `row`'s band, and the x of the middle of `sample`.
    int row_y(unsigned row) const { return waves()->mapFromScene(QPointF(0, PGMDQ_DEBUG_WAVE_GEOMETRY::row_top(row) + 10)).y(); }
    int sample_x(double sample) const { return int(m_widget->viewport_x_of(sample + 0.5)); }
    bool in_view(double sample) const { return sample_x(sample) >= 0 && sample_x(sample) < viewport_width(); }

    void show_trace(std::size_t depth, int height = 640) { show(structured_trace(depth, 11), height); }
    void show(const std::vector<std::uint64_t>& samples, int height = 640)
    {
        m_samples = samples;
        m_widget = std::make_unique<PGMDQ_DEBUG_WAVEFORM_WIDGET>();
        m_widget->resize(1100, height);
        m_widget->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_widget.get()));
        m_widget->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_widget.get()));
        draw(*m_widget, m_samples);
        QCoreApplication::processEvents();
        waves()->setFocus();
    }

    // At least two labelled ticks, each a number at its own sample, in order, far enough apart
    // for their text.
    void verify_ruler_legible() const
    {
        const QFontMetrics metrics = ruler()->fontMetrics();
        double previous_x = -1e9;
        qint64 previous = -1;
        int labelled = 0;
        for (const PGMDQ_DEBUG_RULER_TICK& tick : ruler()->ticks()) {
            if (tick.label.isEmpty())
                continue;
            ++labelled;
            QCOMPARE(tick.label, QString::number(tick.sample));
            QVERIFY(qint64(tick.sample) > previous);
            QVERIFY2(tick.x - previous_x >= metrics.horizontalAdvance(tick.label) + 8,
                     qPrintable(QString("%1 and %2 overlap at zoom %3").arg(previous).arg(tick.label).arg(m_widget->zoom())));
            VERIFY_NEAR(m_widget->sample_at(tick.x - ruler()->waves_left()), double(tick.sample), 0.51);
            previous_x = tick.x;
            previous = qint64(tick.sample);
        }
        QVERIFY2(labelled >= 2, qPrintable(QString("%1 labels at zoom %2").arg(labelled).arg(m_widget->zoom())));
    }

private slots:
    void cleanup() { m_widget.reset(); }

    void ctrl_wheel_and_keys_zoom_around_the_mouse()
    {
        show_trace(4096);
        QCOMPARE(m_widget->zoom(), 1.0);
        QCOMPARE(ruler()->labels().mid(0, 3), (QStringList{"0", "5", "10"}));
        const QPoint mouse(300, 100);
        QTest::mouseMove(viewport(), mouse);
        const double under_mouse = m_widget->sample_at(mouse.x());
        wheel(viewport(), mouse, 240, Qt::ControlModifier);
        QCOMPARE(m_widget->zoom(), 2.0);
        VERIFY_NEAR(m_widget->sample_at(mouse.x()), under_mouse, 0.05);
        QCOMPARE(ruler()->labels()[1].toInt() - ruler()->labels()[0].toInt(), 2);
        verify_ruler_legible();
        QTest::keyClick(waves(), Qt::Key_Plus);
        QCOMPARE(m_widget->zoom(), 4.0);
        VERIFY_NEAR(m_widget->sample_at(mouse.x()), under_mouse, 0.05);
        QTest::keyClick(waves(), Qt::Key_Minus);
        QTest::keyClick(waves(), Qt::Key_Minus);
        QCOMPARE(m_widget->zoom(), 1.0);
        // Out one notch in the middle of the trace (at its start the view cannot move left of 0).
        QVERIFY(m_widget->go_to_sample("2000"));
        const double in_the_middle = m_widget->sample_at(mouse.x());
        wheel(viewport(), mouse, -120, Qt::ControlModifier);
        VERIFY_NEAR(m_widget->zoom(), std::sqrt(0.5), 1e-9);
        VERIFY_NEAR(m_widget->sample_at(mouse.x()), in_the_middle, 0.2);
        verify_ruler_legible();
    }

    // Fit shows the whole trace and is the furthest out; from there in to 16 pixels a unit, the
    // ruler stays legible, far into the trace too where the numbers are long.
    void fit_and_every_zoom_keep_the_ruler_legible()
    {
        show_trace(131072);
        QTest::keyClick(waves(), Qt::Key_F);
        VERIFY_NEAR(m_widget->zoom(), viewport_width() / (131072.0 * 15), 1e-9);
        VERIFY_NEAR(m_widget->sample_at(0), 0.0, 0.5);
        VERIFY_NEAR(m_widget->sample_at(viewport_width()), 131072.0, 0.5);
        QCOMPARE(ruler()->labels().first(), QString("0"));
        const double fit = m_widget->zoom();
        QTest::keyClick(waves(), Qt::Key_Minus);
        QCOMPARE(m_widget->zoom(), fit);
        for (double zoom = 0; zoom != m_widget->zoom();) {
            verify_ruler_legible();
            zoom = m_widget->zoom();
            QTest::keyClick(waves(), Qt::Key_Plus);
        }
        QCOMPARE(m_widget->zoom(), 16.0);
        QVERIFY(m_widget->go_to_sample("131071"));
        verify_ruler_legible();
        QVERIFY(ruler()->labels().last().toInt() > 131000);
    }

    void dragging_on_the_ruler_zooms_to_the_range()
    {
        show_trace(4096);
        const int left = ruler()->waves_left();
        const double from = m_widget->sample_at(200);
        const double to = m_widget->sample_at(500);
        QTest::mousePress(ruler(), Qt::LeftButton, Qt::NoModifier, QPoint(left + 200, 8));
        drag_to(ruler(), QPoint(left + 350, 8), Qt::LeftButton);
        int band_from = 0;
        int band_to = 0;
        QVERIFY(m_widget->drag_band(&band_from, &band_to));
        QCOMPARE(QPoint(band_from, band_to), QPoint(200, 350));
        QTest::mouseRelease(ruler(), Qt::LeftButton, Qt::NoModifier, QPoint(left + 500, 8));
        QVERIFY(!m_widget->drag_band(&band_from, &band_to));
        VERIFY_NEAR(m_widget->zoom(), viewport_width() / ((to - from) * 15), 1e-9);
        VERIFY_NEAR(m_widget->sample_at(0), from, 0.1);
        VERIFY_NEAR(m_widget->sample_at(viewport_width()), to, 0.1);
        verify_ruler_legible();
    }

    void wheel_arrows_and_middle_drag_pan()
    {
        show_trace(4096);
        const double pan = (viewport_width() / 8) / 15.0;
        wheel(viewport(), QPoint(400, 100), -120, Qt::NoModifier);
        VERIFY_NEAR(m_widget->sample_at(0), pan, 0.01);
        QTest::keyClick(waves(), Qt::Key_Right);
        VERIFY_NEAR(m_widget->sample_at(0), 2 * pan, 0.01);
        QTest::keyClick(waves(), Qt::Key_Left);
        VERIFY_NEAR(m_widget->sample_at(0), pan, 0.01);
        QTest::keyClick(waves(), Qt::Key_Home);
        QCOMPARE(m_widget->sample_at(0), 0.0);
        QTest::mousePress(viewport(), Qt::MiddleButton, Qt::NoModifier, QPoint(500, 100));
        drag_to(viewport(), QPoint(350, 100), Qt::MiddleButton);
        drag_to(viewport(), QPoint(200, 100), Qt::MiddleButton);
        QTest::mouseRelease(viewport(), Qt::MiddleButton, Qt::NoModifier, QPoint(200, 100));
        VERIFY_NEAR(m_widget->sample_at(0), 300 / 15.0, 0.01);
        QTest::keyClick(waves(), Qt::Key_End);
        QVERIFY(m_widget->sample_at(viewport_width()) > 4096);
        QVERIFY(ruler()->labels().first().toInt() > 4000);
    }

    // A click places the primary cursor (A) and selects the row, Shift+click the secondary (B);
    // the ruler shows both and their distance, the values follow A. (Their lines over the waves
    // are the screenshot test's.)
    void cursors_and_values_follow_the_clicks()
    {
        show_trace(1024);
        QCOMPARE(m_widget->primary_cursor(), 0);
        QCOMPARE(ruler()->cursor_texts(), QStringList{"A 0"});
        QTest::mouseClick(viewport(), Qt::LeftButton, Qt::NoModifier, QPoint(sample_x(20), row_y(5)));
        QCOMPARE(m_widget->primary_cursor(), 20);
        QCOMPARE(m_widget->selected_row(), 5);
        QCOMPARE(m_widget->signal_combo()->currentText(), QString("sdr"));
        QCOMPARE(m_widget->values_column()->texts(), values_at(m_samples[20]));
        QTest::mouseClick(viewport(), Qt::LeftButton, Qt::ShiftModifier, QPoint(57 * 15 + 1, row_y(5)));
        QCOMPARE(m_widget->secondary_cursor(), 57);
        QCOMPARE(ruler()->cursor_texts(), (QStringList{"A 20", "B 57", "Δ 37"}));
        QCOMPARE(m_widget->values_column()->texts(), values_at(m_samples[20]));
        QTest::mouseClick(viewport(), Qt::LeftButton, Qt::NoModifier, QPoint(100 * 15 + 14, 10));
        QCOMPARE(ruler()->cursor_texts(), (QStringList{"A 100", "B 57", "Δ 43"}));
        QCOMPARE(m_widget->values_column()->texts(), values_at(m_samples[100]));
        // A click on the ruler places the primary cursor too.
        QTest::mouseClick(ruler(), Qt::LeftButton, Qt::NoModifier, QPoint(ruler()->waves_left() + 30 * 15 + 3, 8));
        QCOMPARE(m_widget->primary_cursor(), 30);
    }

    // The names, the waves and the values scroll together, whatever scrolls them.
    void names_stay_beside_their_waves_after_a_vertical_scroll()
    {
        show_trace(1024, 340);
        QScrollBar* vertical = waves()->verticalScrollBar();
        QVERIFY(vertical->maximum() > 100);
        // The global y of a row's top in the names view, the wave view and the values column.
        const auto places = [&](unsigned row) {
            const QPointF top(0, PGMDQ_DEBUG_WAVE_GEOMETRY::row_top(row));
            const QGraphicsView* names = m_widget->text_view();
            const PGMDQ_DEBUG_WAVEFORM_VALUES* values = m_widget->values_column();
            return QVector<int>{names->viewport()->mapToGlobal(names->mapFromScene(top)).y(),
                                viewport()->mapToGlobal(waves()->mapFromScene(top)).y(),
                                values->mapToGlobal(QPoint(0, int(std::lround(values->row_y(row))))).y()};
        };
        const auto verify_aligned = [&](const char* how) {
            for (unsigned row = 0; row < 15; ++row) {
                const QVector<int> y = places(row);
                QVERIFY2(y[0] == y[1] && y[2] == y[1], qPrintable(QString("%1: row %2 at %3, %4, %5")
                                                                      .arg(how).arg(row).arg(y[0]).arg(y[1]).arg(y[2])));
            }
        };
        verify_aligned("at the top");
        wheel(viewport(), QPoint(300, 100), -240, Qt::ShiftModifier);
        QCOMPARE(vertical->value(), 66);
        verify_aligned("Shift+wheel on the waves");
        QTest::keyClick(waves(), Qt::Key_Down);
        QCOMPARE(vertical->value(), 99);
        verify_aligned("Down key");
        wheel(m_widget->text_view()->viewport(), QPoint(40, 100), -480, Qt::NoModifier);
        QVERIFY(vertical->value() > 99);
        verify_aligned("wheel on the names");
        vertical->setValue(vertical->maximum());
        verify_aligned("scroll bar at the end");
        // At the end the last row is in view and the first above it.
        const int viewport_top = viewport()->mapToGlobal(QPoint(0, 0)).y();
        QVERIFY(places(14)[1] > viewport_top && places(14)[1] < viewport_top + viewport()->height());
        QVERIFY(places(0)[0] < viewport_top);
    }

    // sdr high over samples 100 to 109 and 3000 to 3004; ir_in ABC over 200 to 209 (ABD just
    // before) and 3600 to 3699.
    void find_edges_values_and_sample_numbers()
    {
        std::vector<std::uint64_t> samples(4096);
        for (const auto& [from, to, value] : {std::tuple(100, 110, bit(true, SDR)), std::tuple(3000, 3005, bit(true, SDR)),
                                              std::tuple(190, 200, std::uint64_t(0xABD) << IR_IN),
                                              std::tuple(200, 210, std::uint64_t(0xABC) << IR_IN),
                                              std::tuple(3600, 3700, std::uint64_t(0xABC) << IR_IN)})
            std::fill(samples.begin() + from, samples.begin() + to, value);
        show(samples);
        // Select "sdr" by its name, then step through its edges with Ctrl+Right and Ctrl+Left.
        QGraphicsView* names = m_widget->text_view();
        QTest::mouseClick(names->viewport(), Qt::LeftButton, Qt::NoModifier,
                          names->mapFromScene(QPointF(10, PGMDQ_DEBUG_WAVE_GEOMETRY::row_top(5) + 10)));
        QCOMPARE(m_widget->selected_row(), 5);
        waves()->setFocus();
        QTest::keyClick(waves(), Qt::Key_Right, Qt::ControlModifier);
        QCOMPARE(m_widget->primary_cursor(), 100);
        QTest::keyClick(waves(), Qt::Key_Right, Qt::ControlModifier);
        QCOMPARE(m_widget->primary_cursor(), 110);
        QCOMPARE(m_widget->values_column()->texts()[5], QString("0"));
        QTest::keyClick(waves(), Qt::Key_Left, Qt::ControlModifier);
        QTest::keyClick(waves(), Qt::Key_Left, Qt::ControlModifier);
        QCOMPARE(m_widget->primary_cursor(), 100);
        QCOMPARE(m_widget->status_text(), QString("No edge of sdr before sample 100"));

        // A value of ir_in, typed after Ctrl+F: Enter finds its first run, Shift+F3 from the sample
        // after its last run that run, F3 from there nothing.
        m_widget->select_row(3);
        m_widget->set_primary_cursor(0);
        QTest::keyClick(waves(), Qt::Key_F, Qt::ControlModifier);
        QVERIFY(m_widget->value_edit()->hasFocus());
        QTest::keyClicks(m_widget->value_edit(), "abc");
        QTest::keyClick(m_widget->value_edit(), Qt::Key_Return);
        QCOMPARE(m_widget->primary_cursor(), 200);
        QCOMPARE(m_widget->values_column()->texts()[3], QString("ABC"));
        QVERIFY(in_view(200));
        m_widget->set_primary_cursor(3700);
        QTest::keyClick(waves(), Qt::Key_F3, Qt::ShiftModifier);
        QCOMPARE(m_widget->primary_cursor(), 3600);
        QTest::keyClick(waves(), Qt::Key_F3);
        QCOMPARE(m_widget->primary_cursor(), 3600);
        QCOMPARE(m_widget->status_text(), QString("ir_in[11:0] does not hold ABC after sample 3600"));
        m_widget->value_edit()->clear();
        QTest::keyClick(waves(), Qt::Key_F3);
        QCOMPARE(m_widget->status_text(), QString("Not a hexadecimal value: \"\""));
        QTest::keyClicks(m_widget->value_edit(), "FFFF");
        QTest::keyClick(waves(), Qt::Key_F3);
        QCOMPARE(m_widget->status_text(), QString("ir_in[11:0] cannot hold FFFF"));

        // A sample number, typed after Ctrl+G: the cursor goes there and into view.
        QTest::keyClick(waves(), Qt::Key_G, Qt::ControlModifier);
        QVERIFY(m_widget->sample_edit()->hasFocus());
        QTest::keyClicks(m_widget->sample_edit(), "3500");
        QTest::keyClick(m_widget->sample_edit(), Qt::Key_Return);
        QCOMPARE(m_widget->primary_cursor(), 3500);
        QVERIFY(in_view(3500) && ruler()->cursor_texts().contains("A 3500"));
        m_widget->sample_edit()->clear();
        QTest::keyClicks(m_widget->sample_edit(), "4096");
        QTest::keyClick(m_widget->sample_edit(), Qt::Key_Return);
        QCOMPARE(m_widget->primary_cursor(), 3500);
        QCOMPARE(m_widget->status_text(), QString("No sample \"4096\": the trace holds samples 0 to 4095"));
    }
};

QTEST_MAIN(TEST_WAVE_NAVIGATION)
#include "test_wave_navigation.moc"
