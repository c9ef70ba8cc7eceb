#!/usr/bin/env bash
# Applies each fault alone, rebuilds, runs the suite, notes the failing tests and
# reverts. Usage: tests/faults/run.sh BUILD_DIR TABLE [PATCH...]
# Failing test names per fault land in BUILD_DIR/faults/. With QV_FAULTS_FIRST=1
# the tests of the fault's own part (parts.txt) run first, and the whole suite,
# stopping at its first failure, only when none of them fails: whether each fault
# is caught, sooner.
set -u
cd "$(dirname "$0")/../.."
build=$1 table=$2; shift 2
(($#)) || set -- tests/faults/*.patch
mkdir -p "$build/faults"
printf '%-42s %8s %s\n' fault failing caught >"$table"
for p in "$@"; do
  name=$(basename "$p" .patch) log=$build/faults/$name.txt
  git apply "$p" || { echo "$p does not apply" >&2; continue; }
  if cmake --build "$build" -j2 >"$log" 2>&1; then
    file=$(sed -n 's|^+++ b/||p' "$p" | head -1) part=
    [[ -n ${QV_FAULTS_FIRST:-} ]] && part=$(while read -r at re; do [[ $file == "$at"* ]] && echo "$re" && break; done <tests/faults/parts.txt)
    for re in ${part:+"$part"} .; do
      (cd "$build" && ctest -j2 --timeout 60 -R "$re" ${QV_FAULTS_FIRST:+--stop-on-failure} >"faults/$name.ctest" 2>&1)
      sed -n '/tests FAILED:/,$p' "$build/faults/$name.ctest" | grep -E '^\s+[0-9]+ - ' >"$log"
      n=$(wc -l <"$log"); ((n)) && break
    done
  else n=build-fails; fi
  git apply -R "$p"
  [[ $n =~ ^[1-9] ]] && caught=yes || caught=no
  printf '%-42s %8s %s\n' "$name" "$n" "$caught" | tee -a "$table"
done
cmake --build "$build" -j2 >/dev/null
