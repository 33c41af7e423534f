#!/usr/bin/env bash
# Runs a command against a real site: Debian's OpenSSH server on 127.0.0.1, on a free port, with
# its own configuration, host key, PAM service, pre-login banner and message of the day (the
# loopback site's, which hold "$ % > yes"), and a throwaway local account that logs in to it with a
# password. The command runs as that account, in its home, which holds:
#   ~/.ssh/config     a Host entry for each of the site's two host names, pointing at the server
#                     (each with its own known-hosts entry, so each has its own first contact);
#   ~/.profile        the workstation's `mount` first on PATH, the site's settings named;
#   ~/.bashrc         a prompt "<account>@<host>:<folder>> ", not "$ ";
#   ~/site            a copy of the loopback site (settings, workstation's mount, banner, MOTD, an
#                     empty share) whose settings name this copy and plain python3 as the Python
#                     command.
# The command, a program of the build tree, runs from a copy with the release tools, the
# libraries and the log-in client (the account may not reach the build or source tree). It gets REAL_SITE_ACCOUNT,
# REAL_SITE_PASSWORD (only ever in the environment),
# REAL_SITE_PORT, REAL_SITE_DIR (the copy) and PGMDQ_BUILD_DIR. The server, the account, its home
# and its processes go whatever happens; what a run killed outright left is removed by the next.
#
#   tests/real_site.sh BUILD_DIR PROGRAM [ARGUMENTS]
#
# Needs root (to add the account and start sshd); without it the run is skipped with status 77.
# The command is ended after $REAL_SITE_TIME_LIMIT seconds (170 unless set).
set -euo pipefail

readonly SKIPPED=77
readonly WORK_PREFIX=/tmp/pgmdq-real-site.
readonly START_ATTEMPTS=5

