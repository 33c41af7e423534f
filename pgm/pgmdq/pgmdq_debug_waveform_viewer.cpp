#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer.h"

#include "fio.h"
#include "pgmd_cm.h"
#include "tfcq.h"
#include "thr.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QFrame>
#include <QGraphicsPathItem>
#include <QGraphicsSimpleTextItem>
#include <QGraphicsTextItem>
#include <QGraphicsView>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPainterPath>
#include <QPen>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <new>

namespace {

const double ROW_PITCH = 30;
const double ROW_EXTRA_OFFSET = 3;
const double LINE_LOW_Y = 20;
const double BUS_LOWER_RAIL_Y = 26;
const double BUS_CROSSING_HALF_WIDTH = 1.5;
const int NAME_COLUMN_WIDTH = 150;
// The margin a text document keeps around its text (QTextDocument's default).
const double LABEL_MARGIN = 4;
const int TRACE_STEP = 15;
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

// Width, depth and signature around the samples of a ".wvf" file.
const std::uint64_t WVF_FIELDS_SIZE = 4 + 4 + 4;

void post_info(const std::string& text)
{
    msg_post(MSG_PGMDQ::I::PGMDQ_COMMON_MSG(text));
}

const QColor& row_colour(unsigned row)
{
    return row % 2 == 0 ? PGMDQ_DEBUG_COLOR2 : PGMDQ_DEBUG_COLOR1;
}

// One-pixel lines in the row's colour. A cosmetic pen keeps the bounds of a long wave a matter of
// its points, where a pen of real width would have the whole path stroked to find them.
QPen wave_pen(const QColor& colour)
{
    QPen pen(colour, 0);
    pen.setCosmetic(true);
    return pen;
}

// The top of row `row` once the running offset has grown for it.
double row_top(unsigned row, double offset)
{
    return ROW_PITCH * (row + 1) + offset;
}

std::uint32_t little_endian_dword(const unsigned char* bytes)
{
    return std::uint32_t(bytes[0]) | std::uint32_t(bytes[1]) << 8 | std::uint32_t(bytes[2]) << 16 |
           std::uint32_t(bytes[3]) << 24;
}

void put_little_endian_dword(unsigned char* bytes, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

// The file's signature: every byte added unsigned, wrapping at 32 bits.
std::uint32_t byte_sum(const unsigned char* bytes, std::uint64_t count)
{
    std::uint32_t sum = 0;
    for (std::uint64_t i = 0; i < count; ++i)
        sum += bytes[i];
    return sum;
}

} // namespace

PGMDQ_SAMPLE_BUFFERS::PGMDQ_SAMPLE_BUFFERS(unsigned depth, unsigned bytes_per_sample)
    : m_bytes(std::size_t(depth) * bytes_per_sample), m_samples(depth)
{
    for (unsigned i = 0; i < depth; ++i)
        m_samples[i] = m_bytes.data() + std::size_t(i) * bytes_per_sample;
}

std::uint32_t pgmdq_sample_bits(const unsigned char* sample, unsigned first_bit, unsigned width)
{
    std::uint32_t value = 0;
    for (unsigned k = 0; k < width; ++k) {
        const unsigned bit = first_bit + k;
        if (sample[bit / 8] >> (bit % 8) & 1)
            value |= std::uint32_t(1) << k;
    }
    return value;
}

PGMDQ_DEBUG_TEXT_SCENE::PGMDQ_DEBUG_TEXT_SCENE(QObject* parent) : QGraphicsScene(parent)
{
    setBackgroundBrush(PGMDQ_DEBUG_BG_COLOR);
}

void PGMDQ_DEBUG_TEXT_SCENE::draw_text(const PGMDQ_DEBUG_SIGNAL* debug_signals)
{
    clear();
    m_offset = 0;
    double widest = 0;
    unsigned index = 0;
    for (; !debug_signals[index].name.empty(); ++index) {
        PGMDQ_ASSERT(debug_signals[index].width > 0);
        const PGMDQ_DEBUG_SIGNAL& signal = debug_signals[index];
        const QString label = signal.width == 1
                                  ? QString::fromStdString(signal.name)
                                  : QString::asprintf("%s[%d:0]", signal.name.c_str(), int(signal.width - 1));
        m_offset += ROW_EXTRA_OFFSET;
        QGraphicsTextItem* item = addText(tr(label.toUtf8().constData()));
        item->setDefaultTextColor(row_colour(index));
        item->setPos(0, row_top(index, m_offset));
        widest = std::max(widest, item->boundingRect().width());
    }
    PGMDQ_ASSERT(debug_signals[index].width == 0);
    m_preferred_width = 1.5 * widest;
    m_preferred_height = ROW_PITCH * (index + 3) + ROW_EXTRA_OFFSET * index;
    setSceneRect(0, 0, widest + 5, m_preferred_height);
}

PGMDQ_DEBUG_WAVEFORM_SCENE::PGMDQ_DEBUG_WAVEFORM_SCENE(QObject* parent) : QGraphicsScene(parent)
{
    setBackgroundBrush(PGMDQ_DEBUG_BG_COLOR);
    // A trace is drawn once and then only scrolled: a flat item list costs linear time to build,
    // where the default spatial index grows faster than the trace.
    setItemIndexMethod(QGraphicsScene::NoIndex);
}

// The sample width is implied by the table; `start` is not used (drawing begins at sample 0).
void PGMDQ_DEBUG_WAVEFORM_SCENE::draw_waveform(unsigned /*width*/, unsigned depth, unsigned char** waveforms,
                                               const PGMDQ_DEBUG_SIGNAL* debug_signals, unsigned /*start*/, int step)
{
    // Items of the last drawing still waiting for their queued polish make every removal a search
    // through that queue; polishing them first keeps clearing linear when drawings follow one
    // another without an event loop turn in between.
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    clear();
    std::vector<unsigned> values(depth);
    m_offset = 0;
    unsigned first_bit = 0;
    unsigned index = 0;
    for (; !debug_signals[index].name.empty(); ++index) {
        PGMDQ_ASSERT(debug_signals[index].width > 0 && debug_signals[index].width <= 32);
        const unsigned signal_width = debug_signals[index].width;
        for (unsigned i = 0; i < depth; ++i)
            values[i] = pgmdq_sample_bits(waveforms[i], first_bit, signal_width);
        const QColor colour = row_colour(index);
        m_offset += ROW_EXTRA_OFFSET;
        if (signal_width == 1)
            draw_waveform_line(values.data(), 0, depth, 1, index, step, colour);
        else
            draw_waveform_bus(values.data(), 0, depth, 1, signal_width, index, colour, step);
        first_bit += signal_width;
    }
    PGMDQ_ASSERT(debug_signals[index].width == 0);
    setSceneRect(0, 0, double(depth + 10) * step, ROW_PITCH * (index + 3) + m_offset);
}

// One path per signal; a run of equal samples is one horizontal line (the same picture as a line
// per sample, with far fewer path elements to stroke).
void PGMDQ_DEBUG_WAVEFORM_SCENE::draw_waveform_line(const unsigned* values, unsigned first, unsigned last,
                                                    unsigned mask, unsigned row, double step, QColor colour)
{
    if (first >= last)
        return;
    bool high = (values[first] & mask) != 0;
    double y = high ? 0 : LINE_LOW_Y;
    double x = 0;
    QPainterPath wave(QPointF(x, y));
    for (unsigned i = first + 1; i < last; ++i) {
        x += step;
        const bool sample_high = (values[i] & mask) != 0;
        if (sample_high == high)
            continue;
        wave.lineTo(x, y);
        high = sample_high;
        y = std::abs(y - LINE_LOW_Y);
        wave.lineTo(x, y);
    }
    wave.lineTo(x + step, y);

    auto* path = new (std::nothrow) QGraphicsPathItem(wave);
    PGMDQ_ASSERT(path != NULL);
    path->setPen(wave_pen(colour));
    path->setPos(0, row_top(row, m_offset));
    addItem(path);
}

void PGMDQ_DEBUG_WAVEFORM_SCENE::draw_waveform_bus(const unsigned* values, unsigned first, unsigned last,
                                                   unsigned mask, unsigned bus_width, unsigned row, QColor colour,
                                                   double step)
{
    if (first >= last)
        return;
    const auto bus_value = [&](unsigned sample) {
        unsigned value = 0;
        for (unsigned i = 0; i < bus_width; ++i)
            if (values[sample] & (mask << i))
                value |= 1u << i;
        return value;
    };
    const double top = row_top(row, m_offset);
    double upper_y = 0;
    double lower_y = BUS_LOWER_RAIL_Y;
    QPainterPath upper_rail(QPointF(0, upper_y));
    QPainterPath lower_rail(QPointF(0, lower_y));
    unsigned segment_first = first;
    unsigned segment_value = bus_value(first);
    for (unsigned i = first + 1; i <= last; ++i) {
        const bool at_end = i == last;
        const unsigned value = at_end ? segment_value : bus_value(i);
        if (!at_end && value == segment_value)
            continue;
        // Both rails run to just before the boundary, then cross to the other level.
        const double boundary = (i - first) * step;
        upper_rail.lineTo(boundary - BUS_CROSSING_HALF_WIDTH, upper_y);
        lower_rail.lineTo(boundary - BUS_CROSSING_HALF_WIDTH, lower_y);
        add_bus_label(segment_value, (segment_first - first) * step, (i - segment_first) * step, top);
        if (at_end)
            break;
        upper_y = std::abs(upper_y - BUS_LOWER_RAIL_Y);
        lower_y = std::abs(lower_y - BUS_LOWER_RAIL_Y);
        upper_rail.lineTo(boundary + BUS_CROSSING_HALF_WIDTH, upper_y);
        lower_rail.lineTo(boundary + BUS_CROSSING_HALF_WIDTH, lower_y);
        segment_first = i;
        segment_value = value;
    }

    auto* path1 = new (std::nothrow) QGraphicsPathItem(upper_rail);
    PGMDQ_ASSERT(path1 != NULL);
    auto* path2 = new (std::nothrow) QGraphicsPathItem(lower_rail);
    PGMDQ_ASSERT(path2 != NULL);
    for (QGraphicsPathItem* path : {path1, path2}) {
        path->setPen(wave_pen(colour));
        path->setPos(0, top);
        addItem(path);
    }
}

// A segment's value, centred, where it fits between the crossings; left out where it does not.
// A label is measured as a text item measures itself (the text plus the document margin on each
// side), but drawn as a simple text item at the place where that text item would draw its text:
// the same picture, at a small fraction of the cost per label on a long trace.
void PGMDQ_DEBUG_WAVEFORM_SCENE::add_bus_label(unsigned value, double segment_start, double segment_length, double y)
{
    const QString text = QString::number(value, 16).toUpper();
    const double width = label_width(text);
    if (segment_length <= width)
        return;
    auto* label = new QGraphicsSimpleTextItem(text);
    label->setBrush(PGMDQ_DEBUG_COLOR1);
    label->setPen(Qt::NoPen);
    label->setPos(segment_start + (segment_length - width) / 2 + 0.5 + LABEL_MARGIN, y + LABEL_MARGIN);
    addItem(label);
}

double PGMDQ_DEBUG_WAVEFORM_SCENE::label_width(const QString& label)
{
    auto known = m_label_widths.constFind(label);
    if (known != m_label_widths.constEnd())
        return *known;
    QGraphicsTextItem measure(label);
    const double width = measure.boundingRect().width();
    m_label_widths.insert(label, width);
    return width;
}

PGMDQ_DEBUG_WAVEFORM_WIDGET::PGMDQ_DEBUG_WAVEFORM_WIDGET(QWidget* parent)
    : QWidget(parent),
      m_waveform_scene(nullptr),
      m_text_scene(new PGMDQ_DEBUG_TEXT_SCENE(this)),
      m_waveform_view(nullptr),
      m_text_view(new QGraphicsView(m_text_scene, this))
{
    m_text_view->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_text_view->setFixedWidth(NAME_COLUMN_WIDTH);
    m_waveform_scene = new PGMDQ_DEBUG_WAVEFORM_SCENE(this);
    m_waveform_view = new QGraphicsView(m_waveform_scene, this);
    m_waveform_view->setAlignment(Qt::AlignLeft | Qt::AlignTop);

    auto* layout = new QGridLayout(this);
    layout->addWidget(m_text_view, 0, 0);
    layout->addWidget(m_waveform_view, 0, 1);
    layout->setColumnStretch(0, 0);
    layout->setColumnStretch(1, 1);
}

PGMDQ_DEBUG_WAVEFORM_WIDGET::~PGMDQ_DEBUG_WAVEFORM_WIDGET() = default;

void PGMDQ_DEBUG_WAVEFORM_WIDGET::draw_waveform(unsigned width, unsigned depth, unsigned char** waveforms,
                                                const PGMDQ_DEBUG_SIGNAL* debug_signals, unsigned start, int step)
{
    m_waveform_data.reset();
    if (width == 0) {
        PGMDQ_ASSERT(depth == 0 && waveforms == NULL && debug_signals == NULL);
        return;
    }
    PGMDQ_ASSERT(depth > 0 && waveforms != NULL && debug_signals != NULL);
    m_waveform_width = width;
    m_waveform_depth = depth;
    const unsigned sample_size = pgmdq_sample_byte_size(width);
    m_waveform_data = std::make_unique<PGMDQ_SAMPLE_BUFFERS>(depth, sample_size);
    for (unsigned i = 0; i < depth; ++i)
        std::memcpy(m_waveform_data->data()[i], waveforms[i], sample_size);
    m_text_scene->draw_text(debug_signals);
    m_waveform_scene->draw_waveform(width, depth, m_waveform_data->data(), debug_signals, start, step);
    m_debug_signals = debug_signals;
}

const unsigned char* PGMDQ_DEBUG_WAVEFORM_WIDGET::sample(unsigned index) const
{
    if (!m_waveform_data || index >= m_waveform_depth)
        return nullptr;
    return m_waveform_data->data()[index];
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::save_waveform(std::string path)
{
    PGMDQ_ASSERT(m_waveform_data != NULL && m_waveform_width > 0 && m_waveform_depth &&
                 PGMDQ_SFL_DEBUG_SIZE == m_waveform_width);
    const unsigned sample_size = pgmdq_sample_byte_size(m_waveform_width);
    const std::uint64_t samples_size = std::uint64_t(sample_size) * m_waveform_depth;
    std::vector<unsigned char> file(WVF_FIELDS_SIZE + samples_size, 0);
    put_little_endian_dword(&file[0], m_waveform_width);
    put_little_endian_dword(&file[4], m_waveform_depth);
    for (unsigned i = 0; i < m_waveform_depth; ++i)
        std::memcpy(&file[8 + std::size_t(i) * sample_size], m_waveform_data->data()[i], sample_size);
    const std::size_t signature_offset = file.size() - 4;
    put_little_endian_dword(&file[signature_offset], byte_sum(file.data(), signature_offset));

    // A file that cannot be opened is not reported: the write simply does not happen.
    std::ofstream output(path, std::ios::binary | std::ios::trunc);
    output.write(reinterpret_cast<const char*>(file.data()), std::streamsize(file.size()));
    output.flush();
    output.close();
}

// A file that is not a trace of this IP is a broken invariant, not a user error: every check is
// an internal error: size, signature, width, then the layout the depth implies.
void PGMDQ_DEBUG_WAVEFORM_WIDGET::open_waveform(std::string path)
{
    FIO_STATUS stat_info;
    PGMDQ_ASSERT(FIO_FILE_SYSTEM::exists(path.c_str()) && FIO_FILE_SYSTEM::status(path.c_str(), &stat_info));
    const std::uint64_t file_size = stat_info.size;

    std::ifstream input(path, std::ios::binary);
    PGMDQ_ASSERT(input.good());
    std::vector<unsigned char> buffer(file_size, 0);
    input.read(reinterpret_cast<char*>(buffer.data()), std::streamsize(file_size));
    input.close();

    PGMDQ_ASSERT(file_size > 12);
    const std::uint32_t signature = byte_sum(buffer.data(), file_size - 4);
    const std::uint32_t dword_data[] = {little_endian_dword(&buffer[file_size - 4])};
    PGMDQ_ASSERT(signature == dword_data[0]);
    const std::uint32_t width = little_endian_dword(&buffer[0]);
    PGMDQ_ASSERT(width == PGMDQ_SFL_DEBUG_SIZE);
    const std::uint32_t depth = little_endian_dword(&buffer[4]);
    // 64-bit so that a forged depth cannot wrap around to the real size.
    const std::uint64_t memory_byte_size = pgmdq_sample_byte_size(PGMDQ_SFL_DEBUG_SIZE);
    PGMDQ_ASSERT(file_size == (4 + 4 + 4 + memory_byte_size * depth));

    PGMDQ_SAMPLE_BUFFERS samples(depth, unsigned(memory_byte_size));
    for (unsigned i = 0; i < depth; ++i)
        std::memcpy(samples.data()[i], &buffer[8 + i * memory_byte_size], memory_byte_size);
    draw_waveform(PGMDQ_SFL_DEBUG_SIZE, depth, samples.data(), PGMDQ_SFL_DEBUG_SIGNALS, 0, TRACE_STEP);
}

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
    m_waveform_widget = new PGMDQ_DEBUG_WAVEFORM_WIDGET(waveform_box);
    auto* box_layout = new QVBoxLayout(waveform_box);
    box_layout->addLayout(buttons);
    box_layout->addWidget(m_waveform_widget);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(description);
    layout->addWidget(line);
    layout->addLayout(selection);
    layout->addWidget(waveform_box);
    setMinimumWidth(600);

    m_engine = std::make_unique<PGMD_CM_ENGINE>();

    connect(m_setup_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_hardware);
    connect(m_scan_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_device);
    connect(m_open_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_open);
    connect(m_save_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_save);
    connect(m_read_usedw_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_read_usedw);
    connect(m_reset_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_reset);
    connect(m_start_button, &QPushButton::clicked, this, &PGMDQ_DEBUG_WAVEFORM_VIEWER::on_start);

    m_scan_button->setEnabled(false);
    m_save_button->setEnabled(false);
    set_device_buttons_enabled(false);
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
    PGMDQ_ASSERT(!selected_files.isEmpty());
    FIO_PATH path(selected_files.first().toLocal8Bit().toStdString());
    path.extension(".wvf", "");
    PGMDQ_ASSERT(FIO_FILE_SYSTEM::exists(path.fullpath().c_str()));
    m_waveform_widget->open_waveform(path.fullpath());
}

void PGMDQ_DEBUG_WAVEFORM_VIEWER::on_save()
{
    TFCQ_FILE_DLG dialog(this, TFCQ_FILE_DLG::SAVE_FILE, tr("Save Waveform"), tr("Waveform (*.wvf)"));
    if (dialog.exec() != QDialog::Accepted)
        return;
    const QStringList selected_files = dialog.selected_files();
    if (selected_files.isEmpty())
        return;
    FIO_PATH path(selected_files.first().toLocal8Bit().toStdString());
    path.extension(".wvf", "");
    m_waveform_widget->save_waveform(path.fullpath());
}

void PGMDQ_DEBUG_WAVEFORM_VIEWER::on_hardware()
{
    unsigned hardware = 0;
    if (void* library = thr_drl_load("pgm_pgmwq.dll")) {
        using HARDWARE_DIALOG = void (*)(unsigned*);
        if (auto dialog = reinterpret_cast<HARDWARE_DIALOG>(thr_drl_find_function(library, "pgmwq_export_hardware_dlg")))
            dialog(&hardware);
    }
    const bool accepted = m_engine->set_tji_hardware(true, hardware);
    m_hardware_edit->setText(accepted ? QString::fromLocal8Bit(m_engine->get_hardware_name(true).c_str())
                                      : tr("No hardware"));
    m_scan_button->setEnabled(accepted);
    m_save_button->setEnabled(false);
    set_device_buttons_enabled(false);
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
    PGMDQ_ASSERT(DWORD(m_device_combo->count()) == DWORD(m_device_id.size()) && m_device_id.size() > 0);
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

// Failures here are silent: the count is only posted when it was read.
void PGMDQ_DEBUG_WAVEFORM_VIEWER::on_read_usedw()
{
    run_on_debug_ip([this](bool ip_found, unsigned device_index) {
        unsigned char buffer[4] = {};
        if (!ip_found || !m_engine->load_jtag_virtual_instruction(true, IP_READ_USEDW, device_index, false, true) ||
            !m_engine->read_dr_data(true, 32, buffer, device_index))
            return;
        post_info(QString::asprintf("USEDW count: %d", int(little_endian_dword(buffer))).toStdString());
    });
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
    run_on_debug_ip([this](bool ip_found, unsigned device_index) {
        if (!ip_found) {
            report_ip_missing();
            return;
        }
        m_engine->load_jtag_virtual_instruction(true, IP_RESET_TRACE, device_index, false, false);
        m_waveform_widget->draw_waveform(0, 0, NULL, NULL, 0, 0);
        m_waveform_widget->waveform_scene()->clear();
    });
}

void PGMDQ_DEBUG_WAVEFORM_VIEWER::on_start()
{
    run_on_debug_ip([this](bool ip_found, unsigned device_index) {
        if (!ip_found) {
            report_ip_missing();
            return;
        }
        m_save_button->setEnabled(true);
        capture_trace(device_index);
    });
}

// Reads the whole trace memory and draws it. A sample read that fails stops the reading; the
// memory is drawn all the same, the unread samples as zeros.
void PGMDQ_DEBUG_WAVEFORM_VIEWER::capture_trace(unsigned device_index)
{
    unsigned descriptor = 0;
    bool read = m_engine->load_jtag_virtual_instruction(true, IP_READ_DESCRIPTOR, device_index, false, true) &&
                m_engine->write_read_dr_data(true, 0, 32, 0, &descriptor, device_index);
    if (read) {
        // An IP without the feature is a broken set-up, not a user error.
        if ((descriptor & DESCRIPTOR_FEATURE_MASK) == 0 || (descriptor >> DESCRIPTOR_SIZE_SHIFT) == 0)
            PGMDQ_INTERNAL_ERROR(
                "Detected IP does not support waveform debug feature and/or debug size must be greater than 0");
        read = m_engine->load_jtag_virtual_instruction(true, IP_READ_SAMPLES, device_index, false, true);
        const unsigned samples = (descriptor >> DESCRIPTOR_SIZE_SHIFT) * DESCRIPTOR_SIZE_UNIT;
        PGMDQ_SAMPLE_BUFFERS buffers(samples, pgmdq_sample_byte_size(PGMDQ_SFL_DEBUG_SIZE));
        for (unsigned i = 0; read && i < samples; ++i)
            read = m_engine->read_dr_data(true, PGMDQ_SFL_DEBUG_SIZE, buffers.data()[i], device_index);
        m_waveform_widget->draw_waveform(PGMDQ_SFL_DEBUG_SIZE, samples, buffers.data(), PGMDQ_SFL_DEBUG_SIGNALS, 0,
                                         TRACE_STEP);
    }
    if (!read) {
        post_info("Fail to read memory");
        m_save_button->setEnabled(false);
    }
}
