#include "pgmdq_msgs.h"

#include "pgmdq_cookie_monster.h"

#include "pgmdq_cm_auto_chain.h"
#include "pgmdq_miscellaneous.h"

#include "fio.h"
#include "pgmd_cm.h"
#include "tfcq.h"
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

#include <cstddef>
#include <cstdio>
#include <iterator>
#include <memory>

// One configuration option of the cascade: its list, its selector and member, the database
// fields that allow it, and the texts of its internal errors.
struct PGMDQ_COOKIE_MONSTER::OPTION {
    const PGMD_CM_TYPE_INFO* list;
    unsigned count;
    QComboBox* PGMDQ_COOKIE_MONSTER::*combo;
    unsigned PGMDQ_COOKIE_MONSTER::*member;
    unsigned PGMD_CM_DATABASE_INFO::*passive;
    unsigned PGMD_CM_DATABASE_INFO::*active;
    const char* member_error;   // the selector's text names no option
    const char* mask_error;     // no option allowed or selected
    const char* selected_error; // the selector offers no option
};

namespace {

enum OPTION_KIND { SCHEME_OPTION, VCCPGM_OPTION, FLASH_OPTION, FREQ_OPTION };

const char* const CMD_LINE_FORMAT = "CMD @%1 @%2 @%3 @%4 @%5";
const char* const RESULT_DETAIL_PREFIX = "==========> ";
const char* const NO_HARDWARE_NAME = "No hardware";
const std::uint8_t DUT_HARDWARE_FLAG = 1;
const std::uint8_t COOKIE_HARDWARE_FLAG = 2;
const std::uint8_t BOTH_HARDWARE_FLAGS = DUT_HARDWARE_FLAG | COOKIE_HARDWARE_FLAG;

const Qt::GlobalColor CMD_LIST_COLORS[] = {Qt::darkYellow, Qt::blue, Qt::darkGreen, Qt::red};

// The enumerator of the row named `text`; 0 when no row has that name.
unsigned find_enumerator(const PGMD_CM_TYPE_INFO* list, unsigned count, const QString& text)
{
    for (unsigned i = 0; i < count; ++i)
        if (text == QString::fromLocal8Bit(list[i].display_name.c_str()))
            return list[i].enumerator;
    return 0;
}

const PGMD_CM_DATABASE_INFO* find_database_row(const QString& name)
{
    for (const PGMD_CM_DATABASE_INFO& row : PGMD_CM_DATABASE_LIST)
        if (name == QString::fromLocal8Bit(row.name.c_str()))
            return &row;
    return nullptr;
}

bool is_all(const QString& text)
{
    return text == QString::fromLocal8Bit(PGMD_CM_SELECT_ALL_STRING.c_str());
}

unsigned lowest_bit_position(unsigned value)
{
    unsigned position = 0;
    while (!(value & 1u)) {
        value >>= 1;
        ++position;
    }
    return position;
}

QString to_qstring(const std::string& text)
{
    return QString::fromLocal8Bit(text.c_str());
}

std::string to_local(const QString& text)
{
    return text.toLocal8Bit().toStdString();
}

bool is_command_line(const QString& text)
{
    return text.startsWith(to_qstring(PGMD_CM_CMD_STRING));
}

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

// The five fields of a test case that a grouping pass compares.
enum CASE_FIELD { CASE_DUT = 0, CASE_SCHEME = 1, CASE_VCCPGM = 2, CASE_MEMORY = 3, CASE_CLOCK = 4 };

struct GROUPING_PASS {
    std::vector<CASE_FIELD> same_fields;
    const char* note;
    bool only_while_unmatched;
};

const GROUPING_PASS GROUPING_PASSES[] = {
    {{CASE_DUT, CASE_MEMORY, CASE_SCHEME, CASE_CLOCK}, "Only change vccpgm", false},
    {{CASE_DUT, CASE_MEMORY, CASE_SCHEME}, "Change config data (Active)", false},
    {{CASE_DUT, CASE_MEMORY}, "Change PFL IP (Passive) or Change config data (Active)", true},
    {{CASE_DUT}, "Need reprogram memory", true},
};

const char* const START_NEW_NOTE = "Start new";

bool same_fields(const QList<QString>& a, const QList<QString>& b, const std::vector<CASE_FIELD>& fields)
{
    for (CASE_FIELD field : fields)
        if (a.at(field) != b.at(field))
            return false;
    return true;
}

} // namespace

