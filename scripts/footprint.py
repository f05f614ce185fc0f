"""What the plug-in takes of a camera: bytes, memory, allocations, instructions, time to load."""
import argparse
import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "bench/micro"), str(ROOT / "bench/desk")]
import instructions  # noqa: E402
import report  # noqa: E402

BUILD = ROOT / "build/size"
COMMITTED = ROOT / "bench/micro/footprint.json"
DOCUMENT = ROOT / "docs/footprint.md"
TOLERANCE = 1.02
ARCHITECTURES = {"amd64": (), "armhf": ("-DCMAKE_TOOLCHAIN_FILE=cmake/armhf.cmake",),
                 "arm64": ("-DCMAKE_TOOLCHAIN_FILE=cmake/arm64.cmake",)}
FOR_SIZE = "-DCMAKE_BUILD_TYPE=MinSizeRel"
AS_IT_SHIPS = "as it ships"
WAYS = {
    AS_IT_SHIPS: (FOR_SIZE,),
    "all for time: `-O2`": ("-DCMAKE_BUILD_TYPE=RelWithDebInfo",),
    "all for size: `-Os`": ("-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-Os -g -DNDEBUG"),
    "with `-flto`": (FOR_SIZE, "-DCMAKE_CXX_FLAGS=-flto"),
    "without the stack protector": (FOR_SIZE, "-DCMAKE_CXX_FLAGS=-fno-stack-protector"),
    "without checked buffers": (FOR_SIZE, "-DCMAKE_CXX_FLAGS=-D_FORTIFY_SOURCE=0"),
}
PARTS = {"code": r"\.text|\.plt.*|\.init|\.fini", "constants": r"\.rodata",
         "unwinding": r"\.eh_frame.*|\.gcc_except_table|\.ARM\.ex.*",
         "symbols and relocations": r"\.dyn.*|\.gnu\.(hash|version.*)|\.rela?\..*",
         "data": r"\.data.*|\.bss|\.got.*|\.init_array|\.fini_array"}


def output(*command, **options):
    return subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, text=True,
                          check=True, **options).stdout


def built(architecture, way):
    """The library of an architecture, built in one of the ways, without what a debugger needs."""
    directory = BUILD / architecture / re.sub(r"\W+", "-", way)
    output("cmake", "--no-warn-unused-cli", "-S", ".", "-B", directory, "-G", "Ninja",
           "-DMQTTADAPTER_PLUGIN_ONLY=ON", "-DMQTTADAPTER_TESTS=OFF", *ARCHITECTURES[architecture], *WAYS[way], cwd=ROOT)
    output("cmake", "--build", directory)
    strip = re.search("^CMAKE_STRIP:.*=(.*)", (directory / "CMakeCache.txt").read_text(), re.M)[1]
    library = directory / "libmqttadapter.so"
    output(strip, "--strip-unneeded", "-o", library, directory / "lib/libmqttadapter.so")
    return library


def size(library):
    """Bytes of the file and of its parts, and how many relocations are done as it is loaded."""
    figures = {"file": library.stat().st_size} | dict.fromkeys(PARTS, 0)
    for line in output("readelf", "--section-headers", "--wide", library).splitlines():
        words = line.partition("]")[2].split()
        for part, names in PARTS.items():
            if words and re.fullmatch(names, words[0]):
                figures[part] += int(words[4], 16)
    relocations = output("readelf", "--relocs", "--wide", library).splitlines()
    figures["relocations"] = sum(bool(re.match("[0-9a-f]{8}", line)) for line in relocations)
    return figures


def counted(library):
    """Instructions and allocations of each piece of work."""
    instructions.ENVIRONMENT["MQTTADAPTER_LIBRARY"] = str(library)
    return {name: work["plug_in"] for name, work in instructions.counted().items()}


def on_this_machine(library):
    """Bytes of heap, and the time to load."""
    environment = os.environ | {"MQTTADAPTER_LIBRARY": str(library)}
    return json.loads(output(ROOT / "build/dev/bin/micro_footprint",
                             env=environment).splitlines()[-1])


def exceeded(figures, committed, where):
    """Each figure of those that is more than what is committed."""
    return [f"{where}, {name}: {figures[name]}, {most} are committed"
            for name, most in committed.items() if figures[name] > most * TOLERANCE]


def check(architectures):
    committed = json.loads(COMMITTED.read_text())
    found = []
    for architecture in architectures:
        library = built(architecture, AS_IT_SHIPS)
        found += exceeded(size(library), committed[architecture], architecture)
        if architecture == "amd64":
            found += exceeded(on_this_machine(library), committed["heap"], "heap")
    if found:
        sys.exit("./dev footprint: " + "\n".join(found))
    print("the plug-in takes no more than is committed")


def write():
    libraries = {(architecture, way): built(architecture, way)
                 for architecture in ARCHITECTURES for way in WAYS}
    sizes = {key: size(library) for key, library in libraries.items()}
    shipped = {architecture: sizes[architecture, AS_IT_SHIPS] for architecture in ARCHITECTURES}
    report.write("size", report.table(
        ["Bytes", *ARCHITECTURES],
        [[name, *(shipped[architecture][name] for architecture in ARCHITECTURES)]
         for name in ("file", *PARTS, "relocations")]), DOCUMENT)
    here = on_this_machine(libraries["amd64", AS_IT_SHIPS])
    works = {way: counted(libraries["amd64", way]) for way in WAYS}
    report.write("ways", report.table(
        ["Bytes of the file", *ARCHITECTURES, "instructions per result, amd64"],
        [[way, *(sizes[architecture, way]["file"] for architecture in ARCHITECTURES),
          works[way]["plate_result"]["instructions"]] for way in WAYS]), DOCUMENT)
    report.write("heap", report.table(
        ["Bytes of heap, amd64", "are"],
        [["loaded and initialised", here["heap_idle"]],
         ["the most: 20 results wait, one is published", here["heap_most"]],
         ["after them", here["heap_after"]]]), DOCUMENT)
    report.write("work", report.table(
        ["Work, amd64", "instructions", "allocations"],
        [["a plate result" if name == "plate_result" else f"`{name}`", work["instructions"],
          work["allocations"]] for name, work in works[AS_IT_SHIPS].items()]), DOCUMENT)
    report.write("load", f"It is loaded in {here['load_us']} us there (the median of 101 times).",
                 DOCUMENT)
    COMMITTED.write_text(json.dumps(
        {architecture: {name: figures[name] for name in ("file", "relocations")}
         for architecture, figures in shipped.items()} |
        {"heap": {name: here[name] for name in ("heap_idle", "heap_most", "heap_after")}},
        indent=2) + "\n")


def main():
    parser = argparse.ArgumentParser(prog="./dev footprint", description=__doc__)
    parser.add_argument("--check", nargs="+", choices=ARCHITECTURES, metavar="ARCHITECTURE",
                        help="build for these, and fail where a figure is 2 %% more than is committed")
    arguments = parser.parse_args()
    if arguments.check:
        check(arguments.check)
    else:
        write()


if __name__ == "__main__":
    main()
