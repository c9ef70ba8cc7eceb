#!/usr/bin/env bash
# Makes the .deb of a build, checks it with lintian (errors fail, warnings are
# shown), unpacks it into an empty directory and, using only what it holds,
# builds an example with pkg-config and runs it against the simulated sensors.
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
test -f "$usr/share/doc/qv-api2/reference/index.html"

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
echo "package check passed"
