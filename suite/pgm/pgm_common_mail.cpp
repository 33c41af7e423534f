// The suite's automatic mail: one SMTP submission to the site's server, addressed by the roles of
// the common address list in the site's settings, in a form a strict relay accepts: a Message-ID,
// the body as it is only where the server can take it (plain ASCII, or 8-bit text where the server
// offers 8BITMIME), else quoted-printable, and no line past SMTP's 998 characters.
#include "pgm_common.h"

#include "gen.h"
#include "msg.h"
#include "pgm_assert.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Long enough for a slow server, short enough that a dead one never stalls the caller for long.
constexpr std::chrono::seconds CONNECT_TIMEOUT{5};
constexpr std::chrono::seconds TRANSFER_TIMEOUT{30};
constexpr std::size_t SMTP_LINE_LIMIT = 998;  // characters of a line, its CR LF not counted
constexpr std::size_t QUOTED_PRINTABLE_LINE_LIMIT = 76;
constexpr std::size_t REPLY_LIMIT = 65536;    // a server that talks on and on is not one

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

// Unique on this host (time, process, sequence), in the sender's domain.
std::string message_id(const std::string& sender)
{
    static std::atomic<unsigned> sequence{0};
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return "<" + std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count()) + "." +
           std::to_string(getpid()) + "." + std::to_string(++sequence) + "@" + sender.substr(sender.find('@') + 1) +
           ">";
}

// ---------------------------------------------------------------------------------------------
// The body

// The text's lines without their ends (LF or CR LF); a last line without one counts as a line.
std::vector<std::string> lines_of(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        const bool crlf = end > begin && end < text.size() && text[end - 1] == '\r';
        lines.push_back(text.substr(begin, end - begin - (crlf ? 1 : 0)));
        begin = end + 1;
    }
    return lines;
}

enum class TRANSFER_ENCODING { SEVEN_BIT, EIGHT_BIT, QUOTED_PRINTABLE };

// Lines go as they are when they are short and hold no CR or NUL, and are ASCII or the server
// takes 8-bit text; otherwise quoted-printable keeps them exact within the limits.
TRANSFER_ENCODING transfer_encoding(const std::vector<std::string>& lines, bool server_takes_8bit)
{
    bool eight_bit = false;
    for (const std::string& line : lines) {
        if (line.size() > SMTP_LINE_LIMIT || line.find_first_of(std::string("\r\0", 2)) != std::string::npos)
            return TRANSFER_ENCODING::QUOTED_PRINTABLE;
        eight_bit = eight_bit || std::any_of(line.begin(), line.end(), [](unsigned char c) { return c >= 0x80; });
    }
    if (!eight_bit)
        return TRANSFER_ENCODING::SEVEN_BIT;
    return server_takes_8bit ? TRANSFER_ENCODING::EIGHT_BIT : TRANSFER_ENCODING::QUOTED_PRINTABLE;
}

const char* encoding_name(TRANSFER_ENCODING encoding)
{
    switch (encoding) {
    case TRANSFER_ENCODING::SEVEN_BIT:
        return "7bit";
    case TRANSFER_ENCODING::EIGHT_BIT:
        return "8bit";
    case TRANSFER_ENCODING::QUOTED_PRINTABLE:
        break;
    }
    return "quoted-printable";
}

// RFC 2045: printable ASCII but "=" as it is, blanks too unless they end the line, every other
// byte as "=XX"; long lines broken with a soft break ("=" at the end).
std::vector<std::string> quoted_printable(const std::vector<std::string>& lines)
{
    static const char HEX[] = "0123456789ABCDEF";
    std::vector<std::string> encoded;
    for (const std::string& line : lines) {
        std::string part;
        for (std::size_t i = 0; i < line.size(); ++i) {
            const unsigned char c = static_cast<unsigned char>(line[i]);
            const bool blank = c == ' ' || c == '\t';
            const bool as_is = (c > ' ' && c < 0x7F && c != '=') || (blank && i + 1 < line.size());
            const std::string piece = as_is ? std::string(1, char(c)) : std::string{'=', HEX[c >> 4], HEX[c & 0xF]};
            if (part.size() + piece.size() >= QUOTED_PRINTABLE_LINE_LIMIT) {
                encoded.push_back(part + "=");
                part.clear();
            }
            part += piece;
        }
        encoded.push_back(part);
    }
    return encoded;
}

