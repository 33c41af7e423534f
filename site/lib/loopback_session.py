"""The host side of a loopback log-in: a shell on a pseudo-terminal of its own, as sshd gives one.

The terminal takes the client's modes, so its output turns "\\n" into "\\r\\n" as a real session's
does. The client's terminal is in raw mode meanwhile and every byte is relayed both ways. Whatever
ends the session (the shell's exit, a signal to the client, the client killed outright), every
process of the session and its home folder go with it.
"""
import fcntl
import os
import select
import shutil
import signal
import termios
import time

SESSION_END_GRACE_SECONDS = 1.0
POLL_SECONDS = 0.2


def enter_raw_mode(fd):
    """ssh's own raw mode: nothing translated or echoed here, the session's terminal does that."""
    attributes = termios.tcgetattr(fd)
    raw = list(attributes)
    raw[0] = (raw[0] | termios.IGNPAR) & ~(termios.ISTRIP | termios.INLCR | termios.IGNCR | termios.ICRNL |
                                           termios.IXON | termios.IXANY | termios.IXOFF)
    raw[1] &= ~termios.OPOST
    raw[3] &= ~(termios.ISIG | termios.ICANON | termios.ECHO | termios.ECHOE | termios.ECHOK | termios.ECHONL |
                termios.IEXTEN)
    raw[6] = list(raw[6])
    raw[6][termios.VMIN] = 1
    raw[6][termios.VTIME] = 0
    # Lines typed ahead stay: they belong to the remote shell.
    termios.tcsetattr(fd, termios.TCSADRAIN, raw)
    return attributes


def session_members(session_id):
    """Live processes whose session is `session_id` (they share its terminal), from /proc."""
    members = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open("/proc/%s/stat" % entry) as stat:
                fields = stat.read().rsplit(")", 1)[1].split()
        except (OSError, IndexError):
            continue
        if int(fields[3]) == session_id and fields[0] != "Z":
            members.append(int(entry))
    return members


def signal_all(pids, signum):
    for pid in pids:
        try:
            os.kill(pid, signum)
        except ProcessLookupError:
            pass


def end_session(session_id, home):
    """Hangs up every process of the session, kills what is left after a grace period, removes the
    home folder. Safe to call more than once."""
    signal_all(session_members(session_id), signal.SIGHUP)
    deadline = time.monotonic() + SESSION_END_GRACE_SECONDS
    while session_members(session_id) and time.monotonic() < deadline:
        time.sleep(0.05)
    signal_all(session_members(session_id), signal.SIGKILL)
    shutil.rmtree(home, ignore_errors=True)


def start_reaper(session_id, home):
    """A process outside the client's process group and terminal that ends the session once the
    client is gone however it went (SIGKILL included): it waits for the end of a pipe only the
    client holds. Returns that pipe's write end."""
    read_end, write_end = os.pipe()
    if os.fork() == 0:
        os.setsid()
        for signum in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
            signal.signal(signum, signal.SIG_IGN)
        os.closerange(0, read_end)
        os.closerange(read_end + 1, os.sysconf("SC_OPEN_MAX"))
        while os.read(read_end, 1):
            pass
        end_session(session_id, home)
        os._exit(0)
    os.close(read_end)
    return write_end


def start_shell(master, slave, terminal_modes, shell_argv, env, home, motd):
    """Forks the session's shell as the leader of a new session on `slave`, after the MOTD."""
    pid = os.fork()
    if pid == 0:
        os.close(master)
        os.setsid()
        fcntl.ioctl(slave, termios.TIOCSCTTY, 0)
        termios.tcsetattr(slave, termios.TCSANOW, terminal_modes)
        for fd in (0, 1, 2):
            os.dup2(slave, fd)
        os.closerange(3, os.sysconf("SC_OPEN_MAX"))
        os.chdir(home)
        signal.pthread_sigmask(signal.SIG_SETMASK, [])
        os.write(1, motd)
        os.execve(shell_argv[0], shell_argv, env)
    return pid


def write_all(fd, data):
    while data:
        data = data[os.write(fd, data):]


def relay(master, shell_pid):
    """Copies the client's input to the session and the session's output back until the shell
    ends; returns the shell's wait status."""
    inputs = [0, master]
    while True:
        ready = select.select(inputs, [], [], POLL_SECONDS)[0]
        if 0 in ready:
            data = os.read(0, 4096)
            if data:
                write_all(master, data)
            else:
                inputs.remove(0)
        if master in ready and not copy_output(master):
            break
        pid, status = os.waitpid(shell_pid, os.WNOHANG)
        if pid == shell_pid:
            while select.select([master], [], [], 0)[0] and copy_output(master):
                pass
            return status
    return os.waitpid(shell_pid, 0)[1]


def copy_output(master):
    """Copies what the session wrote; False once its terminal is closed on every side."""
    try:
        data = os.read(master, 4096)
    except OSError:
        return False
    write_all(1, data)
    return bool(data)


def run(shell_argv, env, home, motd):
    """Runs the session on the client's terminal (fd 0 and 1); returns the shell's exit status, or
    ssh's 255 when the shell was killed."""
    terminal_modes = termios.tcgetattr(0)
    master, slave = os.openpty()
    fcntl.ioctl(slave, termios.TIOCSWINSZ, fcntl.ioctl(0, termios.TIOCGWINSZ, b"\0" * 8))
    # Until the reaper watches, a signal must not end this process and leave the shell behind.
    ending_signals = {signal.SIGHUP, signal.SIGTERM, signal.SIGINT}
    signal.pthread_sigmask(signal.SIG_BLOCK, ending_signals)
    shell_pid = start_shell(master, slave, terminal_modes, shell_argv, env, home, motd)
    os.close(slave)
    reaper_pipe = start_reaper(shell_pid, home)

    def on_signal(_signum, _frame):
        os.close(master)
        end_session(shell_pid, home)
        os._exit(255)

    for signum in ending_signals:
        signal.signal(signum, on_signal)
    signal.pthread_sigmask(signal.SIG_UNBLOCK, ending_signals)
    enter_raw_mode(0)
    status = relay(master, shell_pid)
    termios.tcsetattr(0, termios.TCSADRAIN, terminal_modes)
    os.close(master)
    end_session(shell_pid, home)
    os.close(reaper_pipe)
    return os.waitstatus_to_exitcode(status) if os.WIFEXITED(status) else 255
