#!/usr/bin/env bash
# Installs the Debian packages the project needs when they are missing.
set -euo pipefail

packages=(
  cmake g++ make pkg-config
  qtbase5-dev qttools5-dev-tools qttools5-dev
  tcl tcl-dev
  libgtest-dev libbenchmark-dev
  xvfb xauth x11-apps imagemagick
  zlib1g-dev
  perl python3 python3-pexpect gzip
  openssh-server openssh-client python3-aiosmtpd
  gtkwave sigrok-cli
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
