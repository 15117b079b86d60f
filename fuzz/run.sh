#!/usr/bin/env bash
# Runs one fuzz target for a while on its seed corpus: fuzz/run.sh TARGET SECONDS.
# Builds the targets first when needed (clang, build-fuzz/). New inputs go to a scratch
# folder, so the seeds in the tree stay as they are; a finding lands in build-fuzz/.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ $# -ne 2 ]; then
  echo "usage: fuzz/run.sh TARGET SECONDS   (targets: $(ls fuzz/*Fuzz.cpp | xargs -n1 basename | sed 's/\.cpp$//' | tr '\n' ' '))" >&2
  exit 2
fi
target="$1"
seconds="$2"
[ -f "fuzz/$target.cpp" ] || { echo "no fuzz target $target" >&2; exit 2; }
[ -f build-fuzz/build.ninja ] || cmake -S . -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ \
  -DDORVIK_FUZZ=ON -DDORVIK_TESTS=OFF -DDORVIK_EXAMPLES=OFF -DDORVIK_BENCH=OFF
cmake --build build-fuzz --target "$target"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
seeds=()
[ -d "fuzz/corpus/$target" ] && seeds+=("fuzz/corpus/$target")
exec_args=(-max_total_time="$seconds" -artifact_prefix=build-fuzz/"$target"- -print_final_stats=1)
./build-fuzz/fuzz/"$target" "${exec_args[@]}" "$scratch" "${seeds[@]}"
