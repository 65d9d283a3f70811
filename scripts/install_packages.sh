#!/bin/sh
# Installs the Debian 12 packages that the named sets need and the machine lacks:
#
#   scripts/install_packages.sh SET...
#
#   build   compiler, CMake, Ninja: the libraries and the examples
#   tools   what the vqgas program links
#   tests   GoogleTest, the peer of the differential tests, sample meshes, what checks the Debian packages, the
#           documentation and the reports, which a browser opens
#   deb     what makes the Debian packages
#   bench   Google Benchmark and the peer beside which it measures
#   charts  what draws the chart of rates
#   clang   the second compiler, the formatter, the static analyzer
#
# Says nothing and needs no rights when everything is there. Ends with one line and status 1 when it cannot install.
set -eu

packages_of() {
  case $1 in
    build) echo "g++ cmake ninja-build" ;;
    tools) echo "libassimp-dev libcli11-dev nlohmann-json3-dev libpng-dev libopenexr-dev pkg-config" ;;
    tests)
      echo "libgtest-dev libgmock-dev libembree-dev assimp-testmodels pkg-config dpkg-dev file lintian"
      echo "python3 python3-jsonschema man-db bsdextrautils zsh fish doxygen chromium chromium-driver"
      ;;
    deb) echo "dpkg-dev file" ;;
    bench) echo "libbenchmark-dev libembree-dev libboost-dev" ;;
    charts) echo "python3 python3-matplotlib" ;;
    clang) echo "clang clang-format clang-tidy" ;;
    *) fail "unknown package set '$1' (build, tools, tests, deb, bench, charts, clang)" ;;
  esac
}

fail() {
  echo "install_packages: $1" >&2
  exit 1
}

is_installed() {
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

command -v dpkg-query >/dev/null || fail "no dpkg-query here: this script serves Debian 12"

missing=""
for set in "$@"; do
  packages=$(packages_of "$set") || exit 1
  for package in $packages; do
    is_installed "$package" || missing="$missing $package"
  done
done
[ -n "$missing" ] || exit 0

as_root=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || fail "need root or sudo to install:$missing"
  # Without a terminal there is nobody to type a password.
  if [ -t 0 ]; then as_root="sudo"; else as_root="sudo -n"; fi
  $as_root true 2>/dev/null || fail "sudo was refused; please install as root:$missing"
fi

echo "Installing from Debian:$missing"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# The first line of apt that starts with E: names the fault.
run_apt() {
  $as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=300 "$@" >"$log" 2>&1 </dev/null ||
    fail "apt-get $1 failed: $(grep -m 1 '^E:' "$log")"
}
run_apt update
# shellcheck disable=SC2086  # one argument a package
run_apt install -y --no-install-recommends $missing
