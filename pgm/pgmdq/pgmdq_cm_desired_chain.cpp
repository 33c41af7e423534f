#include "pgmdq_msgs.h"

#include "pgmdq_cm_desired_chain.h"

void PGMDQ_CM_DESIRED_CHAIN::mousePressEvent(QGraphicsSceneMouseEvent* event)
{
    QGraphicsScene::mousePressEvent(event);
}

void PGMDQ_CM_DESIRED_CHAIN::mouseDoubleClickEvent(QGraphicsSceneMouseEvent* event)
{
    QGraphicsScene::mouseDoubleClickEvent(event);
}
