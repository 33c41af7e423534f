#include "pgmdq_msgs.h"

#include "pgmdq_cm_auto_chain.h"

void PGMDQ_CM_AUTO_CHAIN::mousePressEvent(QGraphicsSceneMouseEvent* event)
{
    QGraphicsScene::mousePressEvent(event);
}

void PGMDQ_CM_AUTO_CHAIN::mouseDoubleClickEvent(QGraphicsSceneMouseEvent* event)
{
    QGraphicsScene::mouseDoubleClickEvent(event);
}
