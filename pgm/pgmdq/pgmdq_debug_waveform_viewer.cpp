// The debug waveform viewer's panel: cable and device selection, capture of the debug
// IP's trace over JTAG, Save, Open and Export VCD. The trace file, the drawing and the navigation
// are in the unit's other files (see pgmdq_debug_waveform_viewer.h).
#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer.h"
#include "pgmdq_debug_waveform_viewer_errors.h"
#include "pgmdq_debug_waveform_viewer_vcd.h"
#include "pgmdq_miscellaneous_files.h"

#include "fio.h"
#include "pgmd_cm.h"
#include "tfcq.h"
#include "thr.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QFrame>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

using DWORD = std::uint32_t;

// The engine's identifier of the debug IP's node kind, and the IP's virtual instructions.
const unsigned DEBUG_IP_NODE_KIND = 4;
const unsigned IP_RESET_TRACE = 0xE00;
const unsigned IP_READ_DESCRIPTOR = 0xE01;
const unsigned IP_READ_SAMPLES = 0xE02;
const unsigned IP_READ_USEDW = 0xE03;
// Trace-memory descriptor: bits 0 to 3 flag the waveform feature, bits 4 to 31 give the memory
// size in units of 1024 samples.
const unsigned DESCRIPTOR_FEATURE_MASK = 0xF;
const unsigned DESCRIPTOR_SIZE_SHIFT = 4;
const unsigned DESCRIPTOR_SIZE_UNIT = 1024;

void post_info(const std::string& text)
{
    msg_post(MSG_PGMDQ::I::PGMDQ_COMMON_MSG(text));
}

} // namespace

PGMDQ_DEBUG_WAVEFORM_VIEWER::PGMDQ_DEBUG_WAVEFORM_VIEWER(QWidget* parent) : QWidget(parent)
{
    auto* description = new QLabel(
        tr("Debug Waveform Viewer will interface with debug-feature-enabled Programmer IP and draw the debug waveform."));
    description->setWordWrap(true);

    auto* line = new QFrame;
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    line->setLineWidth(1);
    line->setMidLineWidth(0);

    m_hardware_edit = new QLineEdit(tr("No hardware"));
    m_hardware_edit->setReadOnly(true);
    m_setup_button = new QPushButton(tr("Setup ..."));
    m_device_combo = new QComboBox;
    m_scan_button = new QPushButton(tr("Scan ..."));
    m_ip_combo = new QComboBox;
    auto* selection = new QGridLayout;
    selection->addWidget(new QLabel(tr("Hardware: ")), 0, 0);
    selection->addWidget(m_hardware_edit, 0, 1);
    selection->addWidget(m_setup_button, 0, 2);
    selection->addWidget(new QLabel(tr("Device: ")), 1, 0);
    selection->addWidget(m_device_combo, 1, 1);
    selection->addWidget(m_scan_button, 1, 2);
    selection->addWidget(new QLabel(tr("IP: ")), 2, 0);
    selection->addWidget(m_ip_combo, 2, 1, 1, 2);

    auto* waveform_box = new QGroupBox(tr("Waveform"));
    auto* buttons = new QHBoxLayout;
    m_open_button = new QPushButton(tr("Open"));
    m_save_button = new QPushButton(tr("Save"));
    m_read_usedw_button = new QPushButton(tr("Read USEDW"));
    m_reset_button = new QPushButton(tr("Reset"));
    m_start_button = new QPushButton(tr("Start"));
    for (QPushButton* button : {m_open_button, m_save_button, m_read_usedw_button, m_reset_button, m_start_button})
        buttons->addWidget(button);
    buttons->addStretch(1);
    m_export_button = new QPushButton(tr("Export VCD..."));
    m_export_button->setToolTip(tr("Write the trace shown as a Value Change Dump, as wvf2vcd does"));
    m_split_buses_check = new QCheckBox(tr("Buses as single-bit wires"));
    m_split_buses_check->setToolTip(tr("For VCD readers without vector support: each bus bit as a wire \"name [k]\""));
    buttons->addWidget(m_export_button);
    buttons->addWidget(m_split_buses_check);
    m_trace_label = new QLabel;
    m_trace_label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_trace_label->setText(tr("No trace"));
    m_waveform_widget = new PGMDQ_DEBUG_WAVEFORM_WIDGET(waveform_box);
    auto* box_layout = new QVBoxLayout(waveform_box);
    box_layout->addLayout(buttons);
    box_layout->addWidget(m_trace_label);
    box_layout->addWidget(m_waveform_widget);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(description);
    layout->addWidget(line);
    layout->addLayout(selection);
    layout->addWidget(waveform_box);
    setMinimumWidth(600);

    m_engine = std::make_unique<PGMD_CM_ENGINE>(pgmd_cm_site_bench());

    connect(m_setup_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_hardware);
    connect(m_scan_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_device);
    connect(m_open_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_open);
    connect(m_save_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_save);
    connect(m_read_usedw_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_read_usedw);
    connect(m_reset_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_reset);
    connect(m_start_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_start);
    connect(m_export_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_export_vcd);

    m_scan_button->setEnabled(false);
    m_save_button->setEnabled(false);
    m_export_button->setEnabled(false);
    set_device_buttons_enabled(false);
}

