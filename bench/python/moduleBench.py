#!/usr/bin/env python3
"""The Python module on the scale benchmark's data (100000 node voltages by 1000 points, an
800 MB binary raw file, and its netlist of 100000 resistors):

  read     every signal into one numpy array (a row per signal) through kra2 (`read()`),
           against plain numpy on the same file: np.memmap of the records, then the
           transposed copy (the fastest plain way), and one np.array(data[:, k]) per signal
           (the obvious way; stopped after --limit seconds and extrapolated);
  views    kra2's per-signal views (`analysis[name]`, no copy) for every signal;
  measure  kra2.measure over the whole window against the kra2 executable's load and run of
           the same netlist (the command file minus the same without loadNetlist and run).

    build/bench/scale/kra2_scale_bench --keep --no-numpy --repeat 1   # writes the data once
    PYTHONPATH=build/python /usr/bin/python3 bench/python/moduleBench.py [--dir DIR] [--repeat N]

Every variant runs in its own process, page cache warm; the best of --repeat runs is shown
with its CPU time and peak resident memory.
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))


def read_header(path):
    """(signal names, points, data offset) of a binary raw file, parsed in plain Python."""
    names, variables, points = [], 0, 0
    with open(path, "rb") as raw:
        while True:
            text = raw.readline().decode("latin-1").strip()
            key = text.lower()
            if key.startswith("no. variables:"):
                variables = int(text.split(":", 1)[1])
            elif key.startswith("no. points:"):
                points = int(text.split(":", 1)[1])
            elif key == "variables:":
                names = [raw.readline().decode("latin-1").split()[1] for _ in range(variables)]
            elif key == "binary:":
                return names, points, raw.tell()


def variant(name, raw, netlist, stop, limit):
    """Runs one variant in this process; returns (seconds, checksum, note)."""
    import numpy as np
    start = time.perf_counter()
    note = ""
    if name == "numpy-transpose":
        names, points, offset = read_header(raw)
        data = np.memmap(raw, dtype="<f8", mode="r", offset=offset, shape=(points, len(names)))
        rows = np.ascontiguousarray(data.T)
    elif name == "numpy-columns":
        names, points, offset = read_header(raw)
        data = np.memmap(raw, dtype="<f8", mode="r", offset=offset, shape=(points, len(names)))
        rows = {}
        for k, signal in enumerate(names):
            rows[signal] = np.array(data[:, k])
            if limit and time.perf_counter() - start > limit:
                note = f"stopped after {k + 1} of {len(names)} signals"
                seconds = (time.perf_counter() - start) * len(names) / (k + 1)
                return seconds, float(rows[signal].sum()), note
        rows = np.array([rows[s] for s in names[:1]])
    elif name == "kra2-read":
        import kra2
        rows = kra2.open(raw)["tran"].read()
    elif name == "kra2-views":
        import kra2
        analysis = kra2.open(raw)["tran"]
        views = [analysis[s] for s in analysis.signals]
        rows = views[-1][None, :]
        note = f"{len(views)} views"
    elif name == "kra2-measure":
        import kra2
        analysis = kra2.open(raw)["tran"]
        start = time.perf_counter()
        result = kra2.measure(analysis, netlist, 0.0, stop)
        rows = result["avg"][None, :]
    seconds = time.perf_counter() - start
    return seconds, float(np.asarray(rows[-1]).sum()), note


def run_process(args):
    """(wall seconds as the variant measured them, CPU s, peak RSS MB, note) of a subprocess."""
    process = subprocess.Popen(args, stdout=subprocess.PIPE, text=True)
    out = process.stdout.read()
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        sys.exit(f"{args} failed")
    result = json.loads(out.strip().splitlines()[-1])
    return (result["seconds"], usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024,
            result.get("note", ""))


def best(runs):
    return min(runs, key=lambda r: r[0])


def command_file_run(kra2_exe, folder, repeat):
    """Seconds of the load and run phases of the kra2 executable: the command file with
    loadNetlist and run, minus the same with neither (both open the file alike)."""
    with open(os.path.join(folder, "all.cmd")) as handle:
        lines = handle.read().splitlines()
    keep = [l for l in lines if not l.startswith("saveResult")]
    without_run = [l for l in keep if not l.startswith(("run ", "loadNetlist "))]
    times = {}
    with tempfile.TemporaryDirectory() as tmp:
        for label, text in (("with", keep), ("without", without_run)):
            path = os.path.join(tmp, label + ".cmd")
            with open(path, "w") as out:
                out.write("\n".join(text) + "\n")
            walls = []
            for _ in range(repeat):
                start = time.perf_counter()
                subprocess.run([kra2_exe, "-cmd", path, "-log", os.path.join(tmp, "kra2.log")],
                               check=True, stdout=subprocess.DEVNULL)
                walls.append(time.perf_counter() - start)
            times[label] = min(walls)
    return times["with"] - times["without"], times


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--dir", default=os.path.join(os.environ.get("TMPDIR", "/tmp"),
                                                      "kra2-scale-100000x1000"))
    parser.add_argument("--repeat", type=int, default=3)
    parser.add_argument("--limit", type=float, default=60.0)
    parser.add_argument("--kra2", default=os.path.join(HERE, "../../build/kra2"))
    parser.add_argument("--variant")
    args = parser.parse_args()
    raw, netlist = os.path.join(args.dir, "grid.raw"), os.path.join(args.dir, "grid.net")
    with open(os.path.join(args.dir, "all.cmd")) as handle:
        stop = float([l for l in handle if l.startswith("run ")][0].split()[2])
    if args.variant:
        seconds, checksum, note = variant(args.variant, raw, netlist, stop, args.limit)
        print(json.dumps({"seconds": seconds, "checksum": checksum, "note": note}))
        return
    if not os.path.exists(raw):
        sys.exit(f"{raw} is missing: run build/bench/scale/kra2_scale_bench --keep first")
    me = [sys.executable, os.path.abspath(__file__), "--dir", args.dir, "--limit", str(args.limit)]
    subprocess.run(["cat", raw], check=True, stdout=subprocess.DEVNULL)  # warm the page cache
    rows = {}
    for name in ("kra2-read", "numpy-transpose", "kra2-views", "kra2-measure"):
        rows[name] = best([run_process(me + ["--variant", name]) for _ in range(args.repeat)])
    rows["numpy-columns"] = run_process(me + ["--variant", "numpy-columns"])
    run_phase, cmd_times = command_file_run(os.path.abspath(args.kra2), args.dir, args.repeat)
    print(f"{raw}: {os.path.getsize(raw) / 1e6:.1f} MB")
    print(f"| | wall s | CPU s | peak RSS MB | |\n|---|---:|---:|---:|---|")
    for name, (wall, cpu, rss, note) in rows.items():
        print(f"| {name} | {wall:.3f} | {cpu:.2f} | {rss:.0f} | {note} |")
    print(f"| kra2 executable: load and run ({cmd_times['with']:.3f} s minus open "
          f"{cmd_times['without']:.3f} s) | {run_phase:.3f} | | | |")
    print(f"numpy-transpose / kra2-read: {rows['numpy-transpose'][0] / rows['kra2-read'][0]:.1f}; "
          f"numpy-columns / kra2-read: {rows['numpy-columns'][0] / rows['kra2-read'][0]:.1f}")
    print(f"kra2-measure / the executable's load and run: "
          f"{rows['kra2-measure'][0] / run_phase:.2f}")


if __name__ == "__main__":
    main()
