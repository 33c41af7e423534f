#pragma once

#include <QWidget>

class PGMDQ_POF_CHECKER : public QWidget {
    Q_OBJECT
public:
    explicit PGMDQ_POF_CHECKER(QWidget* parent = nullptr);
    ~PGMDQ_POF_CHECKER() override;

protected:
    void resizeEvent(QResizeEvent* event) override;
};
