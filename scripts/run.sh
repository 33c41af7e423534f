#!/usr/bin/env bash
# Installs what is missing, builds, and opens the host application with the three panels on the
# built-in simulated bench and the loopback site. Without a display it runs under Xvfb, writes a
# picture of the window to build/pgm_host.png and exits. Extra arguments go to the host
# (--settings FILE, --separate-window, --tab N, --screenshot FILE).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/bootstrap.sh"
"$root/scripts/build.sh"
"$root/site/prepare_release.sh" --if-missing "$root/build" >/dev/null
host="$root/build/bin/pgm_host"
if [ -n "${DISPLAY:-}" ]; then
  exec "$host" "$@"
fi
picture="$root/build/pgm_host.png"
xvfb-run -a -s "-screen 0 1280x1024x24" "$host" --screenshot "$picture" "$@"
echo "no display: the window ran under Xvfb; its picture is $picture"
