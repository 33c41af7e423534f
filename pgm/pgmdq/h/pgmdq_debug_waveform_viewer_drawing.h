// The debug waveform viewer's drawing: the two scenes, one with the signal names and one with
// the waves, and the wave items that draw a row of a trace.
//
// The scenes draw from a trace (PGMDQ_DEBUG_TRACE), shared, never copied. A row is one item,
// placed where the row's paths belong (x 0, y at the row's top). It keeps no path of its own: it
// reads the trace and where the row's value changes, and paints only the samples in view, so
// that a trace of millions of samples costs its samples and its change lists, draws in time
// proportional to the width of the window, and goes at once. At the views' 1:1 scale it paints,
// pixel for pixel, the row's classic drawing: a path item per wave or rail built from every
// sample, a text item per value label (`paths()` and `labels()` give them); zoomed out, a pixel
// column with several changes becomes one vertical stroke, which is what such a path looks like
// there.
#pragma once

#include "pgmdq_debug_waveform_viewer_trace.h"

#include <QColor>
#include <QGraphicsItem>
#include <QGraphicsScene>
#include <QHash>
#include <QList>
#include <QPainterPath>
#include <QPointF>
#include <QRectF>
#include <QString>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

static const QColor PGMDQ_DEBUG_BG_COLOR(Qt::black);
// Even rows (0, 2, ...) and their names.
static const QColor PGMDQ_DEBUG_COLOR2(Qt::red);
// Odd rows, their names, and every bus value label.
static const QColor PGMDQ_DEBUG_COLOR1(Qt::white);

// Geometry of the drawing in scene units (pixels at the views' 1:1 scale).
struct PGMDQ_DEBUG_WAVE_GEOMETRY {
    static constexpr double ROW_PITCH = 30;
    static constexpr double ROW_EXTRA_OFFSET = 3;
    static constexpr double LINE_LOW_Y = 20;
    static constexpr double BUS_LOWER_RAIL_Y = 26;
    static constexpr double BUS_CROSSING_HALF_WIDTH = 1.5;
    // The margin a text document keeps around its text (QTextDocument's default): a label is
    // measured with it and its text drawn inside it.
    static constexpr double LABEL_MARGIN = 4;
    static constexpr int NAME_COLUMN_WIDTH = 150;
    static constexpr int TRACE_STEP = 15;

    // The top of row `row` (from 0), the running offset having grown by 3 per row up to it.
    static double row_top(unsigned row) { return (ROW_PITCH + ROW_EXTRA_OFFSET) * (row + 1); }
    // The band of row `row` in scene coordinates, the gap above it included.
    static QRectF row_band(double left, double width, unsigned row)
    {
        return QRectF(left, row_top(row) - ROW_EXTRA_OFFSET, width, ROW_PITCH + ROW_EXTRA_OFFSET);
    }
};

// The colour of row `row`: red for even rows, white for odd ones.
QColor pgmdq_debug_row_colour(unsigned row);

// A trace as drawn, as the wave items, cursors and searches read it: the trace (shared with the
// widget that keeps it), the horizontal step, and for each row the samples at which its value
// differs from the sample before, in ascending order.
class PGMDQ_DEBUG_DRAWN_TRACE {
public:
    struct ROW {
        std::string name;
        unsigned first_bit;
        unsigned width;
        std::vector<std::uint32_t> changes;
    };

    PGMDQ_DEBUG_DRAWN_TRACE(std::shared_ptr<const PGMDQ_DEBUG_TRACE> trace, double step);

    std::uint32_t depth() const { return m_depth; }
    double step() const { return m_step; }
    unsigned row_count() const { return unsigned(m_rows.size()); }
    const ROW& row(unsigned index) const { return m_rows[index]; }

    std::uint32_t value(unsigned row, std::uint32_t sample) const
    {
        const ROW& r = m_rows[row];
        return pgmdq_sample_field(m_trace->sample(sample), m_sample_bytes, r.first_bit, r.width);
    }
    // The value as the viewer shows it: a bit as 0 or 1, a bus in upper-case hexadecimal.
    QString value_text(unsigned row, std::uint32_t sample) const;

