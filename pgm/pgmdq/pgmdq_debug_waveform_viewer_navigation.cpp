// The debug waveform viewer's navigation: the widget's layout, the wave and names views, zoom and
// pan, the ruler, the cursors with the values column, and the searches.
//
// Zoom is a horizontal scale of the wave view's transform: the scene keeps the drawing at its own
// scale and geometry. The names view and the waves share one vertical scroll position
// (both viewports have the same height: each keeps its horizontal scroll bar), so a name stays
// beside its trace.
#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer.h"

#include <QAction>
#include <QComboBox>
#include <QFontMetrics>
#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QRegularExpression>
#include <QRegularExpressionValidator>
#include <QScrollBar>
#include <QToolBar>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace {

using GEOMETRY = PGMDQ_DEBUG_WAVE_GEOMETRY;

const double ZOOM_STEP = 2;
const double MAX_PIXELS_PER_UNIT = 16;
// Scroll positions are integers: the zoomed scene stays well inside their range.
const double MAX_ZOOMED_WIDTH = 2.0e9;
const QColor PRIMARY_CURSOR_COLOUR(Qt::yellow);
const QColor SECONDARY_CURSOR_COLOUR(Qt::cyan);
const QColor SELECTED_ROW_COLOUR(48, 48, 48);
const QColor RULER_BACKGROUND(32, 32, 32);
const QColor RULER_TEXT(220, 220, 220);
const QColor RULER_TICK(150, 150, 150);
// A drag shorter than this on the ruler is a click.
const int DRAG_THRESHOLD = 5;
// Pixels between two labelled ticks beyond the widest label.
const int RULER_LABEL_GAP = 16;
// Pixels per wheel notch of panning: an eighth of the viewport.
const int PAN_FRACTION = 8;

const QColor& row_colour(unsigned row)
{
    return row % 2 == 0 ? PGMDQ_DEBUG_COLOR2 : PGMDQ_DEBUG_COLOR1;
}

// The smallest of 1, 2, 5 times a power of ten that is at least `at_least` (at least 1).
std::uint64_t nice_interval(double at_least)
{
    if (!(at_least < 1e15))
        return std::uint64_t(1e15);
    std::uint64_t power = 1;
    for (;;) {
        for (std::uint64_t mantissa : {1, 2, 5})
            if (double(mantissa * power) >= at_least)
                return mantissa * power;
        power *= 10;
    }
}

// The band of row `row` in scene coordinates, the gap above it included.
QRectF row_band(double left, double width, unsigned row)
{
    const double top = GEOMETRY::row_top(row) - GEOMETRY::ROW_EXTRA_OFFSET;
    return QRectF(left, top, width, GEOMETRY::ROW_PITCH + GEOMETRY::ROW_EXTRA_OFFSET);
}

} // namespace

// --- The widget's set-up ---

PGMDQ_DEBUG_WAVEFORM_WIDGET::PGMDQ_DEBUG_WAVEFORM_WIDGET(QWidget* parent)
    : QWidget(parent),
      m_waveform_scene(nullptr),
      m_text_scene(new PGMDQ_DEBUG_TEXT_SCENE(this)),
      m_waveform_view(nullptr),
      m_text_view(nullptr)
{
    m_text_view = new PGMDQ_DEBUG_NAMES_VIEW(m_text_scene, this);
    m_text_view->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_text_view->setFixedWidth(GEOMETRY::NAME_COLUMN_WIDTH);
    m_waveform_scene = new PGMDQ_DEBUG_WAVEFORM_SCENE(this);
    m_waveform_view = new PGMDQ_DEBUG_WAVEFORM_VIEW(m_waveform_scene, this);
    m_waveform_view->setAlignment(Qt::AlignLeft | Qt::AlignTop);

    // One vertical scroll position for names and waves, over viewports of one height.
    m_text_view->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_text_view->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    m_waveform_view->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    QScrollBar* names_bar = m_text_view->verticalScrollBar();
    QScrollBar* waves_bar = m_waveform_view->verticalScrollBar();
    connect(waves_bar, &QScrollBar::valueChanged, names_bar, &QScrollBar::setValue);
    connect(names_bar, &QScrollBar::valueChanged, waves_bar, &QScrollBar::setValue);
    connect(waves_bar, &QScrollBar::valueChanged, this, &PGMDQ_DEBUG_WAVEFORM_WIDGET::refresh_overlays);
    connect(m_waveform_view->horizontalScrollBar(), &QScrollBar::valueChanged, this,
            &PGMDQ_DEBUG_WAVEFORM_WIDGET::refresh_overlays);
    connect(m_waveform_view->horizontalScrollBar(), &QScrollBar::rangeChanged, this,
            &PGMDQ_DEBUG_WAVEFORM_WIDGET::refresh_overlays);
    // A scene cleared by the panel takes the trace with it: the ruler and the values follow.
    connect(m_waveform_scene, &QGraphicsScene::changed, this, &PGMDQ_DEBUG_WAVEFORM_WIDGET::refresh_overlays);

    m_ruler = new PGMDQ_DEBUG_WAVEFORM_RULER(this);
    m_values = new PGMDQ_DEBUG_WAVEFORM_VALUES(this);
    m_status = new QLabel(this);
    m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto* layout = new QGridLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setHorizontalSpacing(0);
    layout->setVerticalSpacing(0);
    build_toolbar();
    layout->addWidget(findChild<QToolBar*>(), 0, 0, 1, 3);
    layout->addWidget(m_ruler, 1, 0, 1, 3);
    layout->addWidget(m_text_view, 2, 0);
    layout->addWidget(m_values, 2, 1);
    layout->addWidget(m_waveform_view, 2, 2);
    layout->addWidget(m_status, 3, 0, 1, 3);
    layout->setColumnStretch(0, 0);
    layout->setColumnStretch(1, 0);
    layout->setColumnStretch(2, 1);
    layout->setRowStretch(2, 1);
    m_values->fit_width();
}

