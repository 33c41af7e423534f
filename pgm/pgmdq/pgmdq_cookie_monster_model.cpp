// The Kiopru panel's test batch and the command list that shows it: lines are added, deleted and
// saved through the batch, and the list follows it item for item.
#include "pgmdq_msgs.h"

#include "pgmdq_cookie_monster.h"

#include "pgmdq_miscellaneous_files.h"

#include "fio.h"
#include "tfcq.h"

#include <QListWidget>
#include <QPushButton>

#include <algorithm>
#include <functional>
#include <iterator>

const QString PGMDQ_COOKIE_MONSTER_MODEL::DETAIL_PREFIX = QStringLiteral("==========> ");

QString PGMDQ_COOKIE_MONSTER_MODEL::shown_text(int row) const
{
    const LINE& shown = line(row);
    return shown.kind == DETAIL ? DETAIL_PREFIX + shown.text : shown.text;
}

void PGMDQ_COOKIE_MONSTER_MODEL::remove(int row)
{
    m_lines.erase(m_lines.begin() + row);
}

bool PGMDQ_COOKIE_MONSTER_MODEL::covers(const QString& text) const
{
    for (int row = 0; row < count(); ++row)
        if (shown_text(row).startsWith(text))
            return true;
    return false;
}

bool PGMDQ_COOKIE_MONSTER_MODEL::has_command() const
{
    return std::any_of(m_lines.begin(), m_lines.end(), [](const LINE& line) { return line.kind == COMMAND; });
}

QStringList PGMDQ_COOKIE_MONSTER_MODEL::commands() const
{
    QStringList commands;
    for (const LINE& line : m_lines)
        if (line.kind == COMMAND)
            commands << line.text;
    return commands;
}

std::vector<std::string> PGMDQ_COOKIE_MONSTER_MODEL::shown_texts() const
{
    std::vector<std::string> texts;
    for (int row = 0; row < count(); ++row)
        texts.push_back(pgmdq_local8(shown_text(row)));
    return texts;
}

// Details belong to the verdict before them.
std::vector<PGMDQ_COOKIE_MONSTER_MODEL::RESULT> PGMDQ_COOKIE_MONSTER_MODEL::results() const
{
    std::vector<RESULT> results;
    for (const LINE& line : m_lines) {
        if (line.kind == VERDICT)
            results.push_back({line.text, line.color == PGMDQ_PASS_RESULT_COLOR, {}});
        else if (line.kind == DETAIL && !results.empty())
            results.back().details << line.text;
    }
    return results;
}

namespace {

const Qt::GlobalColor CMD_LIST_COLORS[] = {Qt::darkYellow, Qt::blue, Qt::darkGreen, Qt::red};

// What a line added by its colour alone is: results of a run are verdicts.
const PGMDQ_COOKIE_MONSTER_MODEL::KIND KIND_OF_COLOR[] = {
    PGMDQ_COOKIE_MONSTER_MODEL::COMMAND, PGMDQ_COOKIE_MONSTER_MODEL::PROCESS, PGMDQ_COOKIE_MONSTER_MODEL::VERDICT,
    PGMDQ_COOKIE_MONSTER_MODEL::VERDICT};

} // namespace

// Commands and processes already in the list (or covered by a longer line) are not repeated;
// results always are added.
void PGMDQ_COOKIE_MONSTER::add_cmd(const QString& text, unsigned color)
{
    if (color <= PGMDQ_PROCESS_COLOR && m_batch.covers(text))
        return;
    if (color >= std::size(CMD_LIST_COLORS))
        PGMDQ_INTERNAL_ERROR("Invalid color");
    append_line({KIND_OF_COLOR[color], text, color});
}

void PGMDQ_COOKIE_MONSTER::append_line(const PGMDQ_COOKIE_MONSTER_MODEL::LINE& line)
{
    m_batch.append(line);
    auto* item = new QListWidgetItem(m_batch.shown_text(m_batch.count() - 1));
    item->setForeground(QBrush(CMD_LIST_COLORS[line.color]));
    m_cmd_widget->addItem(item);
}

void PGMDQ_COOKIE_MONSTER::delete_item(int row)
{
    m_batch.remove(row);
    m_cmd_widget->removeItemWidget(m_cmd_widget->item(row));
    delete m_cmd_widget->takeItem(row);
}

void PGMDQ_COOKIE_MONSTER::clear_lines()
{
    m_batch.clear();
    m_cmd_widget->clear();
}

void PGMDQ_COOKIE_MONSTER::on_delete_test()
{
    const QList<QListWidgetItem*> items = m_cmd_widget->selectedItems();
    PGMDQ_ASSERT(items.size() > 0);
    std::vector<int> rows;
    for (QListWidgetItem* item : items) {
        PGMDQ_ASSERT(item != NULL);
        rows.push_back(m_cmd_widget->row(item));
    }
    // From the bottom up, so that the rows still to go keep their numbers.
    std::sort(rows.begin(), rows.end(), std::greater<int>());
    for (int row : rows)
        delete_item(row);
    for (int i = 0; i < m_batch.count(); ++i)
        PGMDQ_ASSERT(m_cmd_widget->item(i) != NULL);
    m_run_button->setEnabled(m_batch.has_command() && m_hardware_flags == BOTH_HARDWARE_FLAGS);
    m_save_msg_button->setEnabled(m_batch.count() > 0);
}

void PGMDQ_COOKIE_MONSTER::on_list_change()
{
    m_delete_button->setEnabled(!m_cmd_widget->selectedItems().isEmpty());
}

// The saved batch is the plain text of the list, one line each.
void PGMDQ_COOKIE_MONSTER::on_save_msg()
{
    TFCQ_FILE_DLG dialog(nullptr, TFCQ_FILE_DLG::SAVE_FILE, tr("Save Message"), tr("Text Files (*.txt)"));
    if (dialog.exec() != QDialog::Accepted)
        return;
    const QStringList selected_files = dialog.selected_files();
    PGMDQ_ASSERT(!selected_files.isEmpty());
    // A failed save is told, and leaves the previous file whole: the batch is the user's work.
    pgmdq_save_lines(selected_files.first(), m_batch.shown_texts());
}
