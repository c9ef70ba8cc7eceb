#!/usr/bin/env bash
# pip installs the package offline from a copy of the source tree, and the
# installed package carries the result-code table and loads the library.
#   pip_install.sh PYTHON SOURCE_ROOT LIBRARY
set -euo pipefail
python=$1 root=$2 library=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/src/tools"
cp -r "$root/python" "$work/src/python"
cp "$root/tools/result_codes.json" "$work/src/tools/"
rm -rf "$work/src/python/build" "$work/src/python/"*.egg-info
# No pip of its own: the system's pip, seen through the system site packages, is quicker.
"$python" -m venv --system-site-packages --without-pip "$work/venv"
"$work/venv/bin/python" -m pip install -q --no-build-isolation --no-index "$work/src/python"
rm -rf "$work/src"
cd "$work"
QV_API2_LIBRARY=$library PYTHONPATH= "$work/venv/bin/python" -c '
import pathlib, qvpower
assert pathlib.Path(qvpower.__file__).parent.joinpath("result_codes.json").is_file()
assert qvpower.explain("QV_GetIndex_SN", -2).startswith("not a valid serial number")
assert qvpower.driver_version() == 100101
print("installed", qvpower.__version__, "from", qvpower.library_path())'
