// The process selection dialog, clicked as a user would: the tri-state "All" box, the flag at
// position 8 of every process line, and the internal errors for malformed input.
#include "pgmdq_miscellaneous.h"

#include "msg.h"

#include <QPushButton>
#include <QtTest>

namespace {

using LINES = std::vector<std::string>;

QCheckBox* find_box(const PGMDQ_PROCESS_DLG& dialog, const QString& text)
{
    for (QCheckBox* box : dialog.findChildren<QCheckBox*>())
        if (box->text() == text)
            return box;
    return nullptr;
}

// A process box by its process name; its flag changes with its state.
QCheckBox* process_box(const PGMDQ_PROCESS_DLG& dialog, const QString& process)
{
    for (QCheckBox* box : dialog.findChildren<QCheckBox*>())
        if (box->text().startsWith("PROCESS") && box->text().mid(9) == process)
            return box;
    return nullptr;
}

void click(QAbstractButton* button)
{
    QVERIFY(button);
    QTest::mouseClick(button, Qt::LeftButton, Qt::NoModifier, QPoint(5, button->height() / 2));
}

void show(PGMDQ_PROCESS_DLG& dialog)
{
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
}

QString internal_error_of(const LINES& lines)
{
    try {
        PGMDQ_PROCESS_DLG dialog(lines);
    } catch (const MSG_INTERNAL_ERROR_EXCEPTION& error) {
        if (error.module() != "PGMDQ" || error.file() != "pgmdq_miscellaneous")
            return "wrong origin";
        return QString::fromStdString(error.text());
    }
    return QString();
}

} // namespace

Q_DECLARE_METATYPE(LINES)

class TEST_KIOPRU_PROCESS_DLG : public QObject {
    Q_OBJECT
private slots:
    void all_box_follows_the_processes_data();
    void all_box_follows_the_processes();
    void all_box_clicks_select_and_clear_everything();
    void process_click_rewrites_its_flag();
    void malformed_input_is_an_internal_error_data();
    void malformed_input_is_an_internal_error();
    void accepted_run_hands_back_choices();
};

void TEST_KIOPRU_PROCESS_DLG::all_box_follows_the_processes_data()
{
    QTest::addColumn<LINES>("lines");
    QTest::addColumn<int>("all_state");
    QTest::newRow("one skipped") << LINES{"PROCESS -Generate SOF"} << int(Qt::Checked);
    QTest::newRow("mixed") << LINES{"PROCESS +Generate SOF", "PROCESS -Generate PFL IP"} << int(Qt::PartiallyChecked);
    QTest::newRow("none skipped") << LINES{"PROCESS +Generate SOF", "PROCESS +Generate JIC"} << int(Qt::Unchecked);
}

void TEST_KIOPRU_PROCESS_DLG::all_box_follows_the_processes()
{
    QFETCH(LINES, lines);
    QFETCH(int, all_state);
    PGMDQ_PROCESS_DLG dialog(lines);
    QCOMPARE(dialog.windowTitle(), QString("Processes"));
    QCheckBox* all = find_box(dialog, "All");
    QVERIFY(all);
    QVERIFY(all->isTristate());
    QCOMPARE(int(all->checkState()), all_state);
    for (const std::string& line : lines) {
        QCheckBox* box = find_box(dialog, QString::fromStdString(line));
        QVERIFY(box);
        QCOMPARE(box->isChecked(), line[8] == '-');
    }
    QCOMPARE(dialog.get_processes(), lines);
    QVERIFY(find_box(dialog, "Skip flash programming / verification"));
    QVERIFY(find_box(dialog, "Skip engine operation"));
}

