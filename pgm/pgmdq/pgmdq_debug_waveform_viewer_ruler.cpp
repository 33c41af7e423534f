// The debug waveform viewer's time ruler (ticks, the cursors' flags and readout, ranges dragged to
// zoom) and the column of values at the primary cursor beside the names.
#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer.h"

#include <QFontMetrics>
#include <QGraphicsView>
#include <QMouseEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace {

using GEOMETRY = PGMDQ_DEBUG_WAVE_GEOMETRY;

const QColor RULER_BACKGROUND(32, 32, 32);
const QColor RULER_TEXT(220, 220, 220);
const QColor RULER_TICK(150, 150, 150);
// A drag shorter than this on the ruler is a click.
const int DRAG_THRESHOLD = 5;
// Pixels between two labelled ticks beyond the widest label.
const int RULER_LABEL_GAP = 16;

// The smallest of 1, 2, 5 times a power of ten that is at least `at_least` (at least 1).
std::uint64_t nice_interval(double at_least)
{
    if (!(at_least < 1e15))
        return std::uint64_t(1e15);
    std::uint64_t power = 1;
    for (;;) {
        for (std::uint64_t mantissa : {1, 2, 5})
            if (double(mantissa * power) >= at_least)
                return mantissa * power;
        power *= 10;
    }
}

} // namespace

// --- The ruler ---

PGMDQ_DEBUG_WAVEFORM_RULER::PGMDQ_DEBUG_WAVEFORM_RULER(PGMDQ_DEBUG_WAVEFORM_WIDGET* owner)
    : QWidget(owner), m_owner(owner)
{
    setMouseTracking(true);
    setToolTip(tr("Drag to zoom to a range; click to place the primary cursor, Shift+click the secondary"));
}

QSize PGMDQ_DEBUG_WAVEFORM_RULER::sizeHint() const
{
    return QSize(400, 2 * fontMetrics().height() + 8);
}

QSize PGMDQ_DEBUG_WAVEFORM_RULER::minimumSizeHint() const
{
    return QSize(0, sizeHint().height());
}

int PGMDQ_DEBUG_WAVEFORM_RULER::waves_left() const
{
    const QWidget* viewport = m_owner->waveform_view()->viewport();
    return mapFromGlobal(viewport->mapToGlobal(QPoint(0, 0))).x();
}

double PGMDQ_DEBUG_WAVEFORM_RULER::x_of(double sample) const
{
    return waves_left() + m_owner->viewport_x_of(sample);
}

QVector<PGMDQ_DEBUG_RULER_TICK> PGMDQ_DEBUG_WAVEFORM_RULER::ticks() const
{
    QVector<PGMDQ_DEBUG_RULER_TICK> ticks;
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = m_owner->shown_trace();
    if (!trace)
        return ticks;
    const double pixels_per_sample = trace->step() * m_owner->zoom();
    // Labelled ticks far enough apart for the widest number the trace has, and a gap.
    const int widest = fontMetrics().horizontalAdvance(QString::number(trace->depth())) + RULER_LABEL_GAP;
    const std::uint64_t interval = nice_interval(widest / pixels_per_sample);
    std::uint64_t minor = interval % 5 == 0 && interval >= 5 ? interval / 5 : (interval % 2 == 0 ? interval / 2 : 0);
    if (minor == 0 || minor * pixels_per_sample < 4)
        minor = interval;
    const int width = m_owner->waveform_view()->viewport()->width();
    const double first = std::max(0.0, std::floor(m_owner->sample_at(0)));
    const double last = std::min(double(trace->depth()), std::ceil(m_owner->sample_at(width)));
    for (std::uint64_t sample = std::uint64_t(std::ceil(first / minor)) * minor; double(sample) <= last;
         sample += minor)
        ticks.append({x_of(double(sample)), sample, sample % interval == 0 ? QString::number(sample) : QString()});
    return ticks;
}

QStringList PGMDQ_DEBUG_WAVEFORM_RULER::labels() const
{
    QStringList labels;
    for (const PGMDQ_DEBUG_RULER_TICK& tick : ticks())
        if (!tick.label.isEmpty())
            labels << tick.label;
    return labels;
}

QStringList PGMDQ_DEBUG_WAVEFORM_RULER::cursor_texts() const
{
    QStringList texts;
    if (!m_owner->shown_trace())
        return texts;
    const int primary = m_owner->primary_cursor();
    const int secondary = m_owner->secondary_cursor();
    if (primary >= 0)
        texts << tr("A %1").arg(primary);
    if (secondary >= 0)
        texts << tr("B %1").arg(secondary);
    if (primary >= 0 && secondary >= 0)
        texts << tr("Δ %1").arg(std::abs(secondary - primary));
    return texts;
}

