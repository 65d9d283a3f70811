#!/bin/sh
# Runs clang-tidy with the options of .clang-tidy; fails on any finding.
#
#   scripts/tidy.sh         the sources changed since main, or by the last ten commits where this is main; the 6 changed
#                           last, because each takes up to 30 s of one core
#   scripts/tidy.sh --all   all sources
#
# Headers are checked with the sources that include them. build/release must have been configured.
set -eu
cd "$(dirname "$0")/.."

commands=build/release/compile_commands.json
[ -f "$commands" ] || { echo "tidy: $commands is missing: run cmake --preset release" >&2; exit 1; }

find_base() {
  base=$(git merge-base HEAD origin/main 2>/dev/null || true)
  if [ -n "$base" ] && [ "$base" != "$(git rev-parse HEAD)" ]; then
    echo "$base"
  else
    git rev-parse -q --verify HEAD~10 || git rev-list --max-parents=0 HEAD | tail -n 1
  fi
}

list_sources() { git ls-files 'gas/*.cpp' 'host/*.cpp' 'tools/*.cpp'; }

# Latest first, each once, without those that are gone.
list_changed() {
  list_sources >"$existing"
  git log --format= --name-only "$(find_base)..HEAD" | awk '!seen[$0]++' | grep -Fx -f "$existing" | head -n 6
}

case ${1:-} in
  --all) files=$(list_sources) ;;
  "")
    existing=$(mktemp)
    trap 'rm -f "$existing"' EXIT
    files=$(list_changed || true)
    ;;
  *) echo "tidy: unknown option $1" >&2; exit 1 ;;
esac
[ -n "$files" ] || { echo "tidy: no source has changed"; exit 0; }

echo "tidy: $(echo "$files" | wc -l) sources"
echo "$files" | xargs -n 4 -P "$(nproc)" clang-tidy --quiet -p build/release