PGMDQ_DEBUG_WAVEFORM_WIDGET::~PGMDQ_DEBUG_WAVEFORM_WIDGET() = default;

void PGMDQ_DEBUG_WAVEFORM_WIDGET::build_toolbar()
{
    auto* bar = new QToolBar(this);
    bar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    bar->setFloatable(false);
    bar->setMovable(false);
    // Actions answer their keys wherever the focus is inside this widget; an edit field keeps the
    // keys it uses for its text.
    const auto add_action = [&](const char* name, const QString& text, const QString& tip,
                                const QList<QKeySequence>& keys, const std::function<void()>& work, bool on_bar) {
        auto* action = new QAction(text, this);
        action->setObjectName(name);
        action->setShortcuts(keys);
        action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
        action->setToolTip(QString("%1 (%2)").arg(tip, keys.first().toString(QKeySequence::NativeText)));
        connect(action, &QAction::triggered, this, work);
        addAction(action);
        if (on_bar)
            bar->addAction(action);
        return action;
    };
    add_action("zoom_in", tr("Zoom +"), tr("Zoom in around the mouse or the primary cursor"),
               {QKeySequence(Qt::Key_Plus), QKeySequence(Qt::Key_Equal), QKeySequence::ZoomIn}, [this] { zoom_in(); },
               true);
    add_action("zoom_out", tr("Zoom −"), tr("Zoom out around the mouse or the primary cursor"),
               {QKeySequence(Qt::Key_Minus), QKeySequence::ZoomOut}, [this] { zoom_out(); }, true);
    add_action("zoom_fit", tr("Fit"), tr("Show the whole trace"),
               {QKeySequence(Qt::Key_F), QKeySequence(Qt::CTRL | Qt::Key_0)}, [this] { zoom_fit(); }, true);
    bar->addSeparator();

    m_signal_combo = new QComboBox(bar);
    m_signal_combo->setObjectName("signal");
    // One width whatever the trace, enough for the debug IP's longest signal name.
    m_signal_combo->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    m_signal_combo->setMinimumContentsLength(8);
    m_signal_combo->setToolTip(tr("The signal the searches look at (Ctrl+Up, Ctrl+Down)"));
    bar->addWidget(m_signal_combo);
    connect(m_signal_combo, QOverload<int>::of(&QComboBox::activated), this, &PGMDQ_DEBUG_WAVEFORM_WIDGET::select_row);
    add_action("previous_edge", tr("◀ Edge"), tr("Previous edge of the selected signal"),
               {QKeySequence(Qt::CTRL | Qt::Key_Left)}, [this] { find_edge(false); }, true);
    add_action("next_edge", tr("Edge ▶"), tr("Next edge of the selected signal"),
               {QKeySequence(Qt::CTRL | Qt::Key_Right)}, [this] { find_edge(true); }, true);
    bar->addSeparator();

    m_value_edit = new QLineEdit(bar);
    m_value_edit->setObjectName("value");
    m_value_edit->setPlaceholderText(tr("hex value"));
    m_value_edit->setValidator(new QRegularExpressionValidator(QRegularExpression("(0[xX])?[0-9A-Fa-f]{0,8}"), m_value_edit));
    m_value_edit->setFixedWidth(m_value_edit->fontMetrics().horizontalAdvance("FFFFFFFF") + 12);
    m_value_edit->setToolTip(tr("A value of the selected signal to find, in hexadecimal (Ctrl+F)"));
    bar->addWidget(m_value_edit);
    connect(m_value_edit, &QLineEdit::returnPressed, this, [this] { find_value(m_value_edit->text(), true); });
    add_action("find_value", tr("Find Value"), tr("Type a value to find"), {QKeySequence::Find},
               [this] {
                   m_value_edit->setFocus(Qt::ShortcutFocusReason);
                   m_value_edit->selectAll();
               },
               false);
    add_action("previous_value", tr("◀ Value"), tr("Previous run of the selected signal holding the value"),
               {QKeySequence(Qt::SHIFT | Qt::Key_F3)}, [this] { find_value(m_value_edit->text(), false); }, true);
    add_action("next_value", tr("Value ▶"), tr("Next run of the selected signal holding the value"),
               {QKeySequence(Qt::Key_F3)}, [this] { find_value(m_value_edit->text(), true); }, true);
    bar->addSeparator();

    m_sample_edit = new QLineEdit(bar);
    m_sample_edit->setObjectName("sample");
    m_sample_edit->setPlaceholderText(tr("sample"));
    m_sample_edit->setValidator(new QRegularExpressionValidator(QRegularExpression("[0-9]{0,10}"), m_sample_edit));
    m_sample_edit->setFixedWidth(m_sample_edit->fontMetrics().horizontalAdvance("0000000") + 12);
    m_sample_edit->setToolTip(tr("A sample number to put the primary cursor on, then Enter (Ctrl+G)"));
    bar->addWidget(m_sample_edit);
    connect(m_sample_edit, &QLineEdit::returnPressed, this, [this] { go_to_sample(m_sample_edit->text()); });
    add_action("go_to_sample", tr("Go To"), tr("Type a sample number to go to"), {QKeySequence(Qt::CTRL | Qt::Key_G)},
               [this] {
                   m_sample_edit->setFocus(Qt::ShortcutFocusReason);
                   m_sample_edit->selectAll();
               },
               false);
}

