#!/bin/sh
# Runs one example against two simulated sensors and checks what it printed.
#   run_example.sh QVSIM list_sensors|cw_readings|trace_csv PROGRAM
# Run by qv_test_env, which sets the namespace, data directory, bus and driver.
set -eu
qvsim=$1 kind=$2 program=$3
fail() { echo "FAIL: $*" >&2; exit 1; }
"$qvsim" create >/dev/null
"$qvsim" add AB1234 QV442A --address 5 >/dev/null
"$qvsim" add CD5678 TK8410 --address 12 >/dev/null
case $kind in
list_sensors)
  out=$("$program") || fail "exit status $?"
  echo "$out"
  echo "$out" | grep -q '^2 sensor' || fail "count"
  echo "$out" | grep -q 'AB1234.*address *5' || fail "AB1234 at address 5"
  echo "$out" | grep -q 'CD5678.*address *12' || fail "CD5678 at address 12"
  ;;
cw_readings)
  "$qvsim" signal AB1234 cw -20 --freq 2.4e9 >/dev/null
  out=$("$program" AB1234 2.4e9 5) || fail "exit status $?"
  echo "$out"
  # Five readings, each within 0.5 dB of the simulated -20 dBm.
  echo "$out" | awk '$3 == "dBm" && $2 > -20.5 && $2 < -19.5 { n++ } END { exit n != 5 }' \
    || fail "five readings of -20 dBm"
  # An unknown sensor is an error, not a hang or a crash.
  if "$program" ZZ9999 1e9 1 2>/dev/null; then fail "unknown sensor accepted"; fi
  case $program in *_cpp*)
    # Unplugged and plugged in again while it reads: the C++ version waits for
    # the sensor, initialises it again and goes on. The simulated sensor keeps
    # its real pace here, so that the 400 readings outlast the replug.
    "$qvsim" timing --control-us 250 --bulk-bps 4000000 --sampled-blocks 1 >/dev/null
    log=${QV_TEST_TMPDIR:-/tmp}/replug
    "$program" AB1234 2.4e9 400 >"$log.out" 2>"$log.err" &
    pid=$!
    tries=0
    until [ -s "$log.out" ]; do
      tries=$((tries + 1)); [ $tries -lt 400 ] || fail "no first reading"; sleep 0.05
    done
    "$qvsim" unplug AB1234 >/dev/null
    sleep 1.5
    "$qvsim" replug AB1234 >/dev/null
    wait $pid || fail "no recovery after replug: $(cat "$log.err")"
    grep -q 'returned -13' "$log.err" || fail "the unplug was not seen"
    [ "$(grep -c ' dBm$' "$log.out")" -ge 390 ] || fail "readings lost after replug"
    ;;
  esac
  ;;
trace_csv)
  "$qvsim" signal AB1234 pulse --period 400 --width 100 --on 0 --off -35 --freq 1e9 >/dev/null
  csv=${QV_TEST_TMPDIR:-/tmp}/trace.csv
  "$program" AB1234 1000 "$csv" || fail "exit status $?"
  # 10,000 points of a 1 ms sweep; the pulse tops near 0 dBm, the gaps near -35.
  awk -F, 'NR == 1 { if ($0 != "time_s,power_dbm") exit 1; next }
           { n++; if ($2 > hi || n == 1) hi = $2; if ($2 < lo || n == 1) lo = $2; last = $1 }
           END { exit !(n == 10000 && hi > -1 && hi < 1 && lo < -30 && last > 0.00099 && last < 0.00101) }' \
    "$csv" || fail "trace file $(head -3 "$csv")"
  if "$program" AB1234 1234 "$csv" 2>/dev/null; then fail "sweep time 1234 us accepted"; fi
  ;;
*) fail "unknown example $kind" ;;
esac
echo "passed"
