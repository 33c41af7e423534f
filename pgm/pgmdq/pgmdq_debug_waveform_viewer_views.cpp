// The debug waveform viewer's two views: the waves (cursors by mouse, zoom and pan by wheel and
// middle-button drag) and the signal names beside them, and what they share.
#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer.h"

#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace {

using GEOMETRY = PGMDQ_DEBUG_WAVE_GEOMETRY;

} // namespace

// --- What both views do ---

PGMDQ_DEBUG_NAVIGATION_VIEW::PGMDQ_DEBUG_NAVIGATION_VIEW(QGraphicsScene* scene, PGMDQ_DEBUG_WAVEFORM_WIDGET* owner)
    : QGraphicsView(scene, owner), m_owner(owner)
{
    setFocusPolicy(Qt::StrongFocus);
}

// A second click is another click: it places the cursor or selects the signal again.
void PGMDQ_DEBUG_NAVIGATION_VIEW::mouseDoubleClickEvent(QMouseEvent* event)
{
    mousePressEvent(event);
}

void PGMDQ_DEBUG_NAVIGATION_VIEW::keyPressEvent(QKeyEvent* event)
{
    if (m_owner->handle_navigation_key(event)) {
        event->accept();
        return;
    }
    QGraphicsView::keyPressEvent(event);
}

void PGMDQ_DEBUG_NAVIGATION_VIEW::drawBackground(QPainter* painter, const QRectF& rect)
{
    QGraphicsView::drawBackground(painter, rect);
    if (m_owner->selected_row() >= 0 && m_owner->shown_trace())
        painter->fillRect(GEOMETRY::row_band(rect.left(), rect.width(), unsigned(m_owner->selected_row())) & rect,
                          PGMDQ_DEBUG_SELECTED_ROW_COLOR);
}

// --- The wave view ---

PGMDQ_DEBUG_WAVEFORM_VIEW::PGMDQ_DEBUG_WAVEFORM_VIEW(QGraphicsScene* scene, PGMDQ_DEBUG_WAVEFORM_WIDGET* owner)
    : PGMDQ_DEBUG_NAVIGATION_VIEW(scene, owner)
{
    setMouseTracking(true);
    // Zoom sets the scroll position itself.
    setTransformationAnchor(QGraphicsView::NoAnchor);
    setResizeAnchor(QGraphicsView::NoAnchor);
}

void PGMDQ_DEBUG_WAVEFORM_VIEW::wheelEvent(QWheelEvent* event)
{
    const QPoint delta = event->angleDelta();
    if (event->modifiers() & Qt::ControlModifier) {
        const double notches = (delta.y() != 0 ? delta.y() : delta.x()) / 120.0;
        m_owner->set_zoom(m_owner->zoom() * std::pow(2.0, notches / 2), event->position().x());
    } else if (event->modifiers() & Qt::ShiftModifier) {
        const int row_pitch = int(GEOMETRY::ROW_PITCH + GEOMETRY::ROW_EXTRA_OFFSET);
        m_owner->scroll_by(0, -int(std::lround((delta.y() != 0 ? delta.y() : delta.x()) / 120.0 * row_pitch)));
    } else {
        // The wheel pans in time; a horizontal wheel too.
        const int pan = std::max(viewport()->width() / PGMDQ_DEBUG_PAN_FRACTION, 1);
        const double notches = (delta.x() != 0 ? delta.x() : delta.y()) / 120.0;
        m_owner->scroll_by(-int(std::lround(notches * pan)), 0);
    }
    event->accept();
}

void PGMDQ_DEBUG_WAVEFORM_VIEW::mousePressEvent(QMouseEvent* event)
{
    setFocus(Qt::MouseFocusReason);
    if (event->button() == Qt::MiddleButton) {
        m_panning = true;
        m_pan_last = event->pos();
        viewport()->setCursor(Qt::ClosedHandCursor);
        event->accept();
        return;
    }
    if (event->button() != Qt::LeftButton || !m_owner->shown_trace()) {
        QGraphicsView::mousePressEvent(event);
        return;
    }
    const double sample = std::floor(m_owner->sample_at(event->pos().x()));
    const std::uint32_t placed = std::uint32_t(std::max(sample, 0.0));
    if (event->modifiers() & Qt::ShiftModifier) {
        m_owner->set_secondary_cursor(placed);
    } else {
        m_owner->set_primary_cursor(placed);
        const int row = m_owner->row_at(mapToScene(event->pos()).y());
        if (row >= 0)
            m_owner->select_row(row);
    }
    event->accept();
}

void PGMDQ_DEBUG_WAVEFORM_VIEW::mouseMoveEvent(QMouseEvent* event)
{
    m_mouse_x = event->pos().x();
    if (m_panning) {
        const QPoint moved = event->pos() - m_pan_last;
        m_pan_last = event->pos();
        m_owner->scroll_by(-moved.x(), -moved.y());
        event->accept();
        return;
    }
    QGraphicsView::mouseMoveEvent(event);
}

void PGMDQ_DEBUG_WAVEFORM_VIEW::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::MiddleButton && m_panning) {
        m_panning = false;
        viewport()->unsetCursor();
        event->accept();
        return;
    }
    QGraphicsView::mouseReleaseEvent(event);
}

void PGMDQ_DEBUG_WAVEFORM_VIEW::leaveEvent(QEvent* event)
{
    m_mouse_x = -1;
    QGraphicsView::leaveEvent(event);
}

// The cursors over the waves, and the range being dragged on the ruler.
void PGMDQ_DEBUG_WAVEFORM_VIEW::drawForeground(QPainter* painter, const QRectF& rect)
{
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = m_owner->shown_trace();
    if (!trace)
        return;
    const auto draw_cursor = [&](int sample, const QColor& colour) {
        if (sample < 0)
            return;
        QPen pen(colour, 0);
        pen.setCosmetic(true);
        painter->setPen(pen);
        const double x = sample * trace->step();
        painter->drawLine(QPointF(x, rect.top()), QPointF(x, rect.bottom()));
    };
    draw_cursor(m_owner->secondary_cursor(), PGMDQ_DEBUG_SECONDARY_CURSOR_COLOR);
    draw_cursor(m_owner->primary_cursor(), PGMDQ_DEBUG_PRIMARY_CURSOR_COLOR);
    int from = 0;
    int to = 0;
    if (m_owner->drag_band(&from, &to)) {
        painter->save();
        painter->resetTransform();
        painter->fillRect(QRect(from, 0, to - from, viewport()->height()), QColor(255, 255, 255, 48));
        painter->restore();
    }
}

// --- The names view ---

PGMDQ_DEBUG_NAMES_VIEW::PGMDQ_DEBUG_NAMES_VIEW(QGraphicsScene* scene, PGMDQ_DEBUG_WAVEFORM_WIDGET* owner)
    : PGMDQ_DEBUG_NAVIGATION_VIEW(scene, owner)
{
}

void PGMDQ_DEBUG_NAMES_VIEW::mousePressEvent(QMouseEvent* event)
{
    setFocus(Qt::MouseFocusReason);
    if (event->button() == Qt::LeftButton) {
        const int row = m_owner->row_at(mapToScene(event->pos()).y());
        if (row >= 0)
            m_owner->select_row(row);
        event->accept();
        return;
    }
    QGraphicsView::mousePressEvent(event);
}
