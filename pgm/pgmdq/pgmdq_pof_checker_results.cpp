#include "pgmdq_pof_checker_private.h"

#include "pgmdq_tcl_commands.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QFileInfo>
#include <QListWidget>

#include <cstdlib>

using namespace pgmdq_pof;

// ---------------------------------------------------------------------------------------------
// What a check found per design: its summary, and the results of an unattended check

void PGMDQ_POF_CHECKER::register_designs()
{
    for (unsigned i = 0; i < m_sof_size; ++i)
        if (!find_design(m_sof_files[i].fullpath))
            m_run.designs.push_back({m_run.die_label, m_sof_files[i].fullpath, PGMDQ_POF_DESIGN::NO_VERDICT, std::string()});
}

PGMDQ_POF_DESIGN* PGMDQ_POF_CHECKER::find_design(const std::string& sof)
{
    for (PGMDQ_POF_DESIGN& design : m_run.designs)
        if (design.sof == sof)
            return &design;
    return nullptr;
}

// Every file made from a design shares its name up to the extension: "x.sof", "x.dat", "x.img".
std::vector<std::string> PGMDQ_POF_CHECKER::design_lines(const PGMDQ_POF_DESIGN& design) const
{
    const std::string stem = replace_tail(design.sof, 3, "");
    std::vector<std::string> lines;
    for (const std::string& line : log_lines())
        if (line.find(stem) != std::string::npos)
            lines.push_back(line);
    return lines;
}

std::vector<std::string> PGMDQ_POF_CHECKER::log_lines() const
{
    std::vector<std::string> lines;
    for (int row = 0; row < m_msg_list->count(); ++row)
        lines.push_back(pgmdq_local8(m_msg_list->item(row)->text()));
    return lines;
}

// Why a design has no verdict: what the check noted, else the last line that names it.
std::string PGMDQ_POF_CHECKER::missing_verdict_reason(const PGMDQ_POF_DESIGN& design) const
{
    if (!design.note.empty())
        return design.note;
    const std::vector<std::string> lines = design_lines(design);
    return lines.empty() ? "its die's check stopped before it" : lines.back();
}

// After the check's last line: how many designs got which verdict, where each failed design's
// bit streams first differ, and why a design got no verdict.
void PGMDQ_POF_CHECKER::log_summary()
{
    if (m_run.designs.empty())
        return;
    unsigned counts[3] = {0, 0, 0};
    for (const PGMDQ_POF_DESIGN& design : m_run.designs)
        ++counts[design.outcome];
    update_msg(PGMDQ_MSG_TYPE_INFO, "Summary: " + std::to_string(m_run.designs.size()) + " designs checked, " +
                                        std::to_string(counts[PGMDQ_POF_DESIGN::PASSED]) + " passed, " +
                                        std::to_string(counts[PGMDQ_POF_DESIGN::FAILED]) + " failed, " +
                                        std::to_string(counts[PGMDQ_POF_DESIGN::NO_VERDICT]) + " skipped");
    for (const PGMDQ_POF_DESIGN& design : m_run.designs) {
        if (design.outcome == PGMDQ_POF_DESIGN::FAILED)
            update_msg(PGMDQ_MSG_TYPE_WARNING, "Summary: " + design.sof + " failed: " + design.note);
        else if (design.outcome == PGMDQ_POF_DESIGN::NO_VERDICT)
            update_msg(PGMDQ_MSG_TYPE_WARNING, "Summary: " + design.sof + " has no verdict: " + missing_verdict_reason(design));
    }
}

// One test suite per die, one test case per design.
std::vector<PGMDQ_JUNIT_SUITE> PGMDQ_POF_CHECKER::junit_suites() const
{
    static const PGMDQ_JUNIT_CASE::OUTCOME OUTCOMES[] = {PGMDQ_JUNIT_CASE::PASSED, PGMDQ_JUNIT_CASE::FAILED,
                                                         PGMDQ_JUNIT_CASE::SKIPPED};
    std::vector<PGMDQ_JUNIT_SUITE> suites;
    for (const PGMDQ_POF_DIE_TIME& die : m_run.die_times) {
        PGMDQ_JUNIT_SUITE suite{"pof." + die.die, die.seconds, {}};
        for (const PGMDQ_POF_DESIGN& design : m_run.designs) {
            if (design.die != die.die)
                continue;
            PGMDQ_JUNIT_CASE test{pgmdq_local8(QFileInfo(pgmdq_from_local8(design.sof)).fileName()),
                                  OUTCOMES[design.outcome], design.note, design_lines(design), -1};
            if (design.outcome == PGMDQ_POF_DESIGN::NO_VERDICT)
                test.message = missing_verdict_reason(design);
            suite.cases.push_back(test);
        }
        if (!suite.cases.empty())
            suites.push_back(suite);
    }
    return suites;
}

namespace {

int combo_row_of(QComboBox* combo, const QString& text)
{
    for (int row = 0; row < combo->count(); ++row)
        if (combo->itemText(row).compare(text, Qt::CaseInsensitive) == 0)
            return row;
    return -1;
}

} // namespace

