// Log-ins over ssh as a careful script makes them, driven by tests/login_client.py: the table of
// what such a client meets, shared by the loopback site's ssh and a real OpenSSH server, which
// must agree on every row.
#pragma once

#include "build_tree.h"
#include "shell_run.h"

#include "pgmdq_miscellaneous_files.h"

#include <cstdlib>
#include <string>
#include <vector>

inline std::string source_dir()
{
    const char* dir = std::getenv("PGMDQ_SOURCE_DIR");
    return dir ? dir : build_dir() + "/..";
}

// Where the client logs in. The right password is in the environment as LOGIN_PASSWORD.
struct LOGIN_SITE {
    std::string user;
    std::string host;
    std::string prompt;       // the shell's prompt
    std::string banner;       // files with the server's pre-login banner and message of the day
    std::string motd;
    std::string environment;  // shell assignments the client runs with ("HOME=... PATH=...")
};

// The client's report of one log-in (see login_client.py): `answers` to its questions in order,
// `commands` run at the prompt, ssh sent the signal `kill` (SIGKILL, ...) after the last one.
inline RUN_RESULT run_login(const LOGIN_SITE& site, const std::string& answers,
                            const std::vector<std::string>& commands, const std::string& kill = "")
{
    std::string line = site.environment + " python3 " + source_dir() + "/tests/login_client.py --user " +
                       pgmdq_shell_quote(site.user) + " --host " + pgmdq_shell_quote(site.host) + " --prompt " +
                       pgmdq_shell_quote(site.prompt) + " --banner " + site.banner + " --motd " + site.motd +
                       " --answers " + pgmdq_shell_quote(answers);
    for (const std::string& command : commands)
        line += " --command " + pgmdq_shell_quote(command);
    if (!kill.empty())
        line += " --kill " + kill;
    return run(line);
}

// Whether the user's known_hosts names the host, as OpenSSH's own ssh-keygen reads it.
inline bool host_is_known(const LOGIN_SITE& site, const std::string& home)
{
    return run("ssh-keygen -F " + pgmdq_shell_quote(site.host) + " -f " + home + "/.ssh/known_hosts").status == 0;
}

struct LOGIN_CASE {
    const char* name;
    bool known_before;  // made known by a log-in that answered "yes"
    const char* answers;
    const char* events;  // the client's report
    bool known_after;
};

// A command whose output shows the terminal's line ends: every line must end in CR LF.
const std::vector<std::string> LOGIN_PROBE = {"echo $((6*7)); printf 'a\\nb\\n'", "exit 3"};

const LOGIN_CASE LOGIN_CASES[] = {
    {"FirstContactAnsweredYes", false, "yes,right",
     "question\nadded\nbanner\npassword\nmotd\nprompt\noutput 42|a|b\nprompt\nclosed\nstatus 3\n", true},
    {"KnownHostIsNotAsked", true, "right", "banner\npassword\nmotd\nprompt\noutput 42|a|b\nprompt\nclosed\nstatus 3\n",
     true},
    {"FirstContactAnsweredNo", false, "maybe,no", "question\nretype\nfailed\nstatus 255\n", false},
    {"WrongPasswordIsAskedAgain", true, "wrong,right",
     "banner\npassword\ndenied\npassword\nmotd\nprompt\noutput 42|a|b\nprompt\nclosed\nstatus 3\n", true},
    {"ThreeWrongPasswordsAreRefused", true, "wrong,wrong,wrong",
     "banner\npassword\ndenied\npassword\ndenied\npassword\nrefused\nstatus 255\n", true},
};

inline std::string login_case_name(const LOGIN_CASE& login_case)
{
    return login_case.name;
}