QString PGMDQ_DEBUG_WAVEFORM_WIDGET::row_label(unsigned row) const
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
    if (!trace || row >= trace->row_count())
        return QString();
    const PGMDQ_DEBUG_WAVE_TRACE::ROW& r = trace->row(row);
    const QString name = QString::fromStdString(r.name);
    return r.width == 1 ? name : QString("%1[%2:0]").arg(name).arg(r.width - 1);
}

// A new drawing: the 1:1 scale from the first sample, the primary cursor on sample 0,
// the first signal selected.
void PGMDQ_DEBUG_WAVEFORM_WIDGET::reset_navigation()
{
    m_zoom = 1;
    m_waveform_view->setTransform(QTransform());
    m_waveform_view->horizontalScrollBar()->setValue(0);
    m_primary_cursor = 0;
    m_secondary_cursor = -1;
    m_band = false;
    m_signal_combo->clear();
    if (const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace())
        for (unsigned row = 0; row < trace->row_count(); ++row)
            m_signal_combo->addItem(row_label(row));
    m_selected_row = m_signal_combo->count() > 0 ? 0 : -1;
    m_signal_combo->setCurrentIndex(m_selected_row);
    m_values->fit_width();
    show_status(QString());
    m_waveform_view->viewport()->update();
    m_text_view->viewport()->update();
    refresh_overlays();
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::refresh_overlays()
{
    m_ruler->update();
    m_values->update();
    emit navigation_changed();
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::show_status(const QString& text)
{
    m_status->setText(text);
}

QString PGMDQ_DEBUG_WAVEFORM_WIDGET::status_text() const
{
    return m_status->text();
}

// --- Zoom and pan ---

double PGMDQ_DEBUG_WAVEFORM_WIDGET::min_zoom() const
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
    if (!trace)
        return 1;
    // A viewport not laid out yet counts as one pixel wide: the scale never reaches 0.
    const double width = std::max(m_waveform_view->viewport()->width(), 1);
    return std::min(1.0, width / (trace->depth() * trace->step()));
}

double PGMDQ_DEBUG_WAVEFORM_WIDGET::max_zoom() const
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
    if (!trace)
        return 1;
    const double scene_width = m_waveform_scene->sceneRect().width();
    return std::max(1.0, std::min(MAX_PIXELS_PER_UNIT, MAX_ZOOMED_WIDTH / std::max(scene_width, 1.0)));
}

