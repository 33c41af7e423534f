#include "pgmdq_msgs.h"

#include "pgmdq_miscellaneous.h"
#include "pgmdq_miscellaneous_files.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

const QString PGMDQ_PROCESS_SKIP_FLASH = QStringLiteral("Skip flash programming / verification");
const QString PGMDQ_PROCESS_SKIP_ENGINE = QStringLiteral("Skip engine operation");

namespace {

// "PROCESS", one separator, then the flag.
const int PROCESS_FLAG_POSITION = static_cast<int>(PGMD_CM_PROCESS_STRING.size()) + 1;
const QChar PROCESS_SKIPPED_FLAG = QLatin1Char('-');
const QChar PROCESS_RUNS_FLAG = QLatin1Char('+');
const int PROCESS_DIALOG_ICON = 485;

QFrame* new_separator(QWidget* parent)
{
    auto* line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    line->setLineWidth(1);
    line->setMidLineWidth(0);
    return line;
}

// A line whose flag is neither "+" nor "-" is a generator fault.
bool is_skipped_process(const QString& line)
{
    const QChar flag = line.size() > PROCESS_FLAG_POSITION ? line[PROCESS_FLAG_POSITION] : QChar();
    if (flag != PROCESS_SKIPPED_FLAG && flag != PROCESS_RUNS_FLAG)
        PGMDQ_INTERNAL_ERROR("Invalid PROCESS string expectation");
    return flag == PROCESS_SKIPPED_FLAG;
}

void write_flag(QCheckBox* box)
{
    QString text = box->text();
    text[PROCESS_FLAG_POSITION] = box->isChecked() ? PROCESS_SKIPPED_FLAG : PROCESS_RUNS_FLAG;
    box->setText(text);
}

} // namespace

PGMDQ_PROCESS_DLG::PGMDQ_PROCESS_DLG(const std::vector<std::string>& processes, QWidget* parent)
    : TFCQ_DIALOG(parent),
      m_skip_flash_check(new QCheckBox(this)),
      m_skip_engine_check(new QCheckBox(this)),
      m_ok_button(new QPushButton(this)),
      m_process_count(0)
{
    PGMDQ_ASSERT(processes.size() > 0);
    setWindowTitle(tr("Processes"));
    setWindowIcon(tfcq_get_icon(PROCESS_DIALOG_ICON));

    auto* label = new QLabel(tr("Check if you would like to skip the process"), this);
    label->setWordWrap(true);

    m_process_checks.push_back(new QCheckBox(tr("All"), this));
    bool any_checked = false;
    bool any_unchecked = false;
    for (const std::string& process : processes) {
        auto* box = new QCheckBox(pgmdq_from_local8(process), this);
        const bool skipped = is_skipped_process(box->text());
        box->setChecked(skipped);
        any_checked |= skipped;
        any_unchecked |= !skipped;
        m_process_checks.push_back(box);
    }
    m_process_count = static_cast<unsigned>(m_process_checks.size());
    all_check()->setTristate(true);
    set_all_state(any_checked, any_unchecked);

    m_skip_flash_check->setText(PGMDQ_PROCESS_SKIP_FLASH);
    m_skip_engine_check->setText(PGMDQ_PROCESS_SKIP_ENGINE);
    m_ok_button->setText(tr("Ok"));

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(label);
    layout->addWidget(new_separator(this));
    for (QCheckBox* box : m_process_checks)
        layout->addWidget(box);
    layout->addWidget(new_separator(this));
    layout->addWidget(m_skip_flash_check);
    layout->addWidget(m_skip_engine_check);
    auto* button_row = new QHBoxLayout();
    button_row->addStretch();
    button_row->addWidget(m_ok_button);
    layout->addLayout(button_row);
    setFixedSize(sizeHint());

    connect(all_check(), &QCheckBox::clicked, this, &PGMDQ_PROCESS_DLG::on_all_clicked);
    for (unsigned i = 1; i < m_process_count; ++i)
        connect(m_process_checks[i], &QCheckBox::clicked, this, &PGMDQ_PROCESS_DLG::on_clicked);
    connect(m_ok_button, &QPushButton::clicked, this, &PGMDQ_PROCESS_DLG::on_ok);
}

std::vector<std::string> PGMDQ_PROCESS_DLG::get_processes() const
{
    std::vector<std::string> processes;
    for (unsigned i = 1; i < m_process_count; ++i)
        processes.push_back(pgmdq_local8(m_process_checks[i]->text()));
    return processes;
}

void PGMDQ_PROCESS_DLG::set_all_state(bool any_checked, bool any_unchecked)
{
    if (any_checked && any_unchecked)
        all_check()->setCheckState(Qt::PartiallyChecked);
    else
        all_check()->setCheckState(any_checked ? Qt::Checked : Qt::Unchecked);
}

// A click on a partially checked "All" box selects every process.
void PGMDQ_PROCESS_DLG::on_all_clicked()
{
    const bool check = all_check()->checkState() != Qt::Unchecked;
    if (check)
        all_check()->setCheckState(Qt::Checked);
    for (unsigned i = 1; i < m_process_count; ++i) {
        m_process_checks[i]->setChecked(check);
        write_flag(m_process_checks[i]);
    }
}

void PGMDQ_PROCESS_DLG::on_clicked()
{
    bool any_checked = false;
    bool any_unchecked = false;
    for (unsigned i = 1; i < m_process_count; ++i) {
        write_flag(m_process_checks[i]);
        any_checked |= m_process_checks[i]->isChecked();
        any_unchecked |= !m_process_checks[i]->isChecked();
    }
    set_all_state(any_checked, any_unchecked);
}

void PGMDQ_PROCESS_DLG::on_ok()
{
    QDialog::accept();
}
