#!/bin/sh
# Builds library, host and program in Release and installs them; installs the Debian packages that are missing first.
#
#   scripts/install.sh [PREFIX]     below PREFIX, /usr/local by default, as root or with sudo where that is needed
#   scripts/install.sh --deb        as the Debian packages libvq-gas1, libvq-gas-dev and vqgas, which stay in out/
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/demo

fail() {
  echo "install: $1" >&2
  exit 1
}

case "${1:-}" in
  -h | --help) sed -n '2,5s/^# \{0,1\}//p' "$0"; exit 0 ;;
  --deb | "" | [!-]*) [ $# -le 1 ] || fail "one argument at most" ;;
  *) fail "unknown option $1" ;;
esac

# Runs a command as root if the folder cannot be written to.
run_for() {
  folder=$1
  shift
  while [ ! -e "$folder" ]; do folder=$(dirname "$folder"); done
  if [ -w "$folder" ]; then
    "$@"
  else
    command -v sudo >/dev/null || fail "need root or sudo to write to $folder"
    sudo "$@"
  fi
}

"$root/scripts/install_packages.sh" build tools
(cd "$root" && cmake --preset demo >/dev/null && cmake --build --preset demo -j "$(nproc)")

if [ "${1:-}" = --deb ]; then
  "$root/scripts/install_packages.sh" deb
  rm -f "$root"/out/*.deb
  (cd "$build" && cpack -B "$root/out" >/dev/null)
  rm -rf "$root/out/_CPack_Packages"
  run_for /usr/lib env DEBIAN_FRONTEND=noninteractive apt-get install -y --reinstall "$root"/out/*.deb
  ls "$root"/out/*.deb
  exit 0
fi

prefix=${1:-/usr/local}
run_for "$prefix" cmake --install "$build" --prefix "$prefix"
# The loader reads the folders below /usr/local and /usr from its cache.
case $prefix in
  /usr | /usr/local) run_for /etc/ld.so.cache ldconfig ;;
esac
echo
echo "Installed below $prefix. A program finds it by find_package(vq_gas 1), or by pkg-config vq_gas."