const PGMDQ_COOKIE_MONSTER::OPTION& PGMDQ_COOKIE_MONSTER::option(unsigned which) const
{
    using SELF = PGMDQ_COOKIE_MONSTER;
    using DB = PGMD_CM_DATABASE_INFO;
    static const OPTION OPTIONS[] = {
        {PGMD_CM_SCHEME_LIST, unsigned(std::size(PGMD_CM_SCHEME_LIST)), &SELF::m_scheme_combo, &SELF::m_scheme,
         &DB::passive_schemes, &DB::active_schemes, "m_scheme > 0", "scheme > 0", "selected_scheme > 0"},
        {PGMD_CM_VCCPGM_LIST, unsigned(std::size(PGMD_CM_VCCPGM_LIST)), &SELF::m_vccpgm_combo, &SELF::m_vccpgm,
         &DB::passive_vccpgm, &DB::active_vccpgm, "m_vccpgm > 0", "vccpgm > 0", "selected_vccpgm > 0"},
        {PGMD_CM_FLASH_LIST, unsigned(std::size(PGMD_CM_FLASH_LIST)), &SELF::m_flash_combo, &SELF::m_flash,
         &DB::passive_flashes, &DB::active_flashes, "m_flash > 0", "flash > 0", "selected_flash > 0"},
        {PGMD_CM_FREQ_LIST, unsigned(std::size(PGMD_CM_FREQ_LIST)), &SELF::m_freq_combo, &SELF::m_freq,
         &DB::passive_freqs, &DB::active_freqs, "m_freq > 0", "freq > 0", "selected_freq > 0"},
    };
    return OPTIONS[which];
}

PGMDQ_COOKIE_MONSTER::PGMDQ_COOKIE_MONSTER(QWidget* parent)
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
      m_manager(nullptr),
      m_populating(false),
      m_dut_index(0),
      m_scheme(0),
      m_vccpgm(0),
      m_flash(0),
      m_freq(0),
      m_hardware_flags(0),
      m_skip_flash(false),
      m_skip_engine(false)
{
    m_manager = new PGMD_CM_MANAGER();
    create_layout();
    on_dut_change(0);

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
    batch_layout->addLayout(new_row({m_save_msg_button}, {m_delete_button, m_run_button}));

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

    std::string name = NO_HARDWARE_NAME;
    PGMD_CM_ENGINE* engine = m_manager->get_engine();
    const std::uint8_t flag = dut ? DUT_HARDWARE_FLAG : COOKIE_HARDWARE_FLAG;
    if (engine->set_tji_hardware(dut, hardware)) {
        name = engine->get_hardware_name(dut);
        m_hardware_flags |= flag;
    } else {
        m_hardware_flags &= std::uint8_t(~flag);
    }
    (dut ? m_dut_jtag_edit : m_cookie_jtag_edit)->setText(tr(name.c_str()));
    m_run_button->setEnabled(m_cmd_widget->count() > 0 && m_hardware_flags == BOTH_HARDWARE_FLAGS);
}

void PGMDQ_COOKIE_MONSTER::on_dut_change(int index)
{
    m_dut_index = unsigned(index);
    const QString text = m_dut_combo->currentText();
    const bool none = text == to_qstring(PGMD_CM_DATABASE_LIST[0].name);
    if (!none) {
        const PGMD_CM_DATABASE_INFO* row = find_database_row(text);
        populate_config_scheme(row ? row->active_schemes | row->passive_schemes : 0);
    } else {
        m_populating = true;
        for (unsigned which = SCHEME_OPTION; which <= FREQ_OPTION; ++which) {
            (this->*option(which).combo)->clear();
            this->*option(which).member = 0;
        }
        m_populating = false;
    }
    m_claim_button->setEnabled(!none);
    m_create_button->setEnabled(!none);
}