// Chooses a family and die as the user would in the two combo boxes: the family by its key or
// the name it is shown with.
bool PGMDQ_POF_CHECKER::choose_die(const std::string& family, const std::string& die, std::string* error)
{
    int family_row = -1;
    for (int row = 0; row < m_family_combo->count() && family_row < 0; ++row) {
        const PGMDQ_POF_FAMILY& entry = PGMDQ_POF_FAMILY_LIST[m_family_combo->itemData(row).toInt()];
        if (equal_ignoring_case(entry.key, family) || equal_ignoring_case(entry.display_name, family))
            family_row = row;
    }
    if (family_row < 0) {
        *error = "no ready family \"" + family + "\"";
        return false;
    }
    m_family_combo->setCurrentIndex(family_row);
    const int die_row = combo_row_of(m_die_combo, pgmdq_from_local8(die));
    if (die_row < 0) {
        *error = "the family " + family + " has no die \"" + die + "\"";
        return false;
    }
    m_die_combo->setCurrentIndex(die_row);
    return true;
}

// Fills in the panel as the user would and presses "Check". False with the reason when the check
// could not run: bad account fields, an unknown family or die, no test directory, a failed
// log-in.
bool PGMDQ_POF_CHECKER::run_unattended(const PGMDQ_POF_CHECK_REQUEST& request, std::string* error)
{
    m_username_edit->setText(pgmdq_from_local8(request.user));
    m_password_edit->setText(pgmdq_from_local8(request.password));
    m_site_check->setChecked(request.nv_site);
    on_site();
    m_debug_check->setChecked(request.debug_file);
    const bool personal = !request.die.empty() || !request.directory.empty();
    m_personal_test_check->setChecked(personal);
    if (personal) {
        if (!choose_die(request.family, request.die, error))
            return false;
        const std::string family_key = PGMDQ_POF_FAMILY_LIST[get_index(true)].key;
        m_dir_edit->setText(pgmdq_from_local8(
            request.directory.empty() ? TEST_SHORT_DIR + family_key + "/" + request.die : request.directory));
        m_skip_icd_rbf_check->setChecked(request.skip_icd_rbf);
        m_skip_dat_check->setChecked(request.skip_dat || request.skip_icd_rbf);
        m_skip_img_check->setChecked(request.skip_img || request.skip_dat || request.skip_icd_rbf);
    }
    on_send_enabled();
    const std::string recursive_switch = "switches/PGMDQ_RECURSIVE_PERSONEL_TEST";
    const std::string was_recursive = gen_get_setting(recursive_switch);
    gen_set_setting(recursive_switch, request.recursive ? "on" : "off");
    on_pof_check();
    gen_set_setting(recursive_switch, was_recursive);
    if (!m_run.login_failure.empty())
        *error = m_run.login_failure;
    else if (m_run.die_times.empty())
        *error = "the check reached no die: " + (m_msg_list->count() ? log_lines().back() : std::string("no test directory"));
    else if (request.mail)
        on_send_email();
    return error->empty();
}

namespace {

bool pof_check_request(const TTCL_ARGS& args, PGMDQ_POF_CHECK_REQUEST* request, std::string* error)
{
    const std::string variable = args.value(PGMDQ_TCL_OPTION_PASSWORD_ENV);
    const char* password = std::getenv(variable.c_str());
    const std::string site = args.is_set(PGMDQ_TCL_OPTION_SITE) ? args.value(PGMDQ_TCL_OPTION_SITE) : "rk";
    if (!password || !*password)
        *error = "the environment variable " + variable + " holds no password";
    else if (args.is_set(PGMDQ_TCL_OPTION_FAMILY) != args.is_set(PGMDQ_TCL_OPTION_DIE))
        *error = "-family and -die go together";
    else if (args.is_set(PGMDQ_TCL_OPTION_DIRECTORY) && !args.is_set(PGMDQ_TCL_OPTION_DIE))
        *error = "-directory needs -family and -die";
    else if (site != "nv" && site != "rk")
        *error = "-site is nv or rk, not \"" + site + "\"";
    if (!error->empty())
        return false;
    request->user = args.value(PGMDQ_TCL_OPTION_USER);
    request->password = password;
    request->family = args.value(PGMDQ_TCL_OPTION_FAMILY);
    request->die = args.value(PGMDQ_TCL_OPTION_DIE);
    request->directory = args.value(PGMDQ_TCL_OPTION_DIRECTORY);
    request->recursive = args.is_set(PGMDQ_TCL_OPTION_RECURSIVE);
    request->skip_img = args.is_set(PGMDQ_TCL_OPTION_SKIP_IMG);
    request->skip_dat = args.is_set(PGMDQ_TCL_OPTION_SKIP_DAT);
    request->skip_icd_rbf = args.is_set(PGMDQ_TCL_OPTION_SKIP_ICD_RBF);
    request->debug_file = args.is_set(PGMDQ_TCL_OPTION_DEBUG_FILE);
    request->nv_site = site == "nv";
    request->mail = args.is_set(PGMDQ_TCL_OPTION_MAIL);
    return true;
}

} // namespace

// The POF checker's command: the panel's own check, its verdicts as one test suite per die.
bool pgmdq_pof_check(const TTCL_ARGS& args, PGMDQ_TCL_RESULT* result, std::string* error)
{
    PGMDQ_POF_CHECK_REQUEST request;
    if (!pof_check_request(args, &request, error))
        return false;
    PGMDQ_POF_CHECKER panel;
    const bool ran = panel.run_unattended(request, error);
    result->suites = panel.junit_suites();
    result->log = panel.log_lines();
    return ran;
}
