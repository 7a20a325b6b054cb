#!/usr/bin/env python3
"""The kra2 Python module against independent readings of the same data.

    test_module.py SOURCE_DIR KRA2DB

- arrays: every signal and the scale of binary raw files equal the file's bytes read with
  numpy (header parsed here, not by kra2), and are read-only views, not copies;
- measure: every end-to-end case that runs and saves results with the settings measure takes
  gives, through kra2.measure, the numbers of its checked result file, bit for bit;
- db: records written by kra2.db.write read back unchanged, records written by kra2db from
  text columns read in file order; failures raise kra2.Error with the log's message.
"""
import os
import shlex
import shutil
import subprocess
import sys
import tempfile
import warnings

try:
    import numpy as np
except ImportError:
    print("skip: this interpreter has no numpy")
    sys.exit(77)

import kra2

SOURCE = os.path.abspath(sys.argv[1])
KRA2DB = sys.argv[2]
failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAIL:", what)


def same_bits(a, b):
    """Equal to the last bit (NaN equal to the same NaN)."""
    a, b = np.asarray(a, dtype="<f8"), np.asarray(b, dtype="<f8")
    return a.shape == b.shape and np.array_equal(a.view("<u8"), b.view("<u8"))


def raw_with_numpy(path):
    """{name: values} of a real, point-major float64 binary raw file, read with numpy."""
    with open(path, "rb") as raw:
        names, variables, points = [], 0, 0
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
                offset = raw.tell()
                break
    data = np.fromfile(path, dtype="<f8", count=points * variables, offset=offset)
    data = data.reshape(points, variables)
    bare = [n[2:-1] if n.lower().startswith("v(") else n for n in names]
    return {name: data[:, k].copy() for k, name in enumerate(bare)}


def test_arrays():
    for path in ["examples/demo.raw", "tests/data/analysis/rcgrid.raw"]:
        path = os.path.join(SOURCE, path)
        expected = raw_with_numpy(path)
        analysis = kra2.open(path)["tran"]
        check(analysis.signals == list(expected), f"{path}: signal names")
        check(same_bits(analysis.scale, expected["time"]), f"{path}: scale")
        for name, values in expected.items():
            view = analysis[name]
            check(same_bits(view, values), f"{path}: {name}")
            check(not view.flags.owndata and not view.flags.writeable, f"{path}: {name} is a view")
        check(same_bits(analysis.read(), np.array(list(expected.values()))), f"{path}: read()")
        check(same_bits(analysis.read(["time"]), expected["time"][None, :]), f"{path}: read(time)")
    # What the reader reports about a file it still reads comes as a warning.
    with tempfile.TemporaryDirectory() as tmp, warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        shutil.copy(os.path.join(SOURCE, "examples/demo.raw"), os.path.join(tmp, "extra.raw"))
        with open(os.path.join(tmp, "extra.raw"), "ab") as raw:
            raw.write(b"trailing text\n")
        kra2.open(os.path.join(tmp, "extra.raw"))
        check(any("bytes after the data" in str(w.message) for w in caught), "reader warning")
    # The view outlives the results object: its base holds the mapping.
    view = kra2.open(os.path.join(SOURCE, "examples/demo.raw"))["tran"]["n3_3"]
    check(float(view.sum()) > 0.0, "a view after its results are gone")


SETTINGS = {"durationTime": lambda s, a: s.update(duration=float(a[0])),
            "ignore": lambda s, a: s.setdefault("ignore", []).append(a[0]),
            "ACAnlaysis": lambda s, a: s.update(ac=True),
            "recoveryFactorFlag": lambda s, a: s.update(recovery_factor=True),
            "emRecoveryFactor": lambda s, a: s.update(em_recovery_factor=float(a[0])),
            "windowMode": lambda s, a: s.update(window=a[0])}
NO_ARGUMENT = {"ACAnlaysis", "recoveryFactorFlag"}
IGNORED = {"done", "saveResultTable", "displayAnalysis", "displaySignals", "selectAnalysis", "openSimData"}