QString PGMDQ_DEBUG_WAVEFORM_VIEWER::trace_origin() const
{
    return m_trace_label->text();
}

// Where the trace shown came from; Export is there whenever the widget holds a trace.
void PGMDQ_DEBUG_WAVEFORM_VIEWER::set_trace_origin(const QString& origin)
{
    m_trace_label->setText(origin);
    if (m_export_button)
        m_export_button->setEnabled(m_waveform_widget && m_waveform_widget->trace());
}

PGMDQ_DEBUG_WAVEFORM_VIEWER::~PGMDQ_DEBUG_WAVEFORM_VIEWER()
{
    delete m_waveform_widget;
    m_engine.reset();
    m_device_id.clear();
}

void PGMDQ_DEBUG_WAVEFORM_VIEWER::set_device_buttons_enabled(bool enabled)
{
    m_read_usedw_button->setEnabled(enabled);
    m_reset_button->setEnabled(enabled);
    m_start_button->setEnabled(enabled);
}

void PGMDQ_DEBUG_WAVEFORM_VIEWER::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
}

void PGMDQ_DEBUG_WAVEFORM_VIEWER::on_open()
{
    TFCQ_FILE_DLG dialog(this, TFCQ_FILE_DLG::OPEN_EXISTING_FILE, tr("Open Waveform"), tr("Waveform (*.wvf)"));
    if (dialog.exec() != QDialog::Accepted)
        return;
    const QStringList selected_files = dialog.selected_files();
    PGMDQ_WAVE_ASSERT(!selected_files.isEmpty());
    FIO_PATH path(pgmdq_local8(selected_files.first()));
    path.extension(".wvf", "");
    PGMDQ_WAVE_ASSERT(FIO_FILE_SYSTEM::exists(path.fullpath().c_str()));
    m_waveform_widget->open_waveform(path.fullpath());
    set_trace_origin(tr("File: %1").arg(pgmdq_from_local8(path.fullpath())));
}

void PGMDQ_DEBUG_WAVEFORM_VIEWER::on_save()
{
    TFCQ_FILE_DLG dialog(this, TFCQ_FILE_DLG::SAVE_FILE, tr("Save Waveform"), tr("Waveform (*.wvf)"));
    if (dialog.exec() != QDialog::Accepted)
        return;
    const QStringList selected_files = dialog.selected_files();
    if (selected_files.isEmpty())
        return;
    save_trace(pgmdq_local8(selected_files.first()));
}

bool PGMDQ_DEBUG_WAVEFORM_VIEWER::save_trace(const std::string& file)
{
    FIO_PATH path(file);
    path.extension(".wvf", "");
    if (!m_waveform_widget->save_waveform(path.fullpath()))
        return false;
    set_trace_origin(tr("File: %1").arg(pgmdq_from_local8(path.fullpath())));
    return true;
}

// The trace shown as a VCD, whole or not at all; the same text as wvf2vcd writes, but for the
// comment saying where it came from.
void PGMDQ_DEBUG_WAVEFORM_VIEWER::on_export_vcd()
{
    if (!m_waveform_widget->trace())
        return;
    TFCQ_FILE_DLG dialog(this, TFCQ_FILE_DLG::SAVE_FILE, tr("Export VCD"), tr("Value Change Dump (*.vcd)"));
    if (dialog.exec() != QDialog::Accepted)
        return;
    const QStringList selected_files = dialog.selected_files();
    if (selected_files.isEmpty())
        return;
    export_vcd(pgmdq_local8(selected_files.first()));
}

