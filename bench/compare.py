"""Runs the workloads of bench/compare.sh and writes bench/RESULTS.md."""
import argparse
import datetime
import os
import re
import statistics
import subprocess
import sys

parser = argparse.ArgumentParser()
parser.add_argument("--binary", required=True)
parser.add_argument("--rounds", type=int, default=5)
parser.add_argument("--min-time", default="0.3")
parser.add_argument("--growth", type=int, default=1)
parser.add_argument("--only", default="")
parser.add_argument("--out", required=True)
# The RESULT lines of a run are kept in --raw; --replay writes the report from them
# without measuring again (after a change to the explanations, say).
parser.add_argument("--raw", default="")
parser.add_argument("--replay", action="store_true")
args = parser.parse_args()

M = 1000000
# Each workload: an id, a title, groups of benchmark names that run interleaved in one
# process, and the targets checked on the medians.
WORKLOADS = [
    ("W1", "AND / OR / count of two 16 MiB bit arrays at 50 %",
     [["W1_And_Dorvik", "W1_And_Roaring", "W1_And_Floor"],
      ["W1_Or_Dorvik", "W1_Or_Roaring", "W1_Or_Floor"],
      ["W1_Count_Dorvik", "W1_Count_Floor"]], []),
    ("W2", "Compressed form of a 16 MiB bitmap (density in thousandths)",
     [["W2_Decompress_Dorvik/%d" % d, "W2_Memcpy/%d" % d, "W2_Compress_Dorvik/%d" % d,
       "W2_Serialize_Roaring/%d" % d] for d in (1, 500)], []),
    ("W3", "Intersection of two stored records, 16 MiB plain (density/size in tenths of 16 MiB)",
     [["W3_And_Dorvik/%d/10" % d, "W3_And_Roaring/%d/10" % d, "W3_And_ExpandThenAnd/%d/10" % d]
      for d in (1, 500)],
     [["W3_And_Dorvik/%d/%d" % (d, s), "W3_And_Roaring/%d/%d" % (d, s)]
      for d in (1, 500) for s in (1, 100)]),
    ("W4", "1M records of 100 bytes: random reads and bulk build",
     [["W4_Read_Dorvik/%d" % M, "W4_Read_Lmdb/%d" % M, "W4_Read_Sqlite/%d" % M,
       "W4_Read_Twin/%d" % M, "W4_Read_Floor/%d" % M],
      ["W4_Build_Dorvik/%d" % M, "W4_Build_Lmdb/%d" % M, "W4_Build_Sqlite/%d" % M,
       "W4_Build_Floor/%d" % M]],
     [["W4_Read_Dorvik/%d" % n, "W4_Read_Lmdb/%d" % n, "W4_Read_Twin/%d" % n,
       "W4_Read_Floor/%d" % n] for n in (100000, 10000000)]
     + [["W4_Build_Dorvik/%d" % n, "W4_Build_Lmdb/%d" % n] for n in (100000, 10000000)]),
    ("W5", "Wildcard Find over 1M forms (pattern 0..4: ab*, *ab, a?b, ?a??, full word)",
     [[name % k for k in range(5) for name in
       ("W5_Find_Dorvik/%d/1000", "W5_Glob_Sqlite/%d/1000", "W5_Fnmatch_Scan/%d/1000")]],
     [["W5_Find_Dorvik/%d/%d" % (k, n) for k in range(5)] for n in (100, 10000)]),
    ("W6", "DiacritizeBuffer of 1 MiB, 100,000 forms",
     [["W6_Diacritize_Dorvik", "W6_HashMap_Floor"]], []),
]


def run(names):
    """Runs names interleaved; returns {name: ([ns per round], counters)}."""
    cmd = [args.binary, "--interleave=" + ",".join(names), "--rounds=%d" % args.rounds,
           "--benchmark_min_time=%s" % args.min_time]
    print("running:", " ".join(names), file=sys.stderr, flush=True)
    out = subprocess.run(cmd, check=True, capture_output=True, text=True).stdout
    if args.raw:
        with open(args.raw, "a") as f:
            f.write(out)
    return parse(out)


