// A local SMTP server for tests: the loopback site's strict relay (build/site/bin/smtp_sink, on
// aiosmtpd) on a free port of 127.0.0.1, offering 8BITMIME or not, started by the constructor and
// stopped by the destructor. Point the suite's mail at it with
// gen_set_setting("mail/smtp_server", sink.server()).
#pragma once

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <arpa/inet.h>
#include <csignal>
#include <fstream>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

struct SMTP_SINK_MAIL {
    std::string mail_from;
    std::vector<std::string> mail_options;  // parameters of MAIL FROM ("BODY=8BITMIME")
    std::vector<std::string> rcpt_to;
    std::string data;  // headers and body as sent, CR LF line ends
    std::vector<std::string> defects;  // what python3's email parser found wrong
    std::string text;                  // the body as python3's email parser decodes it, LF line ends
    // The value of a header line; empty when the mail has none.
    std::string header(const std::string& name) const
    {
        const std::string headers = "\r\n" + data.substr(0, data.find("\r\n\r\n") + 2);
        const std::size_t line = headers.find("\r\n" + name + ": ");
        if (line == std::string::npos)
            return std::string();
        const std::size_t value = line + name.size() + 4;
        return headers.substr(value, headers.find("\r\n", value) - value);
    }
    std::string body() const { return data.substr(data.find("\r\n\r\n") + 4); }
};

class SMTP_SINK {
public:
    // `site_bin` is the loopback site's bin folder (build/site/bin).
    explicit SMTP_SINK(const std::string& site_bin, bool offers_8bitmime = true)
    {
        char pattern[] = "/tmp/smtp_sink_XXXXXX";
        m_dir = mkdtemp(pattern) ? pattern : "";
        const std::string program = site_bin + "/smtp_sink";
        const std::string out = m_dir + "/mail";
        const std::string port_file = m_dir + "/port";
        m_pid = fork();
        if (m_pid == 0) {
            // A sink left behind by a crashed test ends by itself.
            execl(program.c_str(), program.c_str(), "--out", out.c_str(), "--port-file", port_file.c_str(),
                  "--lifetime", "120", offers_8bitmime ? nullptr : "--no-8bitmime", nullptr);
            _exit(127);
        }
        for (int waited = 0; waited < 200 && m_port == 0 && m_pid > 0; ++waited) {
            usleep(25000);
            std::ifstream(port_file) >> m_port;
        }
    }
    ~SMTP_SINK()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
        QDir(QString::fromStdString(m_dir)).removeRecursively();
    }
    SMTP_SINK(const SMTP_SINK&) = delete;
    SMTP_SINK& operator=(const SMTP_SINK&) = delete;

    int port() const { return m_port; }
    std::string server() const { return "127.0.0.1:" + std::to_string(m_port); }

    // Every mail received so far, in the order of arrival.
    std::vector<SMTP_SINK_MAIL> mails() const
    {
        std::vector<SMTP_SINK_MAIL> mails;
        for (int number = 1;; ++number) {
            QFile file(QString::fromStdString(m_dir + "/mail/mail-" + std::to_string(number) + ".json"));
            if (!file.open(QIODevice::ReadOnly))
                return mails;
            const QJsonObject mail = QJsonDocument::fromJson(file.readAll()).object();
            const auto text = [&](const char* key) { return mail[key].toString().toStdString(); };
            const auto list = [&](const char* key) {
                std::vector<std::string> items;
                for (const QJsonValue& item : mail[key].toArray())
                    items.push_back(item.toString().toStdString());
                return items;
            };
            mails.push_back({text("mail_from"), list("mail_options"), list("rcpt_to"), text("data"), list("defects"),
                             text("text")});
        }
    }

private:
    std::string m_dir;
    pid_t m_pid = -1;
    int m_port = 0;
};

// A port of 127.0.0.1 on which nothing listens (taken from the system, then let go): the address
// of a mail server that is not there.
inline int smtp_sink_closed_port()
{
    const int socket_fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bind(socket_fd, reinterpret_cast<sockaddr*>(&address), size);
    getsockname(socket_fd, reinterpret_cast<sockaddr*>(&address), &size);
    close(socket_fd);
    return ntohs(address.sin_port);
}
