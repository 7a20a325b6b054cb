#!/usr/bin/env python3
"""Runs the same analyses with different thread counts and ways of reading the results and
checks that every result file and log is the same, byte for byte.

    runDeterminism.py --kra2 BUILD/kra2 --examples EXAMPLES_DIR

1. The bundled example: its result file must equal examples/demo_result.txt whatever the
   thread count (KRA2_THREADS), streamed or batch by batch (KRA2_STREAMED_RUN), with the
   column store in memory or in a file (KRA2_COLUMN_STORE_MEMORY).
2. A generated grid of three batches (ground nodes, fixed values, missing and
   differently-cased node names, a node measured against itself) run plainly over a window
   and with both ignore settings and AC analysis: all variants must agree.
"""
import argparse
import math
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile

VARIANTS = [
    {"KRA2_THREADS": "1"},
    {"KRA2_THREADS": "4"},
    {"KRA2_THREADS": "3", "KRA2_STREAMED_RUN": "off"},
    {"KRA2_THREADS": "1", "KRA2_STREAMED_RUN": "0", "KRA2_COLUMN_STORE_MEMORY": "0"},
    {"KRA2_THREADS": "4", "KRA2_STREAMED_RUN": "no", "KRA2_COLUMN_STORE_MEMORY": "1024"},
]
TIME = re.compile(rb"\( time [0-9.e+-]+ sec \)")


def run(kra2, folder, env_extra):
    env = dict(os.environ)
    for name in ("KRA2_THREADS", "KRA2_STREAMED_RUN", "KRA2_COLUMN_STORE_MEMORY",
                 "KRA2_INTERNAL_DEBUG"):
        env.pop(name, None)
    env.update(env_extra)
    done = subprocess.run([kra2, "-cmd", "cmd", "-log", "kra2.log"], cwd=folder, env=env,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=True)
    outputs = {"stdout": TIME.sub(b"( time X sec )", done.stdout)}
    for name in sorted(os.listdir(folder)):
        if name.endswith(".txt") or name == "kra2.log":
            with open(os.path.join(folder, name), "rb") as handle:
                outputs[name] = TIME.sub(b"( time X sec )", handle.read())
    return outputs


def write_grid(folder):
    """700 node voltages by 257 points, and 12000 instances (three batches)."""
    signals, points = 700, 257
    header = ("Title: determinism grid\nDate: today\nPlotname: Transient Analysis\n"
              "Flags: real\nNo. Variables: %d\nNo. Points: %d\nVariables:\n\t0\ttime\ttime\n"
              % (signals + 1, points))
    header += "".join("\t%d\tv(n%d)\tvoltage\n" % (s, s) for s in range(1, signals + 1))
    header += "Binary:\n"
    records = bytearray()
    for p in range(points):
        t = p * 1e-9 + (p % 3) * 1e-11
        row = [t] + [1.0 - 0.01 * (s % 13) * math.sin(p * 0.05 + s) + 1e-4 * ((s * p) % 7)
                     for s in range(1, signals + 1)]
        records += struct.pack("<%dd" % len(row), *row)
    with open(os.path.join(folder, "grid.raw"), "wb") as raw:
        raw.write(header.encode() + bytes(records))
    lines = []
    for i in range(12000):
        a = 1 + (i * 7919) % signals
        b = 1 + (i * 104729 + 13) % signals
        kind = i % 10
        if kind == 0:
            lines.append("r%d n%d 0" % (i, a))
        elif kind == 1:
            lines.append("r%d 0 n%d" % (i, b))
        elif kind == 2:
            lines.append("r%d n%d #@#v0.9%d" % (i, a, i % 10))
        elif kind == 3 and i % 3 == 0:
            lines.append("r%d n%d missing%d" % (i, a, i % 5))
        elif kind == 4:
            lines.append("r%d N%d n%d" % (i, a, b))
        elif kind == 5:
            lines.append("r%d n%d n%d" % (i, a, a))
        else:
            lines.append("r%d n%d n%d" % (i, a, b))
    with open(os.path.join(folder, "grid.net"), "w") as net:
        net.write("\n".join(lines) + "\n")


def check(kra2, source, name, failures):
    reference = None
    for variant in VARIANTS:
        with tempfile.TemporaryDirectory(prefix="kra2-determinism-") as work:
            shutil.copytree(source, work, dirs_exist_ok=True)
            outputs = run(kra2, work, variant)
        if reference is None:
            reference = (variant, outputs)
        elif outputs != reference[1]:
            different = sorted(k for k in set(outputs) | set(reference[1])
                               if outputs.get(k) != reference[1].get(k))
            failures.append("%s: %s differs between %s and %s"
                            % (name, ", ".join(different), reference[0], variant))
    return reference[1]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kra2", required=True)
    parser.add_argument("--examples", required=True)
    options = parser.parse_args()
    kra2 = os.path.abspath(options.kra2)
    failures = []
    with tempfile.TemporaryDirectory(prefix="kra2-determinism-src-") as base:
        demo = os.path.join(base, "demo")
        os.mkdir(demo)
        for name in ("demo.raw", "demo.net"):
            shutil.copy(os.path.join(options.examples, name), demo)
        shutil.copy(os.path.join(options.examples, "demo.cmd"), os.path.join(demo, "cmd"))
        check(kra2, demo, "example", failures)

        grid = os.path.join(base, "grid")
        os.mkdir(grid)
        write_grid(grid)
        for name, commands in (
                ("grid, window", "openSimData grid.raw\nselectAnalysis tran\n"
                                 "loadNetlist grid.net\nrun 2e-8 2.2e-7\nsaveResult window.txt\n"),
                ("grid, ignores and AC", "openSimData grid.raw\nselectAnalysis tran\n"
                                         "loadNetlist grid.net\nignore negative_currents\n"
                                         "ignore positive_currents\nACAnlaysis\nrun 0 1\n"
                                         "saveResult ac.txt\n")):
            with open(os.path.join(grid, "cmd"), "w") as cmd:
                cmd.write(commands + "done\n")
            outputs = check(kra2, grid, name, failures)
            result = outputs.get("window.txt", outputs.get("ac.txt", b""))
            if result.count(b"\n") != 12000:
                failures.append("%s: %d result lines, not 12000" % (name, result.count(b"\n")))
    for failure in failures:
        print("FAIL " + failure)
    if not failures:
        print("every variant gave the same bytes")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
