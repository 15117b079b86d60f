#!/usr/bin/env bash
# One command for the side-by-side figures: installs the peers from Debian packages
# (benchmark-only, never linked into the library), builds the benchmarks in Release,
# runs every workload for Dorvik and its peers in one process per workload, on the same
# data, interleaved (A B C, C B A, ...) after a warm-up round, and writes
# bench/RESULTS.md: median, min and max of each side, the ratios, and for each target
# "at target" or "MISS" (with the explanation from bench/misses.md).
#
#   bench/compare.sh [--quick] [--rounds N] [--min-time S] [--no-growth] [--only W3,W5]
#   bench/compare.sh --replay
#
# --quick is one short round without the growth runs: a check that everything builds
# and runs, in a few minutes; its figures are rough. The measured lines of the last run
# are kept in build-compare/compare-raw.txt; --replay writes bench/RESULTS.md from them
# again without measuring (after a change to bench/misses.md, say).
set -euo pipefail
cd "$(dirname "$0")/.."

rounds=5
min_time=0.3
growth=1
only=""
replay=()
while [ $# -gt 0 ]; do
  case "$1" in
    --rounds) rounds="$2"; shift 2 ;;
    --min-time) min_time="$2"; shift 2 ;;
    --no-growth) growth=0; shift ;;
    --quick) rounds=1; min_time=0.05; growth=0; shift ;;
    --only) only="$2"; shift 2 ;;
    --replay) replay=(--replay); shift ;;
    *) echo "unknown argument: $1" >&2; exit 2 ;;
  esac
done

raw=build-compare/compare-raw.txt
if [ "${#replay[@]}" -gt 0 ]; then
  exec python3 bench/compare.py --binary none --raw "$raw" --replay --rounds "$rounds" \
    --min-time "$min_time" --growth "$growth" --only "$only" --out bench/RESULTS.md
fi

packages=(cmake ninja-build g++ pkg-config python3 libbenchmark-dev libsqlite3-dev libroaring-dev
          liblmdb-dev libpugixml-dev libtinyxml2-dev)
missing=()
for p in "${packages[@]}"; do dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p"); done
if [ "${#missing[@]}" -gt 0 ]; then
  as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
fi

cmake -S . -B build-compare -G Ninja -DCMAKE_BUILD_TYPE=Release -DDORVIK_BENCH=ON \
  -DDORVIK_TESTS=OFF -DDORVIK_EXAMPLES=OFF >/dev/null
cmake --build build-compare --target dorvik_bench

exec python3 bench/compare.py --binary build-compare/bench/dorvik_bench --raw "$raw" \
  --rounds "$rounds" --min-time "$min_time" --growth "$growth" --only "$only" \
  --out bench/RESULTS.md
