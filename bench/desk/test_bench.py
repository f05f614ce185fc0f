"""The benchmark counts what it says it counts."""
import pathlib
import tempfile
import unittest
from unittest import mock

import curves
import load
import measurements
import report

PLENTY = 300


def quiet(_text):
    pass


class Results(unittest.TestCase):
    def test_that_are_acknowledged_are_all_counted(self):
        figures = measurements.endurance(PLENTY, quiet)
        self.assertEqual((figures["arrived"], figures["confirmed"], figures["arrived_again"]),
                         (PLENTY, PLENTY, 0))
        self.assertGreater(figures["cpu_us"], 0)

    def test_of_a_burst_are_delivered_or_shed(self):
        figures = measurements.burst(quiet)
        shed = sum(figures["shed"].values())
        self.assertGreater(shed, 0)
        self.assertEqual(figures["confirmed"] + shed, measurements.BURST)

    def test_that_are_confirmed_and_never_arrive_are_missed(self):
        parts = measurements.parts_with_databases()
        self.addCleanup(parts.end)
        # This peer does not ask whether anybody has heard a result.
        figures = load.results(parts, parts.python(), count=PLENTY, topic="another/topic")
        self.assertEqual((figures["arrived"], figures["confirmed"]), (0, PLENTY))


    def test_are_all_delivered_where_nothing_but_the_calls_is_done(self):
        parts = measurements.parts_with_databases()
        self.addCleanup(parts.end)
        for in_flight in ("1", "20"):
            calls = parts.calls("--results-in-flight", in_flight)
            figures = load.results(parts, calls, count=PLENTY, window=int(in_flight))
            self.assertEqual((figures["arrived"], figures["confirmed"]), (PLENTY, PLENTY))
            parts.end_program(calls)


class Rounds(unittest.TestCase):
    def test_give_the_median_of_each_figure(self):
        runs = [{"rate": rate, "times": {"p50": 10 - rate}} for rate in (1, 9, 4)]
        self.assertEqual(measurements.median_of(runs), {"rate": 4, "times": {"p50": 6}})


class Goals(unittest.TestCase):
    def test_are_met_at_their_limit_and_missed_beyond(self):
        self.assertIn("met", report.goal(0.5, 0.5))
        self.assertIn("MISSED", report.goal(0.51, 0.5))
        self.assertIn("MISSED", report.goal(0.69, 0.7, True))

    def test_let_a_cost_grow_with_the_logarithm_and_no_faster(self):
        curve = curves.Curve("name", "title", "results", "us", ("slow", "fast"), "x")
        curve.add(10, 1, 1)
        curve.add(1000, 3, 100)
        self.assertRegex(report.growth(curve), "slow .* met[^$]*fast .* MISSED")


class Document(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.file = pathlib.Path(directory.name) / "document.md"
        patch = mock.patch.object(report, "DOCUMENT", self.file)
        patch.start()
        self.addCleanup(patch.stop)

    def test_gets_a_text_between_its_markers(self):
        self.file.write_text("a\n<!-- bench:begin x -->\nold\n<!-- bench:end x -->\nb\n")
        report.write("x", r"new \1")
        self.assertEqual(self.file.read_text(),
                         "a\n<!-- bench:begin x -->\n\nnew \\1\n\n<!-- bench:end x -->\nb\n")

    def test_without_a_place_for_a_text_is_an_error(self):
        self.file.write_text("a\n")
        self.assertRaises(RuntimeError, report.write, "x", "new")


if __name__ == "__main__":
    unittest.main()
