#include "tfcq.h"

#include <QApplication>
#include <QDir>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QPainter>
#include <QStyle>
#include <QTimer>
#include <QVBoxLayout>

#include <deque>

namespace {

std::deque<std::function<int(TFCQ_DIALOG*)>>& dialog_answers()
{
    static std::deque<std::function<int(TFCQ_DIALOG*)>> answers;
    return answers;
}

std::deque<QString>& file_answers()
{
    static std::deque<QString> answers;
    return answers;
}

QString environment_answer(const char* name)
{
    return QString::fromLocal8Bit(qgetenv(name));
}

} // namespace

TFCQ_DIALOG::TFCQ_DIALOG(QWidget* parent, Qt::WindowFlags flags) : QDialog(parent, flags) {}

void TFCQ_DIALOG::preset_answer(std::function<int(TFCQ_DIALOG*)> answer)
{
    dialog_answers().push_back(std::move(answer));
}

void TFCQ_DIALOG::clear_preset_answers()
{
    dialog_answers().clear();
}

int TFCQ_DIALOG::exec()
{
    if (!dialog_answers().empty()) {
        const auto answer = std::move(dialog_answers().front());
        dialog_answers().pop_front();
        show();
        const int result = answer(this);
        hide();
        setResult(result);
        return result;
    }
    const QString scripted = environment_answer("TFCQ_DIALOG_ANSWER");
    if (scripted == "accept" || scripted == "reject") {
        const int result = scripted == "accept" ? QDialog::Accepted : QDialog::Rejected;
        setResult(result);
        return result;
    }
    return QDialog::exec();
}

TFCQ_FILE_DLG::TFCQ_FILE_DLG(QWidget* parent, MODE mode, const QString& title, const QString& name_filter)
    : QFileDialog(parent, title, QDir::currentPath(), name_filter)
{
    setOption(QFileDialog::DontUseNativeDialog);
    switch (mode) {
    case OPEN_EXISTING_FILE:
        setAcceptMode(QFileDialog::AcceptOpen);
        setFileMode(QFileDialog::ExistingFile);
        break;
    case SAVE_FILE:
        setAcceptMode(QFileDialog::AcceptSave);
        setFileMode(QFileDialog::AnyFile);
        break;
    case OPEN_DIRECTORY:
        setAcceptMode(QFileDialog::AcceptOpen);
        setFileMode(QFileDialog::Directory);
        break;
    }
}

void TFCQ_FILE_DLG::preset_answer(const QString& file)
{
    file_answers().push_back(file);
}

void TFCQ_FILE_DLG::clear_preset_answers()
{
    file_answers().clear();
}

int TFCQ_FILE_DLG::exec()
{
    QString answer;
    if (!file_answers().empty()) {
        answer = file_answers().front();
        file_answers().pop_front();
    } else if (qEnvironmentVariableIsSet("TFCQ_FILE_DLG_ANSWER")) {
        answer = environment_answer("TFCQ_FILE_DLG_ANSWER");
        if (answer == "cancel")
            answer.clear();
    } else {
        return QFileDialog::exec();
    }
    m_preset = true;
    m_preset_files = answer.isEmpty() ? QStringList() : QStringList(answer);
    const int result = answer.isEmpty() ? QDialog::Rejected : QDialog::Accepted;
    setResult(result);
    return result;
}

QStringList TFCQ_FILE_DLG::selected_files() const
{
    return m_preset ? m_preset_files : selectedFiles();
}