double PGMDQ_DEBUG_WAVEFORM_WIDGET::sample_at(double viewport_x) const
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
    const double step = trace ? trace->step() : GEOMETRY::TRACE_STEP;
    return m_waveform_view->viewportTransform().inverted().map(QPointF(viewport_x, 0)).x() / step;
}

double PGMDQ_DEBUG_WAVEFORM_WIDGET::viewport_x_of(double sample) const
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
    const double step = trace ? trace->step() : GEOMETRY::TRACE_STEP;
    return m_waveform_view->viewportTransform().map(QPointF(sample * step, 0)).x();
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::set_zoom(double zoom, double anchor_x)
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
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
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
    if (!trace)
        return;
    zoom_to_samples(0, trace->depth());
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::zoom_to_samples(double first, double last)
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
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
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
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
        scroll_by(-std::max(width / PAN_FRACTION, 1), 0);
        return true;
    case Qt::Key_Right:
        scroll_by(std::max(width / PAN_FRACTION, 1), 0);
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

// --- Cursors and selection ---

// Repaints the few pixels of the wave view a cursor at `sample` covers.
void PGMDQ_DEBUG_WAVEFORM_WIDGET::update_cursor_strip(int sample)
{
    if (sample < 0)
        return;
    const double x = viewport_x_of(sample);
    QWidget* viewport = m_waveform_view->viewport();
    if (x < -2 || x > viewport->width() + 2)
        return;
    viewport->update(QRect(int(std::floor(x)) - 2, 0, 5, viewport->height()));
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::set_primary_cursor(std::uint32_t sample)
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
    if (!trace)
        return;
    const int placed = int(std::min(sample, trace->depth() - 1));
    update_cursor_strip(m_primary_cursor);
    m_primary_cursor = placed;
    update_cursor_strip(m_primary_cursor);
    refresh_overlays();
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::set_secondary_cursor(std::uint32_t sample)
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
    if (!trace)
        return;
    const int placed = int(std::min(sample, trace->depth() - 1));
    update_cursor_strip(m_secondary_cursor);
    m_secondary_cursor = placed;
    update_cursor_strip(m_secondary_cursor);
    refresh_overlays();
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::select_row(int row)
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
    if (!trace || row < 0 || unsigned(row) >= trace->row_count())
        return;
    m_selected_row = row;
    m_signal_combo->setCurrentIndex(row);
    m_waveform_view->viewport()->update();
    m_text_view->viewport()->update();
    refresh_overlays();
}

int PGMDQ_DEBUG_WAVEFORM_WIDGET::row_at(double scene_y) const
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
    if (!trace)
        return -1;
    for (unsigned row = 0; row < trace->row_count(); ++row)
        if (row_band(0, 1, row).contains(QPointF(0, scene_y)))
            return int(row);
    return -1;
}

// --- Find ---

bool PGMDQ_DEBUG_WAVEFORM_WIDGET::find_edge(bool forward)
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
    if (!trace || m_selected_row < 0) {
        show_status(tr("No trace to search"));
        return false;
    }
    const unsigned row = unsigned(m_selected_row);
    const std::uint32_t from = std::uint32_t(std::max(m_primary_cursor, 0));
    std::uint32_t found = 0;
    if (!(forward ? trace->next_change(row, from, &found) : trace->previous_change(row, from, &found))) {
        show_status((forward ? tr("No edge of %1 after sample %2") : tr("No edge of %1 before sample %2"))
                        .arg(row_label(row))
                        .arg(from));
        return false;
    }
    set_primary_cursor(found);
    reveal_sample(found);
    show_status(tr("%1 changes to %2 at sample %3").arg(row_label(row), trace->value_text(row, found)).arg(found));
    return true;
}

