// The debug waveform viewer's zoom and pan: zoom is a horizontal scale of the wave view's
// transform (the scene keeps the drawing at its own scale and geometry), pan is the views' scroll
// position; the keys the two views share, and the range dragged on the ruler.
#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer.h"

#include <QComboBox>
#include <QKeyEvent>
#include <QScrollBar>

#include <algorithm>
#include <cmath>

namespace {

using GEOMETRY = PGMDQ_DEBUG_WAVE_GEOMETRY;

const double ZOOM_STEP = 2;
const double MAX_PIXELS_PER_UNIT = 16;
// Scroll positions are integers: the zoomed scene stays well inside their range.
const double MAX_ZOOMED_WIDTH = 2.0e9;

} // namespace

// --- Zoom and pan ---

double PGMDQ_DEBUG_WAVEFORM_WIDGET::min_zoom() const
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    if (!trace)
        return 1;
    // A viewport not laid out yet counts as one pixel wide: the scale never reaches 0.
    const double width = std::max(m_waveform_view->viewport()->width(), 1);
    return std::min(1.0, width / (trace->depth() * trace->step()));
}

double PGMDQ_DEBUG_WAVEFORM_WIDGET::max_zoom() const
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    if (!trace)
        return 1;
    const double scene_width = m_waveform_scene->sceneRect().width();
    return std::max(1.0, std::min(MAX_PIXELS_PER_UNIT, MAX_ZOOMED_WIDTH / std::max(scene_width, 1.0)));
}

double PGMDQ_DEBUG_WAVEFORM_WIDGET::sample_at(double viewport_x) const
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    const double step = trace ? trace->step() : GEOMETRY::TRACE_STEP;
    return m_waveform_view->viewportTransform().inverted().map(QPointF(viewport_x, 0)).x() / step;
}

double PGMDQ_DEBUG_WAVEFORM_WIDGET::viewport_x_of(double sample) const
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    const double step = trace ? trace->step() : GEOMETRY::TRACE_STEP;
    return m_waveform_view->viewportTransform().map(QPointF(sample * step, 0)).x();
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::set_zoom(double zoom, double anchor_x)
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    if (!trace)
        return;
    zoom = std::max(min_zoom(), std::min(max_zoom(), zoom));
    const double anchored = sample_at(anchor_x) * trace->step();
    m_zoom = zoom;
    m_waveform_view->setTransform(QTransform::fromScale(zoom, 1));
    m_waveform_view->horizontalScrollBar()->setValue(int(std::lround(anchored * zoom - anchor_x)));
    refresh_overlays();
}

// Around the mouse when it is over the waves, else around the primary cursor when it is in view,
// else around the middle.
static double zoom_anchor(const PGMDQ_DEBUG_WAVEFORM_WIDGET& widget)
{
    const auto* view = static_cast<const PGMDQ_DEBUG_WAVEFORM_VIEW*>(widget.waveform_view());
    const int width = view->viewport()->width();
    if (view->mouse_x() >= 0)
        return view->mouse_x();
    if (widget.primary_cursor() >= 0) {
        const double x = widget.viewport_x_of(widget.primary_cursor());
        if (x >= 0 && x < width)
            return x;
    }
    return width / 2.0;
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::zoom_in()
{
    set_zoom(m_zoom * ZOOM_STEP, zoom_anchor(*this));
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::zoom_out()
{
    set_zoom(m_zoom / ZOOM_STEP, zoom_anchor(*this));
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::zoom_fit()
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    if (!trace)
        return;
    zoom_to_samples(0, trace->depth());
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::zoom_to_samples(double first, double last)
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    if (!trace)
        return;
    if (last < first)
        std::swap(first, last);
    first = std::max(first, 0.0);
    last = std::max(last, first + 1);
    const double width = std::max(m_waveform_view->viewport()->width(), 1);
    m_zoom = std::max(min_zoom(), std::min(max_zoom(), width / ((last - first) * trace->step())));
    m_waveform_view->setTransform(QTransform::fromScale(m_zoom, 1));
    m_waveform_view->horizontalScrollBar()->setValue(int(std::lround(first * trace->step() * m_zoom)));
    refresh_overlays();
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::scroll_by(int dx, int dy)
{
    QScrollBar* horizontal = m_waveform_view->horizontalScrollBar();
    QScrollBar* vertical = m_waveform_view->verticalScrollBar();
    horizontal->setValue(horizontal->value() + dx);
    vertical->setValue(vertical->value() + dy);
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::reveal_sample(std::uint32_t sample)
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    if (!trace)
        return;
    const int width = m_waveform_view->viewport()->width();
    const double x = viewport_x_of(sample);
    const double margin = std::min(width / 10.0, 40.0);
    if (x >= margin && x <= width - margin)
        return;
    m_waveform_view->horizontalScrollBar()->setValue(int(std::lround(sample * trace->step() * m_zoom - width / 2.0)));
}

bool PGMDQ_DEBUG_WAVEFORM_WIDGET::handle_navigation_key(QKeyEvent* event)
{
    const int width = m_waveform_view->viewport()->width();
    const bool control = event->modifiers() & Qt::ControlModifier;
    const int row_pitch = int(GEOMETRY::ROW_PITCH + GEOMETRY::ROW_EXTRA_OFFSET);
    QScrollBar* horizontal = m_waveform_view->horizontalScrollBar();
    switch (event->key()) {
    case Qt::Key_Left:
        scroll_by(-std::max(width / PGMDQ_DEBUG_PAN_FRACTION, 1), 0);
        return true;
    case Qt::Key_Right:
        scroll_by(std::max(width / PGMDQ_DEBUG_PAN_FRACTION, 1), 0);
        return true;
    case Qt::Key_Up:
        if (control)
            select_row(std::max(m_selected_row - 1, 0));
        else
            scroll_by(0, -row_pitch);
        return true;
    case Qt::Key_Down:
        if (control)
            select_row(std::min(m_selected_row + 1, m_signal_combo->count() - 1));
        else
            scroll_by(0, row_pitch);
        return true;
    case Qt::Key_PageUp:
        scroll_by(-width, 0);
        return true;
    case Qt::Key_PageDown:
        scroll_by(width, 0);
        return true;
    case Qt::Key_Home:
        horizontal->setValue(horizontal->minimum());
        return true;
    case Qt::Key_End:
        horizontal->setValue(horizontal->maximum());
        return true;
    default:
        return false;
    }
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::set_drag_band(int from_x, int to_x)
{
    m_band = from_x != to_x;
    m_band_from = std::min(from_x, to_x);
    m_band_to = std::max(from_x, to_x);
    m_waveform_view->viewport()->update();
}

bool PGMDQ_DEBUG_WAVEFORM_WIDGET::drag_band(int* from_x, int* to_x) const
{
    *from_x = m_band_from;
    *to_x = m_band_to;
    return m_band;
}
