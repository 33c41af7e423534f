#pragma once

#include <QWidget>

class PGMDQ_COOKIE_MONSTER : public QWidget {
    Q_OBJECT
public:
    explicit PGMDQ_COOKIE_MONSTER(QWidget* parent = nullptr);
    ~PGMDQ_COOKIE_MONSTER() override;

protected:
    void resizeEvent(QResizeEvent* event) override;
};
