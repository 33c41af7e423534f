// The Kiopru panel's widgets: construction, layout and connections, and the choice of the two
// JTAG cables.
#include "pgmdq_msgs.h"

#include "pgmdq_cookie_monster.h"

#include "pgmdq_cm_auto_chain.h"
#include "pgmdq_miscellaneous.h"

#include "pgmd_cm.h"
#include "thr.h"

#include <QComboBox>
#include <QFrame>
#include <QGraphicsView>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include <initializer_list>
#include <iterator>
#include <utility>

namespace {

const char* const NO_HARDWARE_NAME = "No hardware";

// Read-only and drawn like the panel, since the user never types a cable name.
QLineEdit* new_hardware_edit(QWidget* parent)
{
    auto* edit = new QLineEdit(parent);
    edit->setReadOnly(true);
    QPalette palette = edit->palette();
    palette.setBrush(QPalette::Base, palette.brush(QPalette::Window));
    edit->setPalette(palette);
    return edit;
}

QPushButton* new_button(const QString& text, QWidget* parent, bool enabled = true)
{
    auto* button = new QPushButton(text, parent);
    button->setEnabled(enabled);
    return button;
}

QHBoxLayout* new_row(std::initializer_list<QWidget*> widgets_before_stretch,
                     std::initializer_list<QWidget*> widgets_after_stretch)
{
    auto* row = new QHBoxLayout();
    for (QWidget* widget : widgets_before_stretch)
        row->addWidget(widget);
    row->addStretch();
    for (QWidget* widget : widgets_after_stretch)
        row->addWidget(widget);
    return row;
}

} // namespace

PGMDQ_COOKIE_MONSTER::PGMDQ_COOKIE_MONSTER(QWidget* parent) : PGMDQ_COOKIE_MONSTER(pgmd_cm_site_bench(), parent) {}

PGMDQ_COOKIE_MONSTER::PGMDQ_COOKIE_MONSTER(std::shared_ptr<PGMD_CM_BENCH> bench, QWidget* parent)
    : QWidget(parent),
      m_dut_combo(nullptr),
      m_claim_button(nullptr),
      m_cookie_jtag_edit(nullptr),
      m_dut_jtag_edit(nullptr),
      m_cookie_jtag_button(nullptr),
      m_dut_jtag_button(nullptr),
      m_reinit_chain_button(nullptr),
      m_desired_chain_button(nullptr),
      m_auto_chain(nullptr),
      m_chain_view(nullptr),
      m_scheme_combo(nullptr),
      m_vccpgm_combo(nullptr),
      m_flash_combo(nullptr),
      m_freq_combo(nullptr),
      m_create_button(nullptr),
      m_cmd_widget(nullptr),
      m_save_msg_button(nullptr),
      m_delete_button(nullptr),
      m_run_button(nullptr),
      m_load_batch_button(nullptr),
      m_result_counts_label(nullptr),
      m_manager(nullptr),
      m_populating(false),
      m_dut_index(0),
      m_scheme(0),
      m_vccpgm(0),
      m_flash(0),
      m_freq(0),
      m_hardware_flags(0),
      m_skip_flash(false),
      m_skip_engine(false),
      m_process_answer(nullptr)
{
    m_manager = new PGMD_CM_MANAGER(std::move(bench));
    create_layout();
    on_dut_change(0);
    connect_controls();
}

void PGMDQ_COOKIE_MONSTER::connect_controls()
{
    connect(m_cookie_jtag_button, &QPushButton::clicked, this, &PGMDQ_COOKIE_MONSTER::on_cookie_jtag);
    connect(m_dut_jtag_button, &QPushButton::clicked, this, &PGMDQ_COOKIE_MONSTER::on_dut_jtag);
    connect(m_dut_combo, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &PGMDQ_COOKIE_MONSTER::on_dut_change);
    connect(m_scheme_combo, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &PGMDQ_COOKIE_MONSTER::on_scheme_change);
    connect(m_vccpgm_combo, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &PGMDQ_COOKIE_MONSTER::on_vccpgm_change);
    connect(m_flash_combo, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &PGMDQ_COOKIE_MONSTER::on_flash_change);
    connect(m_freq_combo, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &PGMDQ_COOKIE_MONSTER::on_freq_change);
    connect(m_create_button, &QPushButton::clicked, this, &PGMDQ_COOKIE_MONSTER::on_create_test);
    connect(m_save_msg_button, &QPushButton::clicked, this, &PGMDQ_COOKIE_MONSTER::on_save_msg);
    connect(m_delete_button, &QPushButton::clicked, this, &PGMDQ_COOKIE_MONSTER::on_delete_test);
    connect(m_run_button, &QPushButton::clicked, this, &PGMDQ_COOKIE_MONSTER::on_run_test);
    connect(m_cmd_widget, &QListWidget::itemSelectionChanged, this, &PGMDQ_COOKIE_MONSTER::on_list_change);
    connect(m_load_batch_button, &QPushButton::clicked, this, &PGMDQ_COOKIE_MONSTER::on_load_batch);
}

