"""adapter_conformance, as a firmware engineer runs it against the library that they have built."""
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("DESK_BUILD", ROOT / "build/dev"))
LIBRARY = BUILD / "lib/libmqttadapter.so"
FEW = "--gtest_filter=GetSn*:IvsTrigger*"
EXPORTS = 'extern "C" void create_adapter() {} extern "C" void destory_adapter() {}'


class Conformance(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)

    def run_with(self, *words):
        """(exit status, output, errors)"""
        result = subprocess.run([BUILD / "bin/adapter_conformance", *words], cwd=self.folder,
                                capture_output=True, text=True, timeout=300)
        return result.returncode, result.stdout, result.stderr

    def refused(self, library):
        """The one line that refuses a library, without the library's name."""
        status, said, errors = self.run_with(library)
        self.assertEqual((status, said), (2, ""))
        head = f"adapter_conformance: {library} "
        self.assertEqual((errors[:len(head)], errors.count("\n")), (head, 1))
        return errors[len(head):-1]

    def built(self, name, source, *options):
        """A shared library made of a line of C++."""
        library = self.folder / name
        subprocess.run(["g++", "-shared", "-fPIC", "-x", "c++", "-", "-o", library, *options],
                       input=source, text=True, check=True)
        return library

    def changed(self, name, change):
        """A copy of the library with other bytes."""
        library = self.folder / name
        library.write_bytes(change(LIBRARY.read_bytes()))
        return library

    def test_a_library_that_holds_is_told_so(self):
        status, said, errors = self.run_with(LIBRARY, FEW)
        self.assertEqual((status, errors), (0, ""))
        self.assertIn("[  PASSED  ]", said)

    def test_a_broken_behaviour_is_named_and_stands_in_the_report(self):
        self.changed("other.so", lambda b: b.replace(b"\0get_sn\0", b"\0get_no\0"))
        status, said, _errors = self.run_with("other.so", FEW, "--junit", "report.xml")
        self.assertEqual(status, 1)
        self.assertIn("[  FAILED  ] GetSn", said)
        suites = xml.etree.ElementTree.parse(self.folder / "report.xml").getroot()
        self.assertEqual(suites.tag, "testsuites")
        failed = {case.get("classname") for case in suites.iter("testcase")
                  if case.find("failure") is not None}
        self.assertTrue(failed and all(name.startswith("GetSn") for name in failed), failed)
        self.assertIsNotNone(suites.find("testsuite[@name='IvsTrigger']"))

    def test_a_file_that_is_not_there(self):
        self.assertEqual(self.refused(self.folder / "none.so"), "cannot be read")

    def test_a_file_that_is_no_library(self):
        self.assertEqual(self.refused(pathlib.Path(__file__)), "is no shared library")

    def test_another_architecture(self):
        def for_arm(content):
            return content[:4] + b"\1" + content[5:18] + b"\x28\0" + content[20:]
        self.assertRegex(self.refused(self.changed("arm.so", for_arm)),
                         "^is for 32-bit ARM; this program is for ")

    def test_a_missing_export(self):
        library = self.built("one.so", 'extern "C" void create_adapter() {}')
        self.assertEqual(self.refused(library), "does not export destory_adapter")

    def test_a_symbol_that_nobody_has(self):
        library = self.built("lost.so", f"namespace tarvex {{ void Lost(int); }} {EXPORTS}"
                             " void call() { tarvex::Lost(1); }")
        self.assertEqual(self.refused(library),
                         "needs what neither it nor a platform has: tarvex::Lost(int)")

    def test_another_jsoncpp(self):
        jsoncpp = self.built("libjsoncpp.so.99", "int other;", "-Wl,-soname,libjsoncpp.so.99")
        library = self.built("json.so", EXPORTS, "-Wl,--no-as-needed", f"-L{self.folder}",
                             "-l:libjsoncpp.so.99", f"-Wl,-rpath,{self.folder}")
        for is_there in (True, False):
            self.assertRegex(self.refused(library), r"^needs another jsoncpp, libjsoncpp\.so\.99, "
                             r"than this program, libjsoncpp\.so\.\d+$", is_there)
            if is_there:
                jsoncpp.unlink()

    def test_words_that_are_not_understood(self):
        for words, why in (((), "which library?"), (("a", "b"), "unexpected: b"),
                           (("--what",), "unexpected: --what"), (("a", "--junit"),
                                                                 "unexpected: --junit")):
            status, _said, errors = self.run_with(*words)
            self.assertEqual(status, 2)
            self.assertEqual(errors.splitlines()[0], f"adapter_conformance: {why}")

    def test_every_behaviour_has_a_name(self):
        status, said, _errors = self.run_with("--gtest_list_tests")
        self.assertEqual(status, 0)
        self.assertGreater(sum(line.startswith("  ") for line in said.splitlines()), 700)


if __name__ == "__main__":
    unittest.main()
