"""What a host owes its plug-in, as a firmware engineer takes it into a host of their own."""
import os
import pathlib
import shutil
import tempfile
import unittest

from test_plugin import BUILD, QUICK, ROOT, cached, done, run

HOST = r"""
#include <cstdarg>
#include <cstdio>
#include "mqttadapter_host/delivery_guard.h"
#include "mqttadapter_host/gated_bus.h"
#include "mqttadapter_host/plugin_protocol.h"
#include "sys_log.h"

extern "C" void __sys_log(int level, const char*, const char*, int, const char* format, ...) {
  std::printf("%d %s\n", level, format);
}

int main() {
  mqttadapter_host::DeliveryGuard guard({}, [](std::function<void()> task) { task(); },
                                        [](unsigned long long tag) { std::printf("%llu\n", tag); });
  mqttadapter_host::SetBusGate([&](const tarvex::DpMessage& message, std::function<void()> deliver) {
    guard.OnBusMessage(message.method, std::move(deliver));
  });
  mqttadapter_host::Sent sent;
  sent.tag = mqttadapter_host::kLiveResultTag;
  guard.OnPublished(1, sent);
  guard.OnAcknowledged(1, mqttadapter_host::Answer::kTaken);
  return tarvex::DpClient::CreateDpClient(nullptr, tarvex::SocketAddress("", 0), "") ? 1 : 0;
}
"""
# It has no platform, so there is no bus client to put a gate before.
SAYS = "11\n3 no shared library of this process has tarvex::DpClient::CreateDpClient\n"


class OwnHost(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        (cls.folder / "host.cpp").write_text(HOST)

    def built(self, name, how, *options):
        """What a host says, whose project takes the duties in as `how` says."""
        project = self.folder / name
        project.mkdir()
        (project / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.22)\nproject(host CXX)\nset(CMAKE_CXX_STANDARD 14)\n"
            f"add_compile_options(-O0)\n{how}\nadd_executable(host ../host.cpp)\n"
            f"target_link_libraries(host PRIVATE {options[0]})\n")
        done("cmake", "-S", project, "-B", project / "build", "-G", "Ninja", *options[1:])
        done("cmake", "--build", project / "build", "--target", "host")
        return run(project / "build/host")

    def test_takes_them_in_as_a_part_of_its_project(self):
        said = self.built("part", f"add_subdirectory({ROOT} mqttadapter EXCLUDE_FROM_ALL)",
                          "mqttadapter_host_bus")
        self.assertEqual(said, (0, SAYS))

    def test_finds_what_is_installed_with_cmake(self):
        built = self.folder / "built"
        done("cmake", "-S", ROOT, "-B", built, "-G", "Ninja", "-DMQTTADAPTER_PLUGIN_ONLY=ON",
             *QUICK)
        done("cmake", "--build", built, "--target", "mqttadapter_host_bus")
        done("cmake", "--install", built, "--prefix", self.folder / "root", "--component",
             "mqttadapter_development")
        said = self.built("found", "find_package(mqttadapter 1.0 REQUIRED)", "mqttadapter::host_bus",
                          f"-Dmqttadapter_ROOT={self.folder / 'root'}")
        self.assertEqual(said, (0, SAYS))

    def test_needs_the_headers_of_the_interface_and_jsoncpp_only(self):
        source = ROOT / "src/lib/mqttadapter_host"
        for file in (*source.glob("*.h"), *source.glob("*.cpp"), ROOT / "examples/host/host.h"):
            done("c++", "-std=c++14", "-Wall", "-Wextra", "-Werror", "-fsyntax-only", "-I",
                 source.parent, "-I", ROOT / "include", "-isystem",
                 cached(BUILD, "JSONCPP_INCLUDE_DIR"), "-include", file, "-x", "c++", os.devnull)


if __name__ == "__main__":
    unittest.main()