void PGMDQ_COOKIE_MONSTER::on_scheme_change(int)
{
    if (m_populating)
        return;
    take_selected_option(option(SCHEME_OPTION));
    m_populating = true;
    populate_vccpgm();
    populate_flash();
    populate_freq();
    m_populating = false;
}

void PGMDQ_COOKIE_MONSTER::on_vccpgm_change(int)
{
    if (!m_populating)
        take_selected_option(option(VCCPGM_OPTION));
}

void PGMDQ_COOKIE_MONSTER::on_flash_change(int)
{
    if (!m_populating)
        take_selected_option(option(FLASH_OPTION));
}

void PGMDQ_COOKIE_MONSTER::on_freq_change(int)
{
    if (!m_populating)
        take_selected_option(option(FREQ_OPTION));
}

// The selector's current text becomes the option's enumerator, or every option for "All".
void PGMDQ_COOKIE_MONSTER::take_selected_option(const OPTION& option)
{
    const QString text = (this->*option.combo)->currentText();
    unsigned& member = this->*option.member;
    member = find_enumerator(option.list, option.count, text);
    if (!member && is_all(text))
        member = PGMD_CM_SELECT_ALL;
    if (!member)
        PGMDQ_INTERNAL_ERROR(option.member_error);
}

void PGMDQ_COOKIE_MONSTER::populate_config_scheme(unsigned mask)
{
    const unsigned scheme = mask;
    PGMDQ_ASSERT(scheme > 0);
    PGMDQ_ASSERT(m_dut_index > 0);
    m_populating = true;
    m_scheme_combo->clear();
    unsigned selected_scheme = 0;
    for (const PGMD_CM_TYPE_INFO& row : PGMD_CM_SCHEME_LIST) {
        if (!(row.enumerator & mask))
            continue;
        m_scheme_combo->addItem(tr(row.display_name.c_str()));
        if (!selected_scheme)
            selected_scheme = row.enumerator;
    }
    m_scheme_combo->addItem(tr(PGMD_CM_SELECT_ALL_STRING.c_str()));
    PGMDQ_ASSERT(selected_scheme > 0);
    m_scheme = selected_scheme;
    populate_vccpgm();
    populate_flash();
    populate_freq();
    m_populating = false;
}

void PGMDQ_COOKIE_MONSTER::populate_vccpgm()
{
    populate_option(option(VCCPGM_OPTION));
}

void PGMDQ_COOKIE_MONSTER::populate_flash()
{
    populate_option(option(FLASH_OPTION));
}

void PGMDQ_COOKIE_MONSTER::populate_freq()
{
    populate_option(option(FREQ_OPTION));
}

// Offers what the DUT allows for the chosen scheme (for "All", what any of its schemes allows),
// and selects the first offer.
void PGMDQ_COOKIE_MONSTER::populate_option(const OPTION& option)
{
    PGMDQ_ASSERT(m_scheme > 0);
    PGMDQ_ASSERT(m_dut_index > 0);
    QComboBox* combo = this->*option.combo;
    combo->clear();
    const PGMD_CM_DATABASE_INFO& dut = PGMD_CM_DATABASE_LIST[m_dut_index];
    unsigned allowed = 0;
    if (m_scheme & dut.passive_schemes)
        allowed |= dut.*option.passive;
    if (m_scheme & dut.active_schemes)
        allowed |= dut.*option.active;
    if (!allowed)
        PGMDQ_INTERNAL_ERROR(option.mask_error);

    unsigned first = 0;
    for (unsigned i = 0; i < option.count; ++i) {
        if (!(option.list[i].enumerator & allowed))
            continue;
        combo->addItem(tr(option.list[i].display_name.c_str()));
        if (!first)
            first = option.list[i].enumerator;
    }
    combo->addItem(tr(PGMD_CM_SELECT_ALL_STRING.c_str()));
    if (!first)
        PGMDQ_INTERNAL_ERROR(option.selected_error);
    this->*option.member = first;
}

