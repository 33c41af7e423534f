#pragma once

#include <QGraphicsScene>

// A chain view; its mouse handlers only pass the events on.
class PGMDQ_CM_DESIRED_CHAIN : public QGraphicsScene {
    Q_OBJECT
public:
    using QGraphicsScene::QGraphicsScene;

protected:
    void mousePressEvent(QGraphicsSceneMouseEvent* event) override;
    void mouseDoubleClickEvent(QGraphicsSceneMouseEvent* event) override;
};
