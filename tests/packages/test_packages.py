"""The packages as they were made, and in a Debian that has nothing else: ./dev package --test."""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/desk"))
from desk import PORT_OPTIONS, free_port  # noqa: E402

BUILD = ROOT / "build/package"
ARCHITECTURES = os.environ.get("PACKAGE_ARCHITECTURES", "amd64").split()
VERSION = re.search(r"project\(mqttadapter VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text()).group(1)


def done(*command, **options):
    """The output of a command that has to succeed."""
    result = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True, **options)
    assert result.returncode == 0, f"{command}: {result.stdout}"
    return result.stdout


def packages(architecture):
    return BUILD / architecture / "packages"


class Packed(unittest.TestCase):
    """Without installing them."""
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)

    def each(self):
        return [(architecture, packages(architecture)) for architecture in ARCHITECTURES]

    def unpacked(self, package):
        root = pathlib.Path(tempfile.mkdtemp(dir=self.folder))
        if package.suffix == ".deb":
            done("dpkg-deb", "--raw-extract", package, root)
        else:
            done("tar", "--extract", "--strip-components=1", "--file", package, "--directory", root)
        return root

    def test_carry_the_version_in_their_names(self):
        for architecture, folder in self.each():
            names = {file.name for file in folder.iterdir()} - {"SHA256SUMS"}
            self.assertIn(f"libmqttadapter_{VERSION}_{architecture}.deb", names)
            self.assertEqual({name for name in names if not re.search(rf"[_-]{VERSION}[_-]{architecture}\.", name)},
                             set())

    def test_have_the_sums_that_are_told(self):
        for _architecture, folder in self.each():
            told = done("sha256sum", "--check", "SHA256SUMS", cwd=folder).splitlines()
            self.assertEqual(len(told), len(list(folder.iterdir())) - 1)

    def test_the_archive_is_what_its_manifest_says(self):
        for architecture, folder in self.each():
            root = self.unpacked(folder / f"libmqttadapter-{VERSION}-{architecture}.tar.gz")
            told = done("sha256sum", "--check", "MANIFEST", cwd=root).splitlines()
            self.assertEqual({line.removesuffix(": OK") for line in told} | {
                "MANIFEST", "CHANGELOG.md", "copyright", "sbom.cdx.json"},
                {str(file.relative_to(root)) for file in root.rglob("*") if file.is_file()})

    def test_the_library_says_its_version(self):
        for architecture, folder in self.each():
            root = self.unpacked(folder / f"libmqttadapter_{VERSION}_{architecture}.deb")
            library = next(root.rglob("libmqttadapter.so"))
            self.assertIn(f"libmqttadapter {VERSION}", done("strings", library).splitlines())

    def test_the_files_of_each_package_are_summed_for_dpkg(self):
        for _architecture, folder in self.each():
            for package in folder.glob("*.deb"):
                root = self.unpacked(package)
                done("md5sum", "--check", "--quiet", "DEBIAN/md5sums", cwd=root)

    def test_nothing_names_the_directory_that_it_was_built_in(self):
        for _architecture, folder in self.each():
            for package in folder.glob("*.[dt]*"):
                for file in self.unpacked(package).rglob("*"):
                    if file.is_file() and not file.is_symlink():
                        self.assertFalse(str(ROOT).encode() in file.read_bytes(), file)

    def test_debug_symbols_are_found_by_the_build_id(self):
        for architecture, folder in self.each():
            for symbols in folder.glob("*-dbgsym_*.deb"):
                package = folder / symbols.name.replace("-dbgsym", "")
                debug = {str(file).partition(".build-id/")[2].removesuffix(".debug").replace("/", "")
                         for file in self.unpacked(symbols).rglob("*.debug")}
                self.assertEqual(self.build_ids(self.unpacked(package)), debug, package)

    def build_ids(self, root):
        """Of the stripped files, each of which names its debug file."""
        found = set()
        for file in root.rglob("*"):
            if file.is_file() and not file.is_symlink() and file.read_bytes()[:4] == b"\x7fELF":
                sections = done("readelf", "--wide", "--sections", file)
                self.assertIn(".gnu_debuglink", sections)
                self.assertNotIn(".debug_info", sections)
                found.add(re.search(r"Build ID: (\w+)", done("readelf", "--notes", file)).group(1))
        return found

    def test_each_has_licences_and_a_bill_of_what_is_linked(self):
        for architecture, folder in self.each():
            for package in folder.glob("*.deb"):
                if "-dbgsym" not in package.name:
                    name = package.name.split("_")[0]
                    notes = self.unpacked(package) / "usr/share/doc" / name
                    self.assertIn("has not chosen a licence", (notes / "copyright").read_text())
                    self.assert_true_bill(json.loads((notes / "sbom.cdx.json").read_text()), architecture)

    def assert_true_bill(self, bill, architecture):
        self.assertEqual(bill["metadata"]["component"]["version"], VERSION)
        for part in bill["components"]:
            own = architecture if part["properties"][0]["value"] == "linked" else "amd64"
            installed = done("dpkg-query", "-W", "-f=${Package} ${Architecture} ${Version}\n", part["name"])
            self.assertTrue({f"{part['name']} {own} {part['version']}", f"{part['name']} all {part['version']}"}
                            & set(installed.splitlines()), part)