// Headers and body, every line ended by CR LF.
std::string message_text(const MAIL& mail, bool server_takes_8bit, TRANSFER_ENCODING& encoding)
{
    std::vector<std::string> lines = lines_of(mail.body);
    encoding = transfer_encoding(lines, server_takes_8bit);
    if (encoding == TRANSFER_ENCODING::QUOTED_PRINTABLE)
        lines = quoted_printable(lines);
    std::vector<std::string> headers = {"Date: " + date_header(), "From: " + mail.sender, "To: " + join(mail.to)};
    if (!mail.cc.empty())
        headers.push_back("Cc: " + join(mail.cc));
    if (!mail.reply_to.empty())
        headers.push_back("Reply-To: " + mail.reply_to);
    headers.insert(headers.end(), {"Subject: " + header_value(mail.subject), "Message-ID: " + message_id(mail.sender),
                                   "MIME-Version: 1.0",
                                   std::string("Content-Type: text/") + (mail.html ? "html" : "plain") + "; charset=UTF-8",
                                   std::string("Content-Transfer-Encoding: ") + encoding_name(encoding)});
    std::string text;
    for (const std::string& header : headers)
        text += header + "\r\n";
    text += "\r\n";
    for (const std::string& line : lines)
        text += line + "\r\n";
    return text;
}

// A line that begins with "." gets another, so that none reads as the end of the data.
std::string dot_stuffed(const std::string& text)
{
    std::string stuffed;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '.' && (i == 0 || text[i - 1] == '\n'))
            stuffed += '.';
        stuffed += text[i];
    }
    return stuffed;
}

// ---------------------------------------------------------------------------------------------
// SMTP

// One connection to the server. The first failure is kept and every later step does nothing, so a
// submission reads as its steps in order; failure() says why it stopped ("" when it did not).
class SMTP_SESSION {
public:
    explicit SMTP_SESSION(const std::string& server)
        : m_server(server), m_deadline(std::chrono::steady_clock::now() + CONNECT_TIMEOUT)
    {
        const std::size_t colon = server.rfind(':');
        const std::string host = server.substr(0, colon);
        const std::string port = colon == std::string::npos ? "25" : server.substr(colon + 1);
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        const int resolved = getaddrinfo(host.c_str(), port.c_str(), &hints, &found);
        if (resolved != 0) {
            m_failure = "Could not resolve " + host + ": " + gai_strerror(resolved);
            return;
        }
        for (const addrinfo* address = found; address != nullptr && m_fd < 0; address = address->ai_next)
            connect_to(*address);
        freeaddrinfo(found);
        if (m_fd < 0 && m_failure.empty())
            m_failure = "Failed to connect to " + m_server + ": no address";
        m_deadline = std::chrono::steady_clock::now() + TRANSFER_TIMEOUT;
    }
    ~SMTP_SESSION()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    SMTP_SESSION(const SMTP_SESSION&) = delete;
    SMTP_SESSION& operator=(const SMTP_SESSION&) = delete;

    // Sends `command` (nothing when it is empty) and reads the reply; gives the reply's lines
    // without their codes. A reply of another class than `expected` (2xx, 3xx) is a failure.
    std::vector<std::string> expect(const std::string& command, int expected, const std::string& step)
    {
        if (!command.empty())
            send(command + "\r\n");
        std::vector<std::string> lines;
        std::string line;
        while (m_failure.empty() && read_line(line)) {
            lines.push_back(line.size() > 4 ? line.substr(4) : std::string());
            if (line.size() < 4 || line[3] != '-')
                break;
        }
        if (m_failure.empty() && (line.size() < 3 || line[0] != char('0' + expected / 100)))
            m_failure = "the server answered \"" + line + "\" to " + step;
        return lines;
    }

