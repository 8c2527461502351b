#!/usr/bin/env python3
"""Applies each fault of scripts/mutants.txt to the source tree, one at a time, rebuilds the
tests, runs them, and reports which faults the suite catches. See docs/TESTING.md."""
import argparse, os, re, subprocess, sys, time

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def parse(path):
    mutants, cur, mode = [], None, None
    for raw in open(path, encoding="utf-8"):
        line = raw.rstrip("\n")
        if line.startswith("## "):
            name, _, what = line[3:].partition(":")
            cur = {"name": name.strip(), "what": what.strip(), "file": None, "find": [], "repl": [],
                   "first": None}
            mutants.append(cur)
        elif cur is None or line.startswith("#") or not line.strip():
            continue
        elif line.startswith("@ "):
            cur["file"] = line[2:].strip()
        elif line.startswith("? "):
            cur["first"] = line[2:].strip()
        elif line.startswith("- ") or line == "-":
            cur["find"].append(line[2:])
        elif line.startswith("+ ") or line == "+":
            cur["repl"].append(line[2:])
        else:
            sys.exit(f"mutants: cannot read line: {line!r}")
    for m in mutants:
        if not m["file"] or not m["find"]:
            sys.exit(f"mutants: {m['name']} needs a file and a text to replace")
        m["find"], m["repl"] = "\n".join(m["find"]), "\n".join(m["repl"])
    return mutants


def run(cmd, log, timeout):
    with open(log, "a") as out:
        out.write("\n$ " + " ".join(cmd) + "\n")
        out.flush()
        try:
            return subprocess.run(cmd, cwd=TOP, stdout=out, stderr=subprocess.STDOUT,
                                  timeout=timeout).returncode
        except subprocess.TimeoutExpired:
            return None


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--build", default="build-mutants")
    ap.add_argument("--list", default=os.path.join(TOP, "scripts", "mutants.txt"))
    ap.add_argument("--only", help="run only the mutants whose names match this regex")
    ap.add_argument("--check", action="store_true", help="only check every entry applies")
    ap.add_argument("--no-baseline", action="store_true",
                    help="skip the first run of the unmutated suite (when it is known to pass)")
    args = ap.parse_args()
    mutants = parse(args.list)
    if args.only:
        mutants = [m for m in mutants if re.search(args.only, m["name"])]
    stale = []
    for m in mutants:
        text = open(os.path.join(TOP, m["file"]), encoding="utf-8").read()
        if text.count(m["find"]) != 1:
            stale.append(f"{m['name']}: its text occurs {text.count(m['find'])} times in {m['file']}")
    if stale:
        sys.exit("mutants: entries that no longer apply:\n  " + "\n  ".join(stale))
    if args.check:
        print(f"mutants: all {len(mutants)} entries apply")
        return
    build = os.path.join(TOP, args.build)
    log = build + ".log"
    open(log, "w").close()
    ctest = ["ctest", "--test-dir", build, "-j", str(os.cpu_count() or 2), "--stop-on-failure",
             "--timeout", "120", "-LE", "soak|browser"]
    make = ["cmake", "--build", build, "-j", str(os.cpu_count() or 2)]
    print(f"mutants: building the unmutated tree (log: {log})", flush=True)
    if run(make, log, 3600) != 0:
        sys.exit("mutants: the unmutated tree does not build")
    if not args.no_baseline and run(ctest, log, 1800) != 0:
        sys.exit("mutants: the suite fails without any mutant; fix that first")
    caught, survived, broken = [], [], []
    for i, m in enumerate(mutants, 1):
        path = os.path.join(TOP, m["file"])
        original = open(path, encoding="utf-8").read()
        start = time.time()
        try:
            open(path, "w", encoding="utf-8").write(original.replace(m["find"], m["repl"], 1))
            if run(make, log, 3600) != 0:
                verdict, bucket = "does not compile", broken
            else:
                # The tests most likely to catch it first, then (if they pass) all of them: the
                # verdict is the same, a caught fault just costs less.
                rc = run(ctest + ["-R", m["first"]], log, 1800) if m["first"] else 0
                if rc == 0:
                    rc = run(ctest, log, 1800)
                verdict, bucket = ("caught", caught) if rc != 0 else ("SURVIVED", survived)
        finally:
            open(path, "w", encoding="utf-8").write(original)
        bucket.append(m)
        print(f"[{i}/{len(mutants)}] {m['name']}: {verdict} ({time.time() - start:.0f} s)",
              flush=True)
    run(make, log, 3600)  # leave the build as the sources are
    valid = len(caught) + len(survived)
    print(f"\nmutants: caught {len(caught)} of {valid} ({100 * len(caught) // max(valid, 1)}%)"
          + (f"; {len(broken)} did not compile" if broken else ""))
    for m in survived:
        print(f"  survived: {m['name']}: {m['what']} ({m['file']})")


if __name__ == "__main__":
    main()
