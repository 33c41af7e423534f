// The debug waveform viewer: the debug IP's signal table, the trace with its ".wvf" file, the
// trace widget with its two scenes (names and waves) and its navigation (zoom, ruler, cursors,
// values, find), and the panel that captures a trace over JTAG, saves or opens ".wvf" files and
// exports VCD.
//
// The unit is spread over files named after it, one per job:
//   _trace.h / _trace.cpp                the trace in memory and its ".wvf" file
//   _drawing.h / _drawing.cpp            the drawn trace and the two scenes
//   _wave_item.cpp                       the item that paints one row of the waves
//   _widget.h / _widget.cpp              the trace widget: layout, toolbar, the trace it keeps
//   _navigation.h                        the views, the ruler and the values column
//   _views.cpp, _ruler.cpp               their events and painting
//   _zoom.cpp, _cursors.cpp              zoom and pan; cursors, selection and find
//   _vcd.h / _vcd.cpp                    the VCD writer shared with wvf2vcd
//   this header / .cpp                   the panel
//   _commands.cpp                        the panel's unattended runs: capture and usedw
#pragma once

#include "pgmdq_debug_waveform_viewer_widget.h"

#include <QWidget>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class PGMD_CM_ENGINE;

class PGMDQ_DEBUG_WAVEFORM_VIEWER : public QWidget {
    Q_OBJECT
public:
    explicit PGMDQ_DEBUG_WAVEFORM_VIEWER(QWidget* parent = nullptr);
    ~PGMDQ_DEBUG_WAVEFORM_VIEWER() override;

    PGMDQ_DEBUG_WAVEFORM_WIDGET* waveform_widget() const { return m_waveform_widget; }
    const PGMD_CM_ENGINE* engine() const { return m_engine.get(); }
    // Where the trace shown came from: "No trace", its file, or its capture and when.
    QString trace_origin() const;

    // --- Unattended runs (_commands.cpp): the buttons' own steps, with the cable, the device and
    // the files given instead of chosen in dialogs ---
    // "Setup ..." binding the cable named, "Scan ...", and device `device` (from 1) chosen in the
    // list; false with the reason (one line) when one of them fails.
    bool choose_device(const std::string& cable, unsigned device, std::string* error);
    // The chosen device as the list shows it ("@1 - BR5-TV1-ES").
    std::string device_text() const;
    // "Reset" (with `reset`) then "Start"; true when the whole trace memory was read.
    bool capture(bool reset);
    // "Read USEDW"; true, with the count, when it was read.
    bool read_usedw(std::uint32_t* count);
    // "Save" and "Export VCD..." of the trace shown to `file`, the extension added as the dialogs
    // add it; true when written (a failure is told to the user).
    bool save_trace(const std::string& file);
    bool export_vcd(const std::string& file);

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
    bool set_hardware(unsigned hardware);
    void set_device_buttons_enabled(bool enabled);
    void report_ip_missing();
    // Runs `operation` on the chosen device's debug IP between start-up and release of the DUT
    // cable, under the busy dialog; `operation` is told whether start-up and node detection
    // succeeded.
    void run_on_debug_ip(const std::function<void(bool ip_found, unsigned device_index)>& operation);
    bool reset_trace();
    bool start_capture();
    bool capture_trace(unsigned device_index);
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
