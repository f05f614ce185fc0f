"""./dev hostcheck, as a firmware engineer runs it against a host."""
import pathlib
import shutil
import tempfile
import unittest
import xml.etree.ElementTree

from desk import BUILD, ROOT, dev

QUICK = ("--quiet", "100", "--blocked", "500")
CHECKS = (ROOT / "tests/hostcheck/checks.h").read_text().count("\nconstexpr char k")


class HostCheck(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        self.junit = self.folder / "report.xml"

    def test_of_the_desks_agent_finds_everything_kept(self):
        ran = dev("hostcheck", *QUICK, "--junit", self.junit)
        self.assertEqual(ran.returncode, 0, ran.stdout)
        self.assertTrue(ran.stdout.endswith(f"{CHECKS} kept, 0 broken, 0 not exercised\n"), ran.stdout)
        suite = xml.etree.ElementTree.parse(self.junit).getroot().find("testsuite")
        self.assertEqual([suite.get(count) for count in ("tests", "failures", "skipped")],
                         [str(CHECKS), "0", "0"])

    def test_of_another_host_is_on_what_the_command_starts(self):
        ran = dev("hostcheck", *QUICK, "--patience", "1000", "--junit", self.junit, "--",
                  BUILD / "bin/cloud_agent", "--plugin", "{plugin}", "--broker", "127.0.0.1:1",
                  "--picture-dir", self.folder)
        self.assertEqual(ran.returncode, 1, ran.stdout)
        self.assertIn("OnMQTTConnected with the link up: not within 1000 ms", ran.stdout)
        suite = xml.etree.ElementTree.parse(self.junit).getroot().find("testsuite")
        failed = suite.find("testcase[@name='connection-told']/failure")
        self.assertIn("not within 1000 ms", failed.get("message"))
        self.assertIsNotNone(suite.find("testcase[@name='pictures']/skipped"))

    def test_on_another_bus_has_cars_recognised_by_a_command(self):
        cars = self.folder / "cars"
        ran = dev("hostcheck", *QUICK, "--patience", "1000", "--car", f"sh -c 'echo $0 >> {cars}'", "--",
                  BUILD / "bin/cloud_agent", "--plugin", "{plugin}", "--broker", "{broker}",
                  "--picture-dir", self.folder)
        self.assertEqual(ran.returncode, 1, ran.stdout)
        self.assertEqual(cars.read_text(), "1\n")
        self.assertIn("a result on the bus is handed over and published: not within", ran.stdout)

    def test_on_another_bus_ends_where_the_command_fails(self):
        ran = dev("hostcheck", *QUICK, "--car", "false", "--", BUILD / "bin/cloud_agent", "--plugin",
                  "{plugin}", "--broker", "{broker}", "--picture-dir", self.folder)
        self.assertEqual(ran.returncode, 2, ran.stdout)
        self.assertIn("hostcheck: --car failed: false 1", ran.stdout)

    def test_of_what_is_no_host_shows_what_that_said(self):
        ran = dev("hostcheck", "echo", "not a host")
        self.assertEqual(ran.returncode, 2, ran.stdout)
        self.assertTrue(ran.stdout.endswith("not a host\n"), ran.stdout)

    def test_of_nothing_that_can_be_started_says_so(self):
        ran = dev("hostcheck", "/no/such/host")
        self.assertEqual(ran.returncode, 2, ran.stdout)


if __name__ == "__main__":
    unittest.main()
