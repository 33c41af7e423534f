// The debug waveform viewer's drawing: a trace as drawn (its rows and where each changes), the
// names scene and the waves scene.
#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer_drawing.h"
#include "pgmdq_debug_waveform_viewer_errors.h"

#include "thr.h"

#include <QGraphicsTextItem>

#include <algorithm>
#include <new>

namespace {

using GEOMETRY = PGMDQ_DEBUG_WAVE_GEOMETRY;

// Samples handled between two turns of the event loop while a long trace is prepared.
const std::uint32_t SAMPLES_PER_TURN = 1 << 16;

std::uint64_t field_mask(unsigned first_bit, unsigned width)
{
    if (first_bit >= 64)
        return 0;
    const std::uint64_t bits = width >= 64 ? ~std::uint64_t(0) : (std::uint64_t(1) << width) - 1;
    return bits << first_bit;
}

} // namespace

QColor pgmdq_debug_row_colour(unsigned row)
{
    return row % 2 == 0 ? PGMDQ_DEBUG_COLOR2 : PGMDQ_DEBUG_COLOR1;
}

// --- The drawn trace ---

PGMDQ_DEBUG_DRAWN_TRACE::PGMDQ_DEBUG_DRAWN_TRACE(std::shared_ptr<const PGMDQ_DEBUG_TRACE> trace, double step)
    : m_trace(std::move(trace)), m_depth(m_trace->depth()), m_sample_bytes(m_trace->samples().sample_bytes()),
      m_step(step)
{
    unsigned first_bit = 0;
    for (const PGMDQ_DEBUG_SIGNAL* signal = m_trace->signal_table(); signal->width > 0;
         first_bit += signal->width, ++signal)
        m_rows.push_back({signal->name, first_bit, signal->width, {}});
    if (m_depth == 0 || m_sample_bytes == 0)
        return;

    // Where each row changes. Samples of up to 64 bits are compared whole first: a sample equal
    // to the one before changes no row.
    if (m_sample_bytes <= 8) {
        std::vector<std::uint64_t> masks;
        for (const ROW& row : m_rows)
            masks.push_back(field_mask(row.first_bit, row.width));
        std::uint64_t previous = pgmdq_packed_sample(m_trace->sample(0), m_sample_bytes);
        for (std::uint32_t i = 1; i < m_depth; ++i) {
            if (i % SAMPLES_PER_TURN == 0)
                thr_process_events();
            const std::uint64_t sample = pgmdq_packed_sample(m_trace->sample(i), m_sample_bytes);
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

QString PGMDQ_DEBUG_DRAWN_TRACE::value_text(unsigned row, std::uint32_t sample) const
{
    return QString::number(value(row, sample), 16).toUpper();
}

std::uint32_t PGMDQ_DEBUG_DRAWN_TRACE::segment_start(unsigned row, std::uint32_t sample) const
{
    const std::vector<std::uint32_t>& changes = m_rows[row].changes;
    const auto after = std::upper_bound(changes.begin(), changes.end(), sample);
    return after == changes.begin() ? 0 : *(after - 1);
}

std::uint32_t PGMDQ_DEBUG_DRAWN_TRACE::segment_end(unsigned row, std::uint32_t sample) const
{
    const std::vector<std::uint32_t>& changes = m_rows[row].changes;
    const auto after = std::upper_bound(changes.begin(), changes.end(), sample);
    return after == changes.end() ? m_depth : *after;
}

bool PGMDQ_DEBUG_DRAWN_TRACE::next_change(unsigned row, std::uint32_t sample, std::uint32_t* found) const
{
    const std::vector<std::uint32_t>& changes = m_rows[row].changes;
    const auto after = std::upper_bound(changes.begin(), changes.end(), sample);
    if (after == changes.end())
        return false;
    *found = *after;
    return true;
}

bool PGMDQ_DEBUG_DRAWN_TRACE::previous_change(unsigned row, std::uint32_t sample, std::uint32_t* found) const
{
    const std::vector<std::uint32_t>& changes = m_rows[row].changes;
    const auto at_or_after = std::lower_bound(changes.begin(), changes.end(), sample);
    if (at_or_after == changes.begin())
        return false;
    *found = *(at_or_after - 1);
    return true;
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
        item->setDefaultTextColor(pgmdq_debug_row_colour(index));
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
    draw_trace(PGMDQ_DEBUG_TRACE::copy_of(width, depth, waveforms, debug_signals), start, step);
}

// `start` is not used: drawing begins at sample 0.
void PGMDQ_DEBUG_WAVEFORM_SCENE::draw_trace(std::shared_ptr<const PGMDQ_DEBUG_TRACE> shown, unsigned /*start*/,
                                            int step)
{
    const PGMDQ_DEBUG_SIGNAL* debug_signals = shown->signal_table();
    unsigned index = 0;
    for (; !debug_signals[index].name.empty(); ++index)
        PGMDQ_WAVE_ASSERT(debug_signals[index].width > 0 && debug_signals[index].width <= 32);
    PGMDQ_WAVE_ASSERT(debug_signals[index].width == 0);
    const unsigned rows = index;

    // Where every row changes, found before the previous picture goes (the event loop turns on a
    // long trace, and the window shows the old picture meanwhile).
    const std::uint32_t depth = shown->depth();
    auto trace = std::make_shared<const PGMDQ_DEBUG_DRAWN_TRACE>(std::move(shown), double(step));
    clear();
    m_offset = 0;
    for (unsigned row = 0; row < rows; ++row) {
        const QColor colour = pgmdq_debug_row_colour(row);
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
void PGMDQ_DEBUG_WAVEFORM_SCENE::draw_waveform_line(const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE>& trace,
                                                    unsigned row, const QColor& colour)
{
    auto* wave = new (std::nothrow) PGMDQ_DEBUG_WAVE_ITEM(trace, row, colour);
    PGMDQ_WAVE_ASSERT(wave != NULL);
    wave->setPos(0, GEOMETRY::ROW_PITCH * (row + 1) + m_offset);
    addItem(wave);
}

// A bus row: its rails and labels at the row's top.
void PGMDQ_DEBUG_WAVEFORM_SCENE::draw_waveform_bus(const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE>& trace,
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