bool PGMDQ_DEBUG_WAVEFORM_VIEWER::export_vcd(const std::string& file)
{
    const std::shared_ptr<const PGMDQ_DEBUG_TRACE> trace = m_waveform_widget->trace();
    if (!trace)
        return false;
    FIO_PATH path(file);
    path.extension(".vcd", "");
    const std::string target = path.fullpath();

    TFCQ_WAIT_CURSOR wait;
    const std::vector<std::uint64_t> samples = trace->packed_samples();
    PGMDQ_VCD_OPTIONS options;
    options.split_buses = m_split_buses_check->isChecked();
    options.comment = "exported by the Debug Waveform Viewer from " + pgmdq_local8(m_trace_label->text());
    const bool written = pgmdq_save_pieces(target, [&](const PGMDQ_SAVE_SINK& sink) {
        return pgmdq_write_vcd(samples.data(), std::uint32_t(samples.size()), trace->signal_table(), options,
                               [&sink](const char* data, std::size_t size) {
                                   thr_process_events();
                                   return sink(data, size);
                               });
    });
    if (!written)
        return false;
    post_info("VCD exported to " + target);
    return true;
}

// The cable is bound whether or not the suite's dialog could be reached (with handle 0 then).
void PGMDQ_DEBUG_WAVEFORM_VIEWER::on_hardware()
{
    unsigned hardware = 0;
    if (void* library = thr_drl_load("pgm_pgmwq.dll")) {
        using HARDWARE_DIALOG = void (*)(unsigned*);
        if (auto dialog = reinterpret_cast<HARDWARE_DIALOG>(thr_drl_find_function(library, "pgmwq_export_hardware_dlg")))
            dialog(&hardware);
    }
    set_hardware(hardware);
}

bool PGMDQ_DEBUG_WAVEFORM_VIEWER::set_hardware(unsigned hardware)
{
    const bool accepted = m_engine->set_tji_hardware(true, hardware);
    m_hardware_edit->setText(accepted ? pgmdq_from_local8(m_engine->get_hardware_name(true))
                                      : tr("No hardware"));
    m_scan_button->setEnabled(accepted);
    m_save_button->setEnabled(false);
    set_device_buttons_enabled(false);
    return accepted;
}

void PGMDQ_DEBUG_WAVEFORM_VIEWER::on_device()
{
    unsigned count = 0;
    int error = PGMD_CM_SCAN_ERROR_NONE;
    const std::unique_ptr<PGMD_CM_DEVICE[]> devices(m_engine->scan_chain(true, &count, &error));
    m_device_combo->clear();
    m_device_id.clear();
    m_save_button->setEnabled(false);
    const bool found = devices && count > 0 && error == PGMD_CM_SCAN_ERROR_NONE;
    set_device_buttons_enabled(found);
    if (!found)
        return;
    for (unsigned i = 0; i < count; ++i) {
        m_device_combo->addItem(QString::asprintf("@%d - %s", int(i + 1), devices[i].name.c_str()));
        m_device_id.push_back(devices[i].idcode);
    }
}

void PGMDQ_DEBUG_WAVEFORM_VIEWER::run_on_debug_ip(const std::function<void(bool, unsigned)>& operation)
{
    PGMDQ_WAVE_ASSERT(DWORD(m_device_combo->count()) == DWORD(m_device_id.size()) && m_device_id.size() > 0);
    TFCQ_BUSY_DLG busy(tr("Please wait while Programmer is processing..."), tr("Programmer Debug Waveform Viewer"),
                       this);
    m_engine->set_dut_count(unsigned(m_device_id.size()));
    const unsigned device_index = unsigned(m_device_combo->currentIndex());

    // The cable is released and the count reset however the operation ends, internal errors
    // included; the busy dialog closes after that.
    struct RELEASE {
        PGMD_CM_ENGINE* engine;
        ~RELEASE()
        {
            engine->unlock_hardware(true);
            engine->set_dut_count(0);
        }
    } release{m_engine.get()};

    const bool ip_found =
        m_engine->startup_hardware(true, false) && m_engine->determine_dut_sld_node(device_index, DEBUG_IP_NODE_KIND);
    operation(ip_found, device_index);
}

void PGMDQ_DEBUG_WAVEFORM_VIEWER::on_read_usedw()
{
    std::uint32_t count = 0;
    read_usedw(&count);
}