def parse(out):
    """{name: ([ns per round], counters)} from RESULT lines."""
    results = {}
    for line in out.splitlines():
        parts = line.split("\t")
        if parts[0] != "RESULT":
            continue
        counters = dict(kv.split("=") for kv in parts[4].split(";") if "=" in kv)
        times, _ = results.setdefault(parts[1], ([], counters))
        times.append(float(parts[3]))
    return results


def xml_names():
    listed = subprocess.run([args.binary, "--benchmark_list_tests=true"], check=True,
                            capture_output=True, text=True).stdout.split()
    return [n for n in listed if re.search("xml", n, re.I)]


def fmt(ns):
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if ns >= scale:
            return "%.3g %s" % (ns / scale, unit)
    return "%.3g ns" % ns


def median(results, name):
    return statistics.median(results[name][0]) if name in results else None


def load(path):
    try:
        with open(path) as f:
            return f.read()
    except OSError:
        return ""


selected = [w for w in WORKLOADS if not args.only or w[0] in args.only.split(",")]
results = {}
# What the report says of the run: taken now, or from the raw file on a replay.
meta = {"load_before": "%.2f" % os.getloadavg()[0],
        "commit": subprocess.run(["git", "rev-parse", "--short", "HEAD"], capture_output=True,
                                 text=True).stdout.strip(),
        "date": datetime.datetime.now().strftime("%Y-%m-%d %H:%M"),
        "rounds": str(args.rounds), "min_time": args.min_time}
xml = []


def measure_all():
    global xml
    if args.replay:
        raw = load(args.raw)
        results.update(parse(raw))
        for line in raw.splitlines():
            if line.startswith("META\t"):
                meta.update(kv.split("=", 1) for kv in line.split("\t")[1:])
        xml = [n for n in results if n.startswith("BM_XML")]
        report()
        return
    if args.raw:
        with open(args.raw, "w") as f:
            f.write("META\t" + "\t".join("%s=%s" % kv for kv in meta.items()) + "\n")
    for wid, title, groups, growth_groups in selected:
        for group in groups + (growth_groups if args.growth else []):
            results.update(run(group))
            report()  # written as it goes, so that a stopped run leaves what it had
    xml = xml_names() if not args.only or "W7" in args.only.split(",") else []
    for group in xml_groups(xml):
        results.update(run(group))
        report()
    report()


def xml_groups(names):
    """The XML benchmarks by operation and argument: [Dorvik, pugixml, tinyxml2] each."""
    groups = {}
    for name in names:
        # Loading is the workload; freeing and saving are the XML benchmarks' own.
        m = re.match(r"BM_XML(Parse)(Dorvik|Pugixml|Tinyxml2)(/\d+)?(/real_time)?$", name)
        if m:
            groups.setdefault((m.group(1), m.group(3) or ""), []).append(
                name.replace("/real_time", ""))
    return [sorted(g, key=lambda n: (0 if "Dorvik" in n else 1, n)) for g in groups.values()]


def growth_lines(note):
    """Each benchmark run at several sizes: its median per size and the factor per tenfold,
    then `note`, what the growth shows."""
    sizes = {}
    for name in results:
        m = re.match(r"(W[345]_\w+?)(/\d+)?/(\d+)$", name)
        if m:
            sizes.setdefault(m.group(1) + (m.group(2) or ""), {})[int(m.group(3))] = name
    rows = []
    for base, by_size in sorted(sizes.items()):
        if len(by_size) < 3:
            continue
        ordered = sorted(by_size)
        times = [median(results, by_size[n]) for n in ordered]
        hits = [results[by_size[n]][1].get("hits") for n in ordered]
        factors = ["%.1fx" % (b / a) for a, b in zip(times, times[1:])]
        rows.append("| %s | %s | %s | %s |" % (
            base, " / ".join("%s: %s" % (n, fmt(t)) for n, t in zip(ordered, times)),
            " then ".join(factors), " / ".join(h for h in hits if h is not None)))
    if not rows:
        return []
    return ["", "## Growth", "",
            "The size is the last argument (W3: tenths of 16 MiB plain; W4: records; W5: "
            "thousands of forms). Each step is tenfold.", "",
            "| benchmark | median by size | factor per step | hits by size |", "|---|---|---|---|"] + rows + \
           ([""] + note.splitlines() if note else [])


