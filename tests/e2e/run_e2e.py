#!/usr/bin/env python3
"""Runs end-to-end command-file cases and compares everything they produce.

A case folder holds:
  cmd              the command file (run as: kra2 -cmd cmd -log kra2.log); not for a tool
  args             optional: the kra2 command line instead, one argument per line
  tool             optional: a companion tool of the build folder (such as kra2db) run in
                   place of kra2 with args as its command line; its standard error and a
                   non-zero exit status are then outputs too (expected/stderr, expected/status)
  env              optional: NAME=VALUE lines added to the environment
  env.<variant>    optional, any number: the case runs once per variant, each with its own
                   NAME=VALUE lines on top of env, all against the same expected/
  setup            optional: shell lines run in the work folder before kra2 ($KRA2_TOOLS
                   names the build folder, for companion tools such as kra2db, and
                   $KRA2_SAMPLES the shared samples folder given by --samples: a case whose
                   setup uses it prints "skip <name> (samples folder missing)" without it)
  in/              inputs, copied into a fresh temporary work folder
  expected/stdout  what kra2 prints
  expected/log     the log file (absent when no log is written)
  expected/files/  every other file the run leaves behind
  expected/status  optional: the exit status expected, when it is not 0
Volatile fields (elapsed seconds) are normalised; no line is ever dropped. Unexpected files
fail the case. --bless rewrites expected/ from the actual run (the first variant's; the others
are compared with it); review every blessed change. Exit status: 1 when a case fails, else
SKIPPED (77) when every case was skipped, else 0.
"""
import argparse
import difflib
import os
import re
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77

VOLATILE = [
    (re.compile(rb"\( time [0-9.e+-]+ sec \)"), b"( time X sec )"),
    (re.compile(rb"incr: \d+ sec,\ttotal: \d+ sec"), b"incr: X sec,\ttotal: X sec"),
    (re.compile(rb"Build Date  : \(\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\)"),
     b"Build Date  : (MM/DD/YYYY HH:MM:SS)"),
]


def normalise(data):
    for pattern, replacement in VOLATILE:
        data = pattern.sub(replacement, data)
    return data


def read_lines(path):
    with open(path, encoding="utf-8") as handle:
        return [line.rstrip("\n") for line in handle if line.strip()]


def variants(case_dir):
    """(name, env files) of each run of a case: one per env.<variant>, or one plain run."""
    base = [os.path.join(case_dir, "env")]
    names = sorted(n[4:] for n in os.listdir(case_dir) if n.startswith("env."))
    return [(n, base + [os.path.join(case_dir, "env." + n)]) for n in names] or [("", base)]


def needs_samples(case_dir):
    setup = os.path.join(case_dir, "setup")
    return os.path.exists(setup) and "KRA2_SAMPLES" in open(setup, encoding="utf-8").read()


def run_case(kra2, tools_dir, samples, case_dir, env_files, work):
    in_dir = os.path.join(case_dir, "in")
    if os.path.isdir(in_dir):
        shutil.copytree(in_dir, work, dirs_exist_ok=True)
    inputs = set()
    for root, _, files in os.walk(work):
        for name in files:
            inputs.add(os.path.relpath(os.path.join(root, name), work))
    if os.path.exists(os.path.join(case_dir, "cmd")):
        shutil.copy(os.path.join(case_dir, "cmd"), os.path.join(work, "cmd"))
    env = dict(os.environ)
    for name in ("KRA2_INTERNAL_DEBUG", "_kraUseOldACPeakMethod", "_kraIncludeAllAnalysis",
                 "ENABLE_VFI_L_RON_DATA_READING_FROM_QXF", "KRA_DISABLE_ARCHITECTURE_FINDING"):
        env.pop(name, None)
    env["KRA2_TOOLS"] = tools_dir
    env["KRA2_SAMPLES"] = samples
    for env_file in filter(os.path.exists, env_files):
        for line in read_lines(env_file):
            key, _, value = line.partition("=")
            env[key] = value
    setup = os.path.join(case_dir, "setup")
    if os.path.exists(setup):
        subprocess.run(["bash", setup], cwd=work, env=env, check=True)
        for root, _, files in os.walk(work):
            for name in files:
                inputs.add(os.path.relpath(os.path.join(root, name), work))
    args_file = os.path.join(case_dir, "args")
    args = read_lines(args_file) if os.path.exists(args_file) else [
        "-cmd", "cmd", "-log", "kra2.log"]
    tool_file = os.path.join(case_dir, "tool")
    tool = read_lines(tool_file)[0] if os.path.exists(tool_file) else None
    program = os.path.join(tools_dir, tool) if tool else kra2
    result = subprocess.run([program] + args, cwd=work, env=env, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, timeout=540)
    actual = {"stdout": result.stdout}
    if tool:
        # A tool's errors are part of what it is checked for.
        if result.stderr:
            actual["stderr"] = result.stderr
        if result.returncode != 0:
            actual["status"] = f"{result.returncode}\n".encode()
        result = subprocess.CompletedProcess(result.args, 0, result.stdout, b"")
    for root, _, files in os.walk(work):
        for name in files:
            rel = os.path.relpath(os.path.join(root, name), work)
            if rel == "cmd" or rel in inputs:
                continue
            with open(os.path.join(work, rel), "rb") as handle:
                data = handle.read()
            actual["log" if rel == "kra2.log" else os.path.join("files", rel)] = data
    return result.returncode, result.stderr, actual


