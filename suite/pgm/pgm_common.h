// Helpers of the programmer library that other suite components share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Recipient roles of the suite's common mail address list. Each role's address is a setting of
// the site ("mail/" + the role's key: bench_team, release_team, administrator).
enum PGM_COMMON_INI_EMAIL_ADDR_ENUM {
    PGM_COMMON_INI_EMAIL_ADDR_BENCH_TEAM = 0,  // the bench tools' users: their notifications
    PGM_COMMON_INI_EMAIL_ADDR_RELEASE_TEAM,
    PGM_COMMON_INI_EMAIL_ADDR_ADMINISTRATOR,
    PGM_COMMON_INI_EMAIL_ADDR_COUNT
};

class PGM_COMMON {
public:
    // CRC-16 of the `bits` bits of `data` that start at bit `start` (bit b is bit b % 8 of byte
    // b / 8), fed least significant bit first into a reflected register: `poly` is the reflected
    // polynomial (0xA001 for x^16 + x^15 + x^2 + 1), `init` the register's first value, and there
    // is no final inversion. With `init` 0 the CRC is linear in the data: flipping bits changes it
    // by the XOR of the flipped bits' single contributions, which the bitstream checker relies on.
    static std::uint16_t calculate_crc16(const unsigned char* data, std::size_t start, std::size_t bits,
                                         std::uint16_t init, std::uint16_t poly);

    // Sends an automatic mail through the site's SMTP server ("mail/smtp_server", host:port) from
    // the site's sender address ("mail/sender") to the addresses of `roles`, copied to `cc` and,
    // unseen by the others, to `bcc`. The body is plain text, or HTML when `html` is set; each of
    // its lines goes out ended by CR LF, as it is when it is ASCII (or 8-bit text and the server
    // offers 8BITMIME) and within SMTP's 998 characters, else quoted-printable. Every mail has a
    // Message-ID. A non-empty `reply_to` asks for answers there. Returns whether the server
    // accepted the mail; a failure is also posted as a warning. An unreachable server fails within
    // seconds. A role outside the address list is an internal error.
    static bool send_auto_email_file(const std::vector<PGM_COMMON_INI_EMAIL_ADDR_ENUM>& roles,
                                     const std::string& subject, const std::string& body, bool html,
                                     const std::string& reply_to, const std::vector<std::string>& cc,
                                     const std::vector<std::string>& bcc);
};
