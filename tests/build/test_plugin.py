"""The plug-in as a firmware engineer builds it: elsewhere, within another project, as another C++."""
import ctypes
import filecmp
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("DESK_BUILD", ROOT / "build/dev"))
# Not optimised and all sources at once, which takes a tenth of the time; and with all that a
# debugger is told of directories.
QUICK = ("-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O0 -g", "-DCMAKE_UNITY_BUILD=ON",
         "-DCMAKE_UNITY_BUILD_BATCH_SIZE=0")


def run(*command, **options):
    """(exit status, all output) of a command."""
    result = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True, **options)
    return result.returncode, result.stdout


def done(*command, **options):
    """The output of a command that has to succeed."""
    status, said = run(*command, **options)
    assert status == 0, said
    return said


def cached(directory, name):
    """A variable of a build directory."""
    lines = (directory / "CMakeCache.txt").read_text().splitlines()
    return next(line.split("=", 1)[1] for line in lines if line.startswith(name + ":"))


def built(source, directory, *options):
    """The library that a build of the plug-in alone makes: the compiler's, not that of a cache."""
    done("cmake", "-S", source, "-B", directory, "-G", "Ninja", "-DMQTTADAPTER_PLUGIN_ONLY=ON",
         *QUICK, *options)
    done("cmake", "--build", directory, env=os.environ | {"CCACHE_DISABLE": "1"})
    return directory / "lib/libmqttadapter.so"


def only_in_one(*files):
    """What is to be read in one of two libraries and not in the other, and how long they are."""
    words = [set(done("strings", "--all", file).splitlines()) for file in files]
    return f"{[file.stat().st_size for file in files]} bytes; {sorted(words[0] ^ words[1])[:40]}"


class PluginTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)

    @classmethod
    def sdk(cls):
        """A directory that has jsoncpp, as an SDK has it."""
        sdk = cls.folder / "sdk"
        (sdk / "lib").mkdir(parents=True)
        shutil.copytree(cached(BUILD, "JSONCPP_INCLUDE_DIR") + "/json", sdk / "include/json")
        (sdk / "lib/libjsoncpp.so").symlink_to(cached(BUILD, "JSONCPP_LIBRARY"))
        return sdk


class BuiltElsewhere(PluginTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.prefix = f"-DCMAKE_PREFIX_PATH={cls.sdk()}"
        copies = (cls.folder / "one", cls.folder / "quite/another")
        for copy in copies:
            for part in ("cmake", "include", "src/lib"):
                shutil.copytree(ROOT / part, copy / part)
            shutil.copy(ROOT / "CMakeLists.txt", copy)
        cls.libraries = [built(copy, copy / "build", cls.prefix) for copy in copies]
        cls.library = cls.libraries[0]
        cls.directory = copies[0] / "build"

    def install(self, *options):
        """What is installed into a new directory, and that directory."""
        root = pathlib.Path(tempfile.mkdtemp(dir=self.folder))
        done("cmake", "--install", self.directory, "--prefix", root, *options)
        return {str(file.relative_to(root)) for file in root.rglob("*") if file.is_file()}, root

    def test_is_the_same_file_from_every_directory(self):
        one, other = self.libraries
        if not filecmp.cmp(one, other, shallow=False):
            self.fail(only_in_one(one, other))

    def test_names_no_directory_to_search_where_jsoncpp_is_not_the_systems(self):
        self.assertNotIn("PATH", done("readelf", "--dynamic", self.library))

    def test_says_which_release_it_is(self):
        release = f"libmqttadapter {cached(self.directory, 'CMAKE_PROJECT_VERSION')}"
        self.assertIn(release, done("strings", self.library).splitlines())

    def test_is_refused_by_the_loader_where_there_is_no_platform(self):
        with self.assertRaisesRegex(OSError, "undefined symbol"):
            ctypes.CDLL(str(self.library), mode=os.RTLD_LAZY)

    def test_a_camera_gets_the_library_alone(self):
        files, _ = self.install("--component", "mqttadapter_runtime")
        self.assertEqual(files, {"lib/libmqttadapter.so"})

    def test_a_host_finds_the_headers_with_cmake(self):
        _, root = self.install()
        host = self.folder / "host"
        host.mkdir()
        (host / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.22)\nproject(host CXX)\nset(CMAKE_CXX_STANDARD 14)\n"
            "find_package(mqttadapter 1.0 REQUIRED)\nadd_library(host OBJECT host.cpp)\n"
            "target_link_libraries(host PRIVATE mqttadapter::platform_interface)\n"
            "file(GENERATE OUTPUT loads CONTENT $<TARGET_FILE:mqttadapter::plugin>)\n")
        (host / "host.cpp").write_text('#include "base_adapter.h"\n#include "tarvex/dp_client.h"\n')
        done("cmake", "-S", host, "-B", host / "build", "-G", "Ninja", self.prefix,
             f"-Dmqttadapter_ROOT={root}")
        done("cmake", "--build", host / "build")
        self.assertTrue(pathlib.Path((host / "build/loads").read_text()).samefile(
            root / "lib/libmqttadapter.so"))

    def test_a_host_finds_the_headers_with_pkg_config(self):
        _, root = self.install("--component", "mqttadapter_development")
        flags = done("pkg-config", "--cflags", "mqttadapter",
                     env=os.environ | {"PKG_CONFIG_PATH": str(root / "lib/pkgconfig")}).split()
        for header in (ROOT / "include").rglob("*.h"):
            done("c++", "-std=c++14", "-Wall", "-Werror", "-fsyntax-only", *flags, "-include",
                 root / "include/mqttadapter" / header.relative_to(ROOT / "include"),
                 "-x", "c++", os.devnull)


