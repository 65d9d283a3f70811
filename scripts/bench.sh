#!/bin/sh
# The rates that have an aim, in one command: builds, measures beside Embree in the same process, writes JSON to
# out/bench, prints a table with the rates aimed at, and writes tables and chart into docs/performance.md.
#
#   scripts/bench.sh [MESH_FILE...]     rows "bunny" and "dragon" are for files whose names end so
#
# VQ_BENCH_ROUNDS (5), VQ_BENCH_SIZE (512: pixels a side) and VQ_BENCH_LARGEST (50m: triangles of the largest mesh of
# the chart) make it shorter. Fails on bad input, never on a time.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
out=$root/out/bench
rounds=${VQ_BENCH_ROUNDS:-5}
size=${VQ_BENCH_SIZE:-512}
largest=${VQ_BENCH_LARGEST:-50m}

"$root/scripts/install_packages.sh" build tools bench charts
(cd "$root" && cmake --preset release >/dev/null && cmake --build --preset release --target bench_peers -j "$(nproc)")
mkdir -p "$out"

# measure NAME ARGUMENT...
measure() {
  name=$1
  shift
  "$root/build/release/bin/bench_peers" --processor-time --rounds "$rounds" --size "$size" --json "$out/$name.json" "$@"
}

if [ $# -gt 0 ]; then
  measure files "$@" --threads 1,2 --peers user-sse42,user,tri,in-scene,grid
  measure moving "$1" --threads 1 --peers user-sse42,user --motion 2,8
fi
measure meshes --threads 1,2 --peers user-sse42,user,tri --mesh terrain-8m,speck-1m,needles-100k
measure scenes --threads 1 --build-rounds 2 --motion 0,2 --peers whole,user-sse42,tri --scene swarm-10k,giants-200
measure bundles --threads 1 --build-rounds 1 --motion 0,2 --peers objects,user-sse42,tri \
  --bundle plants-200k,swarm-10k,giants-200
measure hair --threads 1 --build-rounds 2 --curves cubic --peers round-sse42,round --hair fur-200k,fur-5m
sizes=terrain-1k,terrain-10k,terrain-100k,terrain-1m,terrain-10m,terrain-$largest
measure sizes --threads 1 --build-rounds 1 --sets primary,bounce,random --peers user-sse42,tri --mesh "$sizes"

/usr/bin/python3 "$root/scripts/bench_table.py" "$out" --chart "$root/docs/pictures/rates_by_size.svg" \
  --page "$root/docs/performance.md"