unsigned PGMDQ_COOKIE_MONSTER::get_selected_scheme()
{
    unsigned scheme = m_scheme;
    if (scheme == PGMD_CM_SELECT_ALL) {
        const PGMD_CM_DATABASE_INFO& dut = PGMD_CM_DATABASE_LIST[m_dut_index];
        scheme = dut.active_schemes | dut.passive_schemes;
    }
    PGMDQ_ASSERT(scheme > 0);
    return scheme;
}

unsigned PGMDQ_COOKIE_MONSTER::get_selected_vccpgm()
{
    return get_selected_option(option(VCCPGM_OPTION));
}

unsigned PGMDQ_COOKIE_MONSTER::get_selected_flash()
{
    return get_selected_option(option(FLASH_OPTION));
}

unsigned PGMDQ_COOKIE_MONSTER::get_selected_freq()
{
    return get_selected_option(option(FREQ_OPTION));
}

// "All" stands for everything the selector offers.
unsigned PGMDQ_COOKIE_MONSTER::get_selected_option(const OPTION& option)
{
    unsigned selected = this->*option.member;
    if (selected == PGMD_CM_SELECT_ALL) {
        const QComboBox* combo = this->*option.combo;
        const int count = combo->count();
        PGMDQ_ASSERT(count > 0);
        selected = 0;
        for (int i = 0; i < count; ++i) {
            const QString text = combo->itemText(i);
            if (is_all(text))
                continue;
            const unsigned enumerator = find_enumerator(option.list, option.count, text);
            const bool found = enumerator != 0;
            PGMDQ_ASSERT(found);
            selected |= enumerator;
        }
    }
    if (!selected)
        PGMDQ_INTERNAL_ERROR(option.mask_error);
    return selected;
}

int PGMDQ_COOKIE_MONSTER::convert_enum_to_index(unsigned enumerator)
{
    PGMDQ_ASSERT(enumerator > 0 || enumerator == PGMD_CM_SELECT_ALL);
    if (enumerator == PGMD_CM_SELECT_ALL)
        return int(enumerator);
    const unsigned position = lowest_bit_position(enumerator);
    const unsigned value = enumerator >> position;
    PGMDQ_ASSERT(value == 1);
    return int(position);
}

// Commands and processes already in the list (or covered by a longer line) are not repeated;
// results always are added.
void PGMDQ_COOKIE_MONSTER::add_cmd(const QString& text, unsigned color)
{
    if (color <= PGMDQ_PROCESS_COLOR) {
        for (int i = 0; i < m_cmd_widget->count(); ++i)
            if (m_cmd_widget->item(i)->text().startsWith(text))
                return;
    }
    if (color >= std::size(CMD_LIST_COLORS))
        PGMDQ_INTERNAL_ERROR("Invalid color");
    auto* item = new QListWidgetItem(text);
    item->setForeground(QBrush(CMD_LIST_COLORS[color]));
    m_cmd_widget->addItem(item);
}

void PGMDQ_COOKIE_MONSTER::enforce_valid_enum(unsigned value, unsigned count)
{
    const unsigned enumerator = value;
    PGMDQ_ASSERT(enumerator > 0);
    const unsigned position = lowest_bit_position(value);
    const bool found = position < count;
    PGMDQ_ASSERT(found);
    value >>= position;
    PGMDQ_ASSERT(value == 1);
}