TFCQ_BUSY_DLG::TFCQ_BUSY_DLG(const QString& text, const QString& title, QWidget* parent)
    : QDialog(parent),
      m_text_label(new QLabel(text)),
      m_progress_label(new QLabel),
      m_elapsed_label(new QLabel),
      m_cancel_button(nullptr),
      m_timer(new QTimer(this)),
      m_cancel_requested(false)
{
    setWindowTitle(title);
    setWindowModality(Qt::ApplicationModal);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_text_label);
    layout->addWidget(m_progress_label);
    m_progress_label->hide();
    layout->addWidget(m_elapsed_label);
    m_elapsed.start();
    update_elapsed();
    connect(m_timer, &QTimer::timeout, this, &TFCQ_BUSY_DLG::update_elapsed);
    m_timer->start(250);  // often enough that the seconds shown never lag by a whole second
    show();
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}

TFCQ_BUSY_DLG::~TFCQ_BUSY_DLG()
{
    m_timer->stop();
    hide();
}

QString TFCQ_BUSY_DLG::text() const
{
    return m_text_label->text();
}

QString TFCQ_BUSY_DLG::elapsed_text() const
{
    return m_elapsed_label->text();
}

void TFCQ_BUSY_DLG::set_progress(const QString& progress)
{
    m_progress_label->setText(progress);
    m_progress_label->setVisible(!progress.isEmpty());
}

QString TFCQ_BUSY_DLG::progress() const
{
    return m_progress_label->text();
}

void TFCQ_BUSY_DLG::set_cancellable()
{
    if (m_cancel_button)
        return;
    m_cancel_button = new QPushButton(tr("Cancel"), this);
    auto* row = new QHBoxLayout;
    row->addStretch();
    row->addWidget(m_cancel_button);
    static_cast<QVBoxLayout*>(layout())->addLayout(row);
    connect(m_cancel_button, &QPushButton::clicked, this, &TFCQ_BUSY_DLG::reject);
}

bool TFCQ_BUSY_DLG::cancel_was_requested() const
{
    return m_cancel_requested;
}

// Escape and the window's close button land here too: without a Cancel button the work cannot be
// stopped, so nothing happens; with one, the owner is asked once and the dialog stays up.
void TFCQ_BUSY_DLG::reject()
{
    if (!m_cancel_button || m_cancel_requested)
        return;
    m_cancel_requested = true;
    m_cancel_button->setEnabled(false);
    emit cancel_requested();
}

void TFCQ_BUSY_DLG::update_elapsed()
{
    const qint64 seconds = m_elapsed.elapsed() / 1000;
    m_elapsed_label->setText(tr("Elapsed time: %1:%2:%3")
                                 .arg(seconds / 3600, 2, 10, QChar('0'))
                                 .arg(seconds / 60 % 60, 2, 10, QChar('0'))
                                 .arg(seconds % 60, 2, 10, QChar('0')));
}

TFCQ_WAIT_CURSOR::TFCQ_WAIT_CURSOR()
{
    QApplication::setOverrideCursor(Qt::WaitCursor);
}

TFCQ_WAIT_CURSOR::~TFCQ_WAIT_CURSOR()
{
    QApplication::restoreOverrideCursor();
}

namespace {

struct STOCK_ICON {
    int number;
    QStyle::StandardPixmap pixmap;
};

// The numbers the suite's panels ask for, mapped onto the platform style's pictures.
const STOCK_ICON STOCK_ICONS[] = {
    {485, QStyle::SP_FileDialogDetailedView},
    {100, QStyle::SP_MessageBoxInformation},
    {101, QStyle::SP_MessageBoxWarning},
    {102, QStyle::SP_MessageBoxCritical},
};

QIcon drawn_icon(int number)
{
    QPixmap pixmap(16, 16);
    pixmap.fill(QColor::fromHsv(number * 37 % 360, 160, 200));
    QPainter painter(&pixmap);
    painter.setPen(Qt::black);
    painter.drawRect(0, 0, 15, 15);
    return QIcon(pixmap);
}

} // namespace

QIcon tfcq_get_icon(int number)
{
    for (const STOCK_ICON& icon : STOCK_ICONS)
        if (icon.number == number)
            return QApplication::style()->standardIcon(icon.pixmap);
    return drawn_icon(number);
}
