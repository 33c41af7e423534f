#include "pgmdq_pof_checker_private.h"

#include "thr.h"

#include <QCheckBox>
#include <QLineEdit>
#include <QRegularExpression>

using namespace pgmdq_pof;

// ---------------------------------------------------------------------------------------------
// Log-ins to the build hosts: the generated Python (pexpect) scripts and what their runs tell

namespace {

// The account's password reaches the log-in scripts through this variable of their own
// environment only: no file, command line or log ever holds it.
const char* const PASSWORD_VARIABLE = "POF_CHECKER_PASSWORD";

const QRegularExpression LOGIN_NAME("\\A[A-Za-z0-9._][A-Za-z0-9._-]{0,31}\\z");

struct LOGIN_FAILURE {
    int exit_status;
    const char* text;  // after the host name
};

const LOGIN_FAILURE LOGIN_FAILURES[] = {
    {LOGIN_EXIT_REFUSED, " refused the log-in: wrong user name or password"},
    {LOGIN_EXIT_UNREACHABLE, " could not be reached (unknown host, refused connection or changed host key)"},
    {LOGIN_EXIT_TIMED_OUT, " did not answer the log-in in time"},
};

} // namespace

std::string PGMDQ_POF_CHECKER::python_command()
{
    return m_site_check->isChecked() ? PYTHON_NV_SRC.str() : PYTHON_RK_SRC.str();
}

// A log-in script's run: its own time-out for the work plus time to log in and out, and the
// password in its environment.
THR_RUN_OPTIONS PGMDQ_POF_CHECKER::login_options(unsigned script_timeout)
{
    THR_RUN_OPTIONS options;
    options.timeout_seconds = script_timeout + LOGIN_ALLOWANCE_SECONDS;
    options.environment.emplace_back(PASSWORD_VARIABLE, pgmdq_local8(m_password_edit->text()));
    return options;
}

// The user name goes onto ssh's command line: only a login name may (so it can never be read as
// an option); the password may hold anything.
bool PGMDQ_POF_CHECKER::account_is_valid()
{
    const QString user = m_username_edit->text();
    if (LOGIN_NAME.match(user).hasMatch())
        return true;
    update_msg(PGMDQ_MSG_TYPE_ERROR, "Can't log in as \"" + pgmdq_local8(user) +
                                         "\": a user name is letters, digits, \".\", \"_\" and \"-\", does not start "
                                         "with \"-\" and has at most 32 characters");
    return false;
}

std::string PGMDQ_POF_CHECKER::python_sendline(const std::string& command)
{
    return "p.sendline('" + python_text(command) + "')\n";
}

// Logs in to `host` over ssh with the panel's account. Against a real server: the host-key
// question is told by its own words (a banner may say "yes"), the password goes only to the
// password prompt and comes from the environment, and, once logged in, the script sets a prompt
// of its own and waits for it (a banner, a MOTD or the account's prompt may hold "$", "%" or ">").
// A log-in that fails ends the script at once with the status that says why.
void PGMDQ_POF_CHECKER::write_python_login(FILE* output, const std::string& host, const std::string& timeout)
{
    const std::string expect_login = "[YES_NO, PASSWORD, REFUSED, pexpect.EOF, pexpect.TIMEOUT";
    const std::string lines[] = {
        "import os\n",
        "import sys\n",
        "import pexpect\n",
        // The prompt set below; the echo of the command that sets it does not match it.
        "PROMPT = \"\\\\[POFCHECKER\\\\]> \"\n",
        "YES_NO = \"Are you sure you want to continue connecting\"\n",
        "PASSWORD = \"assword:\"\n",
        "REFUSED = \"Permission denied|Host key verification failed\"\n",
        "LOGIN_FAILED = [" + std::to_string(LOGIN_EXIT_UNREACHABLE) + ", " + std::to_string(LOGIN_EXIT_REFUSED) + ", " +
            std::to_string(LOGIN_EXIT_REFUSED) + ", " + std::to_string(LOGIN_EXIT_UNREACHABLE) + ", " +
            std::to_string(LOGIN_EXIT_TIMED_OUT) + "]\n",
        // "--": the host is never read as an option.
        "p=pexpect.spawn('ssh -- " + python_text(pgmdq_local8(m_username_edit->text())) + "@" + python_text(host) +
            "', timeout = " + timeout + ")\n",
        "i=p.expect(" + expect_login + "])\n",
        "if i==0:\n",
        "   print(\"Answering yes...\")\n",
        "   p.sendline('yes')\n",
        "   i=p.expect(" + expect_login + "])\n",
        "if i==1:\n",
        "   print(\"Answering with password\")\n",
        "   p.sendline(os.environb[b'" + std::string(PASSWORD_VARIABLE) + "'])\n",
        // The first word after the password: the session's, or the refusal's.
        "   i=p.expect(" + expect_login + ", '\\\\S'])\n",
        "else:\n",
        "   print(\"Do not need password\")\n",
        "if i==5:\n",
        "   p.sendline(\"PS1='[POF''CHECKER]> '\")\n",
        "   i=p.expect(" + expect_login + ", PROMPT])\n",
        "if i!=5:\n",
        "   sys.exit(LOGIN_FAILED[i])\n",
    };
    for (const std::string& line : lines)
        std::fputs(line.c_str(), output);
}