PGMDQ_COOKIE_MONSTER::~PGMDQ_COOKIE_MONSTER()
{
    delete m_cmd_widget;
    m_cmd_widget = nullptr;
    delete m_auto_chain;
    m_auto_chain = nullptr;
    delete m_manager;
    m_manager = nullptr;
}

void PGMDQ_COOKIE_MONSTER::create_layout()
{
    auto* rule = new QFrame(this);
    rule->setFrameShape(QFrame::HLine);
    rule->setFrameShadow(QFrame::Sunken);
    rule->setLineWidth(1);
    rule->setMidLineWidth(0);

    auto* description = new QLabel(tr("Kiopru will interface with Bramble system for automated configuration checkout, "
                                     "Programmer IP and Programmer engine testing."),
                                  this);
    description->setWordWrap(true);

    QLabel* dut_label = new QLabel(tr("Select dut unit:"), this);
    QLabel* cookie_jtag_label = new QLabel(tr("Kiopru JTAG hardware:"), this);
    QLabel* dut_jtag_label = new QLabel(tr("DUT JTAG hardware:"), this);
    QLabel* scheme_label = new QLabel(tr("Configuration Scheme:"), this);
    QLabel* vccpgm_label = new QLabel(tr("Vccpgm:"), this);
    QLabel* freq_label = new QLabel(tr("Configuration Freq:"), this);
    QLabel* flash_label = new QLabel(tr("Memory Storage:"), this);
    const int option_label_width = scheme_label->sizeHint().width();
    for (QLabel* label : {scheme_label, vccpgm_label, freq_label, flash_label})
        label->setMaximumWidth(option_label_width);

    auto* interface_box = new QGroupBox(tr("Kiopru JTAG Interface"), this);
    auto* test_box = new QGroupBox(tr("Kiopru Test"), this);
    auto* batch_box = new QGroupBox(tr("Test Command Batch"), this);

    m_dut_combo = new QComboBox(this);
    m_dut_combo->setFixedWidth(150);
    for (const PGMD_CM_DATABASE_INFO& row : PGMD_CM_DATABASE_LIST)
        m_dut_combo->addItem(tr(row.name.c_str()));
    dut_label->setBuddy(m_dut_combo);
    m_claim_button = new_button(tr("Claim board"), this);
    m_claim_button->setFixedSize(m_claim_button->sizeHint());

    m_cookie_jtag_edit = new_hardware_edit(this);
    m_dut_jtag_edit = new_hardware_edit(this);
    cookie_jtag_label->setBuddy(m_cookie_jtag_edit);
    dut_jtag_label->setBuddy(m_dut_jtag_edit);
    m_cookie_jtag_button = new_button(tr("..."), this);
    m_dut_jtag_button = new_button(tr("..."), this);
    m_cookie_jtag_button->setFixedWidth(25);
    m_dut_jtag_button->setFixedWidth(25);

    // Chain set-up from the panel is not offered yet.
    m_reinit_chain_button = new_button(tr("Re-initialize dut JTAG chain"), this, false);
    m_desired_chain_button = new_button(tr("Establish desired dut JTAG chain"), this, false);
    m_auto_chain = new PGMDQ_CM_AUTO_CHAIN();
    m_chain_view = new QGraphicsView(m_auto_chain, this);
    m_chain_view->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_chain_view->setFixedHeight(120);

    m_scheme_combo = new QComboBox(this);
    m_vccpgm_combo = new QComboBox(this);
    m_flash_combo = new QComboBox(this);
    m_freq_combo = new QComboBox(this);
    m_create_button = new_button(tr("Create Test"), this);

    m_cmd_widget = new QListWidget(this);
    m_cmd_widget->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_save_msg_button = new_button(tr("Save msg"), this, false);
    m_delete_button = new_button(tr("Delete Test"), this, false);
    m_run_button = new_button(tr("Run Test"), this, false);
    m_load_batch_button = new_button(tr("Load batch"), this);
    m_result_counts_label = new QLabel(this);

    // Object names let scripts and tests find the controls.
    m_dut_combo->setObjectName("m_dut_combo");
    m_cookie_jtag_edit->setObjectName("m_cookie_jtag_edit");
    m_dut_jtag_edit->setObjectName("m_dut_jtag_edit");
    m_cookie_jtag_button->setObjectName("m_cookie_jtag_button");
    m_dut_jtag_button->setObjectName("m_dut_jtag_button");
    m_scheme_combo->setObjectName("m_scheme_combo");
    m_vccpgm_combo->setObjectName("m_vccpgm_combo");
    m_flash_combo->setObjectName("m_flash_combo");
    m_freq_combo->setObjectName("m_freq_combo");
    m_cmd_widget->setObjectName("m_cmd_widget");
    m_result_counts_label->setObjectName("m_result_counts_label");

    auto* hardware_grid = new QGridLayout();
    hardware_grid->addLayout(new_row({dut_label, m_dut_combo}, {m_claim_button}), 0, 0, 1, 3);
    hardware_grid->addWidget(cookie_jtag_label, 1, 0);
    hardware_grid->addWidget(m_cookie_jtag_edit, 1, 1);
    hardware_grid->addWidget(m_cookie_jtag_button, 1, 2);
    hardware_grid->addWidget(dut_jtag_label, 2, 0);
    hardware_grid->addWidget(m_dut_jtag_edit, 2, 1);
    hardware_grid->addWidget(m_dut_jtag_button, 2, 2);

    auto* interface_layout = new QVBoxLayout(interface_box);
    interface_layout->addWidget(m_chain_view);
    interface_layout->addLayout(new_row({m_reinit_chain_button}, {m_desired_chain_button}));
    interface_box->setFixedHeight(interface_box->sizeHint().height());

    auto* option_grid = new QGridLayout();
    const std::pair<QLabel*, QComboBox*> option_rows[] = {
        {scheme_label, m_scheme_combo}, {vccpgm_label, m_vccpgm_combo},
        {flash_label, m_flash_combo},   {freq_label, m_freq_combo}};
    for (int row = 0; row < int(std::size(option_rows)); ++row) {
        option_grid->addWidget(option_rows[row].first, row, 0);
        option_grid->addWidget(option_rows[row].second, row, 1);
    }
    auto* test_layout = new QVBoxLayout(test_box);
    test_layout->addLayout(option_grid);
    test_layout->addLayout(new_row({}, {m_create_button}));
    test_layout->addStretch();

    auto* batch_layout = new QVBoxLayout(batch_box);
    batch_layout->addWidget(m_cmd_widget);
    batch_layout->addWidget(m_result_counts_label);
    batch_layout->addLayout(new_row({m_save_msg_button, m_load_batch_button}, {m_delete_button, m_run_button}));

    auto* main_grid = new QGridLayout();
    main_grid->addLayout(hardware_grid, 0, 0);
    main_grid->addWidget(interface_box, 1, 0);
    main_grid->addWidget(test_box, 2, 0);
    main_grid->addWidget(batch_box, 0, 1, 3, 1);
    main_grid->setColumnStretch(0, 0);
    main_grid->setColumnStretch(1, 1);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(description);
    layout->addWidget(rule);
    layout->addLayout(main_grid);
    setMinimumWidth(600);
}

