#!/usr/bin/env python3
"""Three nats-servers as one cluster, which is bus, databases and broker of some cameras in one. Any
one of them is killed and started again, again and again, while cars keep coming; at the end each
camera's store is held against what came at the broker."""
import argparse
import json
import pathlib
import random
import signal
import sys
import time

for folder in ("peers", "desk"):
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / folder))
# pylint: disable=wrong-import-position
from cameras import Cameras, serial_numbers  # noqa: E402
from observer import Observer, percentiles  # noqa: E402
from parts import ROOT, run_command  # noqa: E402
from servers import LOOPBACK, NODES, OwnServers  # noqa: E402

OUTPUT = ROOT / "build/fleet"
ADDRESSES = OUTPUT / "cluster-addresses.json"
CAMERAS = 4
# What was stored meanwhile comes so many times sooner than every five seconds.
CLOCK_SCALE = "500"
DRAIN_S = 600
# Results that come between two kills.
FLOW = 20
FLOW_S = 60
START_S = 120


def say(text):
    print(f"./dev cluster: {text}", file=sys.stderr, flush=True)


def whole(text):
    value = int(text)
    if value < 1:
        raise argparse.ArgumentTypeError(f"{text} is below 1")
    return value


def three(text):
    hosts = text.split(",")
    if len(hosts) != NODES:
        raise argparse.ArgumentTypeError(f"{text} is not {NODES} addresses with commas")
    return hosts


def options():
    parser = argparse.ArgumentParser(prog="./dev cluster", description=__doc__)
    parser.add_argument("--results", type=whole, default=600, metavar="N",
                        help="results to be recognised at least (default 600)")
    parser.add_argument("--kills", type=whole, default=6, metavar="N",
                        help="nodes to be killed at least (default 6)")
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 32),
                        help="which node, and when (default: random)")
    parser.add_argument("--cars-per-minute", type=whole, default=300, metavar="M",
                        help=f"of each of the {CAMERAS} cameras (default 300)")
    parser.add_argument("--serve", action="store_true",
                        help="only starts the cluster, and writes its addresses for "
                        "./dev fleet --servers, until Ctrl-C")
    parser.add_argument("--hosts", type=three, default=(LOOPBACK,) * NODES, metavar="A,B,C",
                        help="with --serve: this machine's addresses that the nodes listen on "
                        "(default: 127.0.0.1 for each); whoever reaches them can do everything")
    chosen = parser.parse_args()
    if not chosen.serve and set(chosen.hosts) != {LOOPBACK}:
        parser.error("--hosts is for --serve")
    return chosen


def serve(hosts):
    with OwnServers(True, hosts) as servers:
        OUTPUT.mkdir(parents=True, exist_ok=True)
        ADDRESSES.write_text(json.dumps({"bus": servers.bus, "databases": servers.databases,
                                         "broker": servers.broker}) + "\n")
        print(f"the cluster is up; ./dev fleet --servers {ADDRESSES.relative_to(ROOT)}\n"
              f"bus and databases {servers.bus}\nbroker {servers.broker}", flush=True)
        signal.pause()


def kill_nodes(servers, observer, cameras, chosen):
    """@return how long each node was away, in microseconds."""
    dice = random.Random(chosen.seed)
    away_us = []
    while len(away_us) < chosen.kills or len(cameras.stored()[0]) < chosen.results:
        node = dice.randrange(NODES)
        begin = time.monotonic()
        servers.kill_node(node)
        time.sleep(dice.uniform(0, 2))
        servers.start_node(node)
        away_us.append((time.monotonic() - begin) * 1e6)
        await_flow(observer)
        if len(away_us) % 10 == 0:
            results, left = cameras.stored()
            say(f"{len(away_us)} kills, {len(results)} results, {len(left)} undelivered, "
                f"{observer.online()} online")
        time.sleep(dice.uniform(0, 2))
    return away_us


def await_flow(observer):
    """Until results come again: a cluster that never has the time to agree is not tested by more
    kills."""
    deadline = time.monotonic() + FLOW_S
    before = len(observer.arrived())
    while len(observer.arrived()) < before + FLOW and time.monotonic() < deadline:
        time.sleep(0.1)


def drained(observer, cameras):
    """Waits until all that the stores have is delivered. Cars have stopped by then.
    @return whether it came so far."""
    deadline = time.monotonic() + DRAIN_S
    while time.monotonic() < deadline:
        results, left = cameras.stored()
        if not left and results <= observer.arrived().keys():
            return True
        time.sleep(0.5)
    return False


def run(chosen):
    say(f"seed {chosen.seed}")
    begin = time.monotonic()
    numbers = serial_numbers(1, CAMERAS)
    with OwnServers(True) as servers, Observer(servers, numbers) as observer, \
            Cameras(servers, numbers, chosen.cars_per_minute,
                    {"TARVEX_CLOCK_SCALE": CLOCK_SCALE}) as cameras:
        cameras.start(lambda _started: None)
        observer.await_online(cameras.serial_numbers, START_S)
        observer.settle()
        observer.begin()
        away_us = kill_nodes(servers, observer, cameras, chosen)
        say("no more kills, no more cars")
        cameras.stop_cars()
        is_drained = drained(observer, cameras)
        arrived = observer.arrived()
        results, left = cameras.stored()
        return {"seed": chosen.seed, "seconds": round(time.monotonic() - begin),
                "results": len(results), "kills": len(away_us),
                "away_ms": percentiles(away_us),
                "lost": len(results - left - arrived.keys()),
                "undelivered": len(left), "drained": is_drained,
                "arrived_again": sum(arrived.values()) - len(arrived),
                "recognition_to_acknowledgement_ms":
                    observer.times()["recognition_to_acknowledgement_ms"]}


def main():
    chosen = options()
    if chosen.serve:
        serve(chosen.hosts)
        return
    figures = run(chosen)
    OUTPUT.mkdir(parents=True, exist_ok=True)
    (OUTPUT / "cluster.json").write_text(json.dumps(figures, indent=1) + "\n")
    print(json.dumps(figures, indent=1))
    if figures["lost"] or not figures["drained"]:
        sys.exit(f"./dev cluster: {figures['lost']} results were lost, "
                 f"{figures['undelivered']} are still undelivered")


if __name__ == "__main__":
    run_command("cluster", main)