// Every option depends only on whether the scheme is passive or active for the DUT; 0 means the
// option is not given.
bool PGMDQ_COOKIE_MONSTER::is_valid_test_case(unsigned scheme, unsigned vccpgm, unsigned flash, unsigned freq)
{
    const PGMD_CM_DATABASE_INFO& dut = PGMD_CM_DATABASE_LIST[m_dut_index];
    enforce_valid_enum(scheme, unsigned(std::size(PGMD_CM_SCHEME_LIST)));
    const bool passive = scheme & dut.passive_schemes;
    if (!passive && !(scheme & dut.active_schemes))
        return false;

    const std::pair<unsigned, const OPTION*> given[] = {
        {vccpgm, &option(VCCPGM_OPTION)}, {flash, &option(FLASH_OPTION)}, {freq, &option(FREQ_OPTION)}};
    for (const auto& [value, opt] : given) {
        if (!value)
            continue;
        enforce_valid_enum(value, opt->count);
        if (!(value & (passive ? dut.*opt->passive : dut.*opt->active)))
            return false;
    }
    return true;
}

void PGMDQ_COOKIE_MONSTER::on_create_test()
{
    PGMDQ_ASSERT(m_dut_index > 0);
    PGMDQ_ASSERT(m_scheme > 0);
    PGMDQ_ASSERT(m_vccpgm > 0);
    PGMDQ_ASSERT(m_flash > 0);
    PGMDQ_ASSERT(m_freq > 0);
    const unsigned schemes = get_selected_scheme();
    const unsigned vccpgms = get_selected_vccpgm();
    const unsigned flashes = get_selected_flash();
    const unsigned freqs = get_selected_freq();
    const char* dut = PGMD_CM_DATABASE_LIST[m_dut_index].name.c_str();

    for (unsigned s = 0; s < std::size(PGMD_CM_SCHEME_LIST); ++s) {
        const PGMD_CM_TYPE_INFO& scheme = PGMD_CM_SCHEME_LIST[s];
        if (!(scheme.enumerator & schemes))
            continue;
        if (!is_valid_test_case(scheme.enumerator, 0, 0, 0))
            PGMDQ_INTERNAL_ERROR("Invalid configuration scheme");
        for (unsigned v = 0; v < std::size(PGMD_CM_VCCPGM_LIST); ++v) {
            const PGMD_CM_TYPE_INFO& vccpgm = PGMD_CM_VCCPGM_LIST[v];
            if (!(vccpgm.enumerator & vccpgms))
                continue;
            if (!is_valid_test_case(scheme.enumerator, vccpgm.enumerator, 0, 0)) {
                MSG_PGMDQ::DEBUG_MSG(2, "For dut %s, combination of configure scheme - %s and VCCPGM - %s is invalid",
                                     dut, scheme.display_name.c_str(), vccpgm.display_name.c_str());
                continue;
            }
            for (unsigned f = 0; f < std::size(PGMD_CM_FLASH_LIST); ++f) {
                const PGMD_CM_TYPE_INFO& flash = PGMD_CM_FLASH_LIST[f];
                if (!(flash.enumerator & flashes))
                    continue;
                if (!is_valid_test_case(scheme.enumerator, 0, flash.enumerator, 0)) {
                    MSG_PGMDQ::DEBUG_MSG(2,
                                         "For dut %s, combination of configure scheme - %s, VCCPGM - %s and memory "
                                         "storage - %s is invalid",
                                         dut, scheme.display_name.c_str(), vccpgm.display_name.c_str(),
                                         flash.display_name.c_str());
                    continue;
                }
                for (unsigned c = 0; c < std::size(PGMD_CM_FREQ_LIST); ++c) {
                    const PGMD_CM_TYPE_INFO& freq = PGMD_CM_FREQ_LIST[c];
                    if (!(freq.enumerator & freqs))
                        continue;
                    if (!is_valid_test_case(scheme.enumerator, 0, 0, freq.enumerator)) {
                        MSG_PGMDQ::DEBUG_MSG(2,
                                             "For dut %s, combination of configure scheme - %s, VCCPGM - %s, memory "
                                             "storage - %s and configuration frequency - %s is invalid",
                                             dut, scheme.display_name.c_str(), vccpgm.display_name.c_str(),
                                             flash.display_name.c_str(), freq.display_name.c_str());
                        continue;
                    }
                    add_command_line(s, v, f, c);
                }
            }
        }
    }
}

