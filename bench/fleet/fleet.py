#!/usr/bin/env python3
"""Runs many cameras with their agents on shared servers, counts what becomes of each result, and
measures what one more camera costs. Writes all figures to build/fleet/."""
import argparse
import contextlib
import json
import pathlib
import sys
import time

for folder in ("peers", "desk"):
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / folder))
# pylint: disable=wrong-import-position
import fleet_report  # noqa: E402
import process_figures  # noqa: E402
import scale  # noqa: E402
from cameras import Cameras, serial_numbers  # noqa: E402
from console import Console  # noqa: E402
from observer import Observer  # noqa: E402
from parts import ROOT, run_command  # noqa: E402
from servers import OwnServers, SharedServers  # noqa: E402

OUTPUT = ROOT / "build/fleet"
PROGRESS_S = 10
REQUESTS_PER_MINUTE = 1
# How long what is under way, or stored during an outage, is waited for.
PATIENCE_S = 60
START_S = 300
RETURN_S = 120


def number(least):
    def read(text):
        value = float(text)
        if value < least:
            raise argparse.ArgumentTypeError(f"{text} is below {least:g}")
        return value
    return read


def whole(least, most):
    def read(text):
        value = int(text)
        if not least <= value <= most:
            raise argparse.ArgumentTypeError(f"{text} is not from {least} to {most}")
        return value
    return read


def options():
    parser = argparse.ArgumentParser(prog="./dev fleet", description=__doc__)
    parser.add_argument("--cameras", type=whole(1, 5000), default=10, metavar="N", help="default 10")
    parser.add_argument("--cars-per-minute", type=number(0), default=6, metavar="M",
                        help="of each camera (default 6)")
    parser.add_argument("--for", dest="seconds", type=number(1), default=60, metavar="S",
                        help="seconds that are counted, all cameras being online (default 60)")
    parser.add_argument("--cluster", action="store_true",
                        help="three nats-servers are bus, databases and broker in one")
    parser.add_argument("--broker-away", type=number(0), metavar="S",
                        help="after that the broker is killed, and started again S seconds later")
    parser.add_argument("--servers", metavar="FILE",
                        help="the addresses of servers that are there already, as "
                        "./dev cluster --serve writes them: for a fleet over several hosts")
    parser.add_argument("--first", type=whole(1, 5000), default=1, metavar="N",
                        help="number of the first camera: fleets on the same servers differ in it")
    parser.add_argument("--scale", action="store_true",
                        help="runs 10, 50, 100 and 200 cameras in turn, the last with a broker that "
                        "is away, and writes the tables and pictures of docs/scale.md")
    parser.add_argument("--console-port", type=whole(0, 65535), default=0, metavar="PORT",
                        help="where the console shows the fleet (default 0: a free port)")
    parser.add_argument("--no-console", action="store_true",
                        help="run none, as --scale does: what it takes is not measured")
    parser.add_argument("--name", default="fleet", metavar="NAME",
                        help="of the file in build/fleet/ (default fleet)")
    chosen = parser.parse_args()
    if chosen.servers and (chosen.cluster or chosen.broker_away is not None):
        parser.error("--servers are not this command's own: neither --cluster nor --broker-away")
    if chosen.cluster and chosen.broker_away is not None:
        parser.error("--broker-away is for a single broker: ./dev cluster kills nodes of a cluster")
    return chosen


def say(text):
    print(f"./dev fleet: {text}", file=sys.stderr, flush=True)


def count_results(observer, serial_numbers, seconds):
    """Lets cars pass and asks requests for so long, and tells how it goes."""
    begin = time.monotonic()
    told = begin
    asked = 0
    while (now := time.monotonic()) - begin < seconds:
        due = int((now - begin) / 60 * REQUESTS_PER_MINUTE * len(serial_numbers))
        while asked < due:
            observer.ask(serial_numbers[asked % len(serial_numbers)])
            asked += 1
        if now - told >= PROGRESS_S:
            told = now
            say(f"{now - begin:4.0f} s: {observer.progress()}")
        time.sleep(0.05)


