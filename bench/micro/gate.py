"""Counts the instructions and allocations of the plug-in's work under callgrind.

usage: gate.py PROGRAM [--committed FILE] [--write]

Prints a table: the plug-in, the same work done naively, their ratio, and the goal. With
--committed, fails where a count is more than 2 % above the committed one; --write replaces that
file with what was counted.
"""

import argparse
import json
import os
import pathlib
import subprocess
import sys
import tempfile

TOLERANCE = 1.02
# The same string functions of the C library on every machine.
ENVIRONMENT = os.environ | {"GLIBC_TUNABLES": "glibc.cpu.hwcaps=-AVX2,-ERMS,-FSRM"}


def counted(program):
    """Each piece of work: name, and per way its instructions and allocations for one run."""
    with tempfile.TemporaryDirectory() as directory:
        out = pathlib.Path(directory) / "out"
        run = subprocess.run(
            ["valgrind", "--tool=callgrind", "--quiet", f"--callgrind-out-file={out}", program],
            env=ENVIRONMENT, stdout=subprocess.PIPE, text=True, check=True)
        works = {}
        lines = [line for line in run.stdout.splitlines() if line.startswith("{")]
        for number, line in enumerate(map(json.loads, lines), start=1):
            dump = pathlib.Path(f"{out}.{number}").read_text(encoding="utf-8", errors="replace")
            total = next(row for row in dump.splitlines() if row.startswith("totals:"))
            work = works.setdefault(line["name"], {"goal": line["goal"],
                                                   "goal_allocations": line["goal_allocations"]})
            work[line["way"]] = {"instructions": int(total.split()[1]) / line["runs"],
                                 "allocations": line["allocations"] / line["runs"]}
    return works


def table(works):
    yield f"{'work':22} {'plug-in':>9} {'naive':>9} {'ratio':>6} {'goal':>5}   allocations"
    for name, work in works.items():
        own, naive = work["plug_in"], work["naive"]
        ratio = own["instructions"] / naive["instructions"]
        allocations = f"{own['allocations']:.0f} of {naive['allocations']:.0f}"
        if work["goal_allocations"]:
            allocations += (f" = {own['allocations'] / naive['allocations']:.2f}"
                            f" (goal {work['goal_allocations']})")
        mark = "" if ratio <= work["goal"] else "  above its goal"
        yield (f"{name:22} {own['instructions']:9.0f} {naive['instructions']:9.0f} {ratio:6.2f}"
               f" {work['goal']:5.2f}   {allocations}{mark}")


def slower(works, committed):
    """A line for each piece of work that costs more than is committed."""
    for name, work in works.items():
        own = work["plug_in"]
        for what in ("instructions", "allocations"):
            limit = committed[name][what] * TOLERANCE
            if own[what] > limit:
                yield f"{name}: {own[what]:.0f} {what}, {committed[name][what]:.0f} are committed"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program")
    parser.add_argument("--committed", type=pathlib.Path)
    parser.add_argument("--write", action="store_true")
    arguments = parser.parse_args()
    works = counted(arguments.program)
    print("\n".join(table(works)))
    if not arguments.committed:
        return 0
    if arguments.write:
        rounded = {name: {what: round(count) for what, count in work["plug_in"].items()}
                   for name, work in works.items()}
        arguments.committed.write_text(json.dumps(rounded, indent=2) + "\n", encoding="utf-8")
        return 0
    failures = list(slower(works, json.loads(arguments.committed.read_text(encoding="utf-8"))))
    for failure in failures:
        print(failure, file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