void PGMDQ_COOKIE_MONSTER::add_command_line(unsigned scheme_row, unsigned vccpgm_row, unsigned flash_row,
                                            unsigned freq_row)
{
    const QString line = QString(CMD_LINE_FORMAT)
                             .arg(to_qstring(PGMD_CM_DATABASE_LIST[m_dut_index].name),
                                  to_qstring(PGMD_CM_SCHEME_LIST[scheme_row].display_name),
                                  to_qstring(PGMD_CM_VCCPGM_LIST[vccpgm_row].display_name),
                                  to_qstring(PGMD_CM_FLASH_LIST[flash_row].display_name),
                                  to_qstring(PGMD_CM_FREQ_LIST[freq_row].display_name));
    add_cmd(line, PGMDQ_CMD_COLOR);
    if (m_hardware_flags == BOTH_HARDWARE_FLAGS) {
        m_run_button->setEnabled(true);
        m_save_msg_button->setEnabled(true);
    }
}

std::vector<std::string> PGMDQ_COOKIE_MONSTER::list_lines() const
{
    std::vector<std::string> lines;
    for (int i = 0; i < m_cmd_widget->count(); ++i)
        lines.push_back(to_local(m_cmd_widget->item(i)->text()));
    return lines;
}

void PGMDQ_COOKIE_MONSTER::delete_item(int row)
{
    m_cmd_widget->removeItemWidget(m_cmd_widget->item(row));
    delete m_cmd_widget->takeItem(row);
}

// Only the commands stay; the generator may reorder them, and repeats collapse on the way back.
void PGMDQ_COOKIE_MONSTER::optimize_test_case()
{
    for (int row = m_cmd_widget->count() - 1; row >= 0; --row)
        if (!is_command_line(m_cmd_widget->item(row)->text()))
            delete_item(row);
    std::vector<std::string> lines = list_lines();
    const unsigned count = unsigned(lines.size());
    m_cmd_widget->clear();
    const std::unique_ptr<std::string[]> optimized(m_manager->get_generator()->optimize_test_case(count, lines.data()));
    for (unsigned i = 0; i < count; ++i)
        add_cmd(to_qstring(optimized[i]), PGMDQ_CMD_COLOR);
}

// The matched flag is kept for the whole call: once any pair was found, the coarse passes are
// skipped for every later case.
QString* PGMDQ_COOKIE_MONSTER::reorganize_test_case(QList<QString>* cases, unsigned count, unsigned** order)
{
    std::unique_ptr<QString[]> notes(new QString[count]);
    std::vector<bool> visited(count, false);
    unsigned added = 0;
    bool matched = false;
    auto visit = [&](unsigned index, const char* note) {
        visited[index] = true;
        (*order)[added++] = index;
        notes[index] = note;
    };

    for (unsigned i = 0; i < count; ++i) {
        if (visited[i])
            continue;
        for (const GROUPING_PASS& pass : GROUPING_PASSES) {
            if (pass.only_while_unmatched && matched)
                continue;
            for (unsigned j = 0; j < count; ++j) {
                if (j == i || visited[j] || !same_fields(cases[i], cases[j], pass.same_fields))
                    continue;
                if (!visited[i])
                    visit(i, START_NEW_NOTE);
                visit(j, pass.note);
                matched = true;
            }
        }
        if (!visited[i])
            visit(i, START_NEW_NOTE);
    }
    PGMDQ_ASSERT(added == count);
    return notes.release();
}

void PGMDQ_COOKIE_MONSTER::on_run_test()
{
    optimize_test_case();
    if (!determine_process(false))
        return;
    TFCQ_BUSY_DLG busy(tr("Please wait while Monster is processing..."), tr("Programmer Kiopru and Checker"), this);
    generate_raw_file();
    if (!m_skip_engine)
        execute_test();
}

