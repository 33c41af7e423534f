// The debug waveform viewer: the debug IP's signal table, the trace widget with its two scenes
// (names and waves) and its navigation (zoom, ruler, cursors, values, find), and the panel that
// captures a trace over JTAG, saves or opens ".wvf" files and exports VCD.
//
// The unit is spread over files named after it, one per job:
//   _trace.h / _trace.cpp            the trace in memory and the ".wvf" file
//   _drawing.h / _drawing.cpp        the scenes and wave items
//   _navigation.h / _navigation.cpp  the views, ruler, values column, zoom, cursors and find
//   _vcd.h / _vcd.cpp                the VCD writer shared with wvf2vcd
//   this header / .cpp               the panel
#pragma once

#include "pgmdq_debug_waveform_viewer_drawing.h"
#include "pgmdq_debug_waveform_viewer_navigation.h"
#include "pgmdq_debug_waveform_viewer_trace.h"

#include <QWidget>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class QAction;
class QCheckBox;
class QComboBox;
class QGraphicsView;
class QKeyEvent;
class QLabel;
class QLineEdit;
class QPushButton;
class PGMD_CM_ENGINE;

class PGMDQ_DEBUG_WAVEFORM_WIDGET : public QWidget {
    Q_OBJECT
public:
    explicit PGMDQ_DEBUG_WAVEFORM_WIDGET(QWidget* parent = nullptr);
    ~PGMDQ_DEBUG_WAVEFORM_WIDGET() override;

    // Shows a copy of the trace; width 0 (with depth 0 and null pointers) forgets the stored trace
    // and leaves the picture as it is.
    void draw_waveform(unsigned width, unsigned depth, unsigned char** waveforms,
                       const PGMDQ_DEBUG_SIGNAL* debug_signals, unsigned start, int step);

    // Writes the stored trace whole or not at all; a failure is told to the user. True when saved.
    bool save_waveform(std::string path);
    void open_waveform(std::string path);

    PGMDQ_DEBUG_WAVEFORM_SCENE* waveform_scene() const { return m_waveform_scene; }
    PGMDQ_DEBUG_TEXT_SCENE* text_scene() const { return m_text_scene; }
    QGraphicsView* waveform_view() const { return m_waveform_view; }
    QGraphicsView* text_view() const { return m_text_view; }
    unsigned waveform_depth() const { return m_waveform_depth; }
    // Sample `index` of the stored trace, or null when none is stored.
    const unsigned char* sample(unsigned index) const;
    bool holds_trace() const { return m_waveform_data != nullptr; }
    // The stored trace's samples, bit b of sample i in bit b of element i (empty without one),
    // and the signal table it was drawn with.
    std::vector<std::uint64_t> packed_samples() const;
    const PGMDQ_DEBUG_SIGNAL* debug_signals() const { return m_debug_signals; }

    // --- Navigation (pgmdq_debug_waveform_viewer_navigation.cpp) ---
    // The trace on screen: the one drawn, as long as the wave scene shows it.
    std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> shown_trace() const { return m_waveform_scene->trace(); }

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
    void show_status(const QString& text);
    void refresh_overlays();
    QString row_label(unsigned row) const;

    PGMDQ_DEBUG_WAVEFORM_SCENE* m_waveform_scene;
    PGMDQ_DEBUG_TEXT_SCENE* m_text_scene;
    QGraphicsView* m_waveform_view;
    QGraphicsView* m_text_view;
    std::shared_ptr<PGMDQ_SAMPLE_BUFFERS> m_waveform_data;
    unsigned m_waveform_width = 0;
    unsigned m_waveform_depth = 0;
    const PGMDQ_DEBUG_SIGNAL* m_debug_signals = nullptr;

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

class PGMDQ_DEBUG_WAVEFORM_VIEWER : public QWidget {
    Q_OBJECT
public:
    explicit PGMDQ_DEBUG_WAVEFORM_VIEWER(QWidget* parent = nullptr);
    ~PGMDQ_DEBUG_WAVEFORM_VIEWER() override;

    PGMDQ_DEBUG_WAVEFORM_WIDGET* waveform_widget() const { return m_waveform_widget; }
    const PGMD_CM_ENGINE* engine() const { return m_engine.get(); }
    // Where the trace shown came from: "No trace", its file, or its capture and when.
    QString trace_origin() const;

private slots:
    void on_hardware();
    void on_device();
    void on_open();
    void on_save();
    void on_read_usedw();
    void on_reset();
    void on_start();
    void on_export_vcd();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void set_device_buttons_enabled(bool enabled);
    // Runs `operation` on the chosen device's debug IP between start-up and release of the DUT
    // cable, under the busy dialog; `operation` is told whether start-up and node detection
    // succeeded.
    void report_ip_missing();
    void run_on_debug_ip(const std::function<void(bool ip_found, unsigned device_index)>& operation);
    void capture_trace(unsigned device_index);
    void set_trace_origin(const QString& origin);

    QLineEdit* m_hardware_edit;
    QPushButton* m_setup_button;
    QComboBox* m_device_combo;
    QPushButton* m_scan_button;
    QComboBox* m_ip_combo;
    QPushButton* m_open_button;
    QPushButton* m_save_button;
    QPushButton* m_read_usedw_button;
    QPushButton* m_reset_button;
    QPushButton* m_start_button;
    PGMDQ_DEBUG_WAVEFORM_WIDGET* m_waveform_widget = nullptr;
    std::unique_ptr<PGMD_CM_ENGINE> m_engine;
    std::vector<std::uint32_t> m_device_id;
    QPushButton* m_export_button = nullptr;
    QCheckBox* m_split_buses_check = nullptr;
    QLabel* m_trace_label = nullptr;
};
