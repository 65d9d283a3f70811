#!/bin/sh
# The main job in one command: installs what is missing, builds Release, then reports on a scene and renders it.
#
#   scripts/demo.sh [OPTION...]             the built-in scenes, four of them moving while the shutter is open
#   scripts/demo.sh FILE... [OPTION...]     the scene, mesh, hair and point files given, as one scene
#
# Options go to `vqgas render` as they stand, for example: scripts/demo.sh bunny.ply --view side --size 1920x1080
# Leaves PNG and EXR pictures and JSON reports in out/ and prints their names.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
out=$root/out
vqgas=$root/build/demo/bin/vqgas
layers=beauty,depth,normal,position,primitive,group,object,instance-path,instance,instance-depth,uv,heat,count

case "${1:-}" in
  -h | --help) sed -n '2,8s/^# \{0,1\}//p' "$0"; exit 0 ;;
esac

"$root/scripts/install_packages.sh" build tools
(cd "$root" && cmake --preset demo >/dev/null && cmake --build --preset demo -j "$(nproc)")

mkdir -p "$out"
started=$(mktemp)
trap 'rm -f "$started"' EXIT

# render NAME FILE... [OPTION...]: every layer, in one EXR and as a PNG each; of what moves, the motion too, and
# those of points. With the options of $defaults, NAME=VALUE each, that are not given.
defaults=
render() {
  name=$1
  shift
  for default in $defaults; do
    case " $* " in
      *" ${default%%=*}"*) ;;
      *) set -- "$@" "${default%%=*}" "${default#*=}" ;;
    esac
  done
  defaults=
  case " $* " in
    *" --shutter"*) wanted=$layers,motion ;;
    *) wanted=$layers ;;
  esac
  case " $* " in
    *demo:galaxy* | *demo:snow* | *.ply\ * | *.xyz\ * | *.pts\ * | *.csv\ *) wanted=$wanted,weight,point ;;
  esac
  "$vqgas" render "$@" --layers "$wanted" --legend -o "$out/$name.png" -o "$out/$name.exr" --json "$out/$name.render.json"
}

case "${1:-}" in
  "" | -*)
    "$vqgas" info demo:gallery demo:wave demo:fur demo:strands demo:wind demo:mills demo:forest demo:galaxy --json "$out/info.json"
    render gallery demo:gallery --floor "$@"
    defaults=--shutter=0,0.5
    render wave demo:wave "$@"
    render fur demo:fur --floor "$@"
    "$vqgas" render demo:fur "$@" --layers beauty,heat --legend --aligned-only -o "$out/fur.aligned-only.png"
    render strands demo:strands --floor "$@"
    defaults=--shutter=0.35,0.42
    render wind demo:wind --floor "$@"
    "$vqgas" render demo:mills --floor "$@" -o "$out/mills.still.png"
    defaults=--shutter=0.4,0.65
    render mills demo:mills --floor "$@"
    defaults="--shutter=0,0.5 --samples=8 --size=704x396 --camera=3,3.4,10.5/-1,0.4,-2/0,1,0/42"
    render forest demo:forest "$@"
    defaults="--frame=0.5 --samples=8 --size=704x396"
    render snow demo:snow "$@"
    render amphora demo:amphora --floor "$@"
    "$vqgas" uv demo:amphora --color group --info -o "$out/amphora.layout.png" -o "$out/amphora.layout.svg"
    defaults="--size=704x396 --camera=20,24,52/0,-2,0/0,1,0/38"
    render galaxy demo:galaxy "$@"
    # Micro-triangles are costly: few rays.
    defaults="--samples=8 --size=704x396 --camera=5.2,1.05,0.1/-2,0.75,0.1/0,1,0/46"
    render cliffs demo:cliffs "$@"
    ;;
  *)
    files=0
    for argument in "$@"; do
      case $argument in -*) break ;; esac
      files=$((files + 1))
    done
    # `info` does not know the options of `render`, so it gets the files alone.
    (
      for argument in "$@"; do
        shift
        if [ "$files" -gt 0 ]; then set -- "$@" "$argument"; fi
        files=$((files - 1))
      done
      exec "$vqgas" info "$@" --json "$out/info.json"
    )
    name=$(basename "${1#demo:}")
    render "${name%.*}" "$@"
    ;;
esac

echo
echo "Made in out/:"
find "$out" -type f -newer "$started" -printf '%10s bytes  %P\n' | sort -k 3
