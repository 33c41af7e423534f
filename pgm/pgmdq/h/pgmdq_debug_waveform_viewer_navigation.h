// The debug waveform viewer's navigation: the wave view (zoom as a horizontal view transform over
// the drawing, pan, cursors), the names view that scrolls with it, the time ruler above the
// waves, and the column of values at the primary cursor beside the names.
#pragma once

#include <QColor>
#include <QGraphicsView>
#include <QString>
#include <QStringList>
#include <QVector>
#include <QWidget>

#include <cstdint>

class PGMDQ_DEBUG_WAVEFORM_WIDGET;

// What the navigation's widgets share: the cursors' colours, the selected signal's band, and the
// pan step of a wheel notch or an arrow key (a fraction of the viewport).
static const QColor PGMDQ_DEBUG_PRIMARY_CURSOR_COLOR(Qt::yellow);
static const QColor PGMDQ_DEBUG_SECONDARY_CURSOR_COLOR(Qt::cyan);
static const QColor PGMDQ_DEBUG_SELECTED_ROW_COLOR(48, 48, 48);
const int PGMDQ_DEBUG_PAN_FRACTION = 8;

// What the two views share: the navigation keys, a second click taken as another click, and the
// selected signal's band behind the scene.
class PGMDQ_DEBUG_NAVIGATION_VIEW : public QGraphicsView {
    Q_OBJECT
public:
    PGMDQ_DEBUG_NAVIGATION_VIEW(QGraphicsScene* scene, PGMDQ_DEBUG_WAVEFORM_WIDGET* owner);

protected:
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void drawBackground(QPainter* painter, const QRectF& rect) override;

    PGMDQ_DEBUG_WAVEFORM_WIDGET* m_owner;
};

// The waves. Mouse: a click places the primary cursor (and selects the row under it), a
// shift-click the secondary; Ctrl+wheel zooms around the mouse, the wheel pans in time (Shift:
// vertically), a middle-button drag pans. Keys: arrows pan, Page Up/Down pan a screen, Home/End
// go to the ends, Ctrl+Up/Down select the previous/next signal.
class PGMDQ_DEBUG_WAVEFORM_VIEW : public PGMDQ_DEBUG_NAVIGATION_VIEW {
    Q_OBJECT
public:
    PGMDQ_DEBUG_WAVEFORM_VIEW(QGraphicsScene* scene, PGMDQ_DEBUG_WAVEFORM_WIDGET* owner);

    // The viewport x of the mouse while it is over the viewport, or a negative number.
    double mouse_x() const { return m_mouse_x; }

protected:
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void drawForeground(QPainter* painter, const QRectF& rect) override;

private:
    bool m_panning = false;
    QPoint m_pan_last;
    double m_mouse_x = -1;
};

// The signal names; a click selects a signal, the wheel scrolls the rows.
class PGMDQ_DEBUG_NAMES_VIEW : public PGMDQ_DEBUG_NAVIGATION_VIEW {
    Q_OBJECT
public:
    PGMDQ_DEBUG_NAMES_VIEW(QGraphicsScene* scene, PGMDQ_DEBUG_WAVEFORM_WIDGET* owner);

protected:
    void mousePressEvent(QMouseEvent* event) override;
};

// A tick of the ruler: its x in the ruler, its sample, and the label of a major tick.
struct PGMDQ_DEBUG_RULER_TICK {
    double x;
    std::uint64_t sample;
    QString label;
};

// The time ruler, in samples, across the top of the widget: the cursors' readout over the names
// and values, ticks with sample numbers over the waves, and a flag for each cursor with its sample
// number and the distance between them. Dragging along it zooms to the dragged range; a click
// places the primary cursor, a shift-click the secondary.
class PGMDQ_DEBUG_WAVEFORM_RULER : public QWidget {
    Q_OBJECT
public:
    explicit PGMDQ_DEBUG_WAVEFORM_RULER(PGMDQ_DEBUG_WAVEFORM_WIDGET* owner);

    // What is painted: the ticks in view (labelled ones carry their text), the cursors' flags
    // ("A 120", "B 410", "Δ 290") and the readout over the names.
    QVector<PGMDQ_DEBUG_RULER_TICK> ticks() const;
    QStringList labels() const;
    QStringList cursor_texts() const;
    QString readout() const;
    // The ruler's x of a sample (its left edge), and the ruler's x where the waves' viewport starts.
    double x_of(double sample) const;
    int waves_left() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    PGMDQ_DEBUG_WAVEFORM_WIDGET* m_owner;
    bool m_dragging = false;
    int m_drag_from = 0;
    int m_drag_to = 0;
};

// The value of every signal at the primary cursor, beside its name, aligned with its row.
class PGMDQ_DEBUG_WAVEFORM_VALUES : public QWidget {
    Q_OBJECT
public:
    explicit PGMDQ_DEBUG_WAVEFORM_VALUES(PGMDQ_DEBUG_WAVEFORM_WIDGET* owner);

    // The texts shown, one per row ("" without a trace or cursor), and where row `row`'s text box
    // starts vertically in this widget.
    QStringList texts() const;
    double row_y(unsigned row) const;
    // Fits the column to the widest value a row of the shown trace can take.
    void fit_width();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

private:
    PGMDQ_DEBUG_WAVEFORM_WIDGET* m_owner;
};
