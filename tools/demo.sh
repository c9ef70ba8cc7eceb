#!/usr/bin/env bash
# Builds the library and the simulated sensors, puts three simulated sensors on
# a bus of their own and shows what the library sees there.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh

build=build/demo
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQV_BUILD_TESTS=OFF -DQV_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" >/dev/null

# Everything machine-wide goes into a namespace and directory of the demo's own.
export QV_API2_NAMESPACE="demo$$"
export QV_API2_DATA_DIR="$PWD/$build/data"
export QV_SIM_BUS="$PWD/$build/demo-bus.qvsim"
export QV_USBDRVD="$PWD/$build/sim/libqvsim_usbdrvd.so"

qvsim="$build/sim/qvsim"
"$qvsim" create
"$qvsim" add AB1234 QV442A --address 5 --firmware "V2.03" --due 27-03-31 >/dev/null
"$qvsim" add CD5678 TK8410 --address 12 >/dev/null
"$qvsim" add EF9012 R7703B --address 200 >/dev/null
echo "--- simulated bus ($QV_SIM_BUS)"
"$qvsim" list
qvpower="$build/tools/qvpower"
echo "--- what the library sees: qvpower list"
"$qvpower" list
echo "--- qvpower info @5"
"$qvpower" info @5