bool PGMDQ_DEBUG_WAVEFORM_WIDGET::find_value(const QString& hex, bool forward)
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
    if (!trace || m_selected_row < 0) {
        show_status(tr("No trace to search"));
        return false;
    }
    QString digits = hex.trimmed();
    if (digits.startsWith("0x", Qt::CaseInsensitive))
        digits = digits.mid(2);
    bool valid = !digits.isEmpty() && digits.size() <= 8;
    const std::uint32_t value = valid ? digits.toUInt(&valid, 16) : 0;
    if (!valid) {
        show_status(tr("Not a hexadecimal value: \"%1\"").arg(hex));
        return false;
    }
    const unsigned row = unsigned(m_selected_row);
    const PGMDQ_DEBUG_WAVE_TRACE::ROW& signal = trace->row(row);
    const QString shown = QString::number(value, 16).toUpper();
    if (signal.width < 32 && value >> signal.width) {
        show_status(tr("%1 cannot hold %2").arg(row_label(row), shown));
        return false;
    }
    // Runs start at sample 0 and at each change; the search looks at the runs after (or before)
    // the one the primary cursor is in.
    const std::vector<std::uint32_t>& changes = signal.changes;
    const std::uint32_t from = std::uint32_t(std::max(m_primary_cursor, 0));
    bool hit = false;
    std::uint32_t found = 0;
    if (forward) {
        for (auto run = std::upper_bound(changes.begin(), changes.end(), from); run != changes.end() && !hit; ++run)
            if (trace->value(row, *run) == value) {
                hit = true;
                found = *run;
            }
    } else {
        auto run = std::lower_bound(changes.begin(), changes.end(), from);
        while (run != changes.begin() && !hit) {
            --run;
            if (trace->value(row, *run) == value) {
                hit = true;
                found = *run;
            }
        }
        if (!hit && from > 0 && trace->value(row, 0) == value) {
            hit = true;
            found = 0;
        }
    }
    if (!hit) {
        show_status((forward ? tr("%1 does not hold %2 after sample %3") : tr("%1 does not hold %2 before sample %3"))
                        .arg(row_label(row), shown)
                        .arg(from));
        return false;
    }
    set_primary_cursor(found);
    reveal_sample(found);
    show_status(tr("%1 holds %2 from sample %3 to %4")
                    .arg(row_label(row), shown)
                    .arg(found)
                    .arg(trace->segment_end(row, found) - 1));
    return true;
}

bool PGMDQ_DEBUG_WAVEFORM_WIDGET::go_to_sample(const QString& text)
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = shown_trace();
    if (!trace) {
        show_status(tr("No trace to search"));
        return false;
    }
    bool valid = false;
    const qulonglong sample = text.trimmed().toULongLong(&valid, 10);
    if (!valid || sample >= trace->depth()) {
        show_status(tr("No sample \"%1\": the trace holds samples 0 to %2").arg(text).arg(trace->depth() - 1));
        return false;
    }
    set_primary_cursor(std::uint32_t(sample));
    reveal_sample(std::uint32_t(sample));
    show_status(tr("Primary cursor at sample %1").arg(sample));
    return true;
}

// --- The wave view ---