def report():
    targets.clear()
    if not args.replay:
        meta["load_after"] = "%.2f" % os.getloadavg()[0]
        if args.raw:
            with open(args.raw, "a") as f:
                f.write("META\tload_after=%s\n" % meta["load_after"])
    write_report()


targets = []  # (id, text, ok)


def target(tid, text, ok):
    if ok is None:
        targets.append((tid, text + " (not measured)", None))
    else:
        targets.append((tid, text, ok))


def ratio(a, b):
    ma, mb = median(results, a), median(results, b)
    return None if ma is None or mb is None else ma / mb


def check(tid, text, value, limit, above=False):
    if value is None:
        target(tid, text, None)
        return
    ok = value >= limit if above else value <= limit
    target(tid, "%s: %.2f (limit %s%g)" % (text, value, ">= " if above else "<= ", limit), ok)


def write_report():
    for op in ("And", "Or"):
        check("W1-%s-floor" % op, "W1 %s: Dorvik / floor" % op, ratio("W1_%s_Dorvik" % op, "W1_%s_Floor" % op), 1.05)
        check("W1-%s-roaring" % op, "W1 %s: Dorvik / CRoaring" % op, ratio("W1_%s_Dorvik" % op, "W1_%s_Roaring" % op), 1.05)
    check("W1-Count-floor", "W1 count: Dorvik / floor", ratio("W1_Count_Dorvik", "W1_Count_Floor"), 1.05)
    for d, label in ((500, "50 %"), (1, "0.1 %")):
        check("W2-decompress-%d" % d, "W2 Decompress at %s: Dorvik / memcpy" % label,
              ratio("W2_Decompress_Dorvik/%d" % d, "W2_Memcpy/%d" % d), 1.5)
        check("W2-compress-%d" % d, "W2 Compress at %s: Dorvik / memcpy" % label,
              ratio("W2_Compress_Dorvik/%d" % d, "W2_Memcpy/%d" % d), 1.5)
    for d, label in ((1, "0.1 %"), (500, "50 %")):
        check("W3-roaring-%d" % d, "W3 at %s: Dorvik / CRoaring" % label,
              ratio("W3_And_Dorvik/%d/10" % d, "W3_And_Roaring/%d/10" % d), 3)
    check("W3-expand-1", "W3 at 0.1 %: expand-then-AND / Dorvik",
          ratio("W3_And_ExpandThenAnd/1/10", "W3_And_Dorvik/1/10"), 10, above=True)
    check("W4-read", "W4 reads: Dorvik / LMDB", ratio("W4_Read_Dorvik/%d" % M, "W4_Read_Lmdb/%d" % M), 0.5)
    twin = median(results, "W4_Read_Twin/%d" % M)
    check("W4-twin", "W4 twin read, ns", twin, 50)
    check("W4-build", "W4 build: Dorvik / LMDB", ratio("W4_Build_Dorvik/%d" % M, "W4_Build_Lmdb/%d" % M), 0.5)
    glob_ratios = []
    for k, label in enumerate(("ab*", "*ab", "a?b", "?a??", "full word")):
        rg = ratio("W5_Find_Dorvik/%d/1000" % k, "W5_Glob_Sqlite/%d/1000" % k)
        rs = ratio("W5_Find_Dorvik/%d/1000" % k, "W5_Fnmatch_Scan/%d/1000" % k)
        check("W5-glob-%d" % k, "W5 %s: Dorvik / GLOB" % label, rg, 1.0)
        check("W5-scan-%d" % k, "W5 %s: Dorvik / fnmatch scan" % label, rs, 1.0)
        if rg is not None:
            glob_ratios.append(rg)
    check("W5-median", "W5 median over the patterns of Dorvik / GLOB",
          statistics.median(glob_ratios) if glob_ratios else None, 0.05)
    dia = results.get("W6_Diacritize_Dorvik")
    words_per_s = None
    if dia and "words" in dia[1]:
        words_per_s = float(dia[1]["words"]) / (statistics.median(dia[0]) / 1e9)
    check("W6-rate", "W6 words per second", words_per_s, 2000000, above=True)
    check("W6-floor", "W6 Dorvik / hash-map floor", ratio("W6_Diacritize_Dorvik", "W6_HashMap_Floor"), 5)
    for group in xml_groups(xml):
        ours = [n for n in group if "Dorvik" in n]
        tiny = [n for n in group if "Tinyxml2" in n]
        if ours and tiny and "Parse" in ours[0]:
            check("W7-tinyxml2", "W7 %s / %s" % (ours[0], tiny[0]), ratio(ours[0], tiny[0]), 0.5)
            heap = results.get(ours[0], ([], {}))[1].get("peak_heap_x")
            check("W7-heap", "W7 %s peak heap / document" % ours[0],
                  float(heap) if heap is not None else None, 3)

    misses = load(os.path.join(os.path.dirname(args.out), "misses.md"))
    explanations = {}
    for block in re.split(r"^## ", misses, flags=re.M)[1:]:
        head, _, body = block.partition("\n")
        for key in head.split():
            explanations[key] = body.strip()

    cpu = "unknown"
    for line in load("/proc/cpuinfo").splitlines():
        if line.startswith("model name"):
            cpu = line.split(":", 1)[1].strip()
            break
    lines = ["# Dorvik next to its peers", "",
             "Written by `bench/compare.sh` (%s reported rounds after a warm-up round, "
             "`--benchmark_min_time=%s`); every figure is wall-clock time per operation, "
             "medians over the rounds, each workload's sides interleaved in one process on "
             "the same data." % (meta["rounds"], meta["min_time"]), "",
             "- machine: %s, `nproc` %d" % (cpu, os.cpu_count()),
             "- load average (1 minute) before and after: %s and %s"
             % (meta["load_before"], meta["load_after"]),
             "- commit %s, %s" % (meta["commit"], meta["date"])]
    if max(float(meta["load_before"]), float(meta.get("load_after", 0))) > (os.cpu_count() or 1):
        lines.append("- the load was above the number of cores: other jobs shared the machine, so "
                     "the absolute figures are pessimistic; the ratios come from interleaved runs")
    lines.append("")
    for wid, title, groups, growth_groups in selected:
        lines += ["## %s: %s" % (wid, title), "", "| benchmark | median | min | max | ÷ first of its group |",
                  "|---|---|---|---|---|"]
        for group in groups + (growth_groups if args.growth else []):
            first = median(results, group[0])
            for name in group:
                if name not in results:
                    lines.append("| %s | absent | | | |" % name)
                    continue
                t = results[name][0]
                lines.append("| %s | %s | %s | %s | %.2f |" % (name, fmt(statistics.median(t)), fmt(min(t)),
                                                               fmt(max(t)), statistics.median(t) / first))
        lines.append("")
    if xml:
        lines += ["## W7: LoadXML of a generated 10 MiB document (0: catalogue, 1: dense; bench/XMLBench.cpp)", "", "| benchmark | median | min | max | counters |",
                  "|---|---|---|---|---|"]
        for name in [n for g in xml_groups(xml) for n in g]:
            if name in results:
                t, counters = results[name]
                lines.append("| %s | %s | %s | %s | %s |" % (name, fmt(statistics.median(t)), fmt(min(t)),
                                                             fmt(max(t)), ", ".join("%s=%s" % kv for kv in counters.items())))
        lines.append("")
    lines += ["## Targets", ""]
    chosen = {w[0] for w in selected} | ({"W7"} if xml else set())
    targets[:] = [t for t in targets if t[0].split("-")[0] in chosen]
    for tid, text, ok in targets:
        lines.append("- %s: %s" % ("at target" if ok else ("MISS" if ok is False else "not measured"), text))
    if args.growth:
        lines += growth_lines(explanations.get("growth", ""))
    missed = [tid for tid, _, ok in targets if ok is False]
    if missed:
        lines += ["", "## Why the misses", ""]
        # One section per explanation, headed by the misses it covers.
        sections = {}
        for tid in missed:
            sections.setdefault(explanations.get(tid, "No explanation recorded yet."), []).append(tid)
        for text, tids in sections.items():
            lines += ["### %s" % ", ".join(tids), "", text, ""]
    # Sections measured by hand sit below a marker in the file; they stay as they are.
    kept = ""
    marker = "<!-- Measured by hand below this line"
    old = load(args.out)
    if marker in old:
        kept = "\n" + old[old.index(marker):]
    with open(args.out, "w") as f:
        f.write("\n".join(lines) + "\n" + kept)



measure_all()