    const std::string& failure() const { return m_failure; }

private:
    void connect_to(const addrinfo& address)
    {
        const int fd = ::socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (fd < 0)
            return;
        int error = ::connect(fd, address.ai_addr, address.ai_addrlen) == 0 ? 0 : errno;
        if (error == EINPROGRESS && wait(fd, POLLOUT)) {
            socklen_t size = sizeof error;
            getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
        }
        if (error != 0) {
            m_failure = "Failed to connect to " + m_server + ": " +
                        std::strerror(error == EINPROGRESS ? ETIMEDOUT : error);
            ::close(fd);
            return;
        }
        m_fd = fd;
        m_failure.clear();
    }

    // Whether `fd` is ready before the deadline.
    bool wait(int fd, short events) const
    {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(m_deadline -
                                                                                std::chrono::steady_clock::now());
        pollfd poll_fd{fd, events, 0};
        return left.count() > 0 && ::poll(&poll_fd, 1, int(left.count())) > 0;
    }

    void send(const std::string& bytes)
    {
        for (std::size_t sent = 0; m_failure.empty() && sent < bytes.size();) {
            const ssize_t written =
                wait(m_fd, POLLOUT) ? ::send(m_fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL) : -1;
            if (written <= 0)
                m_failure = "the connection to " + m_server + " broke or timed out while sending";
            else
                sent += std::size_t(written);
        }
    }

    bool read_line(std::string& line)
    {
        std::size_t end;
        while ((end = m_received.find('\n')) == std::string::npos) {
            char buffer[4096];
            const ssize_t got = wait(m_fd, POLLIN) ? ::recv(m_fd, buffer, sizeof buffer, 0) : -1;
            if (got <= 0 || m_received.size() > REPLY_LIMIT) {
                m_failure = "the connection to " + m_server + " closed or timed out while waiting for its answer";
                return false;
            }
            m_received.append(buffer, std::size_t(got));
        }
        line = m_received.substr(0, end > 0 && m_received[end - 1] == '\r' ? end - 1 : end);
        m_received.erase(0, end + 1);
        return true;
    }

    std::string m_server;
    std::chrono::steady_clock::time_point m_deadline;
    int m_fd = -1;
    std::string m_received;
    std::string m_failure;
};

std::string client_name()
{
    char name[256] = "";
    return gethostname(name, sizeof name - 1) == 0 && *name != '\0' ? name : "localhost";
}

// Hands the mail to the server; the reason when it was not accepted, else empty.
std::string submit(const std::string& server, const MAIL& mail)
{
    SMTP_SESSION smtp(server);
    smtp.expect("", 220, "the connection");
    const std::vector<std::string> extensions = smtp.expect("EHLO " + client_name(), 250, "EHLO");
    const bool server_takes_8bit = std::find(extensions.begin(), extensions.end(), "8BITMIME") != extensions.end();
    TRANSFER_ENCODING encoding;
    const std::string text = message_text(mail, server_takes_8bit, encoding);
    smtp.expect("MAIL FROM:<" + mail.sender + ">" + (encoding == TRANSFER_ENCODING::EIGHT_BIT ? " BODY=8BITMIME" : ""),
                250, "MAIL FROM");
    for (const auto* group : {&mail.to, &mail.cc, &mail.bcc})
        for (const std::string& address : *group)
            smtp.expect("RCPT TO:<" + address + ">", 250, "RCPT TO:<" + address + ">");
    smtp.expect("DATA", 354, "DATA");
    smtp.expect(dot_stuffed(text) + ".", 250, "the mail");
    const std::string failure = smtp.failure();
    // Once the server took the mail, how the goodbye goes does not matter.
    smtp.expect("QUIT", 221, "QUIT");
    return failure;
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
