#include "pgmdq_msgs.h"

#include "pgmdq_cookie_monster.h"

#include <QLabel>
#include <QVBoxLayout>

PGMDQ_COOKIE_MONSTER::PGMDQ_COOKIE_MONSTER(QWidget* parent) : QWidget(parent)
{
    auto* description = new QLabel(tr("Kiopru will interface with Bramble system for automated configuration checkout, Programmer IP and Programmer engine testing."));
    description->setWordWrap(true);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(description);
    layout->addStretch();
    setMinimumWidth(600);
}

PGMDQ_COOKIE_MONSTER::~PGMDQ_COOKIE_MONSTER() = default;

void PGMDQ_COOKIE_MONSTER::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
}
