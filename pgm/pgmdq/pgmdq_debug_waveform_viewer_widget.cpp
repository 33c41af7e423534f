// The debug waveform viewer's trace widget: its layout (toolbar, ruler, names, values, waves,
// status line), the trace it keeps and shows, its ".wvf" save and open, and the state the
// navigation starts from with each new trace.
//
// The names view and the waves share one vertical scroll position (both viewports have the same
// height: each keeps its horizontal scroll bar), so a name stays beside its trace.
#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer.h"
#include "pgmdq_debug_waveform_viewer_errors.h"

#include <QAction>
#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QRegularExpression>
#include <QRegularExpressionValidator>
#include <QScrollBar>
#include <QToolBar>

namespace {

using GEOMETRY = PGMDQ_DEBUG_WAVE_GEOMETRY;

} // namespace

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
    const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace();
    if (!trace || row >= trace->row_count())
        return QString();
    const PGMDQ_DEBUG_DRAWN_TRACE::ROW& r = trace->row(row);
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
    if (const std::shared_ptr<const PGMDQ_DEBUG_DRAWN_TRACE> trace = shown_trace())
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

// --- The trace kept and shown ---

void PGMDQ_DEBUG_WAVEFORM_WIDGET::draw_waveform(unsigned width, unsigned depth, unsigned char** waveforms,
                                                const PGMDQ_DEBUG_SIGNAL* debug_signals, unsigned /*start*/, int step)
{
    m_waveform_data.reset();
    if (width == 0) {
        PGMDQ_WAVE_ASSERT(depth == 0 && waveforms == NULL && debug_signals == NULL);
        return;
    }
    PGMDQ_WAVE_ASSERT(depth > 0 && waveforms != NULL && debug_signals != NULL);
    show_trace(PGMDQ_DEBUG_TRACE::copy_of(width, depth, waveforms, debug_signals), step);
}

// The names, then the waves, from the one trace kept: a trace is held once however it is shown.
void PGMDQ_DEBUG_WAVEFORM_WIDGET::show_trace(std::shared_ptr<const PGMDQ_DEBUG_TRACE> trace, int step)
{
    m_text_scene->draw_text(trace->signal_table());
    m_waveform_scene->draw_trace(trace, 0, step);
    m_waveform_data = std::move(trace);
    reset_navigation();
}

const unsigned char* PGMDQ_DEBUG_WAVEFORM_WIDGET::sample(unsigned index) const
{
    if (!m_waveform_data || index >= m_waveform_data->depth())
        return nullptr;
    return m_waveform_data->sample(index);
}

bool PGMDQ_DEBUG_WAVEFORM_WIDGET::save_waveform(std::string path)
{
    // Saving needs a trace of the debug IP, stated as the widget's trace fields (data, width, depth).
    if (!(m_waveform_data != NULL && m_waveform_data->width() > 0 && m_waveform_data->depth() &&
          PGMDQ_SFL_DEBUG_SIZE == m_waveform_data->width()))
        PGMDQ_WAVE_INTERNAL_ERROR("m_waveform_data != NULL && m_waveform_width > 0 && m_waveform_depth && "
                                  "PGMDQ_SFL_DEBUG_SIZE == m_waveform_width");
    return m_waveform_data->write_wvf(path);
}

void PGMDQ_DEBUG_WAVEFORM_WIDGET::open_waveform(std::string path)
{
    show_trace(PGMDQ_DEBUG_TRACE::read_wvf(path), PGMDQ_DEBUG_WAVE_GEOMETRY::TRACE_STEP);
}
