// The Kiopru panel's logic: the option cascade, and the expansion, validation and grouping of
// test cases.
#include "pgmdq_msgs.h"

#include "pgmdq_cookie_monster.h"

#include "pgmdq_miscellaneous.h"
#include "pgmdq_miscellaneous_files.h"

#include <QComboBox>
#include <QPushButton>

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
    const char* name;           // as the validation texts name it
    const char* member_error;   // the selector's text names no option
    const char* mask_error;     // no option allowed or selected
    const char* selected_error; // the selector offers no option
};

namespace {

enum OPTION_KIND { SCHEME_OPTION, VCCPGM_OPTION, FLASH_OPTION, FREQ_OPTION };

const char* const CMD_LINE_FORMAT = "CMD @%1 @%2 @%3 @%4 @%5";
const char* const CMD_FIELD_SEPARATOR = " @";
const int CMD_FIELD_COUNT = 5;

// What Create Test reports when an option does not go with the scheme, by option; the first
// placeholders name the DUT and the options up to that one.
const char* const INVALID_OPTION_FORMATS[] = {
    "For dut %1, configure scheme - %2 is invalid",
    "For dut %1, combination of configure scheme - %2 and VCCPGM - %3 is invalid",
    "For dut %1, combination of configure scheme - %2, VCCPGM - %3 and memory storage - %4 is invalid",
    "For dut %1, combination of configure scheme - %2, VCCPGM - %3, memory storage - %4 and configuration "
    "frequency - %5 is invalid",
};

} // namespace

bool PGMDQ_COOKIE_MONSTER::is_command_line(const QString& text)
{
    return text.startsWith(pgmdq_from_local8(PGMD_CM_CMD_STRING));
}

namespace {

// The index of the row named `text`; `count` when no row has that name.
unsigned find_row(const PGMD_CM_TYPE_INFO* list, unsigned count, const QString& text)
{
    unsigned row = 0;
    while (row < count && text != pgmdq_from_local8(list[row].display_name))
        ++row;
    return row;
}

// The enumerator of the row named `text`; 0 when no row has that name.
unsigned find_enumerator(const PGMD_CM_TYPE_INFO* list, unsigned count, const QString& text)
{
    const unsigned row = find_row(list, count, text);
    return row < count ? list[row].enumerator : 0;
}

// The DUT's row of the database; 0 ("None") when no DUT has that name.
unsigned find_database_row(const QString& name)
{
    for (unsigned row = 1; row < std::size(PGMD_CM_DATABASE_LIST); ++row)
        if (name == pgmdq_from_local8(PGMD_CM_DATABASE_LIST[row].name))
            return row;
    return 0;
}

bool is_all(const QString& text)
{
    return text == pgmdq_from_local8(PGMD_CM_SELECT_ALL_STRING);
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
         &DB::passive_schemes, &DB::active_schemes, "configure scheme", "m_scheme > 0", "scheme > 0",
         "selected_scheme > 0"},
        {PGMD_CM_VCCPGM_LIST, unsigned(std::size(PGMD_CM_VCCPGM_LIST)), &SELF::m_vccpgm_combo, &SELF::m_vccpgm,
         &DB::passive_vccpgm, &DB::active_vccpgm, "VCCPGM", "m_vccpgm > 0", "vccpgm > 0", "selected_vccpgm > 0"},
        {PGMD_CM_FLASH_LIST, unsigned(std::size(PGMD_CM_FLASH_LIST)), &SELF::m_flash_combo, &SELF::m_flash,
         &DB::passive_flashes, &DB::active_flashes, "memory storage", "m_flash > 0", "flash > 0", "selected_flash > 0"},
        {PGMD_CM_FREQ_LIST, unsigned(std::size(PGMD_CM_FREQ_LIST)), &SELF::m_freq_combo, &SELF::m_freq,
         &DB::passive_freqs, &DB::active_freqs, "configuration frequency", "m_freq > 0", "freq > 0",
         "selected_freq > 0"},
    };
    return OPTIONS[which];
}

