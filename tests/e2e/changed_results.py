#!/usr/bin/env python3
"""A results file cut short while a session reads it.

The reading command must end with "ERROR: <file>: changed while it was read (...)", the
session must go on with the next command, the process must exit with status 0, and the log,
written out after every command, must keep everything said. kra2 reads its command file from a
pipe here, so the test decides when each command starts: it sends the commands that open the
results and load the netlist, waits until the log shows them (which also shows that the log
is written out after each command), cuts the results file short, then sends the rest.
Run once streamed and once batch by batch (KRA2_STREAMED_RUN=0), the two ways a run reads.
"""
import argparse
import os
import re
import struct
import subprocess
import sys
import tempfile
import time

SIGNALS = 200
POINTS = 400


def write_raw(path):
    """A binary raw file of SIGNALS node voltages over POINTS time points (about 640 KB)."""
    lines = ["Title: cut", "Date: today", "Plotname: Transient Analysis", "Flags: real",
             f"No. Variables: {SIGNALS + 1}", f"No. Points: {POINTS}", "Variables:",
             "\t0\ttime\ttime"]
    lines += [f"\t{s}\tv(n{s})\tvoltage" for s in range(1, SIGNALS + 1)]
    with open(path, "wb") as out:
        out.write(("\n".join(lines) + "\nBinary:\n").encode())
        for p in range(POINTS):
            out.write(struct.pack(f"<{SIGNALS + 1}d", p * 1e-9,
                                  *(s + p / 100.0 for s in range(1, SIGNALS + 1))))
    return os.path.getsize(path)


def wait_for(path, text, process, seconds=60):
    deadline = time.time() + seconds
    while time.time() < deadline:
        if os.path.exists(path):
            with open(path, encoding="utf-8") as log:
                if text in log.read():
                    return True
        if process.poll() is not None:
            return False
        time.sleep(0.05)
    return False


def run_case(kra2, env_extra):
    with tempfile.TemporaryDirectory() as work:
        size = write_raw(os.path.join(work, "r.raw"))
        with open(os.path.join(work, "n.net"), "w", encoding="utf-8") as net:
            net.writelines(f"R{s} n{s} n{s + 1}\n" for s in range(1, SIGNALS))
        os.mkfifo(os.path.join(work, "cmd"))
        env = dict(os.environ, **env_extra)
        process = subprocess.Popen([kra2, "-cmd", "cmd", "-log", "kra2.log"], cwd=work, env=env,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        log_path = os.path.join(work, "kra2.log")
        with open(os.path.join(work, "cmd"), "w", encoding="utf-8") as commands:
            commands.write("openSimData r.raw\nselectAnalysis tran\nloadNetlist n.net\n")
            commands.flush()
            if not wait_for(log_path, "loadNetlist command done", process):
                process.kill()
                return [f"the log never showed loadNetlist done (status {process.wait()})"]
            os.truncate(os.path.join(work, "r.raw"), 4096)
            commands.write("run 0 1\nsaveResult out.txt\nloadNetlist n.net\ndone\n")
        stdout, stderr = process.communicate(timeout=120)
        with open(log_path, encoding="utf-8") as log:
            lines = log.read().splitlines()
        saved = os.path.exists(os.path.join(work, "out.txt"))
    failures = [] if saved else ["saveResult after the failed run wrote nothing"]
    if process.returncode != 0:
        failures.append(f"exit status {process.returncode}, stderr {stderr!r}")
    error = (r"ERROR: r\.raw: changed while it was read \(byte offset 4096 is past its end; "
             rf"it held {size} bytes, now 4096\)")
    done = "INFO: ** loadNetlist command done"
    wanted = ["INFO: Successfully opened results at r.raw.", done, error, done]
    at = 0
    for want in wanted:
        found = [i for i in range(at, len(lines))
                 if (re.fullmatch(want, lines[i]) if want is error else lines[i].startswith(want))]
        if not found:
            failures.append(f"the log lacks {want!r} after line {at}")
            continue
        at = found[0] + 1
    if b"changed while it was read" not in stdout:
        failures.append("the ERROR is not echoed on standard output")
    return failures + [f"log: {lines}"] * bool(failures)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kra2", required=True)
    args = parser.parse_args()
    failed = False
    for name, env in (("streamed", {}), ("batch by batch", {"KRA2_STREAMED_RUN": "0"})):
        for failure in run_case(args.kra2, env):
            print(f"{name}: {failure}")
            failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
