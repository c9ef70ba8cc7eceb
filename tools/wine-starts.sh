#!/usr/bin/env bash
# Counts Windows programs that die at start under Wine. Starts COUNT times each,
# alternately, the test launch chain (qv_test_env.exe starting
# test_header_c99.exe, which loads QV_API2.dll) and a plain program that loads
# no library of ours, with Wine's debug channels on; keeps the debug log of
# every start that fails and prints the counts. JOBS 1 (the default) starts one
# program at a time; with JOBS above 1, that many chain-and-plain pairs start
# at once, as ctest -j starts tests side by side.
#   tools/wine-starts.sh BUILD_DIR COUNT [SECONDS] [JOBS] [norandom]
# "norandom" starts Wine without address randomisation, as wine-run.sh does.
# BUILD_DIR is a Windows cross-build (see .ci/run); SECONDS ends the run early.
# Results go to BUILD_DIR/wine-starts-JOBS-MODE/ (summary.txt, failures.txt, logs).
set -uo pipefail
build=$(cd "$1" && pwd); count=$2; limit=${3:-0}; jobs=${4:-1}; mode=${5:-random}
out=$build/wine-starts-$jobs-$mode; rm -rf "$out"; mkdir -p "$out"
prefix=(); [[ $mode == norandom ]] && prefix=(setarch "$(uname -m)" -R)
export WINEPREFIX=$build/wineprefix WINEDLLOVERRIDES='mscoree,mshtml='
"$build/wine-run.sh" --start || exit 1
echo 'int main(void) { return 0; }' | x86_64-w64-mingw32-gcc -x c - -o "$out/plain.exe" || exit 1
wine64=$(sed -n "s/^wine64='\(.*\)'$/\1/p" "$build/wine-run.sh")

# One start; its debug log is kept when it fails.
start_one() {  # KIND N
  local cmd log=$out/$1-$2.log
  if [[ $1 == chain ]]; then
    cmd=("$build/bin/qv_test_env.exe" "$build/bin/test_header_c99.exe")
  else
    cmd=("$out/plain.exe")
  fi
  WINEDEBUG=+process,+loaddll,+seh,err+all "${prefix[@]}" "$wine64" "${cmd[@]}" </dev/null >"$log" 2>&1
  local status=$?
  if ((status == 0)); then rm -f "$log"; else echo "$1 $2: status $status" >>"$out/failures.txt"; fi
}

begin=$(date +%s); done_=0
for ((i = 1; i <= count; i++)); do
  if ((jobs == 1)); then
    start_one chain "$i"; start_one plain "$i"
  else
    for ((j = 1; j <= jobs; j++)); do
      start_one chain "$i.$j" & start_one plain "$i.$j" &
    done
    wait
  fi
  done_=$i
  ((limit > 0 && $(date +%s) - begin >= limit)) && break
done
for kind in chain plain; do
  died=$(grep -c "^$kind " "$out/failures.txt" 2>/dev/null); died=${died:-0}
  echo "$kind: $((done_ * jobs)) starts, $died died, $jobs at once ($(($(date +%s) - begin)) s in all)"
done | tee "$out/summary.txt"
