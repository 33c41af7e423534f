// The Kiopru panel's test batch, which its command list shows line for line: each line typed as
// it was made (a test command, a process of the run, a test's verdict or one of its details) with
// its colour code. Runs, saves and unattended runs read the batch from here, not from the list.
#pragma once

#include <QString>
#include <QStringList>

#include <string>
#include <vector>

// Colour codes of the command list's lines.
enum PGMDQ_CMD_LIST_COLOR : unsigned {
    PGMDQ_CMD_COLOR = 0,
    PGMDQ_PROCESS_COLOR = 1,
    PGMDQ_PASS_RESULT_COLOR = 2,
    PGMDQ_FAIL_RESULT_COLOR = 3,
};

class PGMDQ_COOKIE_MONSTER_MODEL {
public:
    enum KIND { COMMAND, PROCESS, VERDICT, DETAIL };
    struct LINE {
        KIND kind;
        QString text; // a detail's own text, without the prefix it is shown with
        unsigned color;
    };
    // One test of the last run: its verdict line and the details that follow it.
    struct RESULT {
        QString verdict;
        bool passed;
        QStringList details;
    };

    // What a detail line starts with in the list and in a saved batch.
    static const QString DETAIL_PREFIX;

    int count() const { return int(m_lines.size()); }
    const LINE& line(int row) const { return m_lines[size_t(row)]; }
    // The line's text as the list shows it and a saved batch holds it.
    QString shown_text(int row) const;

    void append(const LINE& line) { m_lines.push_back(line); }
    void remove(int row);
    void clear() { m_lines.clear(); }

    // Whether some line begins with `text` (a command or process already there, or a longer one).
    bool covers(const QString& text) const;
    bool has_command() const;
    QStringList commands() const;
    // Every line as shown, in the local 8-bit encoding: what the chain manager and a save get.
    std::vector<std::string> shown_texts() const;
    std::vector<RESULT> results() const;

private:
    std::vector<LINE> m_lines;
};