class PackedAgain(unittest.TestCase):
    def test_from_another_directory_they_are_the_same_files(self):
        architecture = ARCHITECTURES[-1]
        again = ROOT / "build/package-again"
        shutil.rmtree(again, ignore_errors=True)
        self.addCleanup(shutil.rmtree, again)
        done(ROOT / "scripts/package.sh", architecture, env=os.environ | {"PACKAGE_BUILD": again.name})
        self.assertEqual((again / architecture / "packages/SHA256SUMS").read_text(),
                         (packages(architecture) / "SHA256SUMS").read_text())


@unittest.skipUnless(os.geteuid() == 0, "a root directory of its own takes root")
@unittest.skipUnless("amd64" in ARCHITECTURES, "for this machine")
class Installed(unittest.TestCase):
    """In a Debian that has nothing else, and sees no files of this one."""
    @classmethod
    def setUpClass(cls):
        folder = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, folder)
        cls.root = folder / "root"  # which other users may enter, as the broker does
        done("debootstrap", "--variant=minbase", "bookworm", cls.root)
        # No service is started by being installed.
        policy = cls.root / "usr/sbin/policy-rc.d"
        policy.write_text("#!/bin/sh\nexit 101\n")
        policy.chmod(0o755)
        for package in packages("amd64").glob("*.deb"):
            shutil.copy(package, cls.root / "tmp")
        cls.done("apt-get update && apt-get install -y --no-install-recommends /tmp/*.deb "
                 "g++ cmake make pkg-config systemd")

    @classmethod
    def done(cls, command):
        """The output of a shell command within that root, which has to succeed. What it mounts and
        starts ends with it."""
        return done("unshare", "--mount", "--pid", "--fork", "--kill-child", "sh", "-c",
                    'mount -t proc proc "$0/proc" && mount --rbind /dev "$0/dev" && '
                    'exec chroot "$0" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root '
                    'DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 sh -c "$1"', cls.root, command,
                    stdin=subprocess.DEVNULL, timeout=900)

    def host(self):
        """A directory with a program that loads the plug-in."""
        folder = pathlib.Path(tempfile.mkdtemp(dir=self.root / "tmp"))
        (folder / "host.cpp").write_text(
            '#include <dlfcn.h>\n#include <cstdio>\n#include "base_adapter.h"\n#include "tarvex/dp_client.h"\n'
            'int main() {\n  Json::Value value("refused");\n'
            '  if (dlopen(PLUGIN, RTLD_NOW) == nullptr)\n'
            '    std::printf("%s: %s\\n", value.asCString(), dlerror());\n}\n')
        (folder / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.22)\nproject(host CXX)\n"
            f"find_package(mqttadapter {VERSION} REQUIRED)\nadd_executable(host host.cpp)\n"
            "target_link_libraries(host PRIVATE mqttadapter::platform_interface)\n"
            'target_compile_definitions(host PRIVATE PLUGIN="$<TARGET_FILE:mqttadapter::plugin>")\n')
        return "/" + str(folder.relative_to(self.root))

    def assert_loads(self, said):
        """It has no platform, and the library asks for one."""
        self.assertRegex(said, r"(?m)^refused: /usr/lib/x86_64-linux-gnu/\S*libmqttadapter.so: undefined symbol: ")

    def test_a_host_is_built_with_find_package(self):
        self.assert_loads(self.done(f"cd {self.host()} && cmake -S . -B b && cmake --build b && b/host"))

    def test_a_host_is_built_with_pkg_config(self):
        self.assert_loads(self.done(
            f'cd {self.host()} && g++ -DPLUGIN="\\"$(pkg-config --variable=plugin mqttadapter)\\"" host.cpp '
            "-o host $(pkg-config --cflags --libs mqttadapter) && ./host"))

    def test_the_library_keeps_the_contract(self):
        said = self.done("adapter_conformance /usr/lib/x86_64-linux-gnu/libmqttadapter.so --gtest_filter='-*OfMemory*'")
        self.assertIn("[  PASSED  ]", said)

    def test_the_rig_delivers_a_result(self):
        ports = " ".join(f"{option} {free_port()}" for option in PORT_OPTIONS)
        said = self.done(f"mqttadapter-rig run --for 15 --cars-per-minute 60 {ports}")
        self.assertRegex(said, r"(?m)^mqttadapter-rig: [1-9]\d* results acknowledged in 15 seconds$")

    def test_the_rig_checks_a_host(self):
        self.assertIn("kept", self.done("mqttadapter-rig hostcheck"))

    def test_the_units_are_in_order_and_confined(self):
        for unit in ("mqttadapter-camera.service", "mqttadapter-agent.service"):
            self.assertEqual(self.done(f"systemd-analyze verify {unit}"), "")
            self.done("systemd-analyze security --offline=yes --threshold=20 "
                      f"/usr/lib/systemd/system/{unit}")

    def test_what_needs_the_library_goes_with_it(self):
        simulated = self.done("apt-get remove --simulate libmqttadapter")
        self.assertIn("Remv mqttadapter-rig", simulated)
        self.assertIn("Remv mqttadapter-dev", simulated)


if __name__ == "__main__":
    unittest.main()
