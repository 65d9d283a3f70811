#!/bin/sh
# Installs what is missing, builds everything in Release and runs the whole test suite. The last lines are ctest's summary.
set -eu
cd "$(dirname "$0")/.."

scripts/install_packages.sh build tools tests bench

cmake --preset release
cmake --build --preset release -j "$(nproc)"
exec ctest --preset release --no-tests=error --timeout 600 -j "$(nproc)"