// A log-in script: the log-in, then `body`, then the log-out.
void PGMDQ_POF_CHECKER::write_login_script(const std::string& script, const std::string& host, unsigned timeout,
                                           const std::vector<std::string>& body)
{
    PGMDQ_FILE output(create_script(script));
    PGMDQ_ASSERT(output != NULL);
    write_python_login(output.get(), host, std::to_string(timeout));
    for (const std::string& line : body)
        std::fputs(line.c_str(), output.get());
    std::fputs("p.sendline('exit')\n", output.get());
    std::fputs("p.close()\n", output.get());
}

// Whether a log-in script's run got past its log-in; a failed one is told once per host and run.
bool PGMDQ_POF_CHECKER::logged_in(int exit_status, const std::string& host)
{
    for (const LOGIN_FAILURE& failure : LOGIN_FAILURES) {
        if (failure.exit_status != exit_status)
            continue;
        m_run.login_failure = host + failure.text;
        report_once("login:" + host, m_run.login_failure, PGMDQ_MSG_TYPE_ERROR);
        m_run.login_failed = true;
        return false;
    }
    return true;
}

std::string PGMDQ_POF_CHECKER::create_icd_dat_python(std::string sof_path)
{
    const std::string base = replace_tail(sof_path, 4, "");
    const std::string script = base + ".py";
    rm_rf_file(script);
    const std::string emulator = PGMDQ_POF_DIE_LIST[m_die_index].emulator_path.str();
    const std::string rif = PGMDQ_POF_FAMILY_LIST[m_family_index].has_rif ? " -rif " + pgmdq_shell_quote(m_rk_rif_path) : "";
    write_login_script(script, DAT_BUILD_HOST.str(), DAT_SECONDS_PER_ROUND,
                       {python_sendline(emulator + " -o " + pgmdq_shell_quote(base) + " -m3 -img " +
                                        pgmdq_shell_quote(base + ".img") + rif),
                        // Exact: the emulator's path is text, not a pattern.
                        "i=p.expect_exact('End of running " + python_text(emulator) + "')\n"});
    return script;
}

bool PGMDQ_POF_CHECKER::create_icd_dat(std::string sof_path, std::string dat_path)
{
    const std::string script = create_icd_dat_python(sof_path);
    const int status = run_command(python_command() + " " + pgmdq_shell_quote(script), login_options(DAT_SECONDS_PER_ROUND));
    rm_rf_file(script);
    logged_in(status, DAT_BUILD_HOST.str());
    return exists(dat_path);
}

// Scripts a killed run left in the folder go before the folder is checked again.
void PGMDQ_POF_CHECKER::remove_stale_scripts()
{
    const QStringList generated = {"auto_gen_img*.pl", "auto_gen_img*.py", "auto_gen_dat*.pl", "auto_gen_dat*.py",
                                   "auto_unzipped*.pl"};
    for (const QString& name : dir_entries(m_current_path, generated, QDir::Files))
        rm_rf_file(m_current_path + pgmdq_local8(name));
    for (unsigned i = 0; i < m_sof_size; ++i)
        if (is_regular_file(replace_tail(m_sof_files[i].fullpath, 4, ".py")))
            rm_rf_file(replace_tail(m_sof_files[i].fullpath, 4, ".py"));
}
