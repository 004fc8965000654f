#!/usr/bin/env python3
"""Runs every benchmark of bench/ on this machine and prints one table.

For each operation of bench/report.tsv: our time, its floor on the standard
library, SQLite or the kernel, the Windows build's time under Wine, and the
ratios, measured on one CPU (taskset -c 0) and free, all in one sitting. The
same table is written as Markdown and as a PNG chart (gnuplot) to the output
folder. Both builds report Google Benchmark's statistic: the median of the
real time per iteration over the repetitions.

    bench/report.py                 # builds release and mingw64 if needed
    bench/report.py --no-wine       # POSIX only
    bench/report.py --repetitions 5 --out build/bench-report
    bench/report.py --programs platform,locks   # only those programs' rows
"""
import argparse
import json
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
UNIT_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
WINE_PREFIX = os.path.join(ROOT, "build", "mingw64", "wineprefix")  # as CI and the tests use it
MODES = [("one CPU", ["taskset", "-c", "0"]), ("free", [])]


def log(msg):
    print(msg, file=sys.stderr, flush=True)


def read_rows(path):
    rows = []
    with open(path, encoding="utf-8") as f:
        for n, line in enumerate(f, 1):
            line = line.rstrip("\n")
            if not line.strip() or line.startswith("#"):
                continue
            cols = line.split("\t")
            if len(cols) != 3:
                sys.exit(f"{path}:{n}: expected three tab-separated columns")
            rows.append((cols[0], cols[1], None if cols[2] == "-" else cols[2]))
    return rows


def build(preset):
    log(f"== building the {preset} preset")
    for cmd in (["cmake", "--preset", preset], ["cmake", "--build", "--preset", preset]):
        subprocess.run(cmd, cwd=ROOT, check=True, stdout=subprocess.DEVNULL)


def plain_name(run_name):
    """Google Benchmark appends /real_time, /iterations:N and the like; the
    report names a benchmark without them."""
    parts = [p for p in run_name.split("/")
             if not re.fullmatch(r"real_time|process_time|manual_time|(min_time|iterations|repeats):.*", p)]
    return "/".join(parts)


def medians(json_path):
    """{benchmark: median real time in ns} over the repetitions of a run,
    None for a benchmark that reported an error."""
    with open(json_path, encoding="utf-8") as f:
        data = json.load(f)
    runs = {}
    for b in data.get("benchmarks", []):
        if b.get("run_type") == "aggregate":
            continue
        name = plain_name(b.get("run_name", b["name"]))
        if b.get("error_occurred"):
            runs[name] = None
        elif runs.get(name, []) is not None:
            runs.setdefault(name, []).append(b["real_time"] * UNIT_NS[b["time_unit"]])
    return {name: None if times is None else statistics.median(times) for name, times in runs.items()}


def find_wine():
    """The 64-bit loader, where Debian's wine64 package puts it."""
    for candidate in (shutil.which("wine64"), "/usr/lib/wine/wine64", shutil.which("wine")):
        if candidate and os.access(candidate, os.X_OK):
            return candidate
    return None


