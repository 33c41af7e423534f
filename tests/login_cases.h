// Log-ins over ssh as a careful script makes them, driven by tests/login_client.py: the table of
// what such a client meets, shared by the loopback site's ssh and a real OpenSSH server, which
// must agree on every row.
#pragma once

#include "build_tree.h"
#include "shell_run.h"

#include "pgmdq_miscellaneous_files.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
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
    std::string line = site.environment + " " + source_dir() + "/tests/login_client.py --user " +
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

// The report of a first log-in that answered "yes" and the password, ran commands with these
// outputs and exited with 3.
inline std::string first_session_events(const std::vector<std::string>& outputs)
{
    std::string events = "question\nadded\nbanner\npassword\nmotd\nprompt\n";
    for (const std::string& output : outputs)
        events += "output " + output + "\nprompt\n";
    return events + "closed\nstatus 3\n";
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

// One row of the table, the user's known hosts in `home` forgotten beforehand.
inline void expect_login_case(const LOGIN_SITE& site, const LOGIN_CASE& login_case, const std::string& home)
{
    run("rm -f " + home + "/.ssh/known_hosts");
    if (login_case.known_before) {
        ASSERT_EQ(run_login(site, "yes,right", {"exit 3"}).output, first_session_events({}));
    }
    const RUN_RESULT result = run_login(site, login_case.answers, LOGIN_PROBE);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, login_case.events);
    EXPECT_EQ(host_is_known(site, home), login_case.known_after);
}

// The release's own tools through a site's two hosts, as the checker's scripts run them: on the
// workstation the share (`share_unc`, whose data root is `data_root` here) is mounted as "S:" and
// the converter takes "S:" paths; on the data-build host the die's emulator runs. A share the
// workstation does not know is refused. Both hosts are met for the first time.
inline void expect_release_tools_run(const LOGIN_SITE& workstation, const LOGIN_SITE& data_host,
                                     const std::string& data_root, const std::string& share_unc)
{
    const std::string dir_name = "release_tools_" + std::to_string(getpid());
    const std::string dir = data_root + dir_name + "/";
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0) << dir;
    const RUN_RESULT made = run(build_dir() + "/bin/pgm_release_maker --out " + dir + "release --dies C5D1 --sofs 1" +
                                " --emulator-root " + dir + "emulator");
    ASSERT_EQ(made.status, 0) << made.output;
    const std::string release = "S:/data/" + dir_name + "/release/";
    const std::string base = "calder5/C5D1/c5d1_design01";
    const RUN_RESULT image = run_login(
        workstation, "yes,right",
        {"mount //elsewhere/share S: || echo mount=$?", "mount " + share_unc + " S:",
         release + "sof2img/calder5_sof2img.exe " + release + base + ".sof " + release + base + ".img -s2i C5D1",
         "exit 3"});
    EXPECT_EQ(image.output, first_session_events({"mount: the network name //elsewhere/share cannot be found|mount=2",
                                                  "S: is now connected to " + share_unc,
                                                  "sof2img: " + release + base + ".sof -> " + release + base +
                                                      ".img (C5D1)"}));
    const std::string emulator = dir + "emulator/C5D1/C5D1";
    const std::string linux_base = dir + "release/" + base;
    const RUN_RESULT data =
        run_login(data_host, "yes,right", {emulator + " -o " + linux_base + " -m3 -img " + linux_base + ".img", "exit 3"});
    EXPECT_EQ(data.output, first_session_events({"ICD data of C5D1 written to " + linux_base + ".dat|End of running " +
                                                 emulator}));
    EXPECT_EQ(access((linux_base + ".dat").c_str(), R_OK), 0);
    run("rm -rf " + dir);
}
