#!/bin/sh
# Shows that the classic diacritization gives the same results as at another revision:
# builds that revision's library in a temporary folder, then with both libraries builds
# a folder from the demo's training text and restores 485,000 random words (known words
# bare or partly marked, random letter strings, known words behind a clitic letter,
# punctuation, Latin, digits) through DiacritizeBuffer and 20,000 through DiacritizeWord;
# the folders' four classic files and the outputs must be the same byte for byte.
# Needs ./demo.sh to have fetched the corpus, and the current library built.
#   scripts/compare-classic/compare.sh [REVISION [BUILD_DIR]]   (default: main, build)
set -eu
cd "$(dirname "$0")/../.."
revision="${1:-main}"
build="${2:-build}"
corpus=.cache/quran-json-3.1.2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

git archive "$revision" | tar -x -C "$work" --one-top-level=old
cmake -S "$work/old" -B "$work/old-build" -G Ninja -DDORVIK_TESTS=OFF -DDORVIK_EXAMPLES=OFF \
    -DDORVIK_TOOLS=OFF >/dev/null
cmake --build "$work/old-build" --target Dorvik01 >/dev/null

python3 - "$corpus/held-out.txt" "$work/random.txt" <<'PY'
import random, sys
random.seed(20)
words = open(sys.argv[1], encoding='utf-8').read().split()
marks = [chr(c) for c in range(0x64B, 0x653)]
letters = [chr(c) for c in range(0x621, 0x64B) if c != 0x640 and not 0x63B <= c <= 0x63F]
seps = [' ', ' ', ' ', ' ', '\n', '، ', '. ', '\t', ' - ', '؟ ', ' (', ') ', ' 12 ', ' abc ']
bare = lambda w: ''.join(ch for ch in w if ch not in marks)
out = []
for i in range(400000):
    r = random.random()
    if r < 0.6:
        w = random.choice(words)
        if random.random() < 0.7:
            w = bare(w)
        elif random.random() < 0.5:
            w = ''.join(ch for ch in w if ch not in marks or random.random() < 0.3)
    elif r < 0.85:
        w = ''.join(random.choice(letters) + (random.choice(marks) if random.random() < 0.2 else '')
                    for _ in range(random.randint(1, 9)))
    else:
        w = random.choice('وفبلك') + bare(random.choice(words))
    out.append(w + random.choice(seps))
open(sys.argv[2], 'w', encoding='utf-8').write(''.join(out))
PY

for side in old new; do
    if [ "$side" = old ]; then include="$work/old/include" lib="$work/old-build"; else include=include lib="$build"; fi
    c++ -std=c++20 -O1 -I"$include" scripts/compare-classic/Driver.cpp -o "$work/driver-$side" \
        -L"$lib" -lDorvik01 -Wl,-rpath,"$(cd "$lib" && pwd)"
    "$work/driver-$side" "$corpus/train.txt" "$work/folder-$side" "$work/random.txt" >"$work/out-$side"
done
for f in forms.bin forms.sort forms.wild forms.freq; do
    cmp "$work/folder-old/$f" "$work/folder-new/$f"
done
cmp "$work/out-old" "$work/out-new"
echo "the same: the four classic files and $(wc -c <"$work/out-new") bytes of classic output"
