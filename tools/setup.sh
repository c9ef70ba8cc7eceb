#!/usr/bin/env bash
# Installs what building and testing needs (Debian), when it is missing, and
# any further packages named on the command line.
#   tools/setup.sh [PACKAGE...]
set -euo pipefail
packages=(cmake ninja-build g++ make pkg-config libgtest-dev libgmock-dev libbenchmark-dev
          libcli11-dev nlohmann-json3-dev python3 python3-numpy python3-matplotlib python3-pytest
          python3-setuptools python3-pip python3-wheel python3-venv libusb-1.0-0-dev libumockdev-dev umockdev
          doxygen lintian dpkg-dev clang-14 libclang-rt-14-dev "$@")
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if ((${#missing[@]})); then
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