// The cursors' texts, each kept on one line when the readout wraps.
QString PGMDQ_DEBUG_WAVEFORM_RULER::readout() const
{
    QStringList texts = cursor_texts();
    for (QString& text : texts)
        text.replace(' ', QChar::Nbsp);
    return texts.join("   ");
}

void PGMDQ_DEBUG_WAVEFORM_RULER::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), RULER_BACKGROUND);
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = m_owner->shown_trace();
    if (!trace)
        return;
    const QFontMetrics metrics = fontMetrics();
    const int line = metrics.height();
    const int left = waves_left();
    const int bottom = height() - 1;

    // Over the names and values: the cursors' sample numbers and their distance.
    painter.setPen(RULER_TEXT);
    painter.drawText(QRect(4, 2, left - 8, height() - 4), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextWordWrap,
                     readout());

    painter.setClipRect(QRect(left, 0, width() - left, height()));
    // Ticks: labelled ones across the ruler with the sample number right of them, the others short.
    for (const PGMDQ_DEBUG_RULER_TICK& tick : ticks()) {
        const double x = std::floor(tick.x) + 0.5;
        painter.setPen(RULER_TICK);
        if (tick.label.isEmpty()) {
            painter.drawLine(QPointF(x, bottom - 4), QPointF(x, bottom));
            continue;
        }
        painter.drawLine(QPointF(x, 2), QPointF(x, bottom));
        painter.setPen(RULER_TEXT);
        painter.drawText(QPointF(x + 3, 2 + metrics.ascent()), tick.label);
    }

    // The cursors' flags on the lower line, and the distance between them.
    const int flag_top = line + 4;
    const int primary = m_owner->primary_cursor();
    const int secondary = m_owner->secondary_cursor();
    const auto flag = [&](int sample, const QString& text, const QColor& colour) {
        const double x = std::floor(x_of(sample)) + 0.5;
        painter.setPen(colour);
        painter.drawLine(QPointF(x, flag_top), QPointF(x, bottom));
        const int text_width = metrics.horizontalAdvance(text);
        const double text_x = x + 3 + text_width > width() ? x - 3 - text_width : x + 3;
        painter.drawText(QPointF(text_x, flag_top + metrics.ascent()), text);
        return QRectF(std::min(x, text_x), flag_top, text_width + 3, line);
    };
    const QStringList texts = cursor_texts();
    QRectF primary_flag;
    QRectF secondary_flag;
    if (primary >= 0)
        primary_flag = flag(primary, texts.value(0), PGMDQ_DEBUG_PRIMARY_CURSOR_COLOR);
    if (secondary >= 0)
        secondary_flag = flag(secondary, texts.value(primary >= 0 ? 1 : 0), PGMDQ_DEBUG_SECONDARY_CURSOR_COLOR);
    if (primary >= 0 && secondary >= 0) {
        const double from = std::min(x_of(primary), x_of(secondary));
        const double to = std::max(x_of(primary), x_of(secondary));
        const QString distance = texts.value(2);
        const int distance_width = metrics.horizontalAdvance(distance);
        const double middle_y = flag_top + line / 2.0;
        painter.setPen(RULER_TEXT);
        painter.drawLine(QPointF(from, middle_y), QPointF(to, middle_y));
        // Between the flags when there is room, else beyond the later one.
        double x = (from + to - distance_width) / 2;
        const QRectF box(x - 2, flag_top, distance_width + 4, line);
        if (box.intersects(primary_flag) || box.intersects(secondary_flag))
            x = std::max(primary_flag.right(), secondary_flag.right()) + 6;
        painter.fillRect(QRectF(x - 2, flag_top, distance_width + 4, line), RULER_BACKGROUND);
        painter.drawText(QPointF(x, flag_top + metrics.ascent()), distance);
    }
    if (m_dragging && m_drag_from != m_drag_to)
        painter.fillRect(QRect(std::min(m_drag_from, m_drag_to), 0, std::abs(m_drag_to - m_drag_from), height()),
                         QColor(255, 255, 255, 64));
}

void PGMDQ_DEBUG_WAVEFORM_RULER::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton || event->pos().x() < waves_left() || !m_owner->shown_trace()) {
        QWidget::mousePressEvent(event);
        return;
    }
    m_dragging = true;
    m_drag_from = m_drag_to = event->pos().x();
    event->accept();
}

void PGMDQ_DEBUG_WAVEFORM_RULER::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_dragging)
        return;
    m_drag_to = std::max(event->pos().x(), waves_left());
    m_owner->set_drag_band(m_drag_from - waves_left(), m_drag_to - waves_left());
    update();
}

