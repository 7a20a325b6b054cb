"""An HTML report of a result file of `saveResult`, with plots:

    python3 -m kra2.report RESULT [--em EM_REPORT] [--results RAW [--analysis tran]
                           [--netlist NET]] [--window START STOP] [--pg PG_DATA] -o report.html

One self-contained file (images inline): a summary (instances, failed, window, mode, worst
peak, avg and rms), the 20 worst instances by each of peak, avg and rms, histograms of the
three on a log scale, with --em (the violations report of checkEM) the verdict counts and the
20 worst instances by EM ratio, with --results the waveforms of the five worst instances by
peak read back through kra2, and with --pg (PG data: name layer net1 net2 x y ...) a map of
the grid coloured by each piece's average, or by its worst EM ratio with --em.
"""
import argparse
import base64
import html
import math
import os
import sys

from . import reportFigures

COLUMNS = ("peak", "avg", "rms", "peakTime", "dutyRatio", "absAvg", "avgPositive",
           "avgNegative", "direction", "pulseWidth", "peakValue", "rawAvg")
TOP = 20
WAVEFORMS = 5


def read_results(path):
    """The columns of a result file: names as lists, numbers as float arrays, `valid` false
    for the lines of instances that were not analysed."""
    import numpy as np
    names, nodes1, nodes2, rows = [], [], [], []
    with open(path, encoding="utf-8", errors="replace") as handle:
        for number, line in enumerate(handle, 1):
            fields = line.rstrip("\n").split("\t")
            if len(fields) != 15:
                sys.exit(f"{path}: line {number}: {len(fields)} fields, a result line has 15")
            names.append(fields[0])
            nodes1.append(fields[1])
            nodes2.append(fields[2])
            rows.append([float(f) for f in fields[3:]])
    table = np.array(rows, dtype=float).reshape(len(rows), len(COLUMNS))
    out = {column: table[:, k] for k, column in enumerate(COLUMNS)}
    out.update(name=names, node1=nodes1, node2=nodes2, valid=~np.isnan(out["peak"]))
    return out


def number(value):
    return "NaN" if isinstance(value, float) and math.isnan(value) else f"{value:.6g}"


def summary(results, window):
    """(label, text) rows of the summary table."""
    import numpy as np
    valid = results["valid"]
    rows = [("instances", str(len(valid))), ("failed", str(int((~valid).sum())))]
    rows.append(("window", f"{window[0]:g} s to {window[1]:g} s" if window else "not given"))
    measured_ac = bool(np.any(results["dutyRatio"][valid] != 1.0))
    polarity = bool(np.any(results["avgPositive"][valid] != 0.0) or
                    np.any(results["avgNegative"][valid] != 0.0))
    mode = "AC (duty ratio and pulse width)" if measured_ac else "averages (no AC measure)"
    rows.append(("mode", mode + (", polarity averages" if polarity else "")))
    for column in ("peak", "avg", "rms"):
        values = results[column][valid]
        if len(values):
            worst = int(np.flatnonzero(valid)[np.argmax(values)])
            rows.append((f"worst {column}", f"{number(values.max())} ({results['name'][worst]})"))
        else:
            rows.append((f"worst {column}", "none analysed"))
    return rows


def worst(results, column, count=TOP):
    """Indices of the `count` analysed instances with the largest `column`, largest first."""
    import numpy as np
    valid = np.flatnonzero(results["valid"])
    order = np.argsort(-results[column][valid], kind="stable")
    return valid[order[:count]]


def table(headers, rows):
    head = "".join(f"<th>{html.escape(h)}</th>" for h in headers)
    body = "".join("<tr>" + "".join(f"<td>{html.escape(str(c))}</td>" for c in row) + "</tr>"
                   for row in rows)
    return f"<table><tr>{head}</tr>{body}</table>"


def image(png, alt):
    data = base64.b64encode(png).decode("ascii")
    return f'<img alt="{html.escape(alt)}" src="data:image/png;base64,{data}">'


def worst_tables(results):
    parts = []
    for column in ("peak", "avg", "rms"):
        rows = [(rank, results["name"][i], results["node1"][i], results["node2"][i],
                 number(results["peak"][i]), number(results["avg"][i]), number(results["rms"][i]),
                 number(results["peakTime"][i]))
                for rank, i in enumerate(worst(results, column), 1)]
        parts.append(f"<h3>By {column}</h3>" + table(
            ["#", "instance", "node1", "node2", "peak", "avg", "rms", "peakTime"], rows))
    return "".join(parts)


def waveform_section(results, raw, analysis_name, window):
    import kra2
    analysis = kra2.open(raw)[analysis_name]
    time = analysis.scale
    curves = []
    for i in worst(results, "peak", WAVEFORMS):
        def values(node):
            if node == "0":
                return 0.0
            if node.startswith("#@#v"):
                return float(node[4:])
            return analysis[node]
        difference = values(results["node1"][i]) - values(results["node2"][i])
        curves.append((results["name"][i], time, difference + 0.0 * time,
                       results["peakTime"][i], results["peak"][i]))
    if not curves:
        return ""
    return ("<h2>Waveforms of the five worst instances by peak</h2>" +
            image(reportFigures.waveforms(curves, window), "waveforms"))


