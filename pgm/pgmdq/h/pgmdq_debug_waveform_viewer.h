// The debug waveform viewer: the debug IP's signal table, the trace widget with its two scenes
// (names and waves), and the panel that captures a trace over JTAG and saves or opens ".wvf" files.
#pragma once

#include <QColor>
#include <QGraphicsScene>
#include <QHash>
#include <QWidget>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class QComboBox;
class QGraphicsView;
class QLineEdit;
class QPushButton;
class PGMD_CM_ENGINE;

// One row of a signal table; a table ends with a row of empty name and width 0.
struct PGMDQ_DEBUG_SIGNAL {
    std::string name;
    std::uint32_t width;
};

// Bits in one sample of the debug IP's trace.
static const unsigned PGMDQ_SFL_DEBUG_SIZE = 37;

// The debug IP's signals in sample bit order, from bit 0 upward.
static const PGMDQ_DEBUG_SIGNAL PGMDQ_SFL_DEBUG_SIGNALS[] = {
    {"tck", 1},
    {"tdi", 1},
    {"usr1", 1},
    {"ir_in", 12},
    {"sdrs", 1},
    {"sdr", 1},
    {"udr", 1},
    {"udr_reg", 1},
    {"scein", 1},
    {"dclkin", 1},
    {"sdoin", 1},
    {"data1out", 1},
    {"data1out_reg", 1},
    {"total_bit_count", 12},
    {"tdo", 1},
    {"", 0},
};

static const QColor PGMDQ_DEBUG_BG_COLOR(Qt::black);
// Even rows (0, 2, ...) and their names.
static const QColor PGMDQ_DEBUG_COLOR2(Qt::red);
// Odd rows, their names, and every bus value label.
static const QColor PGMDQ_DEBUG_COLOR1(Qt::white);

// A trace in memory: `depth` pointers, each to its own sample of ceil(width / 8) bytes. The
// samples share one zero-filled block so that a long trace costs one allocation, not one each.
class PGMDQ_SAMPLE_BUFFERS {
public:
    PGMDQ_SAMPLE_BUFFERS(unsigned depth, unsigned bytes_per_sample);
    // The pointers point into the owned block: moving keeps them valid, copying would not.
    PGMDQ_SAMPLE_BUFFERS(PGMDQ_SAMPLE_BUFFERS&&) = default;
    PGMDQ_SAMPLE_BUFFERS(const PGMDQ_SAMPLE_BUFFERS&) = delete;
    PGMDQ_SAMPLE_BUFFERS& operator=(const PGMDQ_SAMPLE_BUFFERS&) = delete;
    unsigned char** data() { return m_samples.data(); }

private:
    std::vector<unsigned char> m_bytes;
    std::vector<unsigned char*> m_samples;
};

// Bytes that hold one sample of `width` bits.
inline unsigned pgmdq_sample_byte_size(unsigned width)
{
    return (width + 7) / 8;
}

// The value of the `width` bits of `sample` that start at bit `first_bit`, least significant first.
std::uint32_t pgmdq_sample_bits(const unsigned char* sample, unsigned first_bit, unsigned width);

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

    // Drawing always begins at sample 0; `start` is accepted for the callers' sake.
    void draw_waveform(unsigned width, unsigned depth, unsigned char** waveforms,
                       const PGMDQ_DEBUG_SIGNAL* debug_signals, unsigned start, int step);

private:
    void draw_waveform_line(const unsigned* values, unsigned first, unsigned last, unsigned mask, unsigned row,
                            double step, QColor colour);
    void draw_waveform_bus(const unsigned* values, unsigned first, unsigned last, unsigned mask, unsigned bus_width,
                           unsigned row, QColor colour, double step);
    void add_bus_label(unsigned value, double segment_start, double segment_length, double y);
    double label_width(const QString& label);

    double m_offset = 0;
    // Rendered label widths by text: a long trace repeats the same few values many times.
    QHash<QString, double> m_label_widths;
};

class PGMDQ_DEBUG_WAVEFORM_WIDGET : public QWidget {
    Q_OBJECT
public:
    explicit PGMDQ_DEBUG_WAVEFORM_WIDGET(QWidget* parent = nullptr);
    ~PGMDQ_DEBUG_WAVEFORM_WIDGET() override;

    // Shows a copy of the trace; width 0 (with depth 0 and null pointers) forgets the stored trace
    // and leaves the picture as it is.
    void draw_waveform(unsigned width, unsigned depth, unsigned char** waveforms,
                       const PGMDQ_DEBUG_SIGNAL* debug_signals, unsigned start, int step);

    void save_waveform(std::string path);
    void open_waveform(std::string path);

    PGMDQ_DEBUG_WAVEFORM_SCENE* waveform_scene() const { return m_waveform_scene; }
    PGMDQ_DEBUG_TEXT_SCENE* text_scene() const { return m_text_scene; }
    QGraphicsView* waveform_view() const { return m_waveform_view; }
    unsigned waveform_depth() const { return m_waveform_depth; }
    // Sample `index` of the stored trace, or null when none is stored.
    const unsigned char* sample(unsigned index) const;

private:
    PGMDQ_DEBUG_WAVEFORM_SCENE* m_waveform_scene;
    PGMDQ_DEBUG_TEXT_SCENE* m_text_scene;
    QGraphicsView* m_waveform_view;
    QGraphicsView* m_text_view;
    std::unique_ptr<PGMDQ_SAMPLE_BUFFERS> m_waveform_data;
    unsigned m_waveform_width = 0;
    unsigned m_waveform_depth = 0;
    const PGMDQ_DEBUG_SIGNAL* m_debug_signals = nullptr;
};

class PGMDQ_DEBUG_WAVEFORM_VIEWER : public QWidget {
    Q_OBJECT
public:
    explicit PGMDQ_DEBUG_WAVEFORM_VIEWER(QWidget* parent = nullptr);
    ~PGMDQ_DEBUG_WAVEFORM_VIEWER() override;

    PGMDQ_DEBUG_WAVEFORM_WIDGET* waveform_widget() const { return m_waveform_widget; }
    const PGMD_CM_ENGINE* engine() const { return m_engine.get(); }

private slots:
    void on_hardware();
    void on_device();
    void on_open();
    void on_save();
    void on_read_usedw();
    void on_reset();
    void on_start();

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
    PGMDQ_DEBUG_WAVEFORM_WIDGET* m_waveform_widget;
    std::unique_ptr<PGMD_CM_ENGINE> m_engine;
    std::vector<std::uint32_t> m_device_id;
};
