"""Breaks the plug-in in small ways, one at a time, and lists what no contract test notices."""
import argparse
import pathlib
import random
import re
import shutil
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
BUILD = ROOT / "build/mutants"
COPY = BUILD / "source"
SOURCES = "src/lib/mqtt_adapter"
TESTS = ROOT / "build/dev/bin/adapter_conformance"

# A text in code, and what it becomes.
EXCHANGES = [(r" == ", " != "), (r" != ", " == "), (r" < ", " <= "), (r" <= ", " < "),
             (r" > ", " >= "), (r" >= ", " > "), (r" && ", " || "), (r" \|\| ", " && "),
             (r"\btrue\b", "false"), (r"\bfalse\b", "true"), (r" \+ ", " - "), (r" - ", " + "),
             (r"\bif \((?!auto|const)(.*)\) \{$", r"if (!(\1)) {"), (r"!(?=[\w(])", "")]
STATEMENT = re.compile(r"^ +(?!return|const|case|static|using|auto|break)[\w:>().\[\]\"-]+"
                       r"(\(.*\)| = .*|\+\+|--)?;$")
# Members that nothing outside the plug-in leads to: the unit tests have them.
WITHIN = {"IvsStruct2Json", "PackPlateBasicInfo", "SelectWlInfo", "SendLanectrlResultEvent"}


def changes(line):
    """Each other line that a line can become."""
    if re.match(r"\s*(//|#|static_assert|namespace|\})", line):
        return
    code = line.split("  //")[0]
    for pattern, other in EXCHANGES:
        for match in re.finditer(pattern, code):
            yield code[:match.start()] + match.expand(other) + code[match.end():]
    for match in re.finditer(r"(?<![\w.%\"\\])\d+(?![\w.\"])", code):
        yield code[:match.start()] + str(int(match[0]) + 1) + code[match.end():]
    for match in re.finditer(r'(?<!include )"(?=[^"\\]*")', code):
        if code[:match.start()].count('"') % 2 == 0:
            yield code[:match.end()] + "x" + code[match.end():]
    if STATEMENT.match(code):
        yield re.match(" *", code)[0] + ";"


def all_mutants():
    """(file, number of the line, new line) of each."""
    for file in sorted((ROOT / SOURCES).glob("*.cpp")):
        function = ""
        for number, line in enumerate(file.read_text().splitlines()):
            function = (re.match(r"\w.*\bMQTTAdapter::(\w+)\(", line) or ["", function])[1]
            if function not in WITHIN:
                for changed in changes(line):
                    yield file.name, number, changed


def builds():
    return subprocess.run(["cmake", "--build", BUILD / "plugin"], stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL).returncode == 0


def passes():
    """Whether every test passes, but for a thousand lives; what takes a minute does not."""
    try:
        return subprocess.run(
            [TESTS, BUILD / "plugin/lib/libmqttadapter.so", "--gtest_brief=1", "--gtest_fail_fast",
             "--gtest_filter=-Unloading.*"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=60).returncode == 0
    except subprocess.TimeoutExpired:
        return False


def prepare():
    """Copies what the plug-in is built of, and builds it, not optimised."""
    shutil.rmtree(BUILD, ignore_errors=True)
    for part in ("cmake", "include", SOURCES):
        shutil.copytree(ROOT / part, COPY / part)
    shutil.copy(ROOT / "CMakeLists.txt", COPY)
    subprocess.run(["cmake", "-S", COPY, "-B", BUILD / "plugin", "-G", "Ninja",
                    "-DMQTTADAPTER_PLUGIN_ONLY=ON", "-DCMAKE_BUILD_TYPE=None",
                    "-DCMAKE_CXX_FLAGS=-O0 -w"], stdout=subprocess.DEVNULL, check=True)
    if not builds() or not passes():
        raise SystemExit("./dev mutants: the tests fail before anything is broken")


def survives(name, number, changed):
    """Whether no test notices a mutant; None where the compiler does."""
    file = COPY / SOURCES / name
    original = file.read_text()
    lines = original.splitlines()
    lines[number] = changed
    file.write_text("\n".join(lines) + "\n")
    try:
        return passes() if builds() else None
    finally:
        file.write_text(original)


def main():
    parser = argparse.ArgumentParser(prog="./dev mutants", description=__doc__)
    parser.add_argument("count", nargs="?", type=int, default=100, help="how many at the most")
    parser.add_argument("--seconds", type=float, default=float("inf"), help="how long at the most")
    parser.add_argument("--seed", type=int, default=1, help="which of them (%(default)s)")
    parser.add_argument("--file", default="", help="only those of files with this in their name")
    arguments = parser.parse_args()
    mutants = [mutant for mutant in all_mutants() if arguments.file in mutant[0]]
    chosen = random.Random(arguments.seed).sample(mutants, min(arguments.count, len(mutants)))
    prepare()
    results = {True: 0, False: 0, None: 0}
    end = time.monotonic() + arguments.seconds
    for name, number, changed in chosen:
        if time.monotonic() > end:
            break
        result = survives(name, number, changed)
        results[result] += 1
        if result:
            line = (ROOT / SOURCES / name).read_text().splitlines()[number]
            print(f"{name}:{number + 1}: {line.strip()}  ->  {changed.strip()}", flush=True)
    print(f"{results[True]} of {results[True] + results[False]} mutants survived; the compiler "
          f"refused {results[None]} more (seed {arguments.seed}, of {len(mutants)})")


if __name__ == "__main__":
    main()
