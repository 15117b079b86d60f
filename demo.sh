#!/usr/bin/env bash
# Dorvik's main job in one command: restore the marks of Arabic text, and measure how
# well it does on text it has never seen.
#
# On a fresh Debian machine this installs what is missing (cmake, ninja-build, g++,
# libcli11-dev, npm; as root or through sudo), builds the project, installs the dorvik
# tool into .cache/prefix/bin, fetches a fully vocalised corpus once (the npm package
# quran-json 3.1.2, its checksum checked), builds a dictionary from four fifths of its
# verses, and restores the marks of the held-out fifth. Everything it makes stays in
# .cache/ (git-ignored); a second run reuses it and takes seconds.
#   ./demo.sh
set -euo pipefail
cd "$(dirname "$0")"

cache=.cache
corpus=$cache/quran-json-3.1.2
dict=$cache/quran-dict
tarball=quran-json-3.1.2.tgz
checksum=d1454352cae9c7506d28d160486b2eb62472d45e36e01cee192d8ade889a6d49

# ---- What the machine lacks ---------------------------------------------------------
missing=()
for p in cmake ninja-build g++ libcli11-dev; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing+=("$p")
done
command -v npm >/dev/null 2>&1 || missing+=(npm)
if [ "${#missing[@]}" -gt 0 ]; then
    if [ "$(id -u)" -eq 0 ]; then
        as_root=()
    elif command -v sudo >/dev/null 2>&1; then
        as_root=(sudo)
    else
        echo "demo.sh: missing packages: ${missing[*]}; install them as root" >&2
        exit 1
    fi
    echo "== installing ${missing[*]}"
    "${as_root[@]}" apt-get update
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
fi

# ---- Build and install the tool -----------------------------------------------------
echo "== building and installing dorvik into $cache/prefix"
mkdir -p "$cache"
cmake -S . -B "$cache/build" -G Ninja -DDORVIK_TESTS=OFF -DDORVIK_EXAMPLES=OFF \
    -DCMAKE_INSTALL_PREFIX="$PWD/$cache/prefix" >/dev/null
cmake --build "$cache/build"
cmake --install "$cache/build" >/dev/null
dorvik=$cache/prefix/bin/dorvik

# ---- The corpus, once ------------------------------------------------------------------
# Every fifth verse (the 5th, 10th, ... in the order of the book) is held out for testing;
# the other four fifths teach the dictionary.
if [ ! -f "$corpus/held-out.txt" ]; then
    echo "== fetching the corpus (npm pack quran-json@3.1.2)"
    work=$(mktemp -d "$cache/.corpus.XXXXXX")
    trap 'rm -rf "$work"' EXIT
    (cd "$work" && npm pack --silent quran-json@3.1.2 >/dev/null)
    echo "$checksum  $work/$tarball" | sha256sum --check --quiet -
    tar -xzf "$work/$tarball" -C "$work" package/dist/quran.json
    node -e '
        const [source, folder] = process.argv.slice(1);
        const fs = require("fs");
        const train = [], held = [];
        let n = 0;
        for (const chapter of JSON.parse(fs.readFileSync(source, "utf8")))
            for (const verse of chapter.verses) (++n % 5 === 0 ? held : train).push(verse.text);
        fs.writeFileSync(folder + "/train.txt", train.join("\n") + "\n");
        fs.writeFileSync(folder + "/held-out.txt", held.join("\n") + "\n");
        console.log(n + " verses: " + train.length + " to learn from, " + held.length + " held out");
    ' "$work/package/dist/quran.json" "$work"
    rm -rf "$corpus"
    mkdir -p "$corpus"
    mv "$work/train.txt" "$work/held-out.txt" "$corpus/"
fi

# ---- The dictionary, once --------------------------------------------------------------
if [ ! -f "$dict/manifest.json" ]; then
    echo "== building the dictionary from $corpus/train.txt"
    "$dorvik" build "$corpus/train.txt" -o "$dict" --force
fi

# ---- What it does ----------------------------------------------------------------------
echo
echo "== a sentence without marks, restored (dorvik diacritize):"
echo "بسم الله الرحمن الرحيم" | "$dorvik" diacritize -d "$dict"
echo
echo "== held-out verses: their marks stripped, restored, and the true text (dorvik eval):"
"$dorvik" eval -d "$dict" --examples 3 "$corpus/held-out.txt"
echo
echo "== the verses that hold two words, whatever their marks (dorvik index, dorvik search):"
"$dorvik" index -q "$corpus/train.txt" -o "$cache/quran-index" --force
"$dorvik" search -i "$cache/quran-index" --limit 3 'الرحمن الرحيم'