// Failures here are silent: the count is only posted when it was read.
bool PGMDQ_DEBUG_WAVEFORM_VIEWER::read_usedw(std::uint32_t* count)
{
    bool read = false;
    run_on_debug_ip([this, count, &read](bool ip_found, unsigned device_index) {
        unsigned char buffer[4] = {};
        read = ip_found && m_engine->load_jtag_virtual_instruction(true, IP_READ_USEDW, device_index, false, true) &&
               m_engine->read_dr_data(true, 32, buffer, device_index);
        if (!read)
            return;
        *count = pgmdq_little_endian_dword(buffer);
        post_info(QString::asprintf("USEDW count: %d", int(*count)).toStdString());
    });
    return read;
}

// Without the IP there is no trace to keep: nothing new may be saved.
void PGMDQ_DEBUG_WAVEFORM_VIEWER::report_ip_missing()
{
    post_info("Fail to startup hardware and/or determine supported IP");
    m_save_button->setEnabled(false);
}

// The trace is reset in the IP and forgotten here; the names stay, the waves go.
void PGMDQ_DEBUG_WAVEFORM_VIEWER::on_reset()
{
    reset_trace();
}

bool PGMDQ_DEBUG_WAVEFORM_VIEWER::reset_trace()
{
    bool reset = false;
    run_on_debug_ip([this, &reset](bool ip_found, unsigned device_index) {
        reset = ip_found;
        if (!ip_found) {
            report_ip_missing();
            return;
        }
        m_engine->load_jtag_virtual_instruction(true, IP_RESET_TRACE, device_index, false, false);
        m_waveform_widget->draw_waveform(0, 0, NULL, NULL, 0, 0);
        m_waveform_widget->waveform_scene()->clear();
        set_trace_origin(tr("No trace"));
    });
    return reset;
}

void PGMDQ_DEBUG_WAVEFORM_VIEWER::on_start()
{
    start_capture();
}

bool PGMDQ_DEBUG_WAVEFORM_VIEWER::start_capture()
{
    bool captured = false;
    run_on_debug_ip([this, &captured](bool ip_found, unsigned device_index) {
        if (!ip_found) {
            report_ip_missing();
            return;
        }
        m_save_button->setEnabled(true);
        captured = capture_trace(device_index);
    });
    return captured;
}

// Reads the whole trace memory and draws it. A sample read that fails stops the reading; the
// memory is drawn all the same, the unread samples as zeros. True when all of it was read.
bool PGMDQ_DEBUG_WAVEFORM_VIEWER::capture_trace(unsigned device_index)
{
    unsigned descriptor = 0;
    bool read = m_engine->load_jtag_virtual_instruction(true, IP_READ_DESCRIPTOR, device_index, false, true) &&
                m_engine->write_read_dr_data(true, 0, 32, 0, &descriptor, device_index);
    if (read) {
        // An IP without the feature is a broken set-up, not a user error.
        if ((descriptor & DESCRIPTOR_FEATURE_MASK) == 0 || (descriptor >> DESCRIPTOR_SIZE_SHIFT) == 0)
            PGMDQ_WAVE_INTERNAL_ERROR(
                "Detected IP does not support waveform debug feature and/or debug size must be greater than 0");
        read = m_engine->load_jtag_virtual_instruction(true, IP_READ_SAMPLES, device_index, false, true);
        const unsigned samples = (descriptor >> DESCRIPTOR_SIZE_SHIFT) * DESCRIPTOR_SIZE_UNIT;
        PGMDQ_SAMPLE_BUFFERS buffers(samples, pgmdq_sample_byte_size(PGMDQ_SFL_DEBUG_SIZE));
        for (unsigned i = 0; read && i < samples; ++i)
            read = m_engine->read_dr_data(true, PGMDQ_SFL_DEBUG_SIZE, buffers.data()[i], device_index);
        m_waveform_widget->draw_waveform(PGMDQ_SFL_DEBUG_SIZE, samples, buffers.data(), PGMDQ_SFL_DEBUG_SIGNALS, 0,
                                         PGMDQ_DEBUG_WAVE_GEOMETRY::TRACE_STEP);
        const QString when = QDateTime::currentDateTime().toString("yyyy-MM-dd hh:mm:ss");
        set_trace_origin(read ? tr("Captured from %1 at %2").arg(m_device_combo->currentText(), when)
                              : tr("Captured from %1 at %2, memory read incomplete").arg(m_device_combo->currentText(), when));
    }
    if (!read) {
        post_info("Fail to read memory");
        m_save_button->setEnabled(false);
    }
    return read;
}