def expected_files(case_dir):
    expected = {}
    root_dir = os.path.join(case_dir, "expected")
    for root, _, files in os.walk(root_dir):
        for name in files:
            rel = os.path.relpath(os.path.join(root, name), root_dir)
            with open(os.path.join(root_dir, rel), "rb") as handle:
                expected[rel] = handle.read()
    return expected


def bless(case_dir, actual):
    root_dir = os.path.join(case_dir, "expected")
    shutil.rmtree(root_dir, ignore_errors=True)
    for rel, data in actual.items():
        path = os.path.join(root_dir, rel)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as handle:
            handle.write(data)


def compare(expected, actual):
    problems = []
    for rel in sorted(set(expected) | set(actual)):
        if rel not in actual:
            problems.append(f"missing output: {rel}")
            continue
        if rel not in expected:
            problems.append(f"unexpected output: {rel}")
            continue
        want, got = normalise(expected[rel]), normalise(actual[rel])
        if want != got:
            diff = difflib.unified_diff(
                want.decode("utf-8", "replace").splitlines(),
                got.decode("utf-8", "replace").splitlines(),
                f"expected/{rel}", f"actual/{rel}", lineterm="", n=2)
            problems.append("\n".join(list(diff)[:60]))
    return problems


def check(options, case_dir, name, env_files, blessed):
    """Runs one variant of a case; returns the problems found (none when blessing)."""
    with tempfile.TemporaryDirectory(prefix="kra2-e2e-") as work:
        code, stderr, actual = run_case(os.path.abspath(options.kra2),
                                        os.path.abspath(options.tools_dir),
                                        os.path.abspath(options.samples), case_dir, env_files,
                                        work)
    if code != 0:
        actual["status"] = b"%d\n" % code  # compared like any output: absent means 0
    if options.bless and not blessed:
        bless(case_dir, actual)
        print(f"blessed {name}")
        return []
    problems = compare(expected_files(case_dir), actual)
    if stderr:
        problems.append("stderr:\n" + stderr.decode("utf-8", "replace")[:4000])
    return problems


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kra2", required=True)
    parser.add_argument("--tools-dir", default="")
    parser.add_argument("--samples", default="")
    parser.add_argument("--bless", action="store_true")
    parser.add_argument("cases", nargs="+")
    options = parser.parse_args()
    failed = skipped = 0
    for case_dir in map(os.path.abspath, options.cases):
        name = os.path.basename(os.path.normpath(case_dir))
        if needs_samples(case_dir) and not os.path.isdir(options.samples):
            skipped += 1
            print(f"skip {name} (samples folder missing)")
            continue
        for index, (variant, env_files) in enumerate(variants(case_dir)):
            label = f"{name} [{variant}]" if variant else name
            problems = check(options, case_dir, label, env_files, index > 0)
            if problems:
                failed += 1
                print(f"FAIL {label}")
                for problem in problems:
                    print(problem)
            elif not options.bless or index > 0:
                print(f"ok {label}")
    if failed:
        return 1
    return SKIPPED if skipped == len(options.cases) else 0


if __name__ == "__main__":
    sys.exit(main())