PGMDQ_DEBUG_WAVEFORM_VIEW::PGMDQ_DEBUG_WAVEFORM_VIEW(QGraphicsScene* scene, PGMDQ_DEBUG_WAVEFORM_WIDGET* owner)
    : QGraphicsView(scene, owner), m_owner(owner)
{
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
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
        const int pan = std::max(viewport()->width() / PAN_FRACTION, 1);
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

// A second click is another click: it places the cursor again.
void PGMDQ_DEBUG_WAVEFORM_VIEW::mouseDoubleClickEvent(QMouseEvent* event)
{
    mousePressEvent(event);
}

void PGMDQ_DEBUG_WAVEFORM_VIEW::keyPressEvent(QKeyEvent* event)
{
    if (m_owner->handle_navigation_key(event)) {
        event->accept();
        return;
    }
    QGraphicsView::keyPressEvent(event);
}

void PGMDQ_DEBUG_WAVEFORM_VIEW::leaveEvent(QEvent* event)
{
    m_mouse_x = -1;
    QGraphicsView::leaveEvent(event);
}

void PGMDQ_DEBUG_WAVEFORM_VIEW::drawBackground(QPainter* painter, const QRectF& rect)
{
    QGraphicsView::drawBackground(painter, rect);
    if (m_owner->selected_row() >= 0 && m_owner->shown_trace())
        painter->fillRect(row_band(rect.left(), rect.width(), unsigned(m_owner->selected_row())) & rect,
                          SELECTED_ROW_COLOUR);
}

// The cursors over the waves, and the range being dragged on the ruler.
void PGMDQ_DEBUG_WAVEFORM_VIEW::drawForeground(QPainter* painter, const QRectF& rect)
{
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = m_owner->shown_trace();
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
    draw_cursor(m_owner->secondary_cursor(), SECONDARY_CURSOR_COLOUR);
    draw_cursor(m_owner->primary_cursor(), PRIMARY_CURSOR_COLOUR);
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
    : QGraphicsView(scene, owner), m_owner(owner)
{
    setFocusPolicy(Qt::StrongFocus);
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

void PGMDQ_DEBUG_NAMES_VIEW::mouseDoubleClickEvent(QMouseEvent* event)
{
    mousePressEvent(event);
}

void PGMDQ_DEBUG_NAMES_VIEW::keyPressEvent(QKeyEvent* event)
{
    if (m_owner->handle_navigation_key(event)) {
        event->accept();
        return;
    }
    QGraphicsView::keyPressEvent(event);
}

void PGMDQ_DEBUG_NAMES_VIEW::drawBackground(QPainter* painter, const QRectF& rect)
{
    QGraphicsView::drawBackground(painter, rect);
    if (m_owner->selected_row() >= 0 && m_owner->shown_trace())
        painter->fillRect(row_band(rect.left(), rect.width(), unsigned(m_owner->selected_row())) & rect,
                          SELECTED_ROW_COLOUR);
}

// --- The ruler ---

PGMDQ_DEBUG_WAVEFORM_RULER::PGMDQ_DEBUG_WAVEFORM_RULER(PGMDQ_DEBUG_WAVEFORM_WIDGET* owner)
    : QWidget(owner), m_owner(owner)
{
    setMouseTracking(true);
    setToolTip(tr("Drag to zoom to a range; click to place the primary cursor, Shift+click the secondary"));
}

QSize PGMDQ_DEBUG_WAVEFORM_RULER::sizeHint() const
{
    return QSize(400, 2 * fontMetrics().height() + 8);
}

QSize PGMDQ_DEBUG_WAVEFORM_RULER::minimumSizeHint() const
{
    return QSize(0, sizeHint().height());
}

int PGMDQ_DEBUG_WAVEFORM_RULER::waves_left() const
{
    const QWidget* viewport = m_owner->waveform_view()->viewport();
    return mapFromGlobal(viewport->mapToGlobal(QPoint(0, 0))).x();
}

double PGMDQ_DEBUG_WAVEFORM_RULER::x_of(double sample) const
{
    return waves_left() + m_owner->viewport_x_of(sample);
}

QVector<PGMDQ_DEBUG_RULER_TICK> PGMDQ_DEBUG_WAVEFORM_RULER::ticks() const
{
    QVector<PGMDQ_DEBUG_RULER_TICK> ticks;
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = m_owner->shown_trace();
    if (!trace)
        return ticks;
    const double pixels_per_sample = trace->step() * m_owner->zoom();
    // Labelled ticks far enough apart for the widest number the trace has, and a gap.
    const int widest = fontMetrics().horizontalAdvance(QString::number(trace->depth())) + RULER_LABEL_GAP;
    const std::uint64_t interval = nice_interval(widest / pixels_per_sample);
    std::uint64_t minor = interval % 5 == 0 && interval >= 5 ? interval / 5 : (interval % 2 == 0 ? interval / 2 : 0);
    if (minor == 0 || minor * pixels_per_sample < 4)
        minor = interval;
    const int width = m_owner->waveform_view()->viewport()->width();
    const double first = std::max(0.0, std::floor(m_owner->sample_at(0)));
    const double last = std::min(double(trace->depth()), std::ceil(m_owner->sample_at(width)));
    for (std::uint64_t sample = std::uint64_t(std::ceil(first / minor)) * minor; double(sample) <= last;
         sample += minor)
        ticks.append({x_of(double(sample)), sample, sample % interval == 0 ? QString::number(sample) : QString()});
    return ticks;
}

QStringList PGMDQ_DEBUG_WAVEFORM_RULER::labels() const
{
    QStringList labels;
    for (const PGMDQ_DEBUG_RULER_TICK& tick : ticks())
        if (!tick.label.isEmpty())
            labels << tick.label;
    return labels;
}

QStringList PGMDQ_DEBUG_WAVEFORM_RULER::cursor_texts() const
{
    QStringList texts;
    if (!m_owner->shown_trace())
        return texts;
    const int primary = m_owner->primary_cursor();
    const int secondary = m_owner->secondary_cursor();
    if (primary >= 0)
        texts << tr("A %1").arg(primary);
    if (secondary >= 0)
        texts << tr("B %1").arg(secondary);
    if (primary >= 0 && secondary >= 0)
        texts << tr("Δ %1").arg(std::abs(secondary - primary));
    return texts;
}

// The cursors' texts, each kept on one line when the readout wraps.
QString PGMDQ_DEBUG_WAVEFORM_RULER::readout() const
{
    QStringList texts = cursor_texts();
    for (QString& text : texts)
        text.replace(' ', QChar::Nbsp);
    return texts.join("   ");
}

void PGMDQ_DEBUG_WAVEFORM_RULER::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), RULER_BACKGROUND);
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = m_owner->shown_trace();
    if (!trace)
        return;
    const QFontMetrics metrics = fontMetrics();
    const int line = metrics.height();
    const int left = waves_left();
    const int bottom = height() - 1;

    // Over the names and values: the cursors' sample numbers and their distance.
    painter.setPen(RULER_TEXT);
    painter.drawText(QRect(4, 2, left - 8, height() - 4), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextWordWrap,
                     readout());

    painter.setClipRect(QRect(left, 0, width() - left, height()));
    // Ticks: labelled ones across the ruler with the sample number right of them, the others short.
    for (const PGMDQ_DEBUG_RULER_TICK& tick : ticks()) {
        const double x = std::floor(tick.x) + 0.5;
        painter.setPen(RULER_TICK);
        if (tick.label.isEmpty()) {
            painter.drawLine(QPointF(x, bottom - 4), QPointF(x, bottom));
            continue;
        }
        painter.drawLine(QPointF(x, 2), QPointF(x, bottom));
        painter.setPen(RULER_TEXT);
        painter.drawText(QPointF(x + 3, 2 + metrics.ascent()), tick.label);
    }

    // The cursors' flags on the lower line, and the distance between them.
    const int flag_top = line + 4;
    const int primary = m_owner->primary_cursor();
    const int secondary = m_owner->secondary_cursor();
    const auto flag = [&](int sample, const QString& text, const QColor& colour) {
        const double x = std::floor(x_of(sample)) + 0.5;
        painter.setPen(colour);
        painter.drawLine(QPointF(x, flag_top), QPointF(x, bottom));
        const int text_width = metrics.horizontalAdvance(text);
        const double text_x = x + 3 + text_width > width() ? x - 3 - text_width : x + 3;
        painter.drawText(QPointF(text_x, flag_top + metrics.ascent()), text);
        return QRectF(std::min(x, text_x), flag_top, text_width + 3, line);
    };
    const QStringList texts = cursor_texts();
    QRectF primary_flag;
    QRectF secondary_flag;
    if (primary >= 0)
        primary_flag = flag(primary, texts.value(0), PRIMARY_CURSOR_COLOUR);
    if (secondary >= 0)
        secondary_flag = flag(secondary, texts.value(primary >= 0 ? 1 : 0), SECONDARY_CURSOR_COLOUR);
    if (primary >= 0 && secondary >= 0) {
        const double from = std::min(x_of(primary), x_of(secondary));
        const double to = std::max(x_of(primary), x_of(secondary));
        const QString distance = texts.value(2);
        const int distance_width = metrics.horizontalAdvance(distance);
        const double middle_y = flag_top + line / 2.0;
        painter.setPen(RULER_TEXT);
        painter.drawLine(QPointF(from, middle_y), QPointF(to, middle_y));
        // Between the flags when there is room, else beyond the later one.
        double x = (from + to - distance_width) / 2;
        const QRectF box(x - 2, flag_top, distance_width + 4, line);
        if (box.intersects(primary_flag) || box.intersects(secondary_flag))
            x = std::max(primary_flag.right(), secondary_flag.right()) + 6;
        painter.fillRect(QRectF(x - 2, flag_top, distance_width + 4, line), RULER_BACKGROUND);
        painter.drawText(QPointF(x, flag_top + metrics.ascent()), distance);
    }
    if (m_dragging && m_drag_from != m_drag_to)
        painter.fillRect(QRect(std::min(m_drag_from, m_drag_to), 0, std::abs(m_drag_to - m_drag_from), height()),
                         QColor(255, 255, 255, 64));
}

