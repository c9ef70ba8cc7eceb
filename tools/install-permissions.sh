#!/usr/bin/env bash
# Lets the members of one group share the sensors of this machine: makes the
# group (default "qvpower"), the data directory (default /var/lib/qv_api2)
# owned by root and that group with mode 2770, and adds the users named.
# Without this only the user whose process first loads the library gets into
# its shared objects and files. Run as root.
#   tools/install-permissions.sh [--group NAME] [--data-dir DIR] [USER...]
set -euo pipefail
group=qvpower
data_dir=/var/lib/qv_api2
while (($#)); do
  case $1 in
    --group) group=$2; shift 2 ;;
    --data-dir) data_dir=$2; shift 2 ;;
    *) break ;;
  esac
done
getent group "$group" >/dev/null || groupadd --system "$group"
install -d -o root -g "$group" -m 2770 "$data_dir"
# Files and directories made before the directory was shared join it.
find "$data_dir" -mindepth 1 -type d -exec chgrp "$group" {} + -exec chmod 2770 {} +
find "$data_dir" -mindepth 1 -type f -exec chgrp "$group" {} + -exec chmod 0660 {} +
for user in "$@"; do usermod -a -G "$group" "$user"; done
echo "data directory $data_dir shared by group $group"
