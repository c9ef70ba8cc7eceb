#!/usr/bin/env bash
# Builds the library, the simulated sensors and qvpower, puts three simulated
# sensors on a bus of their own, and takes CW and pulse readings of known
# signals with qvpower, beside the power the simulated signal really has.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh

build=build/demo
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQV_BUILD_TESTS=OFF -DQV_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target qvpower qvsim qvsim_usbdrvd >/dev/null

# Everything machine-wide goes into a namespace and directory of the demo's own.
export QV_API2_NAMESPACE="demo$$"
export QV_API2_DATA_DIR="$PWD/$build/data"
export QV_SIM_BUS="$PWD/$build/demo-bus.qvsim"
export QV_USBDRVD="$PWD/$build/sim/libqvsim_usbdrvd.so"

qvsim="$build/sim/qvsim"
qvpower="$build/tools/qvpower"
"$qvsim" create
"$qvsim" add AB1234 QV442A --address 5 --firmware "V2.03" --due 27-03-31 >/dev/null
"$qvsim" add CD5678 TK8410 --address 12 >/dev/null
"$qvsim" add EF9012 R7703B --address 200 >/dev/null

echo "--- the simulated bus, as qvpower list sees it"
"$qvpower" list
echo
echo "--- qvpower info @5"
"$qvpower" info @5

# A reading field from qvpower's CSV output: measure KIND SENSOR COLUMN [OPTIONS].
reading() {
  local kind=$1 sensor=$2 column=$3
  shift 3
  "$qvpower" measure "$kind" "$sensor" --csv "$@" | tail -n 1 | cut -d, -f"$column"
}

echo
echo "--- CW: qvsim signal SERIAL cw DBM, then qvpower measure cw SERIAL -f FREQ"
printf '%-8s %10s %12s %12s %10s\n' sensor frequency "true dBm" "qvpower dBm" "error dB"
cw_row() {
  local serial=$1 freq=$2 dbm=$3
  "$qvsim" signal "$serial" cw "$dbm" --freq "$freq" >/dev/null
  local measured
  measured=$(reading cw "$serial" 5 -f "$freq")
  awk -v s="$serial" -v f="$freq" -v t="$dbm" -v m="$measured" \
    'BEGIN { printf "%-8s %7g GHz %12.3f %12.3f %+10.3f\n", s, f / 1e9, t, m, m - t }'
}
for dbm in -60 -40 -25 -10 0 15; do cw_row AB1234 1e9 "$dbm"; done
for dbm in -45 -12 5; do cw_row CD5678 6e9 "$dbm"; done
for dbm in -30 10; do cw_row EF9012 1.8e10 "$dbm"; done

echo
echo "--- pulse: qvsim signal SERIAL pulse --period US --width US --on DBM --off DBM, then qvpower measure pulse"
printf '%-22s %-8s %10s %10s %10s %10s\n' signal "" "pulse dBm" "peak dBm" "avg dBm" "duty %"
pulse_rows() {
  local serial=$1 period=$2 width=$3 on=$4 off=$5
  "$qvsim" signal "$serial" pulse --period "$period" --width "$width" --on "$on" --off "$off" --freq 1e9 >/dev/null
  local measured
  measured=$("$qvpower" measure pulse "$serial" --csv | tail -n 1)
  awk -v p="$period" -v w="$width" -v on="$on" -v off="$off" -v m="$measured" 'BEGIN {
    split(m, r, ",")
    d = w / p
    avg = 10 * log(d * 10 ^ (on / 10) + (1 - d) * 10 ^ (off / 10)) / log(10)
    label = sprintf("%g/%g us %g/%g dBm", w, p, on, off)
    printf "%-22s %-8s %10.3f %10.3f %10.3f %10.2f\n", label, "true", on, on, avg, 100 * d
    printf "%-22s %-8s %10.3f %10.3f %10.3f %10.2f\n", "", "qvpower", r[5], r[6], r[7], 100 * r[8]
  }'
}
# The sensor samples every 2 us and takes 126 samples (252 us) per block: pulse
# edges on that grid and periods that fit a block whole.
pulse_rows CD5678 84 12 3 -40
pulse_rows CD5678 126 62 -20 -55
pulse_rows AB1234 252 26 10 -30

echo
echo "--- trace: qvsim signal AB1234 pulse --period 400 --width 100 --on 0 --off -35 --rise 2 --fall 2,"
echo "    then qvpower trace AB1234 -t 1000 --trigger level -l -20 (1 ms from where the power rises through -20 dBm)"
"$qvsim" signal AB1234 pulse --period 400 --width 100 --on 0 --off -35 --rise 2 --fall 2 --freq 1e9 >/dev/null
"$qvpower" trace AB1234 -t 1000 --trigger level -l -20 | awk -F, '
  /^[0-9]/ {
    t = $1 * 1e6; p = $2; w = 10 ^ (p / 10); n++; time[n] = t; mw[n] = w
    ph = t - 400 * int(t / 400)
    if (ph > 20 && ph < 80) { on += p; non++ }
    if (ph > 150 && ph < 380) { off += p; noff++ }
  }
  END {
    # width between the 50 % points (in watts) of the second pulse, whose rise lies inside the trace
    half = (10 ^ ((on / non) / 10) + 10 ^ ((off / noff) / 10)) / 2
    for (i = 2; i <= n; i++) {
      x = time[i - 1] + (time[i] - time[i - 1]) * (mw[i - 1] - half) / (mw[i - 1] - mw[i])
      if (mw[i - 1] < half && mw[i] >= half) rise = x
      else if (rise && mw[i - 1] >= half && mw[i] < half) { fall = x; break }
    }
    printf "%-10s %10s %10s %10s\n", "", "on dBm", "off dBm", "width us"
    printf "%-10s %10.3f %10.3f %10.3f\n", "true", 0, -35, 100
    printf "%-10s %10.3f %10.3f %10.3f\n", "trace", on / non, off / noff, fall - rise
  }'

echo
echo "--- the same for programs: qvpower measure cw @5 --json -n 2, and a refused call"
"$qvsim" signal AB1234 cw -17 --freq 2.4e9 >/dev/null
"$qvpower" measure cw @5 -f 2.4GHz --json -n 2
"$qvpower" measure cw @5 -f 30GHz || echo "(exit code $?)"

# Every process has left: nothing of the demo's namespace may stay in shared memory.
if ls /dev/shm 2>/dev/null | grep -q -- "$QV_API2_NAMESPACE"; then
  echo "demo: shared-memory objects of namespace $QV_API2_NAMESPACE were left in /dev/shm" >&2
  exit 1
fi
