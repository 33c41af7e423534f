#include "pgmdq_msgs.h"

#include "pgmdq_debug_waveform_viewer.h"

#include <QLabel>
#include <QVBoxLayout>

PGMDQ_DEBUG_WAVEFORM_VIEWER::PGMDQ_DEBUG_WAVEFORM_VIEWER(QWidget* parent) : QWidget(parent)
{
    auto* description = new QLabel(tr("Debug Waveform Viewer will interface with debug-feature-enabled Programmer IP and draw the debug waveform."));
    description->setWordWrap(true);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(description);
    layout->addStretch();
    setMinimumWidth(600);
}

PGMDQ_DEBUG_WAVEFORM_VIEWER::~PGMDQ_DEBUG_WAVEFORM_VIEWER() = default;

void PGMDQ_DEBUG_WAVEFORM_VIEWER::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
}
