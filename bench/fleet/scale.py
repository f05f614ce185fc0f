"""What a camera costs, against how many there are: the tables and pictures of docs/scale.md."""
import collections

import report
from curves import Curve
from fleet_report import most_within
from parts import ROOT

SIZES = (10, 50, 100, 200)
AWAY_S = 5
DOCUMENT = ROOT / "docs/scale.md"
PICTURES = ROOT / "docs/scale"
STEP_MS = 100


def _each(run, kind, figure):
    return run["cost"][kind][figure]["median"]


def _sizes_table(runs):
    rows = []
    for run in runs:
        times = run["recognition_to_acknowledgement_ms"]
        rows.append([run["cameras"], run["seconds_to_online"], run["results"], run["lost"],
                     times["p50"], times["p99"], run["requests_ms"]["p50"],
                     run["requests_ms"]["p99"]])
    return report.table(["cameras", "s until all are online", "results", "lost",
                         "acknowledged after ms, p50", "p99", "request ms, p50", "p99"], rows)


def _cost_table(runs):
    kinds = ["agent", "camera"]
    servers = list(runs[-1]["cost"]["servers"])
    rows = []
    for run in runs:
        row = [run["cameras"]]
        for kind in kinds:
            row += [_each(run, kind, "cpu_ms_per_s"), round(_each(run, kind, "private_kb")),
                    round(_each(run, kind, "threads"))]
        for server in servers:
            cost = run["cost"]["servers"][server]
            row += [cost["cpu_ms_per_s"]["median"], round(cost["private_kb"]["median"] / 1024, 1)]
        rows.append(row)
    head = ["cameras"]
    for kind in kinds:
        head += [f"{kind}: ms CPU/s", "KiB", "threads"]
    for server in servers:
        head += [f"{server}: ms CPU/s", "MiB"]
    return report.table(head, rows)


def _cost_curve(runs):
    curve = Curve("cost", "What one more camera costs", "cameras", "ms CPU a second, of one core",
                  ["an agent", "a camera", "the servers' share of a camera"], "")
    for run in runs:
        servers = sum(cost["cpu_ms_per_s"]["sum"] for cost in run["cost"]["servers"].values())
        curve.rows.append((run["cameras"], _each(run, "agent", "cpu_ms_per_s"),
                           _each(run, "camera", "cpu_ms_per_s"), servers / run["cameras"]))
    return curve


def _delay_curve(runs):
    curve = Curve("delay", "From recognition to acknowledgement", "cameras", "ms",
                  ["p50", "p99"], "")
    for run in runs:
        times = run["recognition_to_acknowledgement_ms"]
        curve.add(run["cameras"], times["p50"], times["p99"])
    return curve


def _return_curve(run):
    curve = Curve("return", "Agents connected again after the broker came back",
                  "ms since it was started", "in these 100 ms", ["agents"], "")
    steps = collections.Counter(int(at // STEP_MS) for at in run["returns_ms"])
    for step in range(max(steps) + 1):
        curve.add(step * STEP_MS, steps[step])
    return curve


def _return_text(run):
    times = run["returns_ms"]
    most = most_within(times, STEP_MS)
    return (f"{len(times)} agents, a broker that was away for {run['broker_away_s']} s: connected "
            f"again {times[0] / 1000:.1f} to {times[-1] / 1000:.1f} s after its start, at most "
            f"{most} ({100 * most / len(times):.0f} %) within any {STEP_MS} ms.")


def write(runs):
    for curve in (_cost_curve(runs), _delay_curve(runs), _return_curve(runs[-1])):
        curve.write(PICTURES)
    for name, text in (("machine", report.machine()), ("sizes", _sizes_table(runs)),
                       ("cost", _cost_table(runs)), ("return", _return_text(runs[-1]))):
        report.write(name, text, DOCUMENT)
