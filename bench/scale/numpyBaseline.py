#!/usr/bin/env python3
"""The numpy baseline of the scale benchmark: what a user would write instead of kra2.

Reads a binary raw file (point-major float64 records after the "Binary:" line) and an
instance netlist ("name node1 node2", node "0" is ground) and writes, per instance, the peak
of |v1 - v2| and the trapezoid average, RMS and absolute average of v1 - v2 over the whole
time axis: "name peak avg rms absAvg", tab-separated, in netlist order.

    numpyBaseline.py RAW NETLIST OUT [--limit SECONDS]

With --limit the script stops after the batch that passes the limit and prints how many
instances it finished, so that a caller can extrapolate.
"""
import argparse
import sys
import time

import numpy as np

BATCH = 5000


def read_header(path):
    names, variables, points = [], None, None
    with open(path, "rb") as raw:
        while True:
            line = raw.readline()
            if not line:
                sys.exit(f"{path}: no Binary: section")
            text = line.decode("latin-1").strip()
            if text.lower().startswith("no. variables:"):
                variables = int(text.split(":", 1)[1])
            elif text.lower().startswith("no. points:"):
                points = int(text.split(":", 1)[1])
            elif text.lower() == "variables:":
                for _ in range(variables):
                    names.append(raw.readline().decode("latin-1").split()[1])
            elif text.lower() == "binary:":
                return names, points, raw.tell()


def bare(name):
    return name[2:-1] if name.lower().startswith("v(") and name.endswith(")") else name


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("raw")
    parser.add_argument("netlist")
    parser.add_argument("out")
    parser.add_argument("--limit", type=float, default=0.0)
    args = parser.parse_args()
    start = time.monotonic()

    names, points, offset = read_header(args.raw)
    column = {bare(name): i for i, name in enumerate(names)}
    data = np.memmap(args.raw, dtype="<f8", mode="r", offset=offset, shape=(points, len(names)))
    t = np.array(data[:, 0])
    span = t[-1] - t[0]

    inst, col1, col2 = [], [], []
    with open(args.netlist) as netlist:
        for line in netlist:
            name, node1, node2 = line.split()[:3]
            inst.append(name)
            col1.append(column.get(node1, -1))
            col2.append(column.get(node2, -1))
    col1 = np.array(col1)
    col2 = np.array(col2)

    done = 0
    with open(args.out, "w") as out:
        for first in range(0, len(inst), BATCH):
            c1 = col1[first:first + BATCH]
            c2 = col2[first:first + BATCH]
            # Ground (and unknown nodes) read as 0 V.
            v1 = np.where(c1 >= 0, data[:, np.maximum(c1, 0)], 0.0)
            v2 = np.where(c2 >= 0, data[:, np.maximum(c2, 0)], 0.0)
            d = v1 - v2
            peak = np.abs(d).max(axis=0)
            avg = np.abs(np.trapz(d, t, axis=0)) / span
            rms = np.sqrt(np.trapz(d * d, t, axis=0) / span)
            absavg = np.trapz(np.abs(d), t, axis=0) / span
            for k in range(len(c1)):
                out.write(f"{inst[first + k]}\t{peak[k]!r}\t{avg[k]!r}\t{rms[k]!r}\t{absavg[k]!r}\n")
            done += len(c1)
            if args.limit and time.monotonic() - start > args.limit:
                break
    print(f"instances {done} of {len(inst)}")


if __name__ == "__main__":
    main()
