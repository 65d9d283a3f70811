#!/bin/sh
# The main job in one command: installs what is missing, builds Release, then reports on a scene and renders it.
#
#   scripts/demo.sh                         the built-in scenes, one of them deforming while the shutter is open
#   scripts/demo.sh FILE... [OPTION...]     the mesh files given, as one scene
#
# Options go to `vqgas render` as they stand, for example: scripts/demo.sh bunny.ply --view side --size 1920x1080
# Leaves PNG and EXR pictures and JSON reports in out/ and prints their names.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
out=$root/out

case "${1:-}" in
  -h | --help) sed -n '2,8s/^# \{0,1\}//p' "$0"; exit 0 ;;
esac

"$root/scripts/install_packages.sh" build tools
cd "$root"
cmake --preset demo >/dev/null
cmake --build --preset demo -j "$(nproc)"
cd - >/dev/null
vqgas=$root/build/demo/bin/vqgas

mkdir -p "$out"
started=$(mktemp)
trap 'rm -f "$started"' EXIT

# show NAME SCENE... [OPTION...]: the table and its report, then every layer, as one EXR and as one PNG each.
show() {
  name=$1
  shift
  files=0
  for argument in "$@"; do
    case $argument in -*) break ;; esac
    files=$((files + 1))
  done
  # The scene alone stands for `info`, which does not know the options of `render`.
  (
    position=0
    for argument in "$@"; do
      shift
      [ "$position" -lt "$files" ] && set -- "$@" "$argument"
      position=$((position + 1))
    done
    exec "$vqgas" info "$@" --json "$out/$name.info.json"
  )
  "$vqgas" render "$@" -o "$out/$name.exr" --layers "$layers" --json "$out/$name.render.json"
  "$vqgas" render "$@" -o "$out/$name.png" --layers "$layers" --quiet
}

layers=beauty,depth,normal,position,primitive,group,uv,heat,count
case "${1:-}" in
  "" | -*)
    show gallery demo:gallery "$@"
    show wave demo:wave --shutter 0,1 "$@"
    ;;
  *)
    name=$(basename "${1#demo:}")
    show "${name%.*}" "$@"
    ;;
esac

echo
echo "Made in out/:"
find "$out" -type f -newer "$started" -printf '%10s bytes  %P\n' | sort -k 3
