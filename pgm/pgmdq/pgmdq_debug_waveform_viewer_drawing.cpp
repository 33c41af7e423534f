// The debug waveform viewer's drawing: the names scene, the waves scene and its wave
// items, and the widget's drawing of a trace.
#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer.h"
#include "pgmdq_debug_waveform_viewer_errors.h"

#include "thr.h"

#include <QFontMetricsF>
#include <QGraphicsTextItem>
#include <QPainter>
#include <QPen>
#include <QStyleOptionGraphicsItem>
#include <QVector>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

namespace {

using GEOMETRY = PGMDQ_DEBUG_WAVE_GEOMETRY;

// Samples handled between two turns of the event loop while a long trace is prepared.
const std::uint32_t SAMPLES_PER_TURN = 1 << 16;
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

const QColor& row_colour(unsigned row)
{
    return row % 2 == 0 ? PGMDQ_DEBUG_COLOR2 : PGMDQ_DEBUG_COLOR1;
}

// One-pixel lines in the row's colour, whatever the zoom.
QPen wave_pen(const QColor& colour)
{
    QPen pen(colour, 0);
    pen.setCosmetic(true);
    return pen;
}

std::uint64_t field_mask(unsigned first_bit, unsigned width)
{
    if (first_bit >= 64)
        return 0;
    const std::uint64_t bits = width >= 64 ? ~std::uint64_t(0) : (std::uint64_t(1) << width) - 1;
    return bits << first_bit;
}

std::uint64_t packed_sample(const unsigned char* sample, unsigned bytes)
{
    std::uint64_t value = 0;
    for (unsigned byte = bytes; byte-- > 0;)
        value = value << 8 | sample[byte];
    return value;
}

} // namespace

// --- The drawn trace ---

PGMDQ_DEBUG_WAVE_TRACE::PGMDQ_DEBUG_WAVE_TRACE(std::shared_ptr<const PGMDQ_SAMPLE_BUFFERS> samples,
                                               const PGMDQ_DEBUG_SIGNAL* table, double step)
    : m_samples(std::move(samples)), m_depth(m_samples->depth()), m_sample_bytes(m_samples->sample_bytes()),
      m_step(step)
{
    unsigned first_bit = 0;
    for (const PGMDQ_DEBUG_SIGNAL* signal = table; signal->width > 0; first_bit += signal->width, ++signal)
        m_rows.push_back({signal->name, first_bit, signal->width, {}});
    if (m_depth == 0 || m_sample_bytes == 0)
        return;

    // Where each row changes. Samples of up to 64 bits are compared whole first: a sample equal
    // to the one before changes no row.
    if (m_sample_bytes <= 8) {
        std::vector<std::uint64_t> masks;
        for (const ROW& row : m_rows)
            masks.push_back(field_mask(row.first_bit, row.width));
        std::uint64_t previous = packed_sample(m_samples->sample(0), m_sample_bytes);
        for (std::uint32_t i = 1; i < m_depth; ++i) {
            if (i % SAMPLES_PER_TURN == 0)
                thr_process_events();
            const std::uint64_t sample = packed_sample(m_samples->sample(i), m_sample_bytes);
            const std::uint64_t changed = sample ^ previous;
            previous = sample;
            if (!changed)
                continue;
            for (std::size_t row = 0; row < m_rows.size(); ++row)
                if (changed & masks[row])
                    m_rows[row].changes.push_back(i);
        }
    } else {
        for (unsigned row = 0; row < m_rows.size(); ++row) {
            std::uint32_t previous = value(row, 0);
            for (std::uint32_t i = 1; i < m_depth; ++i) {
                if (i % SAMPLES_PER_TURN == 0)
                    thr_process_events();
                const std::uint32_t current = value(row, i);
                if (current != previous)
                    m_rows[row].changes.push_back(i);
                previous = current;
            }
        }
    }
    for (ROW& row : m_rows)
        row.changes.shrink_to_fit();
}

QString PGMDQ_DEBUG_WAVE_TRACE::value_text(unsigned row, std::uint32_t sample) const
{
    return QString::number(value(row, sample), 16).toUpper();
}

std::uint32_t PGMDQ_DEBUG_WAVE_TRACE::segment_start(unsigned row, std::uint32_t sample) const
{
    const std::vector<std::uint32_t>& changes = m_rows[row].changes;
    const auto after = std::upper_bound(changes.begin(), changes.end(), sample);
    return after == changes.begin() ? 0 : *(after - 1);
}

std::uint32_t PGMDQ_DEBUG_WAVE_TRACE::segment_end(unsigned row, std::uint32_t sample) const
{
    const std::vector<std::uint32_t>& changes = m_rows[row].changes;
    const auto after = std::upper_bound(changes.begin(), changes.end(), sample);
    return after == changes.end() ? m_depth : *after;
}

