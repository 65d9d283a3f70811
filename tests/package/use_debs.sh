#!/bin/sh
# In a Debian root of its own, with the packages and a consumer's sources beside this script:  use_debs.sh [COMPILER]
# Needs root, g++, cmake, ninja-build and pkg-config. Installs the packages, builds and runs against them, and removes them.
set -eu
cd "$(dirname "$0")"
compiler=${1:-c++}
export DEBIAN_FRONTEND=noninteractive LC_ALL=C

dpkg -i ./*.deb >/dev/null
if ls vqgas_*.deb >/dev/null 2>&1; then
  vqgas --version
  vqgas info demo:gallery >/dev/null
fi

cmake -G Ninja -D CMAKE_CXX_COMPILER="$compiler" -B build . | grep "found /usr/lib/"
cmake --build build >/dev/null
build/consumer
build/host_consumer

# shellcheck disable=SC2046  # one argument a flag
"$compiler" -std=c++20 -I. examples/08_curves.cpp $(pkg-config --cflags --libs vq_gas) -o curves
./curves
ldd curves | grep libvq_gas.so.1

for package in ./*.deb; do dpkg-deb -f "$package" Package; done | xargs dpkg -P >/dev/null
left=$(find /usr -name 'libvq_*' -o -name vqgas -o -name vq_gas)
[ -z "$left" ] || { echo "left after removal: $left"; exit 1; }