def measure_case(case):
    """The measure calls of a case's command file, as (call, settings, result file) for each
    saveResult after a run, or None when the file uses anything measure does not take."""
    if not os.path.exists(os.path.join(case, "cmd")):
        return None
    with open(os.path.join(case, "cmd")) as handle:
        lines = [shlex.split(line) for line in handle if line.strip() and line[0] != "#"]
    settings, call, saves = {}, {}, []
    for word, *args in lines:
        if word in SETTINGS and args[:1] != ["nil"] and (args or word in NO_ARGUMENT):
            SETTINGS[word](settings, args)
        elif word in ("openSimData", "selectAnalysis", "loadNetlist") and args:
            if word in call:
                return None
            call[word] = args[0]
        elif word == "run" and len(args) == 2:
            try:
                call["run"] = ([float(a) for a in args], dict(settings))
            except ValueError:  # strtod's prefixes ("3n") are the strict checks' business
                return None
        elif word == "saveResult" and args and "run" in call:
            saves.append((dict(call, run=call["run"][0]), call["run"][1], args[0]))
        elif word not in IGNORED:
            return None
    env = os.path.join(case, "env")
    if os.path.exists(env):  # the variants (env.*) change threads and reading, not results
        with open(env) as handle:
            names = [line.split("=")[0] for line in handle if line.strip()]
        if names != ["_kraUseOldACPeakMethod"]:
            return None
        for _, run_settings, _ in saves:
            run_settings["ac_half_peak"] = True
    if set(call) != {"openSimData", "selectAnalysis", "loadNetlist", "run"}:
        return None
    return saves


def measure_in(case, work, call, settings):
    """Runs a case's measure call in a copy of its inputs (made by its setup, if any)."""
    if os.path.isdir(os.path.join(case, "in")):
        shutil.copytree(os.path.join(case, "in"), work, dirs_exist_ok=True)
    setup = os.path.join(case, "setup")
    if os.path.exists(setup):
        if "KRA2_SAMPLES" in open(setup).read():
            return None
        subprocess.run(["bash", setup], cwd=work, check=True, stdout=subprocess.DEVNULL)
    cwd = os.getcwd()
    os.chdir(work)
    try:
        analysis = kra2.open(call["openSimData"])[call["selectAnalysis"]]
        with warnings.catch_warnings():
            warnings.simplefilter("ignore", RuntimeWarning)  # signals missing on purpose
            return kra2.measure(analysis, call["loadNetlist"], *call["run"], **settings)
    finally:
        os.chdir(cwd)


def read_result_file(path):
    rows = [line.rstrip("\n").split("\t") for line in open(path)]
    columns = ["peak", "avg", "rms", "peakTime", "dutyRatio", "absAvg", "avgPositive",
               "avgNegative", "direction", "pulseWidth", "peakValue", "rawAvg"]
    out = {c: np.array([float(r[3 + k]) for r in rows]) for k, c in enumerate(columns)}
    out["name"] = [r[0] for r in rows]
    return out


