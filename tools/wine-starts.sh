#!/usr/bin/env bash
# Counts Windows programs that die at start under Wine. Starts, alternately and
# COUNT times each, the test launch chain (qv_test_env.exe starting
# test_header_c99.exe, which loads QV_API2.dll) and a plain program that loads
# no library of ours, with Wine's debug channels on; keeps the debug log of
# every start that fails and prints the counts.
#   tools/wine-starts.sh BUILD_DIR COUNT [SECONDS]
# BUILD_DIR is a Windows cross-build (see .ci/run); SECONDS ends the run early.
set -uo pipefail
build=$(cd "$1" && pwd); count=$2; limit=${3:-0}
out=$build/wine-starts; rm -rf "$out"; mkdir -p "$out"
export WINEPREFIX=$build/wineprefix WINEDLLOVERRIDES='mscoree,mshtml='
"$build/wine-run.sh" --start || exit 1
echo 'int main(void) { return 0; }' | x86_64-w64-mingw32-gcc -x c - -o "$out/plain.exe" || exit 1
wine64=$(sed -n "s/^wine64='\(.*\)'$/\1/p" "$build/wine-run.sh")
declare -A runs=() fails=()
start=$(date +%s)
for ((i = 1; i <= count; i++)); do
  for kind in chain plain; do
    if [[ $kind == chain ]]; then
      cmd=("$build/bin/qv_test_env.exe" "$build/bin/test_header_c99.exe")
    else
      cmd=("$out/plain.exe")
    fi
    log=$out/$kind-$i.log
    WINEDEBUG=+process,+loaddll,+seh,err+all "$wine64" "${cmd[@]}" </dev/null >"$log" 2>&1
    status=$?
    runs[$kind]=$((${runs[$kind]:-0} + 1))
    if ((status == 0)); then rm -f "$log"; else
      fails[$kind]=$((${fails[$kind]:-0} + 1)); echo "$kind start $i: status $status" >>"$out/failures.txt"
    fi
  done
  ((limit > 0 && $(date +%s) - start >= limit)) && break
done
for kind in chain plain; do
  echo "$kind: ${runs[$kind]:-0} starts, ${fails[$kind]:-0} died ($(( $(date +%s) - start )) s in all)"
done | tee "$out/summary.txt"