void TEST_KIOPRU_PROCESS_DLG::all_box_clicks_select_and_clear_everything()
{
    PGMDQ_PROCESS_DLG dialog({"PROCESS +Generate SOF", "PROCESS -Generate PFL IP", "PROCESS +Generate PFL POF"});
    show(dialog);
    QCheckBox* all = find_box(dialog, "All");
    QCOMPARE(all->checkState(), Qt::PartiallyChecked);

    click(all);
    QCOMPARE(all->checkState(), Qt::Checked);
    const LINES all_skipped{"PROCESS -Generate SOF", "PROCESS -Generate PFL IP", "PROCESS -Generate PFL POF"};
    QCOMPARE(dialog.get_processes(), all_skipped);
    for (const std::string& line : all_skipped)
        QVERIFY(find_box(dialog, QString::fromStdString(line))->isChecked());

    click(all);
    QCOMPARE(all->checkState(), Qt::Unchecked);
    const LINES all_run{"PROCESS +Generate SOF", "PROCESS +Generate PFL IP", "PROCESS +Generate PFL POF"};
    QCOMPARE(dialog.get_processes(), all_run);

    // From unchecked a click selects everything again rather than stopping half-way.
    click(all);
    QCOMPARE(all->checkState(), Qt::Checked);
    QCOMPARE(dialog.get_processes(), all_skipped);
}

void TEST_KIOPRU_PROCESS_DLG::process_click_rewrites_its_flag()
{
    PGMDQ_PROCESS_DLG dialog({"PROCESS +Generate SOF", "PROCESS +Generate JIC"});
    show(dialog);
    QCheckBox* all = find_box(dialog, "All");

    click(process_box(dialog, "Generate JIC"));
    QCOMPARE(dialog.get_processes(), (LINES{"PROCESS +Generate SOF", "PROCESS -Generate JIC"}));
    QCOMPARE(all->checkState(), Qt::PartiallyChecked);

    click(process_box(dialog, "Generate SOF"));
    QCOMPARE(dialog.get_processes(), (LINES{"PROCESS -Generate SOF", "PROCESS -Generate JIC"}));
    QCOMPARE(all->checkState(), Qt::Checked);

    click(process_box(dialog, "Generate JIC"));
    click(process_box(dialog, "Generate SOF"));
    QCOMPARE(dialog.get_processes(), (LINES{"PROCESS +Generate SOF", "PROCESS +Generate JIC"}));
    QCOMPARE(all->checkState(), Qt::Unchecked);
}

void TEST_KIOPRU_PROCESS_DLG::malformed_input_is_an_internal_error_data()
{
    QTest::addColumn<LINES>("lines");
    QTest::addColumn<QString>("error");
    QTest::newRow("no processes") << LINES{} << "processes.size() > 0";
    QTest::newRow("bad flag") << LINES{"PROCESS +Generate SOF", "PROCESS *Generate JIC"}
                              << "Invalid PROCESS string expectation";
    QTest::newRow("flag missing") << LINES{"PROCESS "} << "Invalid PROCESS string expectation";
    QTest::newRow("flag at the wrong place") << LINES{"PROCESS+Generate SOF"} << "Invalid PROCESS string expectation";
}

void TEST_KIOPRU_PROCESS_DLG::malformed_input_is_an_internal_error()
{
    QFETCH(LINES, lines);
    QFETCH(QString, error);
    QCOMPARE(internal_error_of(lines), error);
}

void TEST_KIOPRU_PROCESS_DLG::accepted_run_hands_back_choices()
{
    PGMDQ_PROCESS_DLG dialog({"PROCESS +Generate SOF", "PROCESS +Generate PFL IP"});
    TFCQ_DIALOG::preset_answer([](TFCQ_DIALOG* shown) {
        auto* dialog = static_cast<PGMDQ_PROCESS_DLG*>(shown);
        click(process_box(*dialog, "Generate PFL IP"));
        click(find_box(*dialog, "Skip engine operation"));
        for (QPushButton* button : dialog->findChildren<QPushButton*>())
            if (button->text() == "Ok")
                click(button);
        return dialog->result();
    });
    QCOMPARE(dialog.exec(), int(QDialog::Accepted));
    QCOMPARE(dialog.get_processes(), (LINES{"PROCESS +Generate SOF", "PROCESS -Generate PFL IP"}));
    QVERIFY(dialog.m_skip_engine_check->isChecked());
    QVERIFY(!dialog.m_skip_flash_check->isChecked());
}

QTEST_MAIN(TEST_KIOPRU_PROCESS_DLG)
#include "test_kiopru_process_dlg.moc"
