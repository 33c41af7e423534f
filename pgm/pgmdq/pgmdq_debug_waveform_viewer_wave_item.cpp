// The debug waveform viewer's wave items: one per row of a drawn trace, painting only the
// samples in view (see pgmdq_debug_waveform_viewer_drawing.h).
#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer_drawing.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPen>
#include <QStyleOptionGraphicsItem>
#include <QVector>

#include <algorithm>
#include <cmath>

namespace {

using GEOMETRY = PGMDQ_DEBUG_WAVE_GEOMETRY;

// No label is narrower than this (one digit inside the text margins): shorter runs are passed
// over without measuring.
const double NARROWEST_LABEL = 2 * GEOMETRY::LABEL_MARGIN;

// A polyline stroked as a path: the classic drawing strokes paths, and a thin pen rounds the ends of a path's
// lines the same way only when they are drawn as a path.
void draw_polyline(QPainter* painter, const QVector<QPointF>& points)
{
    QPainterPath path(points.first());
    for (int i = 1; i < points.size(); ++i)
        path.lineTo(points[i]);
    painter->drawPath(path);
}

// One-pixel lines in the row's colour, whatever the zoom.
QPen wave_pen(const QColor& colour)
{
    QPen pen(colour, 0);
    pen.setCosmetic(true);
    return pen;
}

} // namespace

// --- A row's item ---

// The painter's device as the item sees it: x of a sample boundary, y of an item coordinate.
struct PGMDQ_DEBUG_WAVE_ITEM::DEVICE {
    double dx, sx, dy, sy;
    // Device pixels per sample.
    double pixels_per_sample;

    double x(double sample) const { return dx + sample * pixels_per_sample; }
    double y(double item_y) const { return dy + sy * item_y; }

    // The end (exclusive) of the changes, from `k` on, that fall in the same device pixel column
    // as changes[k]: drawn as one stroke.
    std::size_t column_end(const std::vector<std::uint32_t>& changes, std::size_t k) const
    {
        const std::size_t count = changes.size();
        if (k + 1 >= count)
            return k + 1;
        const double column_right = std::floor(x(changes[k])) + 1;
        if (x(changes[k + 1]) >= column_right)
            return k + 1;
        // The last sample whose boundary lies left of the next column.
        const double last = std::ceil((column_right - dx) / pixels_per_sample) - 1;
        const std::uint32_t last_sample =
            last >= double(UINT32_MAX) ? UINT32_MAX : std::max(std::uint32_t(std::max(last, 0.0)), changes[k + 1]);
        return std::size_t(std::upper_bound(changes.begin() + std::ptrdiff_t(k) + 1, changes.end(), last_sample) -
                           changes.begin());
    }
};

PGMDQ_DEBUG_WAVE_ITEM::PGMDQ_DEBUG_WAVE_ITEM(std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace, unsigned row,
                                             const QColor& colour)
    : m_trace(std::move(trace)), m_row(row), m_colour(colour)
{
    // Painting needs the exposed part to read only the samples in view.
    setFlag(QGraphicsItem::ItemUsesExtendedStyleOption);
}

QRectF PGMDQ_DEBUG_WAVE_ITEM::boundingRect() const
{
    const double height = is_bus() ? GEOMETRY::BUS_LOWER_RAIL_Y : GEOMETRY::LINE_LOW_Y;
    return QRectF(-2, -2, m_trace->depth() * m_trace->step() + 4, height + 4);
}

double PGMDQ_DEBUG_WAVE_ITEM::label_width(const QString& text) const
{
    if (auto* waves = qobject_cast<PGMDQ_DEBUG_WAVEFORM_SCENE*>(scene()))
        return waves->label_width(text);
    return QGraphicsTextItem(text).boundingRect().width();
}