void PGMDQ_COOKIE_MONSTER::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
}

void PGMDQ_COOKIE_MONSTER::on_cookie_jtag()
{
    on_jtag(false);
}

void PGMDQ_COOKIE_MONSTER::on_dut_jtag()
{
    on_jtag(true);
}

// Without the hardware dialog the engine is still asked, with no hardware, so that the cable's
// flag and name always tell the truth.
void PGMDQ_COOKIE_MONSTER::on_jtag(bool dut)
{
    unsigned hardware = 0;
    void* library = thr_drl_load("pgm_pgmwq.dll");
    void* function = library ? thr_drl_find_function(library, "pgmwq_export_hardware_dlg") : nullptr;
    if (function)
        reinterpret_cast<void (*)(unsigned*)>(function)(&hardware);
    set_hardware(dut, hardware);
}

bool PGMDQ_COOKIE_MONSTER::set_hardware(bool dut, unsigned hardware)
{
    std::string name = NO_HARDWARE_NAME;
    PGMD_CM_ENGINE* engine = m_manager->get_engine();
    const std::uint8_t flag = dut ? DUT_HARDWARE_FLAG : COOKIE_HARDWARE_FLAG;
    const bool bound = engine->set_tji_hardware(dut, hardware);
    if (bound) {
        name = engine->get_hardware_name(dut);
        m_hardware_flags |= flag;
    } else {
        m_hardware_flags &= std::uint8_t(~flag);
    }
    (dut ? m_dut_jtag_edit : m_cookie_jtag_edit)->setText(tr(name.c_str()));
    m_run_button->setEnabled(m_batch.count() > 0 && m_hardware_flags == BOTH_HARDWARE_FLAGS);
    return bound;
}