void PGMDQ_COOKIE_MONSTER::on_dut_change(int index)
{
    m_dut_index = unsigned(index);
    const QString text = m_dut_combo->currentText();
    const bool none = text == pgmdq_from_local8(PGMD_CM_DATABASE_LIST[0].name);
    if (!none) {
        const PGMD_CM_DATABASE_INFO& row = PGMD_CM_DATABASE_LIST[find_database_row(text)];
        populate_config_scheme(row.active_schemes | row.passive_schemes);
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

bool PGMDQ_COOKIE_MONSTER::is_valid_test_case(unsigned scheme, unsigned vccpgm, unsigned flash, unsigned freq)
{
    return is_valid_for_dut(m_dut_index, scheme, vccpgm, flash, freq);
}

// Every option depends only on whether the scheme is passive or active for the DUT; 0 means the
// option is not given.
bool PGMDQ_COOKIE_MONSTER::is_valid_for_dut(unsigned dut_index, unsigned scheme, unsigned vccpgm, unsigned flash,
                                            unsigned freq)
{
    const PGMD_CM_DATABASE_INFO& dut = PGMD_CM_DATABASE_LIST[dut_index];
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

// Checks option `which` against the scheme alone, as Create Test does; the text that names the
// combination when they do not go together, else empty.
QString PGMDQ_COOKIE_MONSTER::invalid_option_text(const CASE_ROWS& rows, unsigned which)
{
    unsigned given[FREQ_OPTION + 1] = {};
    given[SCHEME_OPTION] = option(SCHEME_OPTION).list[rows.options[SCHEME_OPTION]].enumerator;
    given[which] = option(which).list[rows.options[which]].enumerator;
    if (is_valid_for_dut(rows.dut, given[SCHEME_OPTION], given[VCCPGM_OPTION], given[FLASH_OPTION], given[FREQ_OPTION]))
        return QString();
    QString text = QString(INVALID_OPTION_FORMATS[which]).arg(pgmdq_from_local8(PGMD_CM_DATABASE_LIST[rows.dut].name));
    for (unsigned named = SCHEME_OPTION; named <= which; ++named)
        text = text.arg(pgmdq_from_local8(option(named).list[rows.options[named]].display_name));
    return text;
}

// The first of Create Test's checks that the case fails, in Create Test's order.
QString PGMDQ_COOKIE_MONSTER::test_case_problem(const CASE_ROWS& rows)
{
    for (unsigned which = SCHEME_OPTION; which <= FREQ_OPTION; ++which) {
        const QString problem = invalid_option_text(rows, which);
        if (!problem.isEmpty())
            return problem;
    }
    return QString();
}

void PGMDQ_COOKIE_MONSTER::on_create_test()
{
    PGMDQ_ASSERT(m_dut_index > 0);
    PGMDQ_ASSERT(m_scheme > 0);
    PGMDQ_ASSERT(m_vccpgm > 0);
    PGMDQ_ASSERT(m_flash > 0);
    PGMDQ_ASSERT(m_freq > 0);
    const unsigned selected[] = {get_selected_scheme(), get_selected_vccpgm(), get_selected_flash(),
                                 get_selected_freq()};
    CASE_ROWS rows{m_dut_index, {}};
    expand_test_cases(selected, SCHEME_OPTION, &rows);
}

// Every selected row of option `which` that goes with the scheme, and below it the next option's
// rows; a case whose last option goes too becomes a command line.
void PGMDQ_COOKIE_MONSTER::expand_test_cases(const unsigned* selected, unsigned which, CASE_ROWS* rows)
{
    const OPTION& expanded = option(which);
    for (unsigned row = 0; row < expanded.count; ++row) {
        if (!(expanded.list[row].enumerator & selected[which]))
            continue;
        rows->options[which] = row;
        const QString problem = invalid_option_text(*rows, which);
        if (which == SCHEME_OPTION && !problem.isEmpty())
            PGMDQ_INTERNAL_ERROR("Invalid configuration scheme");
        if (!problem.isEmpty())
            MSG_PGMDQ::DEBUG_MSG(2, "%s", pgmdq_local8(problem).c_str());
        else if (which == FREQ_OPTION)
            add_command_line(*rows);
        else
            expand_test_cases(selected, which + 1, rows);
    }
}

void PGMDQ_COOKIE_MONSTER::add_command_line(const CASE_ROWS& rows)
{
    QString line = QString(CMD_LINE_FORMAT).arg(pgmdq_from_local8(PGMD_CM_DATABASE_LIST[rows.dut].name));
    for (unsigned which = SCHEME_OPTION; which <= FREQ_OPTION; ++which)
        line = line.arg(pgmdq_from_local8(option(which).list[rows.options[which]].display_name));
    add_cmd(line, PGMDQ_CMD_COLOR);
    if (m_hardware_flags == BOTH_HARDWARE_FLAGS) {
        m_run_button->setEnabled(true);
        m_save_msg_button->setEnabled(true);
    }
}

// Why a line of a saved batch is not a test command that Create Test makes; empty when it is
// one, with its case in *rows.
QString PGMDQ_COOKIE_MONSTER::command_line_problem(const QString& line, CASE_ROWS* rows)
{
    const QString prefix = pgmdq_from_local8(PGMD_CM_CMD_STRING) + CMD_FIELD_SEPARATOR;
    const QStringList fields =
        line.startsWith(prefix) ? line.mid(prefix.size()).split(CMD_FIELD_SEPARATOR) : QStringList();
    if (fields.size() != CMD_FIELD_COUNT)
        return QString("\"%1\" is not a test command (CMD @dut @scheme @VCCPGM @memory storage @frequency)").arg(line);
    rows->dut = find_database_row(fields[0]);
    if (!rows->dut)
        return QString("unknown dut \"%1\"").arg(fields[0]);
    for (unsigned which = SCHEME_OPTION; which <= FREQ_OPTION; ++which) {
        const OPTION& checked = option(which);
        rows->options[which] = find_row(checked.list, checked.count, fields[which + 1]);
        if (rows->options[which] == checked.count)
            return QString("unknown %1 \"%2\"").arg(checked.name, fields[which + 1]);
    }
    return test_case_problem(*rows);
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