bool PGMDQ_DEBUG_WAVE_TRACE::next_change(unsigned row, std::uint32_t sample, std::uint32_t* found) const
{
    const std::vector<std::uint32_t>& changes = m_rows[row].changes;
    const auto after = std::upper_bound(changes.begin(), changes.end(), sample);
    if (after == changes.end())
        return false;
    *found = *after;
    return true;
}

bool PGMDQ_DEBUG_WAVE_TRACE::previous_change(unsigned row, std::uint32_t sample, std::uint32_t* found) const
{
    const std::vector<std::uint32_t>& changes = m_rows[row].changes;
    const auto at_or_after = std::lower_bound(changes.begin(), changes.end(), sample);
    if (at_or_after == changes.begin())
        return false;
    *found = *(at_or_after - 1);
    return true;
}

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

PGMDQ_DEBUG_WAVE_ITEM::PGMDQ_DEBUG_WAVE_ITEM(std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace, unsigned row,
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
    const PGMDQ_DEBUG_WAVE_TRACE& trace = *m_trace;
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
    const PGMDQ_DEBUG_WAVE_TRACE& trace = *m_trace;
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
    const PGMDQ_DEBUG_WAVE_TRACE& trace = *m_trace;
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
    const PGMDQ_DEBUG_WAVE_TRACE& trace = *m_trace;
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
    const PGMDQ_DEBUG_WAVE_TRACE& trace = *m_trace;
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

// --- The scenes ---

PGMDQ_DEBUG_TEXT_SCENE::PGMDQ_DEBUG_TEXT_SCENE(QObject* parent) : QGraphicsScene(parent)
{
    setBackgroundBrush(PGMDQ_DEBUG_BG_COLOR);
}

void PGMDQ_DEBUG_TEXT_SCENE::draw_text(const PGMDQ_DEBUG_SIGNAL* debug_signals)
{
    clear();
    m_offset = 0;
    double widest = 0;
    unsigned index = 0;
    for (; !debug_signals[index].name.empty(); ++index) {
        PGMDQ_WAVE_ASSERT(debug_signals[index].width > 0);
        const PGMDQ_DEBUG_SIGNAL& signal = debug_signals[index];
        const QString label = signal.width == 1
                                  ? QString::fromStdString(signal.name)
                                  : QString::asprintf("%s[%d:0]", signal.name.c_str(), int(signal.width - 1));
        m_offset += GEOMETRY::ROW_EXTRA_OFFSET;
        QGraphicsTextItem* item = addText(tr(label.toUtf8().constData()));
        item->setDefaultTextColor(row_colour(index));
        item->setPos(0, GEOMETRY::ROW_PITCH * (index + 1) + m_offset);
        widest = std::max(widest, item->boundingRect().width());
    }
    PGMDQ_WAVE_ASSERT(debug_signals[index].width == 0);
    m_preferred_width = 1.5 * widest;
    m_preferred_height = GEOMETRY::ROW_PITCH * (index + 3) + GEOMETRY::ROW_EXTRA_OFFSET * index;
    setSceneRect(0, 0, widest + 5, m_preferred_height);
}

PGMDQ_DEBUG_WAVEFORM_SCENE::PGMDQ_DEBUG_WAVEFORM_SCENE(QObject* parent) : QGraphicsScene(parent)
{
    setBackgroundBrush(PGMDQ_DEBUG_BG_COLOR);
    // One item per row: a flat list is all the index there is to keep.
    setItemIndexMethod(QGraphicsScene::NoIndex);
}

void PGMDQ_DEBUG_WAVEFORM_SCENE::draw_waveform(unsigned width, unsigned depth, unsigned char** waveforms,
                                               const PGMDQ_DEBUG_SIGNAL* debug_signals, unsigned start, int step)
{
    const unsigned sample_size = pgmdq_sample_byte_size(width);
    auto samples = std::make_shared<PGMDQ_SAMPLE_BUFFERS>(depth, sample_size);
    for (unsigned i = 0; i < depth; ++i)
        std::memcpy(samples->data()[i], waveforms[i], sample_size);
    draw_samples(std::move(samples), debug_signals, start, step);
}

// `start` is not used: drawing begins at sample 0.
void PGMDQ_DEBUG_WAVEFORM_SCENE::draw_samples(std::shared_ptr<const PGMDQ_SAMPLE_BUFFERS> samples,
                                              const PGMDQ_DEBUG_SIGNAL* debug_signals, unsigned /*start*/, int step)
{
    unsigned index = 0;
    for (; !debug_signals[index].name.empty(); ++index)
        PGMDQ_WAVE_ASSERT(debug_signals[index].width > 0 && debug_signals[index].width <= 32);
    PGMDQ_WAVE_ASSERT(debug_signals[index].width == 0);
    const unsigned rows = index;

    // Where every row changes, found before the previous picture goes (the event loop turns on a
    // long trace, and the window shows the old picture meanwhile).
    const std::uint32_t depth = samples->depth();
    auto trace = std::make_shared<const PGMDQ_DEBUG_WAVE_TRACE>(std::move(samples), debug_signals, double(step));
    clear();
    m_offset = 0;
    for (unsigned row = 0; row < rows; ++row) {
        const QColor colour = row_colour(row);
        m_offset += GEOMETRY::ROW_EXTRA_OFFSET;
        if (debug_signals[row].width == 1)
            draw_waveform_line(trace, row, colour);
        else
            draw_waveform_bus(trace, row, colour);
    }
    setSceneRect(0, 0, double(depth + 10) * step, GEOMETRY::ROW_PITCH * (rows + 3) + m_offset);
    m_trace = trace;
}

QList<PGMDQ_DEBUG_WAVE_ITEM*> PGMDQ_DEBUG_WAVEFORM_SCENE::wave_items() const
{
    QList<PGMDQ_DEBUG_WAVE_ITEM*> found;
    for (QGraphicsItem* item : items(Qt::AscendingOrder))
        if (item->type() == PGMDQ_DEBUG_WAVE_ITEM::Type)
            found.append(static_cast<PGMDQ_DEBUG_WAVE_ITEM*>(item));
    std::sort(found.begin(), found.end(),
              [](const PGMDQ_DEBUG_WAVE_ITEM* a, const PGMDQ_DEBUG_WAVE_ITEM* b) { return a->row() < b->row(); });
    return found;
}

// A single-bit row: its square wave at the row's top.
void PGMDQ_DEBUG_WAVEFORM_SCENE::draw_waveform_line(const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE>& trace,
                                                    unsigned row, const QColor& colour)
{
    auto* wave = new (std::nothrow) PGMDQ_DEBUG_WAVE_ITEM(trace, row, colour);
    PGMDQ_WAVE_ASSERT(wave != NULL);
    wave->setPos(0, GEOMETRY::ROW_PITCH * (row + 1) + m_offset);
    addItem(wave);
}

// A bus row: its rails and labels at the row's top.
void PGMDQ_DEBUG_WAVEFORM_SCENE::draw_waveform_bus(const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE>& trace,
                                                   unsigned row, const QColor& colour)
{
    auto* bus = new (std::nothrow) PGMDQ_DEBUG_WAVE_ITEM(trace, row, colour);
    PGMDQ_WAVE_ASSERT(bus != NULL);
    bus->setPos(0, GEOMETRY::ROW_PITCH * (row + 1) + m_offset);
    addItem(bus);
}

double PGMDQ_DEBUG_WAVEFORM_SCENE::label_width(const QString& label)
{
    auto known = m_label_widths.constFind(label);
    if (known != m_label_widths.constEnd())
        return *known;
    QGraphicsTextItem measure(label);
    const double width = measure.boundingRect().width();
    m_label_widths.insert(label, width);
    return width;
}

// --- The widget's drawing ---

void PGMDQ_DEBUG_WAVEFORM_WIDGET::draw_waveform(unsigned width, unsigned depth, unsigned char** waveforms,
                                                const PGMDQ_DEBUG_SIGNAL* debug_signals, unsigned start, int step)
{
    m_waveform_data.reset();
    if (width == 0) {
        PGMDQ_WAVE_ASSERT(depth == 0 && waveforms == NULL && debug_signals == NULL);
        return;
    }
    PGMDQ_WAVE_ASSERT(depth > 0 && waveforms != NULL && debug_signals != NULL);
    m_waveform_width = width;
    m_waveform_depth = depth;
    const unsigned sample_size = pgmdq_sample_byte_size(width);
    auto copy = std::make_shared<PGMDQ_SAMPLE_BUFFERS>(depth, sample_size);
    for (unsigned i = 0; i < depth; ++i) {
        if (i % SAMPLES_PER_TURN == 0)
            thr_process_events();
        std::memcpy(copy->data()[i], waveforms[i], sample_size);
    }
    m_text_scene->draw_text(debug_signals);
    // The scene draws from the same copy: a trace is kept once however it is shown.
    m_waveform_scene->draw_samples(copy, debug_signals, start, step);
    m_waveform_data = std::move(copy);
    m_debug_signals = debug_signals;
    reset_navigation();
}
