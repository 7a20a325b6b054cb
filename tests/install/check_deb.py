#!/usr/bin/env python3
"""Checks the Debian package that `make package` leaves in the build folder: its control
fields and its file list. Reports itself skipped (77) when no package has been built."""
import glob
import subprocess
import sys

FIELDS = {"Package": "kra2", "Architecture": "amd64", "Section": "science",
          "Priority": "optional"}
FILES = ["./usr/bin/kra2", "./usr/bin/kra2db", "./usr/share/man/man1/kra2.1.gz",
         "./usr/share/doc/kra2/README.md", "./usr/share/doc/kra2/copyright",
         "./usr/share/doc/kra2/changelog.gz", "./usr/share/doc/kra2/examples/demo.cmd",
         "./usr/share/doc/kra2/examples/demo.raw"]


def control(deb):
    text = subprocess.run(["dpkg-deb", "--field", deb], check=True, capture_output=True,
                          text=True).stdout
    fields = {}
    for line in text.splitlines():
        if line and not line[0].isspace():
            key, _, value = line.partition(":")
            fields[key] = value.strip()
    return fields


def main():
    build_dir, version = sys.argv[1], sys.argv[2]
    debs = glob.glob(f"{build_dir}/kra2_{version}_*.deb")
    if not debs:
        print("no package built (make package); skipped")
        return 77
    fields = control(debs[0])
    problems = [f"{k}: {fields.get(k)!r}, want {v!r}" for k, v in FIELDS.items()
                if fields.get(k) != v]
    if fields.get("Version") != version:
        problems.append(f"Version: {fields.get('Version')!r}")
    if "libc6" not in fields.get("Depends", "") or "libstdc++6" not in fields.get("Depends", ""):
        problems.append(f"Depends lacks the C and C++ runtimes: {fields.get('Depends')!r}")
    for key in ("Maintainer", "Description", "Installed-Size"):
        if not fields.get(key):
            problems.append(f"no {key}")
    listing = subprocess.run(["dpkg-deb", "--contents", debs[0]], check=True,
                             capture_output=True, text=True).stdout
    paths = {line.split()[-1] for line in listing.splitlines() if line.strip()}
    problems += [f"not packaged: {path}" for path in FILES if path not in paths]
    problems += [f"not under /usr: {path}" for path in paths
                 if not path.startswith("./usr/") and path not in ("./", "./usr/")]
    if problems:
        sys.exit("\n".join(problems))
    print(f"{debs[0]} ok")


if __name__ == "__main__":
    sys.exit(main())