def test_measure():
    cases_dir = os.path.join(SOURCE, "tests/e2e/cases")
    compared = 0
    for name in sorted(os.listdir(cases_dir)):
        case = os.path.join(cases_dir, name)
        for call, settings, result in measure_case(case) or []:
            expected_file = os.path.join(case, "expected/files", result)
            if not os.path.exists(expected_file):
                continue
            with tempfile.TemporaryDirectory() as work:
                got = measure_in(case, work, call, settings)
            if got is None:
                continue
            expected = read_result_file(expected_file)
            check(got["name"] == expected["name"], f"{name}: instances")
            for column, values in expected.items():
                if column != "name":
                    check(same_bits(got[column], values), f"{name}: {column}")
            compared += 1
    print(f"measure: {compared} result files of end-to-end cases compared")
    check(compared >= 4, "measure: fewer end-to-end cases than expected")
    # Instances given as rows instead of a file, and the warning about missing signals.
    demo = kra2.open(os.path.join(SOURCE, "examples/demo.raw"))["tran"]
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        rows = kra2.measure(demo, [("r1", "n1_1", "n1_2"), ("r2", "nowhere", "0")], 0, 12e-9)
    check(list(rows["valid"]) == [True, False] and np.isnan(rows["peak"][1]), "rows: validity")
    check(any("nowhere" in str(w.message) for w in caught), "rows: missing signal warned")
    # The stop time as run takes it: a sample up to 1e-12 s after it is inside the window.
    pair, sample = [("r1", "n2_2", "0"), ("r2", "n3_3", "n3_4")], demo.scale[100]
    at, before = kra2.measure(demo, pair, 0, sample), kra2.measure(demo, pair, 0, sample - 5e-13)
    check(all(same_bits(at[c], before[c]) for c in ("avg", "rms")), "stop time tolerance")
    expect_error(lambda: kra2.measure(demo, [("r1", "n1_1", "0")], 0, 1, window="exact", ac=True,
                                      ac_half_peak=True),
                 "kra2: windowMode exact cannot be combined with ", "exact window conflict")
    try:
        kra2.measure(demo, [("r1", "n1_1")], 0, 1)
        check(False, "a short netlist line raises")
    except kra2.Error as error:
        check(str(error) == "Incorrect netlist file format (line 1)", f"netlist error: {error}")


def test_db():
    rng = np.random.default_rng(7)
    ir = np.zeros(3, dtype=[("name", "U20")] + [(f, "<f8") for f in kra2.db.IR_FIELDS])
    ir["name"] = ["n1", "node/with/path", "x" * 300]
    em = np.zeros(2, dtype=[("name", "U8")] + [(f, "<f8") for f in kra2.db.EM_FIELDS]
                  + [("term1", "<i8"), ("term2", "<i8")])
    em["name"] = ["r1", "r2"]
    for records, fields in ((ir, kra2.db.IR_FIELDS), (em, kra2.db.EM_FIELDS)):
        for field in fields:
            records[field] = rng.normal(size=len(records)) * 1e-3
    em["term1"], em["term2"] = [1, -(2 ** 40)], [2 ** 62, 0]
    with tempfile.TemporaryDirectory() as tmp:
        path = os.path.join(tmp, "emir.db")
        kra2.db.write(path, ir=ir, em=em, temperature=105.5, start=1e-9, stop=2e-9)
        back = kra2.db.read(path)
        check((back.temperature, back.start, back.stop, back.version) == (105.5, 1e-9, 2e-9, 5.0),
              "db: conditions")
        check(list(back.ir["name"]) == list(ir["name"]), "db: IR names")
        check(list(back.em["name"]) == list(em["name"]), "db: EM names")
        for field in kra2.db.IR_FIELDS:
            check(same_bits(back.ir[field], ir[field]), f"db: IR {field}")
        for field in kra2.db.EM_FIELDS + ("term1", "term2"):
            check(np.array_equal(back.em[field], em[field]), f"db: EM {field}")
        kra2.db.write(path, em=em)
        check(len(kra2.db.read(path).ir) == 0 and len(kra2.db.read(path).em) == 2, "db: EM only")
        with open(path, "r+b") as handle:  # cut inside the EM block
            handle.truncate(os.path.getsize(path) - 5)
        expect_error(lambda: kra2.db.read(path), "kra2: ", "db: damaged file")
        # Fields in file order, against a database that kra2db writes from text columns.
        with open(os.path.join(tmp, "ir.tsv"), "w") as out:
            out.write("n1\t1\t2\t3\t4e-09\t-0.5\t1e-09\nvdd/x\t-1\t-2\t-3\t-4\t5\t6\n")
        with open(os.path.join(tmp, "em.tsv"), "w") as out:
            out.write("R1\t1\t2\t3\t4\t5\t6\t7\n")
        subprocess.run([KRA2DB, "write", "-q", path, "--ir", os.path.join(tmp, "ir.tsv"), "--em",
                        os.path.join(tmp, "em.tsv"), "--start", "0", "--stop", "1e-6"], check=True)
        back = kra2.db.read(path)
        check([tuple(r)[1:] for r in back.ir] == [(1, 2, 3, 4e-9, -0.5, 1e-9), (-1, -2, -3, -4, 5, 6)]
              and [tuple(r) for r in back.em] == [("R1", 1, 2, 3, 4, 5, 6, 7)], "db: field order")
    readme = os.path.join(SOURCE, "README.md")
    expect_error(lambda: kra2.db.read(readme),
                 f"kra2: The file '{readme}'is not a  EMIR database file.", "db: not a database")
    expect_error(lambda: kra2.open(readme), f"{readme} is not a results directory", "open: text")


