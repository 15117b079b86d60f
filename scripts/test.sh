#!/bin/sh
# Builds the library and runs its test suite, installing first what a fresh Debian
# machine lacks (as root, or through sudo): cmake, ninja, g++, GoogleTest and CLI11.
#   scripts/test.sh [BUILD_DIR]        (default: build)
set -eu
cd "$(dirname "$0")/.."
build="${1:-build}"

packages="cmake ninja-build g++ libgtest-dev libgmock-dev libcli11-dev"
missing=""
for p in $packages; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
    if [ "$(id -u)" -eq 0 ]; then
        as_root=""
    elif command -v sudo >/dev/null 2>&1; then
        as_root="sudo"
    else
        echo "scripts/test.sh: missing packages:$missing; install them as root" >&2
        exit 1
    fi
    echo "scripts/test.sh: installing$missing"
    $as_root apt-get update
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing
fi

cmake -S . -B "$build" -G Ninja
cmake --build "$build"
ctest --test-dir "$build" --output-on-failure