void PGMDQ_DEBUG_WAVEFORM_RULER::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton || event->pos().x() < waves_left() || !m_owner->shown_trace()) {
        QWidget::mousePressEvent(event);
        return;
    }
    m_dragging = true;
    m_drag_from = m_drag_to = event->pos().x();
    event->accept();
}

void PGMDQ_DEBUG_WAVEFORM_RULER::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_dragging)
        return;
    m_drag_to = std::max(event->pos().x(), waves_left());
    m_owner->set_drag_band(m_drag_from - waves_left(), m_drag_to - waves_left());
    update();
}

void PGMDQ_DEBUG_WAVEFORM_RULER::mouseReleaseEvent(QMouseEvent* event)
{
    if (!m_dragging || event->button() != Qt::LeftButton)
        return;
    m_dragging = false;
    m_drag_to = std::max(event->pos().x(), waves_left());
    m_owner->set_drag_band(0, 0);
    const int left = waves_left();
    if (std::abs(m_drag_to - m_drag_from) >= DRAG_THRESHOLD) {
        m_owner->zoom_to_samples(m_owner->sample_at(m_drag_from - left), m_owner->sample_at(m_drag_to - left));
    } else {
        const std::uint32_t sample = std::uint32_t(std::max(0.0, std::floor(m_owner->sample_at(m_drag_from - left))));
        if (event->modifiers() & Qt::ShiftModifier)
            m_owner->set_secondary_cursor(sample);
        else
            m_owner->set_primary_cursor(sample);
    }
    update();
}

