#!/usr/bin/env bash
# Configures and builds the project into build/ (two jobs: the machines have two cores).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$root/build" -j2