// A batch without commands needs no process: there is nothing to confirm, and the raw-file step
// reports the empty batch.
bool PGMDQ_COOKIE_MONSTER::determine_process(bool silent)
{
    std::vector<std::string> lines = list_lines();
    std::vector<std::string> processes =
        m_manager->get_generator()->determine_process(unsigned(lines.size()), lines.data());
    m_skip_flash = false;
    m_skip_engine = false;
    if (silent)
        return false;
    if (processes.empty())
        return true;

    PGMDQ_PROCESS_DLG dialog(processes, nullptr);
    if (dialog.exec() != QDialog::Accepted)
        return false;
    processes = dialog.get_processes();
    m_skip_flash = dialog.m_skip_flash_check->isChecked();
    m_skip_engine = dialog.m_skip_engine_check->isChecked();
    for (const std::string& process : processes)
        add_cmd(to_qstring(process), PGMDQ_PROCESS_COLOR);
    return true;
}

int PGMDQ_COOKIE_MONSTER::generate_raw_file()
{
    std::vector<std::string> lines = list_lines();
    const unsigned count = unsigned(lines.size());
    PGMDQ_ASSERT(count > 0);
    return m_manager->generate_raw_file(count, lines.data());
}

// Lines after a verdict are its details and take its colour.
bool PGMDQ_COOKIE_MONSTER::execute_test()
{
    std::vector<std::string> lines = list_lines();
    const unsigned count = unsigned(lines.size());
    PGMDQ_ASSERT(count > 0);
    const std::vector<std::string> results = m_manager->execute_test(count, lines.data(), m_skip_flash);
    unsigned color = PGMDQ_CMD_COLOR;
    for (const std::string& result : results) {
        const QString line = to_qstring(result);
        if (result.find(PGMD_PASS_INDICATOR) != std::string::npos) {
            color = PGMDQ_PASS_RESULT_COLOR;
            add_cmd(line, color);
        } else if (result.find(PGMD_FAIL_INDICATOR) != std::string::npos) {
            color = PGMDQ_FAIL_RESULT_COLOR;
            add_cmd(line, color);
        } else {
            PGMDQ_ASSERT(color == PGMDQ_PASS_RESULT_COLOR || color == PGMDQ_FAIL_RESULT_COLOR);
            add_cmd(RESULT_DETAIL_PREFIX + line, color);
        }
    }
    return true;
}

void PGMDQ_COOKIE_MONSTER::on_delete_test()
{
    const QList<QListWidgetItem*> items = m_cmd_widget->selectedItems();
    PGMDQ_ASSERT(items.size() > 0);
    for (QListWidgetItem* item : items) {
        PGMDQ_ASSERT(item != NULL);
        delete_item(m_cmd_widget->row(item));
    }
    bool has_command = false;
    for (int i = 0; i < m_cmd_widget->count() && !has_command; ++i) {
        PGMDQ_ASSERT(m_cmd_widget->item(i) != NULL);
        has_command = is_command_line(m_cmd_widget->item(i)->text());
    }
    m_run_button->setEnabled(has_command && m_hardware_flags == BOTH_HARDWARE_FLAGS);
    m_save_msg_button->setEnabled(m_cmd_widget->count() > 0);
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
    FIO_PATH path(to_local(selected_files.first()));
    path.extension(".txt");
    const std::string file_name = path.fullpath();

    FILE* file = FIO_FILE_SYSTEM::fopen(file_name.c_str(), "w");
    if (!file)
        return;
    for (const std::string& line : list_lines()) {
        std::fputs(line.c_str(), file);
        std::fputs("\n", file);
    }
    std::fflush(file);
    std::fclose(file);
}

int PGMDQ_COOKIE_MONSTER::determine_hardware()
{
    const unsigned DUT_ID_SLOTS = 4;
    std::unique_ptr<bool[]> present(new bool[DUT_ID_SLOTS]());
    std::unique_ptr<unsigned[]> ids(new unsigned[DUT_ID_SLOTS]());
    bool* present_array = present.get();
    unsigned* id_array = ids.get();
    return m_manager->get_engine()->read_dut_id(&present_array, &id_array);
}