def look(cameras, servers):
    return {**cameras.costs(), "servers": servers.costs()}


def costs(before, after, seconds):
    """Of agents and cameras, of which each has many processes, and of each server."""
    figures = {kind: process_figures.figures(before[kind], after[kind], seconds)
               for kind in ("agent", "camera")}
    figures["servers"] = {
        name: process_figures.figures([before["servers"][name]], [cost], seconds)
        for name, cost in after["servers"].items()}
    return figures


def run(chosen):
    figures = {"cameras": chosen.cameras, "cars_per_minute": chosen.cars_per_minute,
               "seconds": chosen.seconds, "cluster": chosen.cluster}
    make_servers = (lambda: SharedServers(chosen.servers)) if chosen.servers else (
        lambda: OwnServers(chosen.cluster))
    numbers = serial_numbers(chosen.first, chosen.cameras)
    with make_servers() as servers, console_for(servers, chosen) as console, \
            Observer(servers, numbers) as observer, \
            Cameras(servers, numbers, chosen.cars_per_minute) as cameras:
        begin = time.monotonic()
        cameras.start(lambda started: say(f"{started} of {chosen.cameras} started, "
                                          f"{observer.online()} online"))
        observer.await_online(cameras.serial_numbers, START_S)
        figures["seconds_to_online"] = round(time.monotonic() - begin, 1)
        say(f"all {chosen.cameras} online after {figures['seconds_to_online']:.0f} s")
        observer.settle()
        observer.begin()
        before, begin = look(cameras, servers), time.monotonic()
        count_results(observer, cameras.serial_numbers, chosen.seconds)
        figures["cost"] = costs(before, look(cameras, servers), time.monotonic() - begin)
        figures.update(observer.times())
        if chosen.broker_away is not None:
            figures["broker_away_s"] = chosen.broker_away
            figures["returns_ms"] = the_return(servers, observer, chosen)
        say("waiting for what is under way")
        figures.update(observer.await_all(PATIENCE_S, cameras))
        figures["online"] = observer.online()
        if console:
            figures["online_on_console"] = console.await_online(observer.online())
    return figures


def console_for(servers, chosen):
    """Null where there is to be none."""
    if chosen.no_console:
        return contextlib.nullcontext()
    console = Console(servers, chosen.console_port)
    say(f"{console.address}#fleet shows the fleet in a browser")
    return console


def the_return(servers, observer, chosen):
    """When each agent was connected again, after its broker."""
    say(f"the broker is killed, for {chosen.broker_away:g} s")
    servers.kill_broker()
    time.sleep(chosen.broker_away)
    back_us = time.time_ns() // 1000
    servers.start_broker()
    observer.await_links(back_us, chosen.cameras, RETURN_S)
    return observer.returns_ms(back_us)


def run_and_keep(chosen):
    figures = run(chosen)
    OUTPUT.mkdir(parents=True, exist_ok=True)
    (OUTPUT / f"{chosen.name}.json").write_text(json.dumps(figures, indent=1) + "\n")
    print(fleet_report.table(figures), flush=True)
    return figures


def run_sizes(chosen):
    runs = []
    for cameras in scale.SIZES:
        of_size = argparse.Namespace(**{**vars(chosen), "cameras": cameras, "no_console": True,
                                        "name": f"{chosen.name}-{cameras}"})
        of_size.broker_away = scale.AWAY_S if cameras == scale.SIZES[-1] else None
        runs.append(run_and_keep(of_size))
    scale.write(runs)
    return runs


def main():
    chosen = options()
    runs = run_sizes(chosen) if chosen.scale else [run_and_keep(chosen)]
    lost = sum(figures["lost"] for figures in runs)
    if lost:
        sys.exit(f"./dev fleet: {lost} results were lost")


if __name__ == "__main__":
    run_command("fleet", main)
