#!/usr/bin/env python3
"""Measures the plug-in's own work, and the agent end to end: against two peers, against the floor,
under load, and how what it costs depends on how much there is. Prints tables with the goals, and
writes all figures to build/bench/."""
import argparse
import json
import pathlib
import sys
import time

for folder in ("peers", "micro"):
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / folder))
# pylint: disable=wrong-import-position
import curves  # noqa: E402
import instructions  # noqa: E402
import measurements  # noqa: E402
import report  # noqa: E402
from parts import ROOT, run_command  # noqa: E402

OUTPUT = ROOT / "build/bench"
PARTS = ("plug-in", "compare", "live", "request", "endurance", "burst", "curves")


def positive(text):
    number = int(text)
    if number < 1:
        raise argparse.ArgumentTypeError(f"{text} is not above 0")
    return number


def options():
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__)
    parser.add_argument("part", nargs="*", metavar="PART",
                        help=f"of {', '.join(PARTS)}; all of them without one")
    parser.add_argument("--rounds", type=positive, default=3, metavar="N",
                        help="runs of what is compared, of which the median counts (default 3)")
    parser.add_argument("--results", type=positive, default=20_000, metavar="N",
                        help="of the endurance run (default 20000)")
    parser.add_argument("--long", action="store_true",
                        help="the store's curve goes up to a million results")
    parser.add_argument("--pictures", action="store_true",
                        help="what is compared copies two pictures of each result, in memory")
    parser.add_argument("--write", action="store_true",
                        help="also writes the tables and pictures of docs/performance.md")
    chosen = parser.parse_args()
    for part in chosen.part:
        if part not in PARTS:
            parser.error(f"no such part: {part}")
    if chosen.pictures and chosen.write:
        parser.error("the tables of the document are without --pictures")
    return chosen


def say(text):
    print(f"  {text}", file=sys.stderr, flush=True)


def measure(part, chosen):
    """The figures of a part, for JSON, and their text."""
    if part == "plug-in":
        works = instructions.counted()
        instructions.add_times(works)
        return works, report.plug_in(works)
    if part == "curves":
        drawn = curves.all_curves(chosen.long, say)
        for curve in drawn:
            curve.write(ROOT / "docs/performance" if chosen.write else OUTPUT)
        return {curve.name: curve.rows for curve in drawn}, report.curves(drawn)
    function = getattr(measurements, part)
    if part == "compare":
        figures = function(chosen.rounds, chosen.pictures, say)
    elif part == "endurance":
        figures = function(chosen.results, say)
    elif part == "burst":
        figures = function(say)
    else:
        figures = function(chosen.rounds, say)
    return figures, getattr(report, part)(figures)


def main():
    chosen = options()
    begin = time.monotonic()
    OUTPUT.mkdir(parents=True, exist_ok=True)
    texts = {"machine": report.machine()}
    figures = {}
    print(texts["machine"], end="\n\n", flush=True)
    for part in PARTS:
        if chosen.part and part not in chosen.part:
            continue
        figures[part], texts[part] = measure(part, chosen)
        print(texts[part], end="\n\n", flush=True)
        (OUTPUT / f"{part}.json").write_text(json.dumps(figures[part], indent=1) + "\n")
    if chosen.write:
        for name, text in texts.items():
            report.write(name, text)
    print(f"{time.monotonic() - begin:.0f} seconds", file=sys.stderr)


if __name__ == "__main__":
    run_command("bench", main)
