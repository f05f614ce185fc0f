"""A small fleet, and what its command says of wrong input."""
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

import fleet_report
from parts import ROOT

FLEET = pathlib.Path(__file__).resolve().parent / "fleet.py"


def fleet(*options, name):
    return subprocess.run([sys.executable, "-B", FLEET, "--name", name, *options],
                          capture_output=True, text=True, timeout=240, check=False)


class SmallFleet(unittest.TestCase):
    def run_fleet(self, *options):
        name = f"test{next(tempfile._get_candidate_names())}"
        file = ROOT / f"build/fleet/{name}.json"
        self.addCleanup(lambda: file.unlink(missing_ok=True))
        done = fleet("--cameras", "8", "--cars-per-minute", "60", *options, name=name)
        self.assertEqual(done.returncode, 0, done.stderr + done.stdout)
        return json.loads(file.read_text()), done.stdout

    def test_loses_nothing_and_answers_all_while_its_broker_is_killed(self):
        figures, said = self.run_fleet("--for", "10", "--broker-away", "1")
        self.assertEqual(figures["online"], 8)
        self.assertGreater(figures["results"], 40)
        self.assertEqual(figures["acknowledged"], figures["results"])
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
        self.assertEqual((figures["online"], figures["lost"]), (8, 0))
        self.assertEqual(figures["acknowledged"], figures["results"])


class WrongInput(unittest.TestCase):
    def test_is_told(self):
        for options, error in ((["--cameras", "0"], "0 is not from 1 to 5000"),
                               (["--for", "0"], "0 is below 1"),
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
