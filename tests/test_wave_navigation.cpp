// Zoom, pan, ruler, cursors, values and find of the waveform widget, driven as a user does (mouse,
// wheel and keys through QTest on a shown window) and checked by what is on screen: the ruler's
// labels and cursor flags, the values beside the names, the cursor lines over the waves, the
// names' alignment with their waves after a vertical scroll.
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

using namespace wave_test;

namespace {

unsigned signal_value(std::uint64_t sample, unsigned row)
{
    unsigned first_bit = 0;
    for (unsigned k = 0; k < row; ++k)
        first_bit += PGMDQ_SFL_DEBUG_SIGNALS[k].width;
    return unsigned(sample >> first_bit & ((1u << PGMDQ_SFL_DEBUG_SIGNALS[row].width) - 1));
}

// The samples at which a row's value differs from the sample before.
std::vector<unsigned> changes_of(const std::vector<std::uint64_t>& samples, unsigned row)
{
    std::vector<unsigned> changes;
    for (unsigned i = 1; i < samples.size(); ++i)
        if (signal_value(samples[i], row) != signal_value(samples[i - 1], row))
            changes.push_back(i);
    return changes;
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

// The global y of row `row`'s top as the names view, the wave view and the values column show it.
struct ROW_PLACES {
    int names;
    int waves;
    int values;
};

ROW_PLACES row_places(const PGMDQ_DEBUG_WAVEFORM_WIDGET& widget, unsigned row)
{
    const double top = PGMDQ_DEBUG_WAVE_GEOMETRY::row_top(row);
    const QGraphicsView* names = widget.text_view();
    const QGraphicsView* waves = widget.waveform_view();
    return {names->viewport()->mapToGlobal(names->mapFromScene(QPointF(0, top))).y(),
            waves->viewport()->mapToGlobal(waves->mapFromScene(QPointF(0, top))).y(),
            widget.values_column()->mapToGlobal(QPoint(0, int(std::lround(widget.values_column()->row_y(row))))).y()};
}

} // namespace

class TEST_WAVE_NAVIGATION : public QObject {
    Q_OBJECT
    std::unique_ptr<PGMDQ_DEBUG_WAVEFORM_WIDGET> m_widget;
    std::vector<std::uint64_t> m_samples;

    QGraphicsView* waves() const { return m_widget->waveform_view(); }
    QWidget* viewport() const { return waves()->viewport(); }
    int viewport_width() const { return viewport()->width(); }
    PGMDQ_DEBUG_WAVEFORM_RULER* ruler() const { return m_widget->ruler(); }