EM_COLUMNS = ["width", "length", "Iavg", "Irms", "Ipeak", "limitAvg", "limitRms", "limitPeak",
              "ratioAvg", "ratioRms", "ratioPeak", "ratioWorst"]


def em_case(case):
    """(measure call, check_em call, report file) of a case that runs and checks EM with the
    commands check_em takes, else None."""
    words = {}
    with open(os.path.join(case, "cmd")) as handle:
        for line in handle:
            if line.strip() and line[0] != "#":
                word, *args = shlex.split(line)
                if word in words or word not in IGNORED | {"loadNetlist", "run", "lengthDataInput",
                                                            "setLayersStack", "emTemperature",
                                                            "checkEM"}:
                    return None
                words[word] = args
    if not {"openSimData", "loadNetlist", "run", "emTemperature", "checkEM"} <= set(words):
        return None
    net = words["loadNetlist"]
    measure_call = (words["openSimData"][0], words["selectAnalysis"][0], net[0],
                    [float(a) for a in words["run"]], net[1:] == ["-resistance"])
    check_call = (words["checkEM"][0], words["lengthDataInput"][0],
                  float(words["emTemperature"][0]), words.get("setLayersStack", []))
    return measure_call, check_call, words["checkEM"][1]


def test_check_em():
    """check_em against the violations reports of the end-to-end cases, bit for bit."""
    if not hasattr(kra2, "check_em"):
        return
    cases_dir, compared = os.path.join(SOURCE, "tests/e2e/cases"), 0
    for name in sorted(os.listdir(cases_dir)):
        case = os.path.join(cases_dir, name)
        found = os.path.exists(os.path.join(case, "cmd")) and em_case(case)
        expected_file = found and os.path.join(case, "expected/files", found[2])
        if not found or not os.path.exists(expected_file):
            continue
        (raw, analysis, net, window, resistance), (rules, length, temperature, stack), _ = found
        cwd = os.getcwd()
        os.chdir(os.path.join(case, "in"))
        try:
            with warnings.catch_warnings():
                warnings.simplefilter("ignore", RuntimeWarning)
                measured = kra2.measure(kra2.open(raw)[analysis], net, *window,
                                        resistance=resistance)
            got = kra2.check_em(measured, rules, length, temperature, layer_stack=stack)
        finally:
            os.chdir(cwd)
        rows = [line.rstrip("\n").split("\t") for line in open(expected_file) if line[0] != "#"]
        for k, column in enumerate(["name", "layer", "kind"]):
            check(got[column] == [r[k] for r in rows], f"{name}: check_em {column}")
        check(got["verdict"] == [r[15] for r in rows], f"{name}: check_em verdict")
        for k, column in enumerate(EM_COLUMNS):
            check(same_bits(got[column], [float(r[3 + k]) for r in rows]), f"{name}: {column}")
        compared += 1
    print(f"check_em: {compared} violations reports compared")
    check(compared >= 1, "check_em: no end-to-end case compared")


def expect_error(call, message, what):
    try:
        call()
        check(False, f"{what}: no error")
    except kra2.Error as error:
        check(str(error).startswith(message), f"{what}: {error}")


if __name__ == "__main__":
    test_arrays()
    test_measure()
    test_db()
    test_check_em()
    print("failures:", len(failures))
    sys.exit(1 if failures else 0)