// --- The values column ---

PGMDQ_DEBUG_WAVEFORM_VALUES::PGMDQ_DEBUG_WAVEFORM_VALUES(PGMDQ_DEBUG_WAVEFORM_WIDGET* owner)
    : QWidget(owner), m_owner(owner)
{
    setToolTip(tr("Each signal's value at the primary cursor"));
}

void PGMDQ_DEBUG_WAVEFORM_VALUES::fit_width()
{
    unsigned digits = 3;
    if (const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = m_owner->shown_trace())
        for (unsigned row = 0; row < trace->row_count(); ++row)
            digits = std::max(digits, (trace->row(row).width + 3) / 4);
    setFixedWidth(fontMetrics().horizontalAdvance(QString(int(digits), QChar('F'))) + 2 * int(GEOMETRY::LABEL_MARGIN) + 8);
}

QStringList PGMDQ_DEBUG_WAVEFORM_VALUES::texts() const
{
    QStringList texts;
    const std::shared_ptr<const PGMDQ_DEBUG_WAVE_TRACE> trace = m_owner->shown_trace();
    const int cursor = m_owner->primary_cursor();
    if (!trace)
        return texts;
    for (unsigned row = 0; row < trace->row_count(); ++row)
        texts << (cursor >= 0 && std::uint32_t(cursor) < trace->depth() ? trace->value_text(row, std::uint32_t(cursor))
                                                                          : QString());
    return texts;
}

double PGMDQ_DEBUG_WAVEFORM_VALUES::row_y(unsigned row) const
{
    const QGraphicsView* names = m_owner->text_view();
    const QPointF in_viewport = names->viewportTransform().map(QPointF(0, GEOMETRY::row_top(row)));
    const QPoint viewport_origin = mapFromGlobal(names->viewport()->mapToGlobal(QPoint(0, 0)));
    return viewport_origin.y() + in_viewport.y();
}

void PGMDQ_DEBUG_WAVEFORM_VALUES::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), PGMDQ_DEBUG_BG_COLOR);
    const QStringList values = texts();
    const QFontMetricsF metrics(font());
    // Only the part beside the names' viewport: rows scrolled away are not shown.
    const QGraphicsView* names = m_owner->text_view();
    const QPoint viewport_origin = mapFromGlobal(names->viewport()->mapToGlobal(QPoint(0, 0)));
    painter.setClipRect(QRect(0, viewport_origin.y(), width(), names->viewport()->height()));
    const int selected = m_owner->selected_row();
    for (int row = 0; row < values.size(); ++row) {
        const double top = row_y(unsigned(row));
        if (row == selected)
            painter.fillRect(QRectF(0, top - GEOMETRY::ROW_EXTRA_OFFSET, width(),
                                    GEOMETRY::ROW_PITCH + GEOMETRY::ROW_EXTRA_OFFSET),
                             SELECTED_ROW_COLOUR);
        painter.setPen(row_colour(unsigned(row)));
        painter.drawText(QPointF(GEOMETRY::LABEL_MARGIN, top + GEOMETRY::LABEL_MARGIN + metrics.ascent()), values[row]);
    }
}

// A click beside a name selects that signal, as a click on the name does.
void PGMDQ_DEBUG_WAVEFORM_VALUES::mousePressEvent(QMouseEvent* event)
{
    for (unsigned row = 0; m_owner->shown_trace() && row < m_owner->shown_trace()->row_count(); ++row) {
        const double top = row_y(row) - GEOMETRY::ROW_EXTRA_OFFSET;
        if (event->pos().y() >= top && event->pos().y() < top + GEOMETRY::ROW_PITCH + GEOMETRY::ROW_EXTRA_OFFSET) {
            m_owner->select_row(int(row));
            break;
        }
    }
    event->accept();
}