def run_program(cmd, env, cwd, json_path, label):
    log(f"   {label}")
    try:
        subprocess.run(cmd, env=env, cwd=cwd, check=True, timeout=1800,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return medians(json_path)
    except (subprocess.SubprocessError, OSError, ValueError) as e:
        log(f"   {label}: failed ({e})")
        return {}


def measure(programs, exe_dir, suffix, prefix_cmd, wine, repetitions, scratch):
    """{program: {benchmark: ns}} for the programs of one build in one mode."""
    results = {}
    for prog in sorted(programs):
        exe = os.path.join(exe_dir, f"bench_{prog}{suffix}")
        if not os.path.exists(exe):
            continue
        cwd = tempfile.mkdtemp(dir=scratch)
        json_path = os.path.join(cwd, "out.json")
        flags = [f"--benchmark_repetitions={repetitions}", "--benchmark_out_format=json"]
        env = dict(os.environ, TSUTIL_ROOT=tempfile.mkdtemp(dir=scratch))
        if wine:
            env.update(WINEPREFIX=WINE_PREFIX, WINEDEBUG="-all")
            cmd = prefix_cmd + [wine, exe] + flags + ["--benchmark_out=Z:" + json_path.replace("/", "\\")]
        else:
            cmd = prefix_cmd + [exe] + flags + ["--benchmark_out=" + json_path]
        results[prog] = run_program(cmd, env, cwd, json_path, os.path.basename(exe))
    return results


def lookup(results, ref):
    if not ref:
        return None
    prog, _, name = ref.partition(":")
    return results.get(prog, {}).get(name)


def fmt_time(ns):
    if ns is None:
        return "—"
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if ns >= scale:
            return f"{ns / scale:.3g} {unit}"
    return f"{ns:.3g} ns"


def fmt_ratio(a, b):
    return "—" if a is None or b is None or b == 0 else f"{a / b:.2f}x"


def table(rows, data):
    head = "| Operation |"
    rule = "|---|"
    for mode, _ in MODES:
        head += f" Ours ({mode}) | Floor | Wine | Ours/Floor | Wine/Ours |"
        rule += "---:|---:|---:|---:|---:|"
    lines = [head, rule]
    for label, ours, floor in rows:
        line = f"| {label} |"
        for mode, _ in MODES:
            o = lookup(data[("native", mode)], ours)
            fl = lookup(data[("native", mode)], floor)
            w = lookup(data.get(("wine", mode), {}), ours)
            line += f" {fmt_time(o)} | {fmt_time(fl)} | {fmt_time(w)} | {fmt_ratio(o, fl)} | {fmt_ratio(w, o)} |"
        lines.append(line)
    return "\n".join(lines)


def chart(rows, data, png, scratch):
    """Grouped bars on a log scale, one panel for each mode."""
    if not shutil.which("gnuplot"):
        log("gnuplot is not installed: no chart (apt-get install gnuplot-nox)")
        return False
    dat = os.path.join(scratch, "chart.dat")
    with open(dat, "w", encoding="utf-8") as f:
        for mode, _ in MODES:
            f.write(f"# {mode}\n")
            for label, ours, floor in rows:
                vals = [lookup(data[("native", mode)], ours), lookup(data[("native", mode)], floor),
                        lookup(data.get(("wine", mode), {}), ours)]
                f.write('"%s" %s\n' % (label.replace('"', "'"),
                                      " ".join("NaN" if v is None else "%.6g" % (v / 1e3) for v in vals)))
            f.write("\n\n")
    height = 260 + 28 * len(rows)
    script = f"""
set terminal pngcairo size 1400,{height * 2} font "sans,10"
set output "{png}"
set multiplot layout 2,1
set style data histograms
set style histogram clustered gap 1
set style fill solid 0.85 border -1
set logscale y
set ylabel "µs per operation (log scale)"
set xtics rotate by -35 left
set grid ytics
set key outside top center horizontal
set bmargin 12
"""
    for i, (mode, _) in enumerate(MODES):
        script += f"""
set title "TSUtil benchmarks: {mode}"
plot "{dat}" index {i} using 2:xtic(1) title "ours" lc rgb "#1f77b4", \\
     "" index {i} using 3 title "floor (standard library, SQLite, kernel)" lc rgb "#2ca02c", \\
     "" index {i} using 4 title "Windows build under Wine" lc rgb "#d62728"
"""
    script += "unset multiplot\n"
    subprocess.run(["gnuplot"], input=script, text=True, check=True)
    return True


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--repetitions", type=int, default=3)
    ap.add_argument("--out", default=os.path.join(ROOT, "build", "bench-report"))
    ap.add_argument("--no-wine", action="store_true", help="measure the POSIX build only")
    ap.add_argument("--no-build", action="store_true", help="use the builds as they are")
    ap.add_argument("--programs", help="comma-separated programs to run (bench_<name>), and only their rows")
    args = ap.parse_args()

    rows = read_rows(os.path.join(ROOT, "bench", "report.tsv"))
    if args.programs:
        wanted = set(args.programs.split(","))
        rows = [r for r in rows if r[1].partition(":")[0] in wanted]
    programs = {ref.partition(":")[0] for _, ours, floor in rows for ref in (ours, floor) if ref}
    native_dir = os.path.join(ROOT, "build", "release", "bin")
    wine_dir = os.path.join(ROOT, "build", "mingw64", "bin")
    wine = None if args.no_wine else find_wine()
    if not args.no_wine and not wine:
        log("wine64 is not installed: the Wine column stays empty (apt-get install wine64)")
    use_wine = wine is not None
    if not args.no_build:
        build("release")
        if use_wine:
            build("mingw64")

    os.makedirs(args.out, exist_ok=True)
    scratch = tempfile.mkdtemp(prefix="tsbench-")
    data = {}
    wine_started = False
    try:
        if use_wine:
            subprocess.run([os.path.join(ROOT, "cmake", "wine-prefix.sh"), "start", WINE_PREFIX], check=True,
                           stdout=subprocess.DEVNULL)
            wine_started = True
        for mode, pin in MODES:
            log(f"== POSIX build, {mode}")
            data[("native", mode)] = measure(programs, native_dir, "", pin, None, args.repetitions, scratch)
            if use_wine:
                log(f"== Windows build under Wine, {mode}")
                data[("wine", mode)] = measure(programs, wine_dir, ".exe", pin, wine, args.repetitions, scratch)
    finally:
        if wine_started:
            subprocess.run([os.path.join(ROOT, "cmake", "wine-prefix.sh"), "stop", WINE_PREFIX],
                           stdout=subprocess.DEVNULL)

    text = table(rows, data)
    with open(os.path.join(args.out, "report.md"), "w", encoding="utf-8") as f:
        f.write(text + "\n")
    with open(os.path.join(args.out, "report.json"), "w", encoding="utf-8") as f:
        json.dump({f"{leg} / {mode}": v for (leg, mode), v in data.items()}, f, indent=1)
    print(text)
    png = os.path.join(args.out, "report.png")
    if chart(rows, data, png, scratch):
        print(f"\nChart: {png}")
    shutil.rmtree(scratch, ignore_errors=True)


if __name__ == "__main__":
    main()
