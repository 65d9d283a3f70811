#!/bin/sh
# Installs what is missing, builds everything in Release and runs the whole test suite. The last lines are ctest's summary.
set -eu
cd "$(dirname "$0")/.."

scripts/install_packages.sh build tools tests bench

# Real meshes that lie beside the checkout are tried as well.
if [ -z "${VQ_TEST_DATA:-}" ] && [ -d ../shared/data ]; then
  VQ_TEST_DATA=$(cd ../shared/data && pwd)
  export VQ_TEST_DATA
fi

cmake --preset release
cmake --build --preset release -j "$(nproc)"
exec ctest --preset release --no-tests=error --timeout 600 -j "$(nproc)"
