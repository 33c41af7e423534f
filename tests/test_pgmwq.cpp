// The hardware-selection dialog library, loaded by name the way the panels load it: preset
// answers for scripted runs, and the dialog itself driven with keys and clicks.
#include "pgmd_cm.h"
#include "thr.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <cstdlib>

namespace {

class Pgmwq : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        static int argc = 1;
        static char name[] = "test_pgmwq";
        static char* argv[] = {name, nullptr};
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        if (!QApplication::instance())
            new QApplication(argc, argv);
    }
    void SetUp() override
    {
        unsetenv("PGMWQ_HARDWARE_ANSWER");
        std::string error;
        ASSERT_TRUE(pgmd_cm_reload_bench(&error)) << error;
        void* library = thr_drl_load("pgm_pgmwq.dll");
        ASSERT_NE(library, nullptr) << thr_drl_last_error();
        m_dialog = reinterpret_cast<void (*)(unsigned*)>(thr_drl_find_function(library, "pgmwq_export_hardware_dlg"));
        m_preset = reinterpret_cast<void (*)(const char*)>(thr_drl_find_function(library, "pgmwq_set_preset_answer"));
        ASSERT_TRUE(m_dialog && m_preset);
    }
    void TearDown() override { unsetenv("PGMWQ_HARDWARE_ANSWER"); }

    unsigned choose()
    {
        unsigned hardware = 77; // the dialog always writes its answer
        m_dialog(&hardware);
        return hardware;
    }

    void (*m_dialog)(unsigned*) = nullptr;
    void (*m_preset)(const char*) = nullptr;
};

} // namespace

// Queued answers are used once each, in order, before the environment's answer, which stays; a
// cancel or a cable the bench does not have answers 0. The viewer panel's runs show the handles
// following a bench loaded since.
TEST_F(Pgmwq, PresetAnswersComeBeforeTheEnvironment)
{
    m_preset("DUT-USB [1-2]");
    m_preset(nullptr);
    m_preset("Lab-USB [1-3]");
    m_preset("No such cable");
    setenv("PGMWQ_HARDWARE_ANSWER", "Bench-USB [1-1]", 1);
    for (unsigned expected : {2u, 0u, 3u, 0u, 1u, 1u})
        EXPECT_EQ(choose(), expected);
    setenv("PGMWQ_HARDWARE_ANSWER", "cancel", 1);
    EXPECT_EQ(choose(), 0u);
}

// Two steps down the list of the bench's cables, then Ok or Cancel.
TEST_F(Pgmwq, TheDialogListsTheCablesAndReturnsTheChosenHandle)
{
    for (const auto& [clicked, expected] : {std::pair{QDialogButtonBox::Ok, 3u}, std::pair{QDialogButtonBox::Cancel, 0u}}) {
        QStringList listed;
        QTimer::singleShot(0, [&, clicked = clicked] {
            auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            ASSERT_TRUE(dialog);
            auto* list = dialog->findChild<QListWidget*>();
            for (int i = 0; i < list->count(); ++i)
                listed << list->item(i)->text();
            QTest::keyClick(list, Qt::Key_Down);
            QTest::keyClick(list, Qt::Key_Down);
            QTest::mouseClick(dialog->findChild<QDialogButtonBox*>()->button(clicked), Qt::LeftButton);
        });
        EXPECT_EQ(choose(), expected);
        EXPECT_EQ(listed, (QStringList{"Bench-USB [1-1]", "DUT-USB [1-2]", "Lab-USB [1-3]"}));
    }
}
