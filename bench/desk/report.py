"""The figures as tables, for a terminal and for docs/performance.md, each with its goal."""
import math
import os
import pathlib
import platform
import re
import subprocess

from parts import BUILD, ROOT

PEERS = {"python": "Python", "node": "Node"}
NAMES = {"agent": "agent", **PEERS, "calls": "the calls alone"}
CPU_GOALS = {"python": 0.5, "node": 0.4}
MEMORY_GOALS = {"python": 0.5, "node": 0.1}
DOCUMENT = ROOT / "docs/performance.md"


def table(head, rows):
    """Markdown, with its columns in line."""
    cells = [head, ["---"] * len(head), *([str(cell) for cell in row] for row in rows)]
    widths = [max(len(row[column]) for row in cells) for column in range(len(head))]
    return "\n".join("| " + " | ".join(
        cell.ljust(width, "-" if cell == "---" else " ") for cell, width in zip(row, widths)) + " |"
        for row in cells)


def goal(ratio, limit, is_least=False):
    is_met = ratio >= limit if is_least else ratio <= limit
    return f"{'at least' if is_least else 'at most'} {limit:g}: {'met' if is_met else 'MISSED'}"


def plug_in(works):
    rows = []
    for name, work in works.items():
        own, naive = work["plug_in"], work["naive"]
        rows.append([f"`{name}`" if name != "plate_result" else "a plate result",
                     own["instructions"], naive["instructions"],
                     f"{own['instructions'] / naive['instructions']:.2f}"
                     f" ({goal(own['instructions'] / naive['instructions'], work['goal'])})",
                     f"{own['allocations']} of {naive['allocations']}",
                     f"{own['us']:.1f} of {naive['us']:.1f}"])
    return table(["Work", "plug-in", "naive", "ratio", "allocations", "us"], rows)


def compare(figures):
    texts = []
    for scenario, programs in figures.items():
        texts.append(f"{scenario[0].upper()}{scenario[1:]}:\n\n" + table(
            ["Program", "results/s", "CPU us/result", "of all rounds", "p50 us", "p99 us", "resident KiB",
             "private KiB", "threads", "arrived"],
            [[NAMES[name], f"{of['rate']:.0f}", f"{of['cpu_us']:.0f}",
              f"{of['all_cpu_us'][0]:.0f} to {of['all_cpu_us'][-1]:.0f}",
              f"{of['latency_us']['p50']:.0f}", f"{of['latency_us']['p99']:.0f}",
              f"{of['rss_kb']:.0f}", f"{of['private_kb']:.0f}", f"{of['threads']:.0f}",
              f"{of['arrived']:.0f} of {of['count']:.0f}"] for name, of in programs.items()]))
        agent = programs["agent"]
        rows = []
        for peer, name in PEERS.items():
            for what, key, goals in (("CPU", "cpu_us", CPU_GOALS),
                                     ("resident memory", "rss_kb", MEMORY_GOALS)):
                ratio = agent[key] / programs[peer][key]
                rows.append([f"{what}, agent / {name}", f"{ratio:.2f}", goal(ratio, goals[peer])])
            floor = programs["calls"]["cpu_us"] / programs[peer]["cpu_us"]
            rows.append([f"CPU, the calls alone / {name}", f"{floor:.2f}", ""])
        texts.append(table(["Ratio", "is", "goal"], rows))
    return "\n\n".join(texts)


def live(figures):
    return table(
        ["Live results, one at a time", ""],
        [["QoS 1 round trip at the broker, mean", f"{figures['broker_us']:.0f} us"],
         ["bare confirmation on the bus, mean", f"{figures['bus_us']:.0f} us"],
         ["floor: one result in both", f"{figures['floor_rate']:.0f} a second"],
         ["the agent", f"{figures['rate']:.0f} a second"],
         ["CPU of the agent", f"{figures['cpu_us']:.0f} us a result"],
         ["not arrived", f"{figures['missing']:.0f}"],
         ["agent / floor", f"{figures['of_floor']:.2f} ({goal(figures['of_floor'], 0.7, True)})"]])


