// The debug waveform viewer's trace widget: the names and waves of the trace it keeps, the ruler,
// the values at the primary cursor, and the navigation (zoom, pan, cursors, find).
#pragma once

#include "pgmdq_debug_waveform_viewer_drawing.h"
#include "pgmdq_debug_waveform_viewer_navigation.h"
#include "pgmdq_debug_waveform_viewer_trace.h"

#include <QWidget>

#include <cstdint>
#include <memory>
#include <string>

class QComboBox;
class QGraphicsView;
class QKeyEvent;
class QLabel;
class QLineEdit;

class PGMDQ_DEBUG_WAVEFORM_WIDGET : public QWidget {
    Q_OBJECT
public:
    explicit PGMDQ_DEBUG_WAVEFORM_WIDGET(QWidget* parent = nullptr);
    ~PGMDQ_DEBUG_WAVEFORM_WIDGET() override;

    // Shows a copy of the trace; width 0 (with depth 0 and null pointers) forgets the stored trace
    // and leaves the picture as it is.
    void draw_waveform(unsigned width, unsigned depth, unsigned char** waveforms,
                       const PGMDQ_DEBUG_SIGNAL* debug_signals, unsigned start, int step);

    // Shows a trace as it is, shared rather than copied.
    void show_trace(std::shared_ptr<const PGMDQ_DEBUG_TRACE> trace, int step);

    // Writes the stored trace whole or not at all; a failure is told to the user. True when saved.
    bool save_waveform(std::string path);
    void open_waveform(std::string path);

    PGMDQ_DEBUG_WAVEFORM_SCENE* waveform_scene() const { return m_waveform_scene; }
    PGMDQ_DEBUG_TEXT_SCENE* text_scene() const { return m_text_scene; }
    QGraphicsView* waveform_view() const { return m_waveform_view; }
    QGraphicsView* text_view() const { return m_text_view; }
    // The stored trace (null once forgotten), its depth (0 without one), and its sample `index`
    // (null without one).
    std::shared_ptr<const PGMDQ_DEBUG_TRACE> trace() const { return m_waveform_data; }
    unsigned waveform_depth() const { return m_waveform_data ? m_waveform_data->depth() : 0; }
    const unsigned char* sample(unsigned index) const;

    // --- Navigation (_zoom.cpp, _cursors.cpp) ---
    // The trace on screen: the one drawn, as long as the wave scene shows it.
    std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> shown_trace() const { return m_waveform_scene->trace(); }

    // Horizontal scale of the wave view over the scene (1 is the drawing's own 1:1 scale), kept between the
    // whole trace in the viewport and 16 pixels per scene unit.
    double zoom() const { return m_zoom; }
    double min_zoom() const;
    double max_zoom() const;
    // Zooms keeping the sample under viewport x `anchor_x` where it is.
    void set_zoom(double zoom, double anchor_x);
    void zoom_in();
    void zoom_out();
    void zoom_fit();
    // Zooms so that samples `first` to `last` fill the viewport.
    void zoom_to_samples(double first, double last);
    // Sample coordinate (fractional) at a viewport x, and back.
    double sample_at(double viewport_x) const;
    double viewport_x_of(double sample) const;
    // Scrolls so that `sample` is in view (centred when it was not).
    void reveal_sample(std::uint32_t sample);

    // Cursors: sample numbers, or -1 when not placed. A new trace puts the primary at 0.
    int primary_cursor() const { return m_primary_cursor; }
    int secondary_cursor() const { return m_secondary_cursor; }
    void set_primary_cursor(std::uint32_t sample);
    void set_secondary_cursor(std::uint32_t sample);

    // The selected signal (row), which the searches use; -1 without a trace.
    int selected_row() const { return m_selected_row; }
    void select_row(int row);
    // The row whose band holds scene y, or -1.
    int row_at(double scene_y) const;

    // Find: the next or previous change of the selected signal from the primary cursor; the next
    // or previous run of the selected signal holding a hexadecimal value; a sample number. Each
    // moves the primary cursor there and brings it into view, or says in the status line why not.
    bool find_edge(bool forward);
    bool find_value(const QString& hex, bool forward);
    bool go_to_sample(const QString& text);
    QString status_text() const;

    PGMDQ_DEBUG_WAVEFORM_RULER* ruler() const { return m_ruler; }
    PGMDQ_DEBUG_WAVEFORM_VALUES* values_column() const { return m_values; }
    QComboBox* signal_combo() const { return m_signal_combo; }
    QLineEdit* value_edit() const { return m_value_edit; }
    QLineEdit* sample_edit() const { return m_sample_edit; }

    // Keys the wave and names views share (arrows, pages, Home/End, Ctrl+Up/Down); true if used.
    bool handle_navigation_key(QKeyEvent* event);
    // Scrolls the wave view by pixels.
    void scroll_by(int dx, int dy);
    // A range being dragged on the ruler (viewport x), shown over the waves; empty to end it.
    void set_drag_band(int from_x, int to_x);
    bool drag_band(int* from_x, int* to_x) const;

signals:
    // Zoom, scroll, cursors, selection or the shown trace changed.
    void navigation_changed();

private:
    void build_toolbar();
    void reset_navigation();
    void update_cursor_strip(int sample);
    void place_cursor(int* cursor, std::uint32_t sample);
    void show_status(const QString& text);
    void refresh_overlays();
    QString row_label(unsigned row) const;

    PGMDQ_DEBUG_WAVEFORM_SCENE* m_waveform_scene;
    PGMDQ_DEBUG_TEXT_SCENE* m_text_scene;
    QGraphicsView* m_waveform_view;
    QGraphicsView* m_text_view;
    // The trace is an object of its own that the widget keeps and the scenes draw from, rather
    // than the widget's own data, width and depth fields: a trace is read, written and shared whole.
    std::shared_ptr<const PGMDQ_DEBUG_TRACE> m_waveform_data;

    PGMDQ_DEBUG_WAVEFORM_RULER* m_ruler = nullptr;
    PGMDQ_DEBUG_WAVEFORM_VALUES* m_values = nullptr;
    QComboBox* m_signal_combo = nullptr;
    QLineEdit* m_value_edit = nullptr;
    QLineEdit* m_sample_edit = nullptr;
    QLabel* m_status = nullptr;
    double m_zoom = 1;
    int m_primary_cursor = -1;
    int m_secondary_cursor = -1;
    int m_selected_row = -1;
    int m_band_from = 0;
    int m_band_to = 0;
    bool m_band = false;
};
