"""A small fleet, and what its command says of wrong input."""
import collections
import contextlib
import json
import os
import pathlib
import sqlite3
import subprocess
import sys
import unittest
import urllib.error
import uuid

import fleet_report
from paho.mqtt import publish
from cameras import Cameras, serial_numbers
from console import Console
from observer import Observer
from parts import ROOT, Program, wait_until
from servers import OwnServers

CONSUMER = ROOT / "examples/fleet_consumer.py"
FLEET = pathlib.Path(__file__).resolve().parent / "fleet.py"


def fleet(*options, name):
    return subprocess.run([sys.executable, "-B", FLEET, "--name", name, *options],
                          capture_output=True, text=True, timeout=240, check=False)


class SmallFleet(unittest.TestCase):
    def run_fleet(self, *options):
        name = f"test-{uuid.uuid4()}"
        file = ROOT / f"build/fleet/{name}.json"
        self.addCleanup(lambda: file.unlink(missing_ok=True))
        done = fleet("--cameras", "8", "--cars-per-minute", "60", *options, name=name)
        self.assertEqual(done.returncode, 0, done.stderr + done.stdout)
        return json.loads(file.read_text()), done.stdout

    def test_loses_nothing_and_answers_all_while_its_broker_is_killed(self):
        figures, said = self.run_fleet("--for", "10", "--broker-away", "1")
        self.assertEqual((figures["online"], figures["online_on_console"]), (8, 8))
        self.assertGreater(figures["results"], 40)
        self.assertEqual(figures["acknowledged"] + figures["undelivered"], figures["results"])
        self.assertEqual((figures["lost"], figures["requests_unanswered"]), (0, 0))
        self.assertGreater(figures["requests_answered"], 0)
        self.assertEqual(len(figures["returns_ms"]), 8)
        self.assertIn("0 lost", said)

    def test_needs_few_threads_and_connections(self):
        figures, _ = self.run_fleet("--for", "3")
        self.assertLessEqual(figures["cost"]["agent"]["threads"]["most"], 8)
        self.assertLessEqual(figures["cost"]["camera"]["threads"]["most"], 8)

    def test_runs_on_a_cluster(self):
        figures, _ = self.run_fleet("--for", "5", "--cluster")
        self.assertEqual((figures["online"], figures["online_on_console"]), (8, 8))
        self.assertEqual(figures["lost"], 0)
        self.assertEqual(figures["acknowledged"], figures["results"])


class ConsoleOfACluster(unittest.TestCase):
    """Its brokers have MQTT 3.1.1."""

    def test_shows_the_cameras_and_says_that_it_sends_no_requests(self):
        servers = self.enterContext(OwnServers(True))
        console = self.enterContext(Console(servers))
        host, port = servers.broker.split(",", maxsplit=1)[0].split(":")
        publish.single("cameras/FAR0001/status", '{"online":true}', 1, True, host, int(port))
        self.assertEqual(console.await_online(1, 30), 1)
        with self.assertRaises(urllib.error.HTTPError) as refused:
            console.request("FAR0001", "get_sn", {})
        self.assertEqual(refused.exception.code, 503)
        self.assertIn("MQTT 3.1.1", refused.exception.read().decode())


class Consumer:
    """One of a group, from the examples."""

    def __init__(self, test, servers, name):
        self._log = servers.directory / f"consumer-{name}.log"
        self.program = Program(
            ["/usr/bin/python3", str(CONSUMER), servers.broker, name, "--database",
             str(servers.directory / "results.db")], self._log, dict(os.environ),
            lambda output: "takes its share" in output)
        test.addCleanup(self.program.end)


class Consumers(unittest.TestCase):
    def test_divide_the_results_and_keep_each_once(self):
        servers = self.enterContext(OwnServers(False))
        consumers = [Consumer(self, servers, name) for name in ("one", "two")]
        numbers = serial_numbers(1, 4)
        observer = self.enterContext(Observer(servers, numbers))
        cameras = self.enterContext(Cameras(servers, numbers, 120))
        cameras.start(lambda _started: None)
        observer.await_online(cameras.serial_numbers, 60)
        observer.begin()

        def kept():
            with contextlib.closing(sqlite3.connect(servers.directory / "results.db")) as database:
                return database.execute("SELECT sn, plateid, consumer FROM results").fetchall()
        wait_until(lambda: len(kept()) > 20, "results of both")
        consumers[0].program.kill()
        before = len(kept())
        wait_until(lambda: len(kept()) > before + 10, "results of the one that is left")
        Consumer(self, servers, "one")  # it gets what it had not taken
        arrived = observer.await_all(30, cameras)
        self.assertEqual(arrived["lost"], 0)
        counted = observer.counted()
        wait_until(lambda: counted <= {row[:2] for row in kept()}, "every result", 30)
        of_each = collections.Counter(row[2] for row in kept())
        self.assertEqual(set(of_each), {"one", "two"})
        self.assertEqual(len({row[:2] for row in kept()}), len(kept()))


class WrongInput(unittest.TestCase):
    def test_is_told(self):
        for options, error in ((["--cameras", "0"], "0 is not from 1 to 5000"),
                               (["--for", "0"], "0 is below 1"),
                               (["--console-port", "70000"], "70000 is not from 0 to 65535"),
                               (["--cluster", "--broker-away", "1"], "./dev cluster"),
                               (["--servers", "x", "--cluster"], "not this command's own"),
                               (["--servers", "/nonexistent"], "/nonexistent")):
            done = fleet(*options, name="wrong")
            self.assertNotEqual(done.returncode, 0)
            self.assertIn(error, done.stderr)
            self.assertNotIn("Traceback", done.stderr)


class MostWithin(unittest.TestCase):
    def test_counts_in_any_window(self):
        self.assertEqual(fleet_report.most_within([0, 50, 99, 100, 101, 300], 100), 4)


if __name__ == "__main__":
    unittest.main()
