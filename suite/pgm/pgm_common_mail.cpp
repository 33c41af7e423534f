// The suite's automatic mail: one SMTP submission through libcurl to the site's server, addressed
// by the roles of the common address list in the site's settings.
#include "pgm_common.h"

#include "gen.h"
#include "msg.h"
#include "pgm_assert.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <mutex>

namespace {

// Long enough for a slow server, short enough that a dead one never stalls the caller for long.
constexpr long CONNECT_TIMEOUT_SECONDS = 5;
constexpr long TRANSFER_TIMEOUT_SECONDS = 30;

const char* const ROLE_SETTINGS[PGM_COMMON_INI_EMAIL_ADDR_COUNT] = {
    "mail/bench_team",
    "mail/release_team",
    "mail/administrator",
};

struct MAIL {
    std::string sender;
    std::vector<std::string> to;
    std::vector<std::string> cc;
    std::vector<std::string> bcc;
    std::string subject;
    std::string body;
    bool html = false;
    std::string reply_to;
};

// An address goes into SMTP commands and headers as it is, so it must be one plain word.
bool is_plain_address(const std::string& address)
{
    const auto is_plain = [](unsigned char c) { return c > ' ' && c < 0x7F && c != '<' && c != '>' && c != ','; };
    return address.find('@') != std::string::npos && std::all_of(address.begin(), address.end(), is_plain);
}

// A line break in a subject must not begin a header of its own.
std::string header_value(std::string text)
{
    std::replace(text.begin(), text.end(), '\r', ' ');
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

// SMTP lines end in CR LF; the suite's texts end theirs in LF.
std::string with_crlf(const std::string& text)
{
    std::string lines;
    lines.reserve(text.size() + text.size() / 32);
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r'))
            lines += '\r';
        lines += text[i];
    }
    return lines;
}

std::string join(const std::vector<std::string>& items)
{
    std::string text;
    for (const std::string& item : items)
        text += (text.empty() ? "" : ", ") + item;
    return text;
}

// RFC 5322 date in UTC, spelled out here because strftime's names follow the host's locale.
std::string date_header()
{
    static const char* const DAYS[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char* const MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[64];
    std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d +0000", DAYS[utc.tm_wday], utc.tm_mday,
                  MONTHS[utc.tm_mon], utc.tm_year + 1900, utc.tm_hour, utc.tm_min, utc.tm_sec);
    return text;
}

std::string message_text(const MAIL& mail)
{
    std::string headers = "Date: " + date_header() + "\n" + "From: " + mail.sender + "\n" + "To: " + join(mail.to) +
                          "\n";
    if (!mail.cc.empty())
        headers += "Cc: " + join(mail.cc) + "\n";
    if (!mail.reply_to.empty())
        headers += "Reply-To: " + mail.reply_to + "\n";
    headers += "Subject: " + header_value(mail.subject) + "\n" + "MIME-Version: 1.0\n" + "Content-Type: text/" +
               (mail.html ? "html" : "plain") + "; charset=UTF-8\n" + "Content-Transfer-Encoding: 8bit\n";
    return with_crlf(headers + "\n" + mail.body);
}

struct UPLOAD {
    const std::string& text;
    std::size_t offset;
};

std::size_t read_upload(char* buffer, std::size_t size, std::size_t count, void* user)
{
    auto* upload = static_cast<UPLOAD*>(user);
    const std::size_t length = std::min(size * count, upload->text.size() - upload->offset);
    std::memcpy(buffer, upload->text.data() + upload->offset, length);
    upload->offset += length;
    return length;
}

struct CURL_RECIPIENTS {
    curl_slist* list = nullptr;
    ~CURL_RECIPIENTS() { curl_slist_free_all(list); }
    bool add(const std::string& address)
    {
        curl_slist* longer = curl_slist_append(list, ("<" + address + ">").c_str());
        if (longer != nullptr)
            list = longer;
        return longer != nullptr;
    }
};

// Hands the mail to the server; the reason when it was not accepted, else empty.
std::string submit(const std::string& server, const MAIL& mail)
{
    static std::once_flag curl_ready;
    std::call_once(curl_ready, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });

    std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), curl_easy_cleanup);
    CURL_RECIPIENTS recipients;
    bool listed = true;
    for (const auto* group : {&mail.to, &mail.cc, &mail.bcc})
        for (const std::string& address : *group)
            listed = listed && recipients.add(address);
    if (!curl || !listed)
        return "out of resources";

    const std::string text = message_text(mail);
    UPLOAD upload{text, 0};
    char error[CURL_ERROR_SIZE] = "";
    const std::string url = "smtp://" + server;
    const std::string from = "<" + mail.sender + ">";
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_MAIL_FROM, from.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_MAIL_RCPT, recipients.list);
    curl_easy_setopt(curl.get(), CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_READFUNCTION, read_upload);
    curl_easy_setopt(curl.get(), CURLOPT_READDATA, &upload);
    curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT, CONNECT_TIMEOUT_SECONDS);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, TRANSFER_TIMEOUT_SECONDS);
    // No SIGALRM for timeouts: the caller may be any thread of the host.
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, error);
    const CURLcode result = curl_easy_perform(curl.get());
    if (result == CURLE_OK)
        return std::string();
    return *error != '\0' ? error : curl_easy_strerror(result);
}

// The reason the mail cannot be addressed, else empty.
std::string address_problem(const std::string& server, const MAIL& mail)
{
    if (server.empty())
        return "no SMTP server in the settings (mail/smtp_server)";
    if (mail.to.empty())
        return "no recipient";
    if (std::find(mail.to.begin(), mail.to.end(), std::string()) != mail.to.end())
        return "a recipient role has no address in the settings (mail/bench_team, mail/release_team, "
               "mail/administrator)";
    for (const auto* group : {&mail.to, &mail.cc, &mail.bcc})
        for (const std::string& address : *group)
            if (!is_plain_address(address))
                return "not a mail address: \"" + address + "\"";
    if (!is_plain_address(mail.sender))
        return "no sender address in the settings (mail/sender)";
    if (!mail.reply_to.empty() && !is_plain_address(mail.reply_to))
        return "not a mail address: \"" + mail.reply_to + "\"";
    return std::string();
}

} // namespace

bool PGM_COMMON::send_auto_email_file(const std::vector<PGM_COMMON_INI_EMAIL_ADDR_ENUM>& roles,
                                      const std::string& subject, const std::string& body, bool html,
                                      const std::string& reply_to, const std::vector<std::string>& cc,
                                      const std::vector<std::string>& bcc)
{
    MAIL mail;
    for (const PGM_COMMON_INI_EMAIL_ADDR_ENUM role : roles) {
        PGM_ASSERT(static_cast<unsigned>(role) < PGM_COMMON_INI_EMAIL_ADDR_COUNT, "pgm_common_mail");
        mail.to.push_back(gen_get_setting(ROLE_SETTINGS[role]));
    }
    mail.sender = gen_get_setting("mail/sender");
    mail.cc = cc;
    mail.bcc = bcc;
    mail.subject = subject;
    mail.body = body;
    mail.html = html;
    mail.reply_to = reply_to;
    const std::string server = gen_get_setting("mail/smtp_server");

    std::string problem = address_problem(server, mail);
    if (problem.empty())
        problem = submit(server, mail);
    if (problem.empty())
        return true;
    auto* warning = new MSG_W("Automatic mail \"%1!s!\" was not sent: %2!s!/WPGM_AUTO_EMAIL_NOT_SENT");
    warning->fill_args(std::vector<std::string>{header_value(subject), problem});
    msg_post(warning);
    return false;
}
