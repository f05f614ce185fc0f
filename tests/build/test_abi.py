"""What `./dev abi` says of a boundary that is not as committed."""
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("DESK_BUILD", ROOT / "build/dev"))


def exchange(file, one, other):
    """Has two texts of a file change places."""
    text = file.read_text()
    assert one in text and other in text, file
    file.write_text(text.replace(one, "\0").replace(other, one).replace("\0", other))


class ABoundary(unittest.TestCase):
    """With the headers as they are, and with a copy whose members have changed places."""
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        changed = cls.folder / "changed"
        for copy in (cls.folder / "committed", changed):
            shutil.copytree(ROOT / "include", copy)
        exchange(changed / "base_adapter.h", "void OnMQTTDisconnected() = 0;",
                 "void OnMQTTConnected() = 0;")
        exchange(changed / "base_adapter.h", "  int m_id_;\n",
                 "  boost::shared_ptr<tarvex::EventService> m_event_service_;\n")
        exchange(changed / "chw_info.h", "GetAppVer", "GetOemSn")
        exchange(changed / "tarvex/dp_client.h", "std::string method", "std::string body")
        exchange(changed / "tarvex/time_util.h", "int month", "int day")
        events = changed / "tarvex/event_service.h"
        events.write_text(events.read_text().replace("};", "  virtual void More() = 0;\n};"))
        cls.status, cls.said = cls.compare("committed", "changed")

    @classmethod
    def compare(cls, *headers):
        """(exit status, all output) of comparing the boundaries that two sets of headers make."""
        jsoncpp = next(line.split("=", 1)[1]
                       for line in (BUILD / "CMakeCache.txt").read_text().splitlines()
                       if line.startswith("JSONCPP_INCLUDE_DIR:"))
        for name in headers:
            subprocess.run(["c++", "-std=c++17", "-g", "-fPIC", "-shared", "-I", cls.folder / name,
                            "-isystem", jsoncpp, "-o", cls.folder / f"{name}.so",
                            ROOT / "abi/boundary.cpp"], check=True)
        result = subprocess.run(
            ["bash", "-euo", "pipefail", "-c", '. scripts/abi.sh; describe "$0.so" >"$0.abi"; '
             'describe "$1.so" >"$1.abi"; same_boundary "$0.abi" "$1.abi"',
             *(cls.folder / name for name in headers)],
            cwd=ROOT, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        return result.returncode, result.stdout

    def test_that_is_the_same_is_none(self):
        self.assertEqual(self.compare("committed", "committed"), (0, ""))

    def test_that_is_another_fails(self):
        self.assertEqual(self.status, 1)
        self.assertIn("committed.abi says; hosts and platforms that are built already do not fit",
                      self.said)

    def test_of_the_host_names_a_slot_that_has_moved(self):
        self.assertIn("BaseAdapter::OnMQTTDisconnected() changed from 7 to 8", self.said)

    def test_of_the_host_names_a_member_that_has_moved(self):
        self.assertIn("'int m_id_' offset changed from 320 to 448 (in bits)", self.said)

    def test_of_the_platform_names_a_slot_that_has_moved(self):
        self.assertRegex(self.said, r"ChwInfo::GetOemSn\(\) changed from 3 to 2")

    def test_of_the_platform_names_a_slot_that_is_new(self):
        self.assertIn("'method virtual void tarvex::EventService::More()'", self.said)

    def test_of_the_platform_names_members_that_have_moved(self):
        self.assertIn("'std::string method' offset changed from 0 to 256 (in bits)", self.said)
        self.assertIn("'int month' offset changed from 32 to 64 (in bits)", self.said)


if __name__ == "__main__":
    unittest.main()
