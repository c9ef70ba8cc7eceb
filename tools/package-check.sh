#!/usr/bin/env bash
# Makes the .deb of a build, checks it with lintian (errors fail, warnings are
# shown), unpacks it into an empty directory and, using only what it holds,
# builds an example with pkg-config and runs it against the simulated sensors;
# the Python package, imported from the unpacked tree, must find the unpacked
# library through its own install prefix.
#   tools/package-check.sh BUILD_DIR
set -euo pipefail
build=$(cd "${1:?usage: package-check.sh BUILD_DIR}" && pwd)
source_dir=$(cd "$(dirname "$0")/.." && pwd)

# The package carries the API reference too.
cmake --build "$build" --target docs >/dev/null
rm -rf "$build/packages"
# CPack's note that the simulator's private driver library has no soname is expected.
(cd "$build" && cpack -G DEB >"$build/cpack.log" 2>&1) || { cat "$build/cpack.log"; exit 1; }
deb=$(ls "$build"/packages/qv-api2_*.deb)
echo "package: $deb"
lintian --fail-on error "$deb"

work="$build/package-check"
rm -rf "$work"
mkdir -p "$work/root"
dpkg-deb -x "$deb" "$work/root"
usr="$work/root/usr"
sh -n "$source_dir/cmake/deb/postinst"
sh -n "$source_dir/cmake/deb/postrm"
sh -n "$source_dir/cmake/deb/prerm"
test -f "$usr/share/doc/qv-api2/reference/index.html"
pydir="$usr/lib/python3/dist-packages"
test -f "$pydir/qvpower/__init__.py" && test -f "$pydir/qvpower/result_codes.json"
if find "$pydir" -name '*.pyc' -o -name __pycache__ | grep -q .; then
  echo "the package ships byte-code" >&2; exit 1
fi

# Everything below comes from the unpacked tree: header, library, .pc file, tools.
export PKG_CONFIG_PATH="$usr/lib/pkgconfig"
flags=$(pkg-config --cflags --libs qv_api2)
case $flags in *"$usr"*) ;; *) echo "qv_api2.pc does not point into the unpacked tree: $flags" >&2; exit 1 ;; esac
# shellcheck disable=SC2086
cc -std=c99 -Wall -Wextra -Werror -o "$work/cw_readings" "$usr/share/doc/qv-api2/examples/cw_readings.c" $flags

ns="qvpkg$$"
export QV_API2_NAMESPACE=$ns QV_API2_DATA_DIR="$work/data" QV_SIM_BUS="$work/bus.qvsim"
export QV_USBDRVD="$usr/lib/qv_api2/libqvsim_usbdrvd.so" LD_LIBRARY_PATH="$usr/lib"
trap 'rm -f /dev/shm/*"$ns"*' EXIT
"$usr/bin/qvsim" create >/dev/null
"$usr/bin/qvsim" add AB1234 QV442A --address 5 >/dev/null
"$usr/bin/qvsim" signal AB1234 cw -20 --freq 1e9 >/dev/null
"$usr/bin/qvpower" list
readings=$("$work/cw_readings" AB1234 1e9 3)
echo "$readings"
[ "$(grep -c ' dBm$' <<<"$readings")" -eq 3 ] || { echo "the example did not give 3 readings" >&2; exit 1; }

# Debian's python3 (the one the package depends on), with no hint where the library is.
python=/usr/bin/python3
[ -x "$python" ] || python=python3
(
  unset LD_LIBRARY_PATH QV_API2_LIBRARY
  export PYTHONPATH="$pydir" PYTHONDONTWRITEBYTECODE=1
  cd "$work"
  "$python" -c 'import qvpower; print(qvpower.sensors())'
  "$python" -c 'import sys, qvpower; p = str(qvpower.library_path()); print("qvpower loads", p)
sys.exit(0 if p.startswith(sys.argv[1] + "/lib/libqv_api2.so") else "not the unpacked library")' "$usr"
  "$python" "$usr/share/doc/qv-api2/examples/python/cw_logger.py" AB1234 --count 3 --csv "$work/cw.csv"
  [ "$(wc -l <"$work/cw.csv")" -eq 4 ] || { echo "the Python CW logger did not write 3 readings" >&2; exit 1; }
)
echo "package check passed"