QList<QPainterPath> PGMDQ_DEBUG_WAVE_ITEM::paths() const
{
    const PGMDQ_DEBUG_DRAWN_TRACE& trace = *m_trace;
    const std::vector<std::uint32_t>& changes = trace.row(m_row).changes;
    const double step = trace.step();
    const double end = trace.depth() * step;
    if (trace.depth() == 0)
        return {};
    if (!is_bus()) {
        // A run of equal samples is one horizontal line; each change a vertical line.
        double y = (trace.value(m_row, 0) & 1) ? 0 : GEOMETRY::LINE_LOW_Y;
        QPainterPath wave(QPointF(0, y));
        for (std::uint32_t change : changes) {
            wave.lineTo(change * step, y);
            y = std::abs(y - GEOMETRY::LINE_LOW_Y);
            wave.lineTo(change * step, y);
        }
        wave.lineTo(end, y);
        return {wave};
    }
    const double half = GEOMETRY::BUS_CROSSING_HALF_WIDTH;
    double upper_y = 0;
    double lower_y = GEOMETRY::BUS_LOWER_RAIL_Y;
    QPainterPath upper_rail(QPointF(0, upper_y));
    QPainterPath lower_rail(QPointF(0, lower_y));
    for (std::uint32_t change : changes) {
        const double boundary = change * step;
        upper_rail.lineTo(boundary - half, upper_y);
        lower_rail.lineTo(boundary - half, lower_y);
        upper_y = std::abs(upper_y - GEOMETRY::BUS_LOWER_RAIL_Y);
        lower_y = std::abs(lower_y - GEOMETRY::BUS_LOWER_RAIL_Y);
        upper_rail.lineTo(boundary + half, upper_y);
        lower_rail.lineTo(boundary + half, lower_y);
    }
    upper_rail.lineTo(end - half, upper_y);
    lower_rail.lineTo(end - half, lower_y);
    return {upper_rail, lower_rail};
}

QList<PGMDQ_DEBUG_BUS_LABEL> PGMDQ_DEBUG_WAVE_ITEM::labels() const
{
    QList<PGMDQ_DEBUG_BUS_LABEL> labels;
    const PGMDQ_DEBUG_DRAWN_TRACE& trace = *m_trace;
    if (!is_bus() || trace.depth() == 0)
        return labels;
    const std::vector<std::uint32_t>& changes = trace.row(m_row).changes;
    const double step = trace.step();
    std::uint32_t start = 0;
    for (std::size_t k = 0; k <= changes.size(); ++k) {
        const std::uint32_t end = k < changes.size() ? changes[k] : trace.depth();
        const QString text = trace.value_text(m_row, start);
        const double width = label_width(text);
        const double length = (end - start) * step;
        if (length > width)
            labels.append({text, QPointF(start * step + (length - width) / 2 + 0.5, 0), width});
        start = end;
    }
    return labels;
}

void PGMDQ_DEBUG_WAVE_ITEM::paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget*)
{
    const PGMDQ_DEBUG_DRAWN_TRACE& trace = *m_trace;
    if (trace.depth() == 0)
        return;
    const QTransform world = painter->worldTransform();
    if (world.type() > QTransform::TxScale) {
        // Not a view of this viewer (rotated or sheared): the classic paths and labels as they are.
        painter->setPen(wave_pen(m_colour));
        for (const PGMDQ_DEBUG_BUS_LABEL& label : labels()) {
            painter->save();
            painter->setPen(PGMDQ_DEBUG_COLOR1);
            const QPointF text_origin = label.position + QPointF(GEOMETRY::LABEL_MARGIN, GEOMETRY::LABEL_MARGIN);
            painter->drawText(text_origin + QPointF(0, QFontMetricsF(painter->font()).ascent()), label.text);
            painter->restore();
        }
        for (const QPainterPath& path : paths())
            painter->drawPath(path);
        return;
    }
    const double step = trace.step();
    const DEVICE device{world.dx(), world.m11(), world.dy(), world.m22(), step * world.m11()};
    if (device.pixels_per_sample <= 0)
        return;
    // The samples under the exposed part, one to spare on each side.
    const QRectF exposed = option ? option->exposedRect : boundingRect();
    const double last_sample = double(trace.depth()) - 1;
    const double first = std::min(std::max(std::floor(exposed.left() / step) - 1, 0.0), last_sample);
    const double last = std::min(std::max(std::ceil(exposed.right() / step) + 1, 0.0), last_sample);

    painter->save();
    painter->resetTransform();
    painter->setPen(wave_pen(m_colour));
    if (is_bus())
        paint_bus(painter, device, std::uint32_t(first), std::uint32_t(last));
    else
        paint_line(painter, device, std::uint32_t(first), std::uint32_t(last));
    painter->restore();
}