    void show_trace(std::size_t depth, int height = 640)
    {
        m_samples = structured_trace(depth, 11);
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

    // The ruler's labelled ticks are numbers in order, each at its own sample, far enough apart
    // for their text.
    void verify_ruler_legible() const
    {
        const QVector<PGMDQ_DEBUG_RULER_TICK> ticks = ruler()->ticks();
        const QFontMetrics metrics = ruler()->fontMetrics();
        double previous_x = -1e9;
        qint64 previous = -1;
        int labelled = 0;
        for (const PGMDQ_DEBUG_RULER_TICK& tick : ticks) {
            if (tick.label.isEmpty())
                continue;
            ++labelled;
            QCOMPARE(tick.label, QString::number(tick.sample));
            QVERIFY(qint64(tick.sample) > previous);
            QVERIFY2(tick.x - previous_x >= metrics.horizontalAdvance(tick.label) + 8,
                     qPrintable(QString("labels %1 and %2 overlap at zoom %3").arg(previous).arg(tick.label).arg(m_widget->zoom())));
            QVERIFY(std::abs(m_widget->sample_at(tick.x - ruler()->waves_left()) - tick.sample) < 0.51);
            previous_x = tick.x;
            previous = qint64(tick.sample);
        }
        QVERIFY2(labelled >= 2, qPrintable(QString("%1 labels at zoom %2, samples %3 to %4 in view, scroll %5 of %6")
                                               .arg(labelled)
                                               .arg(m_widget->zoom())
                                               .arg(m_widget->sample_at(0))
                                               .arg(m_widget->sample_at(viewport_width()))
                                               .arg(waves()->horizontalScrollBar()->value())
                                               .arg(waves()->horizontalScrollBar()->maximum())));
    }

    // Pixels of a colour in the column of the wave viewport where `sample` starts.
    int cursor_pixels(int sample, QRgb colour) const
    {
        const QImage image = viewport()->grab().toImage();
        const int x = int(std::floor(m_widget->viewport_x_of(sample)));
        int count = 0;
        for (int y = 0; y < image.height(); ++y)
            count += (image.pixel(x, y) & 0xFFFFFF) == colour;
        return count;
    }

private slots:
    void cleanup() { m_widget.reset(); }

    void ctrl_wheel_and_keys_zoom_around_the_mouse()
    {
        show_trace(4096);
        QCOMPARE(m_widget->zoom(), 1.0);
        QCOMPARE(ruler()->labels().mid(0, 3).join(" "), QString("0 5 10"));
        const QPoint mouse(300, 100);
        QTest::mouseMove(viewport(), mouse);
        const double under_mouse = m_widget->sample_at(mouse.x());

        wheel(viewport(), mouse, 240, Qt::ControlModifier);
        QCOMPARE(m_widget->zoom(), 2.0);
        QVERIFY(std::abs(m_widget->sample_at(mouse.x()) - under_mouse) < 0.05);
        const QStringList labels = ruler()->labels();
        QCOMPARE(labels[1].toInt() - labels[0].toInt(), 2);
        verify_ruler_legible();

        QTest::keyClick(waves(), Qt::Key_Plus);
        QCOMPARE(m_widget->zoom(), 4.0);
        QVERIFY(std::abs(m_widget->sample_at(mouse.x()) - under_mouse) < 0.05);
        QTest::keyClick(waves(), Qt::Key_Minus);
        QTest::keyClick(waves(), Qt::Key_Minus);
        QCOMPARE(m_widget->zoom(), 1.0);
        // Out, one notch at a time, in the middle of the trace (at its start the view cannot
        // move left of sample 0).
        QVERIFY(m_widget->go_to_sample("2000"));
        const double in_the_middle = m_widget->sample_at(mouse.x());
        wheel(viewport(), mouse, -120, Qt::ControlModifier);
        QVERIFY(std::abs(m_widget->zoom() - std::sqrt(0.5)) < 1e-9);
        QVERIFY(std::abs(m_widget->sample_at(mouse.x()) - in_the_middle) < 0.2);
        verify_ruler_legible();
    }

    // Fit shows the whole trace; from there in to 16 pixels a unit, the ruler stays legible.
    void fit_and_every_zoom_keep_the_ruler_legible()
    {
        show_trace(131072);
        QTest::keyClick(waves(), Qt::Key_F);
        QVERIFY(std::abs(m_widget->zoom() - viewport_width() / (131072.0 * 15)) < 1e-9);
        QVERIFY(std::abs(m_widget->sample_at(0)) < 0.5);
        QVERIFY(std::abs(m_widget->sample_at(viewport_width()) - 131072) < 0.5);
        QCOMPARE(ruler()->labels().first(), QString("0"));
        // Not further out than the whole trace, not further in than 16 pixels a unit.
        const double fit = m_widget->zoom();
        QTest::keyClick(waves(), Qt::Key_Minus);
        QCOMPARE(m_widget->zoom(), fit);
        for (;;) {
            verify_ruler_legible();
            const double zoom = m_widget->zoom();
            QTest::keyClick(waves(), Qt::Key_Plus);
            if (m_widget->zoom() == zoom)
                break;
        }
        QCOMPARE(m_widget->zoom(), 16.0);
        // Far into the trace the numbers are long; they still keep apart.
        QVERIFY(m_widget->go_to_sample("131071"));
        verify_ruler_legible();
        QVERIFY(!ruler()->labels().isEmpty() && ruler()->labels().last().toInt() > 131000);
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
        QCOMPARE(band_from, 200);
        QCOMPARE(band_to, 350);
        QTest::mouseRelease(ruler(), Qt::LeftButton, Qt::NoModifier, QPoint(left + 500, 8));
        QVERIFY(!m_widget->drag_band(&band_from, &band_to));
        QVERIFY(std::abs(m_widget->zoom() - viewport_width() / ((to - from) * 15)) < 1e-9);
        QVERIFY(std::abs(m_widget->sample_at(0) - from) < 0.1);
        QVERIFY(std::abs(m_widget->sample_at(viewport_width()) - to) < 0.1);
        verify_ruler_legible();
    }

    void wheel_arrows_and_middle_drag_pan()
    {
        show_trace(4096);
        const double pan = (viewport_width() / 8) / 15.0;
        wheel(viewport(), QPoint(400, 100), -120, Qt::NoModifier);
        QVERIFY(std::abs(m_widget->sample_at(0) - pan) < 0.01);
        QTest::keyClick(waves(), Qt::Key_Right);
        QVERIFY(std::abs(m_widget->sample_at(0) - 2 * pan) < 0.01);
        QTest::keyClick(waves(), Qt::Key_Left);
        QVERIFY(std::abs(m_widget->sample_at(0) - pan) < 0.01);
        QTest::keyClick(waves(), Qt::Key_Home);
        QCOMPARE(m_widget->sample_at(0), 0.0);

        QTest::mousePress(viewport(), Qt::MiddleButton, Qt::NoModifier, QPoint(500, 100));
        drag_to(viewport(), QPoint(350, 100), Qt::MiddleButton);
        drag_to(viewport(), QPoint(200, 100), Qt::MiddleButton);
        QTest::mouseRelease(viewport(), Qt::MiddleButton, Qt::NoModifier, QPoint(200, 100));
        QVERIFY(std::abs(m_widget->sample_at(0) - 300 / 15.0) < 0.01);
        QTest::keyClick(waves(), Qt::Key_End);
        QVERIFY(m_widget->sample_at(viewport_width()) > 4096);
        // The ruler follows: its first label is past the start.
        QVERIFY(ruler()->labels().first().toInt() > 4000);
    }

    void cursors_and_values_follow_the_clicks()
    {
        show_trace(1024);
        QCOMPARE(m_widget->primary_cursor(), 0);
        QCOMPARE(ruler()->cursor_texts(), QStringList{"A 0"});

        // A click in the middle of sample 20 on the "sdr" row.
        const int sdr_y = waves()->mapFromScene(QPointF(0, PGMDQ_DEBUG_WAVE_GEOMETRY::row_top(5) + 10)).y();
        QTest::mouseClick(viewport(), Qt::LeftButton, Qt::NoModifier, QPoint(20 * 15 + 7, sdr_y));
        QCOMPARE(m_widget->primary_cursor(), 20);
        QCOMPARE(m_widget->selected_row(), 5);
        QCOMPARE(m_widget->signal_combo()->currentText(), QString("sdr"));
        QStringList expected;
        for (unsigned row = 0; row < 15; ++row)
            expected << QString::number(signal_value(m_samples[20], row), 16).toUpper();
        QCOMPARE(m_widget->values_column()->texts(), expected);

        QTest::mouseClick(viewport(), Qt::LeftButton, Qt::ShiftModifier, QPoint(57 * 15 + 1, sdr_y));
        QCOMPARE(m_widget->secondary_cursor(), 57);
        QCOMPARE(m_widget->primary_cursor(), 20);
        QCOMPARE(ruler()->cursor_texts(), (QStringList{"A 20", "B 57", "Δ 37"}));
        QCOMPARE(m_widget->values_column()->texts(), expected);
        QCoreApplication::processEvents();
        QVERIFY(cursor_pixels(20, 0xFFFF00) > 100);
        QVERIFY(cursor_pixels(57, 0x00FFFF) > 100);

        // The primary cursor moves again; the values follow it.
        QTest::mouseClick(viewport(), Qt::LeftButton, Qt::NoModifier, QPoint(100 * 15 + 14, 10));
        QCOMPARE(m_widget->primary_cursor(), 100);
        QCOMPARE(ruler()->cursor_texts(), (QStringList{"A 100", "B 57", "Δ 43"}));
        for (unsigned row = 0; row < 15; ++row)
            QCOMPARE(m_widget->values_column()->texts()[int(row)],
                     QString::number(signal_value(m_samples[100], row), 16).toUpper());
        // A click on the ruler places the primary cursor too.
        QTest::mouseClick(ruler(), Qt::LeftButton, Qt::NoModifier, QPoint(ruler()->waves_left() + 30 * 15 + 3, 8));
        QCOMPARE(m_widget->primary_cursor(), 30);
    }

    void names_stay_beside_their_waves_after_a_vertical_scroll()
    {
        show_trace(1024, 340);
        QScrollBar* vertical = waves()->verticalScrollBar();
        QVERIFY2(vertical->maximum() > 100, qPrintable(QString::number(vertical->maximum())));
        const auto verify_aligned = [&](const char* how) {
            for (unsigned row = 0; row < 15; ++row) {
                const ROW_PLACES places = row_places(*m_widget, row);
                QVERIFY2(places.names == places.waves && places.values == places.waves,
                         qPrintable(QString("%1: row %2 names %3 waves %4 values %5")
                                        .arg(how)
                                        .arg(row)
                                        .arg(places.names)
                                        .arg(places.waves)
                                        .arg(places.values)));
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
        // At the end the last name is still beside its wave, both in view.
        const ROW_PLACES tdo = row_places(*m_widget, 14);
        const QPoint viewport_top = viewport()->mapToGlobal(QPoint(0, 0));
        QVERIFY(tdo.waves > viewport_top.y() && tdo.waves < viewport_top.y() + viewport()->height());
        // "tck" scrolled away from both.
        QVERIFY(row_places(*m_widget, 0).names < m_widget->text_view()->viewport()->mapToGlobal(QPoint(0, 0)).y());
    }

    void find_edges_values_and_sample_numbers()
    {
        show_trace(4096);
        // Select "sdr" by its name, then step through its edges with Ctrl+Right and Ctrl+Left.
        QGraphicsView* names = m_widget->text_view();
        QTest::mouseClick(names->viewport(), Qt::LeftButton, Qt::NoModifier,
                          names->mapFromScene(QPointF(10, PGMDQ_DEBUG_WAVE_GEOMETRY::row_top(5) + 10)));
        QCOMPARE(m_widget->selected_row(), 5);
        const std::vector<unsigned> sdr = changes_of(m_samples, 5);
        QVERIFY(sdr.size() > 4);
        waves()->setFocus();
        QTest::keyClick(waves(), Qt::Key_Right, Qt::ControlModifier);
        QCOMPARE(m_widget->primary_cursor(), int(sdr[0]));
        QTest::keyClick(waves(), Qt::Key_Right, Qt::ControlModifier);
        QCOMPARE(m_widget->primary_cursor(), int(sdr[1]));
        QCOMPARE(m_widget->values_column()->texts()[5], QString::number(signal_value(m_samples[sdr[1]], 5)));
        QTest::keyClick(waves(), Qt::Key_Left, Qt::ControlModifier);
        QCOMPARE(m_widget->primary_cursor(), int(sdr[0]));
        QTest::keyClick(waves(), Qt::Key_Left, Qt::ControlModifier);
        QCOMPARE(m_widget->primary_cursor(), int(sdr[0]));
        QVERIFY2(m_widget->status_text().startsWith("No edge of sdr before sample"), qPrintable(m_widget->status_text()));

        // A value of ir_in: the runs that hold it, found with Enter, F3 and Shift+F3.
        m_widget->select_row(3);
        const unsigned wanted = signal_value(m_samples[2000], 3);
        std::vector<unsigned> runs;
        for (unsigned i = 0; i < m_samples.size(); ++i)
            if (signal_value(m_samples[i], 3) == wanted && (i == 0 || signal_value(m_samples[i - 1], 3) != wanted))
                runs.push_back(i);
        QVERIFY(!runs.empty());
        m_widget->set_primary_cursor(0);
        QTest::keyClick(waves(), Qt::Key_F, Qt::ControlModifier);
        QVERIFY(m_widget->value_edit()->hasFocus());
        QTest::keyClicks(m_widget->value_edit(), QString::number(wanted, 16));
        QTest::keyClick(m_widget->value_edit(), Qt::Key_Return);
        QCOMPARE(m_widget->primary_cursor(), int(runs[0]));
        QCOMPARE(m_widget->values_column()->texts()[3], QString::number(wanted, 16).toUpper());
        const double x = m_widget->viewport_x_of(runs[0]);
        QVERIFY(x >= 0 && x < viewport_width());
        QTest::keyClick(waves(), Qt::Key_F3);
        if (runs.size() > 1)
            QCOMPARE(m_widget->primary_cursor(), int(runs[1]));
        else
            QVERIFY(m_widget->status_text().contains("does not hold"));
        QTest::keyClick(waves(), Qt::Key_F3, Qt::ShiftModifier);
        QCOMPARE(m_widget->primary_cursor(), int(runs[0]));
        m_widget->value_edit()->clear();
        QTest::keyClick(waves(), Qt::Key_F3);
        QVERIFY(m_widget->status_text().startsWith("Not a hexadecimal value"));
        QTest::keyClicks(m_widget->value_edit(), "FFFF");
        QTest::keyClick(waves(), Qt::Key_F3);
        QCOMPARE(m_widget->status_text(), QString("ir_in[11:0] cannot hold FFFF"));

        // A sample number, typed after Ctrl+G: the cursor goes there and into view.
        QTest::keyClick(waves(), Qt::Key_G, Qt::ControlModifier);
        QVERIFY(m_widget->sample_edit()->hasFocus());
        QTest::keyClicks(m_widget->sample_edit(), "3500");
        QTest::keyClick(m_widget->sample_edit(), Qt::Key_Return);
        QCOMPARE(m_widget->primary_cursor(), 3500);
        const double cursor_x = m_widget->viewport_x_of(3500);
        QVERIFY(cursor_x >= 0 && cursor_x < viewport_width());
        QVERIFY(ruler()->labels().contains("3500") || ruler()->cursor_texts().contains("A 3500"));
        m_widget->sample_edit()->clear();
        QTest::keyClicks(m_widget->sample_edit(), "4096");
        QTest::keyClick(m_widget->sample_edit(), Qt::Key_Return);
        QCOMPARE(m_widget->primary_cursor(), 3500);
        QCOMPARE(m_widget->status_text(), QString("No sample \"4096\": the trace holds samples 0 to 4095"));
    }
};

QTEST_MAIN(TEST_WAVE_NAVIGATION)
#include "test_wave_navigation.moc"
