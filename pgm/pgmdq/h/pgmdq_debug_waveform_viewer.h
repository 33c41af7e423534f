#pragma once

#include <QWidget>

class PGMDQ_DEBUG_WAVEFORM_VIEWER : public QWidget {
    Q_OBJECT
public:
    explicit PGMDQ_DEBUG_WAVEFORM_VIEWER(QWidget* parent = nullptr);
    ~PGMDQ_DEBUG_WAVEFORM_VIEWER() override;

protected:
    void resizeEvent(QResizeEvent* event) override;
};