if [ $# -lt 2 ]; then
  echo "usage: $0 BUILD_DIR COMMAND [ARGUMENTS]" >&2
  exit 2
fi
build="$(cd "$1" && pwd)"
shift
# The command runs in the account's home.
if [ -e "$1" ]; then
  set -- "$(realpath "$1")" "${@:2}"
fi
if [ "$(id -u)" -ne 0 ]; then
  echo "SKIPPED: the real-site test needs root: it adds a local account and starts sshd on 127.0.0.1"
  exit "$SKIPPED"
fi
for program in /usr/sbin/sshd ssh ssh-keygen useradd userdel chpasswd runuser python3; do
  command -v "$program" > /dev/null || { echo "$program is missing (scripts/bootstrap.sh installs it)" >&2; exit 1; }
done

account_of() { echo "pgmdq-rs-$1"; }
pam_service_of() { echo "pgmdq-real-site-$1"; }

# Removes what the run with this id set up: its server, its account's processes, the account with
# its home, its PAM service and its folder. Each step is safe when there is nothing to remove.
remove_run() {
  local run_id="$1" run_dir="$WORK_PREFIX$1" run_account pids
  run_account="$(account_of "$run_id")"
  if [ -f "$run_dir/sshd.pid" ]; then
    kill "$(cat "$run_dir/sshd.pid")" 2> /dev/null || true
  fi
  if id "$run_account" > /dev/null 2>&1; then
    for _ in 1 2 3 4 5; do
      pids="$(ps -o pid= -u "$run_account" || true)"
      [ -n "$pids" ] || break
      # shellcheck disable=SC2086
      kill -KILL $pids 2> /dev/null || true
      sleep 0.2
    done
    userdel --remove "$run_account" 2> /dev/null || userdel "$run_account" || true
  fi
  rm -f "/etc/pam.d/$(pam_service_of "$run_id")"
  rm -rf "$run_dir"
}

# Runs killed outright (SIGKILL, a test runner's time-out) could not clean up after themselves.
remove_abandoned_runs() {
  local run_dir run_id
  for run_dir in "$WORK_PREFIX"*; do
    [ -d "$run_dir" ] || continue
    run_id="${run_dir#"$WORK_PREFIX"}"
    kill -0 "$run_id" 2> /dev/null || remove_run "$run_id"
  done
}

free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

setting() {
  sed -n "s/^$1=//p" "$build/site/site.ini" | head -n 1
}

# Debian's own PAM stack for sshd, with the site's message of the day instead of the machine's.
write_pam_service() {
  local motd_rules="session optional pam_motd.so motd=$work/motd motd_dir=$work/motd.d"
  sed -e "/pam_motd.so/d" -e "/^@include common-session/a $motd_rules" /etc/pam.d/sshd > "/etc/pam.d/$pam_service"
  grep -q "motd=$work/motd" "/etc/pam.d/$pam_service" || { echo "no session rules in /etc/pam.d/sshd" >&2; exit 1; }
}

write_sshd_config() {
  cat > "$work/sshd_config" << EOF
ListenAddress 127.0.0.1
Port $port
HostKey $work/ssh_host_ed25519_key
PidFile $work/sshd.pid
UsePAM yes
KbdInteractiveAuthentication no
PasswordAuthentication yes
PermitRootLogin no
AllowUsers $account
Banner $work/banner
PrintMotd no
AcceptEnv LANG LC_*
EOF
}

# sshd names its PAM service after the name it was started by.
start_sshd() {
  ln -s /usr/sbin/sshd "$work/$pam_service"
  for _ in $(seq "$START_ATTEMPTS"); do
    port="$(free_port)"
    write_sshd_config
    # Its output goes to a file: a test runner waits for every holder of the output it reads.
    "$work/$pam_service" -D -e -f "$work/sshd_config" >> "$work/sshd.log" 2>&1 &
    for _ in $(seq 50); do
      grep -q "Server listening on 127.0.0.1 port $port" "$work/sshd.log" && return 0
      kill -0 $! 2> /dev/null || break
      sleep 0.1
    done
    kill $! 2> /dev/null || true
  done
  echo "sshd did not start:" >&2
  cat "$work/sshd.log" >&2
  exit 1
}

add_account() {
  useradd --create-home --home-dir "$home" --shell /bin/bash --comment "POF checker real-site test" "$account"
  printf '%s:%s\n' "$account" "$REAL_SITE_PASSWORD" | chpasswd
  cat >> "$home/.bashrc" << 'EOF'
PS1='\u@\h:\w> '
EOF
  cat >> "$home/.profile" << 'EOF'
export PATH="$HOME/site/workstation/bin:$PATH"
export PGMDQ_SITE_SETTINGS="$HOME/site/site.ini"
EOF
  mkdir -m 700 "$home/.ssh"
  for host in "$(setting image_build_host)" "$(setting data_build_host)"; do
    printf 'Host %s\n    HostName 127.0.0.1\n    Port %s\n    HostKeyAlias %s\n' "$host" "$port" "$host"
  done > "$home/.ssh/config"
  copy_site
  chown -R "$account:" "$home"
}

copy_site() {
  local site="$home/site"
  mkdir -p "$site/workstation/bin" "$site/share/data"
  cp "$build/site/workstation/bin/mount" "$site/workstation/bin/"
  cp -r "$build/site/bin" "$build/site/banner" "$build/site/motd" "$site/"
  sed -e "s|$build/site|$site|g" -e 's/^\(python_[a-z]*_src\)=.*/\1=python3/' "$build/site/site.ini" > "$site/site.ini"
}

remove_abandoned_runs
this_run=$$
work="$WORK_PREFIX$this_run"
account="$(account_of "$this_run")"
pam_service="$(pam_service_of "$this_run")"
home="$work/home"
trap 'remove_run "$this_run"' EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

mkdir -m 755 "$work"
mkdir -p /run/sshd
ssh-keygen -q -t ed25519 -N '' -f "$work/ssh_host_ed25519_key"
cp "$build/site/banner" "$build/site/motd" "$work/"
export REAL_SITE_PASSWORD="pw-$RANDOM \"it's\" \\ \$HOME %> yes"
write_pam_service
start_sshd
add_account

# The account may not reach the build tree (a checkout in a private folder): it runs a copy of the
# program, the release tools and the libraries, from a folder of this run's own.
copy_build() {
  mkdir -p "$work/build/bin" "$work/source/tests"
  cp "$1" "$build/bin/pgm_release_maker" "$build/bin/pgm_sof2img" "$build/bin/pgm_cb_emulator" "$work/build/bin/"
  cp -r "$build/lib" "$work/build/"
  cp "$(dirname "$0")/login_client.py" "$work/source/tests/"
  chmod -R a+rX "$work/build" "$work/source"
}
copy_build "$1"
program="$work/build/bin/$(basename "$1")"
shift

export REAL_SITE_ACCOUNT="$account" REAL_SITE_PORT="$port" REAL_SITE_DIR="$home/site" PGMDQ_BUILD_DIR="$work/build"
export PGMDQ_SOURCE_DIR="$work/source"
export LD_LIBRARY_PATH="$work/build/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
cd "$home"
# Within a time of its own, so that this script cleans up before a test runner's time-out kills
# it outright; in the background, so that a signal to this script is handled at once.
timeout --kill-after=5 "${REAL_SITE_TIME_LIMIT:-170}" runuser -u "$account" -- "$program" "$@" &
status=0
wait $! || status=$?
exit "$status"
