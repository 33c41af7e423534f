#!/usr/bin/python3
"""A log-in client for tests: runs `ssh user@host` under pexpect, answers what it is asked in the
order given, runs commands at the shell's prompt and prints, one per line, what it met:

  question   the first-contact host-key question, in OpenSSH's words
  retype     "Please type 'yes', 'no' or the fingerprint: "
  added      "Warning: Permanently added '<host>' (ED25519) to the list of known hosts."
  failed     "Host key verification failed."
  banner     the site's pre-login banner, whole
  password   "<user>@<host>'s password: " at the start of a line
  denied     "Permission denied, please try again."
  refused    "<user>@<host>: Permission denied (publickey,password)."
  motd       the site's message of the day, whole
  prompt     the shell's prompt (the next command is sent)
  output X   what the last command printed, its lines joined by "|" (each must end in CR LF)
  closed     "Connection to <host> closed."
  killed     ssh was sent the signal of --kill after the last command
  status N   ssh's exit status
  unanswered a question came after the last answer (the client stops there)
  timeout    nothing known came in time

Every text but the prompt must end its lines in CR LF, as a terminal writes them.

  login_client.py --user U --host H --prompt P --banner FILE --motd FILE
                  [--answers a,b,...] [--command C]... [--kill SIGNAL] [--timeout S]

Answers are "yes", "no", a wrong word, or "right" for the password in $LOGIN_PASSWORD. Without
--command the client runs "exit 3". With --kill, ssh gets that signal once the last command was
sent and has run for a moment.
"""
import argparse
import os
import re
import signal
import sys
import time

import pexpect

ESCAPES = re.compile(rb"\x1b\[\?2004[hl]\r?")  # bash's bracketed-paste switches around its prompt


def crlf(text):
    return text.replace(b"\n", b"\r\n")


def patterns(options):
    """(event, pattern) in the order pexpect tries them; pexpect takes the earliest match."""
    read = lambda path: open(path, "rb").read()  # noqa: E731
    return [
        ("question", re.compile(rb"The authenticity of host '[^']+' can't be established\.\r\n"
                                rb"ED25519 key fingerprint is SHA256:[A-Za-z0-9+/]{43}\.\r\n"
                                # whether the key is known by other names, and which
                                rb"(?:[^\r\n]*\r\n){1,8}?"
                                rb"Are you sure you want to continue connecting \(yes/no/\[fingerprint\]\)\? ")),
        ("retype", re.compile(re.escape(b"\rPlease type 'yes', 'no' or the fingerprint: "))),
        ("added", re.compile(rb"Warning: Permanently added '[^']+' \(ED25519\) to the list of known hosts\.\r+\n")),
        ("failed", re.compile(rb"Host key verification failed\.\r+\n")),
        ("banner", re.compile(re.escape(crlf(read(options.banner))))),
        ("password", re.compile(re.escape(("\r%s@%s's password: " % (options.user, options.host)).encode()))),
        ("denied", re.compile(rb"Permission denied, please try again\.\r+\n")),
        ("refused", re.compile(rb"\S+: Permission denied \(publickey,password\)\.\r+\n")),
        ("motd", re.compile(re.escape(crlf(read(options.motd))))),
        ("prompt", re.compile(re.escape(options.prompt.encode()))),
        ("closed", re.compile(rb"Connection to \S+ closed\.\r+\n")),
        ("eof", pexpect.EOF),
    ]


def output_of(before):
    """The lines a command printed: what follows the echo of its own line."""
    lines = ESCAPES.sub(b"", before).split(b"\r\n")[1:]
    return "|".join(line.decode("utf-8", "replace") for line in lines if line)


def answer(word):
    return os.environ.get("LOGIN_PASSWORD", "") if word == "right" else word


def run(options, report):
    answers = options.answers.split(",") if options.answers else []
    commands = options.command or ["exit 3"]
    names, searched = zip(*patterns(options))
    client = pexpect.spawn("ssh", ["%s@%s" % (options.user, options.host)], timeout=options.timeout)
    prompts = 0
    while True:
        event = names[client.expect(list(searched))]
        if event == "eof":
            client.close()
            report("status %s" % (client.exitstatus if client.exitstatus is not None else "signal"))
            return
        if event == "prompt" and prompts > 0:
            report("output " + output_of(client.before))
        report(event)
        if event in ("question", "retype", "password"):
            if not answers:
                report("unanswered")
                client.close(force=True)
                return
            client.sendline(answer(answers.pop(0)))
        elif event == "prompt" and prompts < len(commands):
            client.sendline(commands[prompts])
            prompts += 1
            if prompts == len(commands) and options.kill:
                time.sleep(0.5)
                os.kill(client.pid, getattr(signal, options.kill))
                report("killed")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    for name in ("--user", "--host", "--prompt", "--banner", "--motd"):
        parser.add_argument(name, required=True)
    parser.add_argument("--answers", default="")
    parser.add_argument("--command", action="append")
    parser.add_argument("--kill")
    parser.add_argument("--timeout", type=float, default=20)
    options = parser.parse_args()
    report = lambda line: print(line, flush=True)  # noqa: E731
    try:
        run(options, report)
    except pexpect.TIMEOUT:
        report("timeout")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
