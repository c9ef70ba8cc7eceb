#!/usr/bin/env bash
# Installs what the Windows cross-build and running its tests under Wine need
# (Debian), when it is missing: mingw-w64 with posix threads, Wine, and
# GoogleTest's sources to build for Windows.
set -euo pipefail
packages=(g++-mingw-w64-x86-64-posix wine64 wine googletest cmake ninja-build util-linux)
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