// Zoomed out, pixel columns in which a row changes more than once: a run of neighbouring such
// columns is one solid band between the row's levels, which is what a stroke per column gives.
class PGMDQ_DEBUG_DENSE_COLUMNS {
public:
    void add(int column)
    {
        if (column == m_last + 1 || column == m_last) {
            m_last = column;
            return;
        }
        flush();
        m_first = m_last = column;
    }
    void flush()
    {
        if (m_first <= m_last)
            m_runs.append({m_first, m_last});
        m_first = 0;
        m_last = -2;
    }
    void fill(QPainter* painter, const QColor& colour, double top_y, double bottom_y)
    {
        flush();
        const int top = int(std::floor(top_y));
        const int height = int(std::floor(bottom_y)) - top + 1;
        for (const auto& run : m_runs)
            painter->fillRect(QRect(run.first, top, run.second - run.first + 1, height), colour);
    }

private:
    int m_first = 0;
    int m_last = -2;
    QVector<QPair<int, int>> m_runs;
};

// The square wave over samples `first` to `last`, in device coordinates: level 0 high, 20
// low, a vertical line at each change. From one sample per pixel up it is the classic path point
// for point; further out a pixel column with several changes is one full stroke.
void PGMDQ_DEBUG_WAVE_ITEM::paint_line(QPainter* painter, const DEVICE& device, std::uint32_t first,
                                       std::uint32_t last) const
{
    const PGMDQ_DEBUG_DRAWN_TRACE& trace = *m_trace;
    const std::vector<std::uint32_t>& changes = trace.row(m_row).changes;
    const double high_y = device.y(0);
    const double low_y = device.y(GEOMETRY::LINE_LOW_Y);
    const std::uint32_t end = std::min(last + 1, trace.depth());
    std::size_t k = std::size_t(std::upper_bound(changes.begin(), changes.end(), first) - changes.begin());
    bool high = (trace.value(m_row, first) & 1) != 0;

    if (device.pixels_per_sample >= 1) {
        QVector<QPointF> points;
        points.reserve(int(end - first) + 2 * int(std::min<std::size_t>(changes.size() - k, end - first)) + 1);
        points.append(QPointF(device.x(first), high ? high_y : low_y));
        for (std::uint32_t i = first; i < end; ++i) {
            if (i > first && k < changes.size() && changes[k] == i) {
                high = !high;
                points.append(QPointF(device.x(i), high ? high_y : low_y));
                ++k;
            }
            points.append(QPointF(device.x(i + 1), high ? high_y : low_y));
        }
        draw_polyline(painter, points);
        return;
    }

    QVector<QLineF> lines;
    PGMDQ_DEBUG_DENSE_COLUMNS dense;
    double from_x = device.x(first);
    while (k < changes.size() && changes[k] <= last) {
        const std::size_t column_end = device.column_end(changes, k);
        const double x = device.x(changes[k]);
        const double y = high ? high_y : low_y;
        lines.append(QLineF(from_x, y, x, y));
        const bool after = (trace.value(m_row, changes[column_end - 1]) & 1) != 0;
        if (column_end - k == 1)
            lines.append(QLineF(x, y, x, after ? high_y : low_y));
        else
            dense.add(int(std::floor(x)));
        high = after;
        from_x = x;
        k = column_end;
    }
    const double y = high ? high_y : low_y;
    lines.append(QLineF(from_x, y, device.x(end), y));
    painter->drawLines(lines);
    dense.fill(painter, m_colour, high_y, low_y);
}

