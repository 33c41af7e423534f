// The suite's dialogs: the dialog base, the file dialog, the busy dialog, the wait cursor and the
// icon set. Modal dialogs take preset answers (a test hook and environment variables) so that
// tests and scripted runs never block on them.
#pragma once

class QPushButton;

#include <QDialog>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QIcon>
#include <QStringList>

#include <functional>

class QLabel;
class QTimer;

// Base of the suite's dialogs.
class TFCQ_DIALOG : public QDialog {
    Q_OBJECT
public:
    explicit TFCQ_DIALOG(QWidget* parent = nullptr, Qt::WindowFlags flags = Qt::WindowFlags());

    // The next modal run of any suite dialog is answered by `answer` instead of the user: the
    // dialog is shown, `answer` acts on it (clicks its widgets) and returns the dialog's result.
    static void preset_answer(std::function<int(TFCQ_DIALOG*)> answer);
    static void clear_preset_answers();

    // Runs modally unless an answer is preset; the environment's TFCQ_DIALOG_ANSWER ("accept" or
    // "reject") answers every dialog of a scripted run.
    int exec() override;
};

class TFCQ_FILE_DLG : public QFileDialog {
    Q_OBJECT
public:
    enum MODE { OPEN_EXISTING_FILE, SAVE_FILE, OPEN_DIRECTORY };

    TFCQ_FILE_DLG(QWidget* parent, MODE mode, const QString& title, const QString& name_filter);

    // The next dialog chooses `file`; an empty name cancels it. The environment's
    // TFCQ_FILE_DLG_ANSWER (a path, or "cancel") answers every file dialog of a scripted run.
    static void preset_answer(const QString& file);
    static void clear_preset_answers();

    int exec() override;
    QStringList selected_files() const;

private:
    QStringList m_preset_files;
    bool m_preset = false;
};

// Shows a text, a title and the elapsed time while the caller works synchronously; windows stay
// painted through thr_msleep and the timer. Closes when destroyed.
class TFCQ_BUSY_DLG : public QDialog {
    Q_OBJECT
public:
    TFCQ_BUSY_DLG(const QString& text, const QString& title, QWidget* parent = nullptr);
    ~TFCQ_BUSY_DLG() override;

    QString text() const;
    QString elapsed_text() const;

    // A line under the text saying how far the work has come.
    void set_progress(const QString& progress);
    QString progress() const;

    // Adds a "Cancel" button; pressing it (or Escape) emits cancel_requested() once and leaves
    // the dialog up until its owner has wound the work down.
    void set_cancellable();
    bool cancel_was_requested() const;

signals:
    void cancel_requested();

protected:
    void reject() override;

private slots:
    void update_elapsed();

private:
    QLabel* m_text_label;
    QLabel* m_progress_label;
    QLabel* m_elapsed_label;
    QPushButton* m_cancel_button;
    QTimer* m_timer;
    QElapsedTimer m_elapsed;
    bool m_cancel_requested;
};

// The busy cursor for the lifetime of the object.
class TFCQ_WAIT_CURSOR {
public:
    TFCQ_WAIT_CURSOR();
    ~TFCQ_WAIT_CURSOR();
    TFCQ_WAIT_CURSOR(const TFCQ_WAIT_CURSOR&) = delete;
    TFCQ_WAIT_CURSOR& operator=(const TFCQ_WAIT_CURSOR&) = delete;
};

// An icon of the suite's icon set by its number; an unknown number gives a drawn placeholder.
QIcon tfcq_get_icon(int number);
