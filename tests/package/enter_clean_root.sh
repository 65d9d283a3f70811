#!/bin/sh
# Runs in a mount namespace of its own: enter_clean_root.sh SOURCE_FOLDER CONSUMER_FOLDER COMPILER
# Makes a root over the machine's, or over that in VQ_CLEAN_ROOT, which changes neither; the repository is not in it.
set -eu
source=$1 consumer=$2 compiler=$3
base=${VQ_CLEAN_ROOT:-/}
top=$(mktemp -d)
# One call takes off all mounts below, whatever is open in them.
trap 'umount -l "$top" && rmdir "$top"' EXIT

skip() {
  echo "SKIPPED: $1; docs/testing.md says how to run it by hand"
  exit 77
}

mount -t tmpfs tmpfs "$top"
mkdir "$top/changes" "$top/work" "$top/root"
mount -t overlay overlay -o "lowerdir=$base,upperdir=$top/changes,workdir=$top/work" "$top/root" ||
  skip "this machine cannot mount an overlay"
root=$top/root
chroot "$root" true || skip "$base is no root to run programs in"
mkdir -p "$root/proc" "$root/dev" "$root$source"
mount --rbind /proc "$root/proc"
mount --rbind /dev "$root/dev"
mount -t tmpfs tmpfs "$root$source"
mount -t tmpfs tmpfs "$root/tmp"
cp -r "$consumer" "$root/tmp/consumer"
chroot "$root" sh /tmp/consumer/use_debs.sh "$compiler"
