"""The measurements, each with all its runs: what is compared is measured in turn, in one run."""
import json
import re
import shutil
import statistics
import subprocess
import time

import camera_store
import load
from parts import SERIAL_NUMBER, Parts

PROGRAMS = ("agent", "python", "node", "calls")
STORE_QUEUE = "BUS_GET_IVS_INFO"
CONFIRMATION = {"type": "STP_SET_MQTT_OFFLINE_STATUS", "body": {"plate_id": "ID", "push_status": 0}}
BURST = 10000
SLOW_BYTES_PER_SECOND = 100_000
# Results that are on the bus at a time where the agent is to have the next one at hand.
AT_HAND = 4
MANY = 10_000_000


def median_of(runs):
    """Of each figure, in objects too."""
    first = runs[0]
    if isinstance(first, dict):
        return {key: median_of([run[key] for run in runs]) for key in first}
    if isinstance(first, list):
        return first
    return statistics.median(runs)


def parts_with_databases():
    """The camera writes what its databases have at first, and the databases keep it."""
    parts = Parts()
    try:
        parts.end_program(parts.camera())
    except BaseException:
        parts.end()
        raise
    return parts


def _pictures(parts):
    """Two pictures of common sizes, for each record to name."""
    paths = {}
    for kind, size in (("full", 60_000), ("clip", 4_000)):
        paths[f"{kind}_picture"] = parts.directory / f"{kind}.jpg"
        paths[f"{kind}_picture"].write_bytes(bytes(size))
    return paths


def compare(rounds, has_pictures, say):
    """The agent, its peers and their floor: each figure is the median of the rounds."""
    scenarios = {
        "one in flight, 400 a second": ("1", {"rate": 400, "count": 1200}),
        "one in flight, as fast as acknowledged": ("1", {"window": AT_HAND, "count": 2000}),
        "20 in flight, as fast as acknowledged": ("20", {"window": 20, "count": 4000}),
    }
    runs = {scenario: {program: [] for program in PROGRAMS} for scenario in scenarios}
    parts = parts_with_databases()
    pictures = _pictures(parts) if has_pictures else {}
    try:
        for turn in range(rounds):
            for scenario, (in_flight, options) in scenarios.items():
                for name in PROGRAMS:
                    say(f"round {turn + 1} of {rounds}: {name}, {scenario}")
                    program = getattr(parts, name)("--results-in-flight", in_flight)
                    runs[scenario][name].append(load.results(
                        parts, program, warm_up=load.WARM_UP, **pictures, **options))
                    parts.end_program(program)
                    shutil.rmtree(parts.directory / "pictures-cameras", ignore_errors=True)
    finally:
        parts.end()
    return {scenario: {name: {**median_of(of_program),
                              "all_cpu_us": sorted(run["cpu_us"] for run in of_program)}
                       for name, of_program in programs.items()}
            for scenario, programs in runs.items()}


def live(rounds, say):
    """Live results with the camera's own store, and what one is made of at least."""
    count = 1500
    runs = []
    for turn in range(rounds):
        say(f"round {turn + 1} of {rounds}: live results, one at a time")
        parts = parts_with_databases()
        try:
            camera_store.fill(parts.directory / "camera", 1, 4 * count)
            parts.camera("--keep-results", MANY)
            agent = parts.agent()
            floor = load.delivery_floor(parts, STORE_QUEUE, CONFIRMATION, count)
            delivered = load.results(parts, agent, camera_confirms=True, window=AT_HAND,
                                     warm_up=count // 4, count=count, first_id=2 * count)
        finally:
            parts.end()
        runs.append({"rate": delivered["rate"], "floor_rate": floor["rate"],
                     "of_floor": delivered["rate"] / floor["rate"],
                     "broker_us": floor["broker_us"]["mean"], "bus_us": floor["bus_us"]["mean"],
                     "cpu_us": delivered["cpu_us"],
                     "missing": count - delivered["arrived"]})
    return median_of(runs)


def request(rounds, say):
    """A request's round trip, in turn with what it is made of at least."""
    runs = []
    parts = parts_with_databases()
    try:
        parts.camera()
        agent = parts.agent()
        for turn in range(rounds):
            say(f"round {turn + 1} of {rounds}: a request's round trip")
            runs.append(load.requests(
                parts, agent, "get_io_out_status", {"gpio": 1},
                ("EVS_BUS_REQUEST", {"type": "evs_get_gpioout", "body": {"source": 1}}), 1000))
    finally:
        parts.end()
    return median_of(runs)


def endurance(count, say):
    """Many results as fast as they are acknowledged."""
    say(f"{count} results as fast as acknowledged")
    parts = parts_with_databases()
    try:
        agent = parts.agent()
        return load.results(parts, agent, seconds=60 + count / 50, warm_up=load.WARM_UP,
                            window=AT_HAND, count=count)
    finally:
        parts.end()


def burst(say):
    """Results that come all at once, on a slow way to the broker."""
    say(f"a burst of {BURST} results into a slow broker")
    parts = parts_with_databases()
    try:
        with load.SlowLink(parts, SLOW_BYTES_PER_SECOND) as link:
            agent = parts.agent("--status-interval", "1", broker_port=link.port)
            figures = load.results(parts, agent, burst=True, count=BURST)
            figures["shed"] = _shed(parts, agent, BURST - figures["confirmed"])
            parts.end_program(agent)
        return figures
    finally:
        parts.end()


def _shed(parts, agent, expected):
    """Results that the agent left in the store, by where: when all are accounted for."""
    deadline = time.monotonic() + 30
    while True:
        status = json.loads(subprocess.run(
            ["mosquitto_sub", "-p", str(parts.broker_port), "-t", f"cameras/{SERIAL_NUMBER}/status",
             "-C", "1", "-W", "10"], capture_output=True, check=True).stdout)
        counters = status["counters"]
        # What there was no room for on its way from the bus is told in the log only.
        dropped = re.findall(r"(\d+) dropped so far", agent.output())
        shed = {"turn": counters["results_overflowed"] + counters["results_held_back"],
                "bus": int(dropped[-1]) if dropped else 0}
        if sum(shed.values()) >= expected or time.monotonic() > deadline:
            return shed
        time.sleep(0.5)
