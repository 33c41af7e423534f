#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test through CTest.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/bootstrap.sh"
"$root/scripts/build.sh"
cd "$root/build"
ctest --output-on-failure -j2 --timeout 600
