// The debug waveform viewer's cursors, the selected signal, and the searches that move the
// primary cursor (edges, values, sample numbers).
#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer.h"

#include <QComboBox>
#include <QGraphicsView>

#include <algorithm>
#include <cmath>

namespace {

using GEOMETRY = PGMDQ_DEBUG_WAVE_GEOMETRY;

} // namespace

// --- Cursors and selection ---

// Repaints the few pixels of the wave view a cursor at `sample` covers.
void PGMDQ_DEBUG_WAVEFORM_WIDGET::update_cursor_strip(int sample)
{
    if (sample < 0)
        return;
    const double x = viewport_x_of(sample);
    QWidget* viewport = m_waveform_view->viewport();
    if (x < -2 || x > viewport->width() + 2)
        return;
    viewport->update(QRect(int(std::floor(x)) - 2, 0, 5, viewport->height()));
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::set_primary_cursor(std::uint32_t sample)
{
    place_cursor(&m_primary_cursor, sample);
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::set_secondary_cursor(std::uint32_t sample)
{
    place_cursor(&m_secondary_cursor, sample);
}

// On the trace's last sample when `sample` is past it.
void PGMDQ_DEBUG_WAVEFORM_WIDGET::place_cursor(int* cursor, std::uint32_t sample)
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    if (!trace)
        return;
    update_cursor_strip(*cursor);
    *cursor = int(std::min(sample, trace->depth() - 1));
    update_cursor_strip(*cursor);
    refresh_overlays();
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::select_row(int row)
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    if (!trace || row < 0 || unsigned(row) >= trace->row_count())
        return;
    m_selected_row = row;
    m_signal_combo->setCurrentIndex(row);
    m_waveform_view->viewport()->update();
    m_text_view->viewport()->update();
    refresh_overlays();
}

int PGMDQ_DEBUG_WAVEFORM_WIDGET::row_at(double scene_y) const
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    if (!trace)
        return -1;
    for (unsigned row = 0; row < trace->row_count(); ++row)
        if (GEOMETRY::row_band(0, 1, row).contains(QPointF(0, scene_y)))
            return int(row);
    return -1;
}

// --- Find ---

bool PGMDQ_DEBUG_WAVEFORM_WIDGET::find_edge(bool forward)
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    if (!trace || m_selected_row < 0) {
        show_status(tr("No trace to search"));
        return false;
    }
    const unsigned row = unsigned(m_selected_row);
    const std::uint32_t from = std::uint32_t(std::max(m_primary_cursor, 0));
    std::uint32_t found = 0;
    if (!(forward ? trace->next_change(row, from, &found) : trace->previous_change(row, from, &found))) {
        show_status((forward ? tr("No edge of %1 after sample %2") : tr("No edge of %1 before sample %2"))
                        .arg(row_label(row))
                        .arg(from));
        return false;
    }
    set_primary_cursor(found);
    reveal_sample(found);
    show_status(tr("%1 changes to %2 at sample %3").arg(row_label(row), trace->value_text(row, found)).arg(found));
    return true;
}

bool PGMDQ_DEBUG_WAVEFORM_WIDGET::find_value(const QString& hex, bool forward)
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    if (!trace || m_selected_row < 0) {
        show_status(tr("No trace to search"));
        return false;
    }
    QString digits = hex.trimmed();
    if (digits.startsWith("0x", Qt::CaseInsensitive))
        digits = digits.mid(2);
    bool valid = !digits.isEmpty() && digits.size() <= 8;
    const std::uint32_t value = valid ? digits.toUInt(&valid, 16) : 0;
    if (!valid) {
        show_status(tr("Not a hexadecimal value: \"%1\"").arg(hex));
        return false;
    }
    const unsigned row = unsigned(m_selected_row);
    const PGMDQ_DEBUG_DRAWN_TRACE::ROW& signal = trace->row(row);
    const QString shown = QString::number(value, 16).toUpper();
    if (signal.width < 32 && value >> signal.width) {
        show_status(tr("%1 cannot hold %2").arg(row_label(row), shown));
        return false;
    }
    // Runs start at sample 0 and at each change; the search looks at the runs after (or before)
    // the one the primary cursor is in.
    const std::vector<std::uint32_t>& changes = signal.changes;
    const std::uint32_t from = std::uint32_t(std::max(m_primary_cursor, 0));
    bool hit = false;
    std::uint32_t found = 0;
    if (forward) {
        for (auto run = std::upper_bound(changes.begin(), changes.end(), from); run != changes.end() && !hit; ++run)
            if (trace->value(row, *run) == value) {
                hit = true;
                found = *run;
            }
    } else {
        auto run = std::lower_bound(changes.begin(), changes.end(), from);
        while (run != changes.begin() && !hit) {
            --run;
            if (trace->value(row, *run) == value) {
                hit = true;
                found = *run;
            }
        }
        if (!hit && from > 0 && trace->value(row, 0) == value) {
            hit = true;
            found = 0;
        }
    }
    if (!hit) {
        show_status((forward ? tr("%1 does not hold %2 after sample %3") : tr("%1 does not hold %2 before sample %3"))
                        .arg(row_label(row), shown)
                        .arg(from));
        return false;
    }
    set_primary_cursor(found);
    reveal_sample(found);
    show_status(tr("%1 holds %2 from sample %3 to %4")
                    .arg(row_label(row), shown)
                    .arg(found)
                    .arg(trace->segment_end(row, found) - 1));
    return true;
}

bool PGMDQ_DEBUG_WAVEFORM_WIDGET::go_to_sample(const QString& text)
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    if (!trace) {
        show_status(tr("No trace to search"));
        return false;
    }
    bool valid = false;
    const qulonglong sample = text.trimmed().toULongLong(&valid, 10);
    if (!valid || sample >= trace->depth()) {
        show_status(tr("No sample \"%1\": the trace holds samples 0 to %2").arg(text).arg(trace->depth() - 1));
        return false;
    }
    set_primary_cursor(std::uint32_t(sample));
    reveal_sample(std::uint32_t(sample));
    show_status(tr("Primary cursor at sample %1").arg(sample));
    return true;
}