class WithinAnotherProject(PluginTest):
    """One that is C++14 without run-time types, and has names of its own that are ours as well."""
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.parent = cls.folder / "firmware"
        (cls.parent / "cmake").mkdir(parents=True)
        (cls.parent / "cmake/Warnings.cmake").write_text('message(FATAL_ERROR "not yours")\n')
        (cls.parent / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.22)\nproject(firmware CXX)\n"
            "list(APPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_SOURCE_DIR}/cmake)\n"
            "add_library(project_warnings INTERFACE)\nadd_library(jsoncpp INTERFACE)\n"
            "set(CMAKE_CXX_STANDARD 14)\nset(CMAKE_UNITY_BUILD ON)\n"
            "add_compile_options(-O0 -fno-rtti)\n"
            f"add_subdirectory({ROOT} plugin)\n")
        cls.directory = cls.folder / "build"
        done("cmake", "-S", cls.parent, "-B", cls.directory, "-G", "Ninja")
        done("cmake", "--build", cls.directory)
        cls.library = next(cls.directory.rglob("libmqttadapter.so"))

    def test_is_the_plug_in_alone(self):
        self.assertNotRegex(done("cmake", "--build", self.directory, "--target", "help"),
                            "cloud_agent|tests")

    def test_leaves_the_projects_settings_alone(self):
        self.assertEqual(cached(self.directory, "CMAKE_BUILD_TYPE"), "")
        self.assertFalse((self.directory / "lib").exists())

    def test_does_all_that_it_does_else(self):
        # But what the compiler adds only as it optimises.
        status, said = run(BUILD / "bin/contract_tests", "--gtest_brief=1", "--gtest_filter=-Hardening.*",
                           env=os.environ | {"MQTTADAPTER_LIBRARY": str(self.library)})
        self.assertEqual(status, 0, said)


class OtherStandards(PluginTest):
    def assert_refused(self, reason, *options):
        status, said = run("cmake", "-S", ROOT, "-B", tempfile.mkdtemp(dir=self.folder), *options)
        self.assertNotEqual(status, 0)
        self.assertIn(reason, " ".join(said.split()))

    def test_a_flag_for_one_is_followed(self):
        directory = self.folder / "flag"
        done("cmake", "-S", ROOT, "-B", directory, "-G", "Ninja", "-DCMAKE_CXX_FLAGS=-std=c++14",
             "-DMQTTADAPTER_PLUGIN_ONLY=ON")
        for entry in json.loads((directory / "compile_commands.json").read_text()):
            self.assertEqual([word for word in entry["command"].split() if "-std" in word],
                             ["-std=c++14"])

    def test_below_14_are_refused(self):
        self.assert_refused("The plug-in needs C++14; CMAKE_CXX_STANDARD is 11",
                            "-DMQTTADAPTER_PLUGIN_ONLY=ON", "-DCMAKE_CXX_STANDARD=11")

    def test_below_17_are_refused_for_the_desk(self):
        self.assert_refused("The desk needs C++17", "-DCMAKE_CXX_STANDARD=14")

    def test_that_jsoncpp_was_not_built_with_are_refused(self):
        sdk = self.sdk()
        with open(sdk / "include/json/config.h", "a", encoding="utf-8") as header:
            header.write("#if __cplusplus >= 201703L\n#define isMember isMemberOfView\n#endif\n")
        self.assert_refused("needs the C++ standard and the compiler's string ABI that jsoncpp was",
                            "-DMQTTADAPTER_PLUGIN_ONLY=ON", f"-DCMAKE_PREFIX_PATH={sdk}")


if __name__ == "__main__":
    unittest.main()