def request(figures):
    rows = [[name, f"{figures[key]['p50']:.0f}", f"{figures[key]['p99']:.0f}"]
            for name, key in (("`get_io_out_status`, request to response", "request_us"),
                              ("echo at the broker, both ways", "echo_us"),
                              ("bare bus request", "bus_us"),
                              ("floor: both", "floor_us"))]
    ratios = {key: figures["request_us"][key] / figures["floor_us"][key] for key in ("p50", "p99")}
    rows.append(["request / floor", *(f"{ratios[key]:.2f} ({goal(ratios[key], limit)})"
                                      for key, limit in (("p50", 1.15), ("p99", 1.5)))])
    return (table(["Round trip", "p50 us", "p99 us"], rows)
            + f"\n\nCPU of the agent: {figures['cpu_us']:.0f} us a request.")


def endurance(figures):
    memory = figures["rss_kb_over_time"]
    lost = figures["count"] - min(figures["arrived"], figures["confirmed"])
    return table(
        ["As fast as acknowledged", ""],
        [["results", f"{figures['count']} in {figures['seconds']:.0f} s"],
         ["rate", f"{figures['rate']:.0f} a second"],
         ["lost", lost],
         ["came twice", figures["arrived_again"]],
         ["CPU of the agent", f"{figures['cpu_us']:.0f} us a result"],
         ["resident KiB, in twenty parts", " ".join(str(kb) for kb in memory)],
         ["growth after the first part", f"{memory[-1] - memory[min(1, len(memory) - 1)]} KiB"]])


def burst(figures):
    times = figures["latency_us"]
    shed = figures["shed"]
    return table(
        ["A burst into a slow broker", ""],
        [["results, all at once", figures["count"]],
         ["delivered and confirmed", figures["confirmed"]],
         ["their delay: p50, p99, longest", ", ".join(f"{times[key] / 1000:.0f} ms"
                                                     for key in ("p50", "p99", "max"))],
         ["left in the store: 64 waited for their turn", shed["turn"]],
         ["left in the store: 4096 waited for the event thread", shed["bus"]],
         ["not accounted for", figures["count"] - figures["confirmed"] - sum(shed.values())],
         ["resident KiB afterwards", figures["rss_kb"]]])


def growth(curve):
    """Against a logarithm that doubles with the first factor of ten."""
    times, columns = curve.growth()
    limit = 1 + math.log10(times)
    rows = [[name, f"{factor:.2f}", goal(factor, round(limit, 1))]
            for name, factor in columns.items()]
    return table([f"{times:.0f} times the {curve.x}", "times as much", "goal"], rows)


def curves(all_of_them):
    texts = []
    for curve in all_of_them:
        texts.append(f"{curve.title} ({curve.y}):\n\n"
                     + table([curve.x, *curve.columns], curve.rows) + "\n\n" + growth(curve)
                     + f"\n\n![{curve.title}](performance/{curve.name}.svg)")
    return "\n\n".join(texts)


def _first_line(*command):
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    return (result.stdout or result.stderr).splitlines()[0].strip()


def machine():
    processor = re.search(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(),
                          re.MULTILINE)
    cache = (BUILD / "CMakeCache.txt").read_text()
    compiler = re.search(r"^CMAKE_CXX_COMPILER:[A-Z]+=(.*)$", cache, re.MULTILINE)[1]
    build_type = re.search(r"^CMAKE_BUILD_TYPE:STRING=(.*)$", cache, re.MULTILINE)[1]
    paho = _first_line("/usr/bin/python3", "-c",
                       "import importlib.metadata as m; print(m.version('paho-mqtt'))")
    return table(["", ""], [
        ["Machine", f"{os.cpu_count()} cores, {processor[1] if processor else platform.machine()}"],
        ["Kernel", platform.release()],
        ["Compiler", f"{_first_line(compiler, '--version')}, {build_type}"],
        ["Bus", _first_line("nats-server", "--version")],
        ["Broker", _first_line("mosquitto", "-h")],
        ["Python", f"{_first_line('/usr/bin/python3', '--version')}, paho-mqtt {paho}"],
        ["Node", _first_line("node", "--version")],
        ["Load before the run", f"{os.getloadavg()[0]:.1f}"]])


def write(name, text, file=None):
    """Puts a text between its markers in a document, docs/performance.md by default."""
    file = file or DOCUMENT
    document = file.read_text(encoding="utf-8")
    marked = re.compile(rf"(<!-- bench:begin {name} -->\n).*?(<!-- bench:end {name} -->)", re.DOTALL)
    if not marked.search(document):
        raise RuntimeError(f"{file.name} has no place for {name}")
    file.write_text(marked.sub(lambda found: f"{found[1]}\n{text}\n\n{found[2]}", document),
                        encoding="utf-8")