// The bus over samples `first` to `last`, in device coordinates: two rails at 0 and 26
// crossing in an X three scene units wide at each change, and each run's value centred in it
// where it fits (the text at its own size, whatever the zoom). From one sample per pixel up the
// rails are the classic paths point for point; further out a pixel column with several changes is
// one full stroke.
void PGMDQ_DEBUG_WAVE_ITEM::paint_bus(QPainter* painter, const DEVICE& device, std::uint32_t first,
                                      std::uint32_t last) const
{
    const PGMDQ_DEBUG_DRAWN_TRACE& trace = *m_trace;
    const std::vector<std::uint32_t>& changes = trace.row(m_row).changes;
    const double half = GEOMETRY::BUS_CROSSING_HALF_WIDTH * device.sx;
    const double top_y = device.y(0);
    const double bottom_y = device.y(GEOMETRY::BUS_LOWER_RAIL_Y);
    double upper_y = top_y;
    double lower_y = bottom_y;
    std::size_t k = std::size_t(std::upper_bound(changes.begin(), changes.end(), first) - changes.begin());
    const bool zoomed_in = device.pixels_per_sample >= 1;

    QVector<QPointF> upper;
    QVector<QPointF> lower;
    QVector<QLineF> crossings;
    PGMDQ_DEBUG_DENSE_COLUMNS dense;
    if (zoomed_in) {
        const int expected = int(std::min<std::size_t>(changes.size() - k, last - first + 1)) * 3 + 2;
        upper.reserve(expected);
        lower.reserve(expected);
        upper.append(QPointF(device.x(first), upper_y));
        lower.append(QPointF(device.x(first), lower_y));
    }

    struct TEXT {
        QPointF baseline;
        QString text;
    };
    QVector<TEXT> texts;
    const QFont font = scene() ? scene()->font() : QFont();
    const double ascent = QFontMetricsF(font).ascent();
    const double text_y = device.y(GEOMETRY::LABEL_MARGIN) + ascent;
    const auto label = [&](std::uint32_t start, std::uint32_t end) {
        const double length = (end - start) * device.pixels_per_sample;
        if (length <= NARROWEST_LABEL)
            return;
        const QString text = trace.value_text(m_row, start);
        const double width = label_width(text);
        if (length > width)
            texts.append({QPointF(device.x(start) + (length - width) / 2 + 0.5 + GEOMETRY::LABEL_MARGIN, text_y), text});
    };

    std::uint32_t run_start = k > 0 ? changes[k - 1] : 0;
    while (k < changes.size() && changes[k] <= last) {
        const std::size_t column_end = device.column_end(changes, k);
        const double x = device.x(changes[k]);
        label(run_start, changes[k]);
        if (zoomed_in) {
            upper.append(QPointF(x - half, upper_y));
            lower.append(QPointF(x - half, lower_y));
            upper.append(QPointF(x + half, lower_y));
            lower.append(QPointF(x + half, upper_y));
            std::swap(upper_y, lower_y);
        } else if (column_end - k == 1) {
            crossings.append(QLineF(x - half, top_y, x + half, bottom_y));
            crossings.append(QLineF(x - half, bottom_y, x + half, top_y));
        } else {
            dense.add(int(std::floor(x)));
        }
        run_start = changes[column_end - 1];
        k = column_end;
    }
    label(run_start, k < changes.size() ? changes[k] : trace.depth());
    const double end = last + 1 >= trace.depth() ? device.x(trace.depth()) - half : device.x(last + 1);

    // Labels first: the rails are drawn over them.
    if (!texts.isEmpty()) {
        painter->save();
        painter->setFont(font);
        painter->setPen(PGMDQ_DEBUG_COLOR1);
        for (const TEXT& text : texts)
            painter->drawText(text.baseline, text.text);
        painter->restore();
    }
    if (zoomed_in) {
        upper.append(QPointF(end, upper_y));
        lower.append(QPointF(end, lower_y));
        draw_polyline(painter, upper);
        draw_polyline(painter, lower);
        return;
    }
    // Zoomed out the two rails run at both levels all along; only the crossings mark the changes.
    crossings.append(QLineF(device.x(first), top_y, end, top_y));
    crossings.append(QLineF(device.x(first), bottom_y, end, bottom_y));
    painter->drawLines(crossings);
    dense.fill(painter, m_colour, top_y, bottom_y);
}
