#include "pgmdq_pof_checker_private.h"

#include "pgm.h"
#include "tfcq.h"

#include <QPushButton>

using namespace pgmdq_pof;

// ---------------------------------------------------------------------------------------------
// Notification mail

void PGMDQ_POF_CHECKER::on_send_email()
{
    TFCQ_WAIT_CURSOR wait_cursor;
    on_process_email();
}

// Mails the whole log once to the bench team; why a mail failed is the mail service's to report.
void PGMDQ_POF_CHECKER::on_process_email()
{
    std::string body;
    for (const std::string& line : log_lines())
        body += line + "\n";
    const std::vector<PGM_COMMON_INI_EMAIL_ADDR_ENUM> roles = {PGM_COMMON_INI_EMAIL_ADDR_ENUM(0)};
    const bool sent = PGM_COMMON::send_auto_email_file(roles, "POF Checker notification", body, false, std::string(),
                                                       std::vector<std::string>(), std::vector<std::string>());
    // Only a log that went out is done with: after a failed send the user can try again.
    if (sent)
        m_send_button->setEnabled(false);
}