    // The first sample of the run of equal values that holds `sample`, and the first sample after
    // that run (the depth for the last run).
    std::uint32_t segment_start(unsigned row, std::uint32_t sample) const;
    std::uint32_t segment_end(unsigned row, std::uint32_t sample) const;
    // The nearest change strictly after / before `sample`; false when there is none.
    bool next_change(unsigned row, std::uint32_t sample, std::uint32_t* found) const;
    bool previous_change(unsigned row, std::uint32_t sample, std::uint32_t* found) const;

private:
    std::shared_ptr<const PGMDQ_DEBUG_TRACE> m_trace;
    std::uint32_t m_depth;
    unsigned m_sample_bytes;
    double m_step;
    std::vector<ROW> m_rows;
};

// A bus value label where the drawing places it: its box's top-left corner (item coordinates, the text
// drawn inside the box's margin) and its measured width.
struct PGMDQ_DEBUG_BUS_LABEL {
    QString text;
    QPointF position;
    double width;
};

// One row of a drawn trace: a square wave (single-bit row) or two crossing rails with value
// labels (bus), in the row's colour.
class PGMDQ_DEBUG_WAVE_ITEM : public QGraphicsItem {
public:
    enum { Type = QGraphicsItem::UserType + 37 };

    PGMDQ_DEBUG_WAVE_ITEM(std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace, unsigned row, const QColor& colour);

    int type() const override { return Type; }
    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget) override;

    unsigned row() const { return m_row; }
    bool is_bus() const { return m_trace->row(m_row).width > 1; }
    QColor colour() const { return m_colour; }
    const PGMDQ_DEBUG_DRAWN_TRACE& trace() const { return *m_trace; }

    // The classic drawing of the whole row, in item coordinates: the wave's path (one) or the two
    // rails (upper first); and the labels that fit their segments at the 1:1 scale.
    QList<QPainterPath> paths() const;
    QList<PGMDQ_DEBUG_BUS_LABEL> labels() const;

private:
    struct DEVICE;
    void paint_line(QPainter* painter, const DEVICE& device, std::uint32_t first, std::uint32_t last) const;
    void paint_bus(QPainter* painter, const DEVICE& device, std::uint32_t first, std::uint32_t last) const;
    double label_width(const QString& text) const;

    std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> m_trace;
    unsigned m_row;
    QColor m_colour;
};

// The signal names, one per row, in the row's colour.
class PGMDQ_DEBUG_TEXT_SCENE : public QGraphicsScene {
    Q_OBJECT
public:
    explicit PGMDQ_DEBUG_TEXT_SCENE(QObject* parent = nullptr);

    void draw_text(const PGMDQ_DEBUG_SIGNAL* debug_signals);

    double preferred_width() const { return m_preferred_width; }
    double preferred_height() const { return m_preferred_height; }

private:
    double m_preferred_width = 0;
    double m_preferred_height = 0;
    double m_offset = 0;
};

// The waves: square waves for single-bit signals, crossing rails with hexadecimal labels for buses.
class PGMDQ_DEBUG_WAVEFORM_SCENE : public QGraphicsScene {
    Q_OBJECT
public:
    explicit PGMDQ_DEBUG_WAVEFORM_SCENE(QObject* parent = nullptr);

    // Drawing always begins at sample 0; `start` is accepted for the callers' sake. The samples
    // are copied.
    void draw_waveform(unsigned width, unsigned depth, unsigned char** waveforms,
                       const PGMDQ_DEBUG_SIGNAL* debug_signals, unsigned start, int step);
    // The same with a trace that the scene shares rather than copies.
    void draw_trace(std::shared_ptr<const PGMDQ_DEBUG_TRACE> trace, unsigned start, int step);

    // The trace drawn, while its items are in the scene (null once the scene is cleared).
    std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace() const { return m_trace.lock(); }
    QList<PGMDQ_DEBUG_WAVE_ITEM*> wave_items() const;

    // A label's width as the drawing measures it: a text item's width, document margins included.
    double label_width(const QString& label);

private:
    void draw_waveform_line(const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE>& trace, unsigned row,
                            const QColor& colour);
    void draw_waveform_bus(const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE>& trace, unsigned row,
                           const QColor& colour);

    double m_offset = 0;
    // Rendered label widths by text: a long trace repeats the same few values many times.
    QHash<QString, double> m_label_widths;
    std::weak_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> m_trace;
};