void PGMDQ_DEBUG_WAVEFORM_RULER::mouseReleaseEvent(QMouseEvent* event)
{
    if (!m_dragging || event->button() != Qt::LeftButton)
        return;
    m_dragging = false;
    m_drag_to = std::max(event->pos().x(), waves_left());
    m_owner->set_drag_band(0, 0);
    const int left = waves_left();
    if (std::abs(m_drag_to - m_drag_from) >= DRAG_THRESHOLD) {
        m_owner->zoom_to_samples(m_owner->sample_at(m_drag_from - left), m_owner->sample_at(m_drag_to - left));
    } else {
        const std::uint32_t sample = std::uint32_t(std::max(0.0, std::floor(m_owner->sample_at(m_drag_from - left))));
        if (event->modifiers() & Qt::ShiftModifier)
            m_owner->set_secondary_cursor(sample);
        else
            m_owner->set_primary_cursor(sample);
    }
    update();
}

// --- The values column ---

PGMDQ_DEBUG_WAVEFORM_VALUES::PGMDQ_DEBUG_WAVEFORM_VALUES(PGMDQ_DEBUG_WAVEFORM_WIDGET* owner)
    : QWidget(owner), m_owner(owner)
{
    setToolTip(tr("Each signal's value at the primary cursor"));
}

void PGMDQ_DEBUG_WAVEFORM_VALUES::fit_width()
{
    unsigned digits = 3;
    if (const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = m_owner->shown_trace())
        for (unsigned row = 0; row < trace->row_count(); ++row)
            digits = std::max(digits, (trace->row(row).width + 3) / 4);
    setFixedWidth(fontMetrics().horizontalAdvance(QString(int(digits), QChar('F'))) + 2 * int(GEOMETRY::LABEL_MARGIN) + 8);
}

QStringList PGMDQ_DEBUG_WAVEFORM_VALUES::texts() const
{
    QStringList texts;
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = m_owner->shown_trace();
    const int cursor = m_owner->primary_cursor();
    if (!trace)
        return texts;
    for (unsigned row = 0; row < trace->row_count(); ++row)
        texts << (cursor >= 0 && std::uint32_t(cursor) < trace->depth() ? trace->value_text(row, std::uint32_t(cursor))
                                                                          : QString());
    return texts;
}

double PGMDQ_DEBUG_WAVEFORM_VALUES::row_y(unsigned row) const
{
    const QGraphicsView* names = m_owner->text_view();
    const QPointF in_viewport = names->viewportTransform().map(QPointF(0, GEOMETRY::row_top(row)));
    const QPoint viewport_origin = mapFromGlobal(names->viewport()->mapToGlobal(QPoint(0, 0)));
    return viewport_origin.y() + in_viewport.y();
}

void PGMDQ_DEBUG_WAVEFORM_VALUES::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), PGMDQ_DEBUG_BG_COLOR);
    const QStringList values = texts();
    const QFontMetricsF metrics(font());
    // Only the part beside the names' viewport: rows scrolled away are not shown.
    const QGraphicsView* names = m_owner->text_view();
    const QPoint viewport_origin = mapFromGlobal(names->viewport()->mapToGlobal(QPoint(0, 0)));
    painter.setClipRect(QRect(0, viewport_origin.y(), width(), names->viewport()->height()));
    const int selected = m_owner->selected_row();
    for (int row = 0; row < values.size(); ++row) {
        const double top = row_y(unsigned(row));
        if (row == selected)
            painter.fillRect(QRectF(0, top - GEOMETRY::ROW_EXTRA_OFFSET, width(),
                                    GEOMETRY::ROW_PITCH + GEOMETRY::ROW_EXTRA_OFFSET),
                             PGMDQ_DEBUG_SELECTED_ROW_COLOR);
        painter.setPen(pgmdq_debug_row_colour(unsigned(row)));
        painter.drawText(QPointF(GEOMETRY::LABEL_MARGIN, top + GEOMETRY::LABEL_MARGIN + metrics.ascent()), values[row]);
    }
}

// A click beside a name selects that signal, as a click on the name does.
void PGMDQ_DEBUG_WAVEFORM_VALUES::mousePressEvent(QMouseEvent* event)
{
    for (unsigned row = 0; m_owner->shown_trace() && row < m_owner->shown_trace()->row_count(); ++row) {
        const double top = row_y(row) - GEOMETRY::ROW_EXTRA_OFFSET;
        if (event->pos().y() >= top && event->pos().y() < top + GEOMETRY::ROW_PITCH + GEOMETRY::ROW_EXTRA_OFFSET) {
            m_owner->select_row(int(row));
            break;
        }
    }
    event->accept();
}
