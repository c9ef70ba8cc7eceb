#!/usr/bin/env bash
# Installs what the Windows cross-build and running its tests under Wine need
# (Debian), when it is missing: mingw-w64 with posix threads, Wine, and
# GoogleTest's sources to build for Windows.
set -euo pipefail
exec bash "$(dirname "$0")/setup.sh" g++-mingw-w64-x86-64-posix wine64 wine googletest util-linux