def read_em_report(path):
    """The rows of a checkEM violations report as dicts keyed by its column names (the
    comment line that starts with "#name"), in the report's order (worst first)."""
    columns, rows = None, []
    with open(path, encoding="utf-8", errors="replace") as handle:
        for line in handle:
            fields = line.rstrip("\n").split("\t")
            if line.startswith("#name"):
                columns = [fields[0][1:]] + fields[1:]
            elif not line.startswith("#") and columns and len(fields) == len(columns):
                rows.append(dict(zip(columns, fields)))
    if columns is None:
        sys.exit(f"{path}: no column line (#name ...): not a checkEM report")
    return rows


def em_section(rows):
    counts = {}
    for row in rows:
        counts[row["verdict"]] = counts.get(row["verdict"], 0) + 1
    summary_rows = [(verdict, count) for verdict, count in counts.items()]
    ranked = [r for r in rows if r["ratio_worst"] != "NaN"][:TOP]
    worst_rows = [(rank, r["name"], r["layer"], r["verdict"], number(float(r["ratio_worst"])),
                   number(float(r["ratio_avg"])), number(float(r["ratio_rms"])),
                   number(float(r["ratio_peak"])))
                  for rank, r in enumerate(ranked, 1)]
    return ("<h2>Electromigration</h2>" + table(["verdict", "instances"], summary_rows) +
            f"<h3>The {TOP} worst instances by EM ratio</h3>" +
            table(["#", "instance", "layer", "verdict", "worst ratio", "avg", "rms", "peak"],
                  worst_rows))


def grid_section(results, pg_path, em_rows=None):
    import numpy as np
    by_name = {name: k for k, name in enumerate(results["name"])}
    ratio = {r["name"]: float(r["ratio_worst"]) for r in em_rows or []
             if r["ratio_worst"] != "NaN"}
    x, y, values = [], [], []
    with open(pg_path, encoding="utf-8", errors="replace") as handle:
        for line in handle:
            fields = line.split()
            if len(fields) < 9:
                continue
            k = by_name.get(fields[0])
            value = ratio.get(fields[0]) if em_rows else (
                results["avg"][k] if k is not None and results["valid"][k] else None)
            if value is not None:
                x.append(float(fields[4]))
                y.append(float(fields[5]))
                values.append(value)
    if not values:
        return "<h2>Power grid</h2><p>No piece of the PG data names a measured instance.</p>"
    label = "worst EM ratio" if em_rows else "avg"
    return "<h2>Power grid</h2>" + image(
        reportFigures.grid_map(np.array(x), np.array(y), np.array(values), label), "grid map")


STYLE = """body{font-family:sans-serif;margin:2em;color:#222}
table{border-collapse:collapse;margin:0.5em 0 1.5em}td,th{border:1px solid #bbb;
padding:2px 8px;font-size:13px;text-align:left}th{background:#e8eef5}img{max-width:100%}"""


def render(args):
    results = read_results(args.result)
    window = tuple(args.window) if args.window else None
    parts = [f"<h1>kra2 report: {html.escape(os.path.basename(args.result))}</h1>",
             "<h2>Summary</h2>", table(["", ""], summary(results, window)),
             f"<h2>The {TOP} worst instances</h2>", worst_tables(results),
             "<h2>Distributions</h2>", image(reportFigures.histograms(results), "histograms")]
    em_rows = read_em_report(args.em) if args.em else None
    if em_rows is not None:
        parts.append(em_section(em_rows))
    if args.results:
        parts.append(waveform_section(results, args.results, args.analysis, window))
    if args.pg:
        parts.append(grid_section(results, args.pg, em_rows))
    return ("<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>kra2 report</title>"
            f"<style>{STYLE}</style></head><body>{''.join(parts)}</body></html>\n")


def main(argv=None):
    parser = argparse.ArgumentParser(prog="python3 -m kra2.report", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("result", help="result file of saveResult")
    parser.add_argument("-o", "--output", required=True, help="the HTML file to write")
    parser.add_argument("--em", help="the violations report of checkEM")
    parser.add_argument("--results", help="the simulation results the run read")
    parser.add_argument("--analysis", default="tran", help="analysis of --results (tran)")
    parser.add_argument("--netlist", help="accepted for symmetry with the run; the result "
                        "file already names every instance's nodes")
    parser.add_argument("--window", nargs=2, type=float, metavar=("START", "STOP"),
                        help="the run's window, for the summary and the waveforms")
    parser.add_argument("--pg", help="PG data (name layer net1 net2 x y ...) for a grid map")
    args = parser.parse_args(argv)
    text = render(args)
    with open(args.output, "w", encoding="utf-8") as out:
        out.write(text)
    print(f"wrote {args.output}")


if __name__ == "__main__":
    main()
