"""What the plug-in's own work costs: instructions and allocations under callgrind, and times.

As a program it is the gate: it prints the counts beside those of the naive way, and fails where
one is more than 2 % above the committed one.
"""
import argparse
import json
import os
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build/dev/bin"
COMMITTED = ROOT / "bench/micro/instructions.json"
TOLERANCE = 1.02
# The same string functions of the C library on every machine.
ENVIRONMENT = os.environ | {"GLIBC_TUNABLES": "glibc.cpu.hwcaps=-AVX2,-ERMS,-FSRM"}


def counted():
    """Each piece of work by its name; per way its instructions and allocations in one run."""
    with tempfile.TemporaryDirectory() as directory:
        out = pathlib.Path(directory) / "out"
        run = subprocess.run(["valgrind", "--tool=callgrind", "--quiet",
                              f"--callgrind-out-file={out}", BUILD / "micro_instructions"],
                             env=ENVIRONMENT, stdout=subprocess.PIPE, text=True, check=True)
        works = {}
        lines = [line for line in run.stdout.splitlines() if line.startswith('{"name"')]
        for number, line in enumerate(map(json.loads, lines), start=1):
            dump = pathlib.Path(f"{out}.{number}").read_text(encoding="utf-8", errors="replace")
            total = next(row for row in dump.splitlines() if row.startswith("totals:"))
            work = works.setdefault(line["name"], {"goal": line["goal"],
                                                   "goal_allocations": line["goal_allocations"]})
            work[line["way"]] = {"instructions": round(int(total.split()[1]) / line["runs"]),
                                 "allocations": round(line["allocations"] / line["runs"])}
    return works


def add_times(works):
    """Adds "us" to each way, the median of 15 rounds in random order."""
    with tempfile.NamedTemporaryFile() as out:
        subprocess.run([BUILD / "micro_bench", f"--benchmark_out={out.name}",
                        "--benchmark_enable_random_interleaving=true",
                        "--benchmark_repetitions=15", "--benchmark_min_time=0.01",
                        "--benchmark_report_aggregates_only=true"],
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        lines = json.load(out)["benchmarks"]
    for line in lines:
        if line["aggregate_name"] == "median":
            name, way = line["run_name"].split("/")[:2]
            works[name][way]["us"] = line["real_time"] / 1000


def ratio(work, what):
    return work["plug_in"][what] / work["naive"][what]


def table(works):
    yield f"{'work':22} {'plug-in':>8} {'naive':>8} {'ratio':>6} {'goal':>5}   allocations"
    for name, work in works.items():
        own, naive = work["plug_in"], work["naive"]
        mark = "" if ratio(work, "instructions") <= work["goal"] else "  above its goal"
        yield (f"{name:22} {own['instructions']:8} {naive['instructions']:8}"
               f" {ratio(work, 'instructions'):6.2f} {work['goal']:5.2f}"
               f"   {own['allocations']} of {naive['allocations']}{mark}")


def slower(works, committed):
    """A line for each piece of work that costs more than is committed."""
    for name, work in works.items():
        if name not in committed:
            yield f"{name} is not committed"
            continue
        for what, count in work["plug_in"].items():
            if count > committed[name][what] * TOLERANCE:
                yield f"{name}: {count} {what}, {committed[name][what]} are committed"


def main():
    parser = argparse.ArgumentParser(prog="./dev bench --gate", description=__doc__)
    parser.add_argument("--write", action="store_true", help="commit to what is counted now")
    arguments = parser.parse_args()
    works = counted()
    print("\n".join(table(works)))
    own = {name: work["plug_in"] for name, work in works.items()}
    if arguments.write:
        COMMITTED.write_text(json.dumps(own, indent=1) + "\n", encoding="utf-8")
    failures = list(slower(works, json.loads(COMMITTED.read_text(encoding="utf-8"))))
    for failure in failures:
        print(f"./dev bench --gate: {failure}", file=sys.stderr)
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
