#!/bin/sh
# Brings every C++ file of the repository into the form of .clang-format. With --check it changes nothing, prints each
# place that differs and ends with status 1 when there is one.
set -eu
cd "$(dirname "$0")/.."

case "${1:-}" in
  "") mode="-i" ;;
  --check) mode="--dry-run --Werror" ;;
  *) echo "usage: scripts/format.sh [--check]" >&2; exit 2 ;;
esac

command -v clang-format >/dev/null || scripts/install_packages.sh clang

# shellcheck disable=SC2086  # the mode is one or two options
find host gas tools tests bench examples -type f \( -name '*.h' -o -name '*.cpp' \) -print0 |
  xargs -0 -r clang-format $mode || exit 1
