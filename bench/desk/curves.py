"""How what something costs depends on how much of it there is: a table and a picture each."""
import csv
import json
import subprocess

import camera_store
import load
from adapter import Bus
from measurements import MANY, STORE_QUEUE, parts_with_databases

QUEUE_LENGTHS = (1, 2, 5, 10, 15, 20)
WHITE_LISTS = (10, 100, 1000, 10_000, 100_000)
STORES = (1000, 10_000, 100_000)
LONG_STORES = (*STORES, 1_000_000)
RECORDS = (1, 3, 10, 30, 100, 300, 1000, 3000)
WHITE_LIST_QUEUE = "BUS_WHITE_LIST_INFO"
AT_A_TIME = 2000


class Curve:
    def __init__(self, name, title, x, y, columns, logarithmic):
        """@param logarithmic which axes are: "", "x" or "xy"."""
        self.name = name
        self.title = title
        self.x = x
        self.y = y
        self.columns = columns
        self.logarithmic = logarithmic
        self.rows = []

    def add(self, amount, *values):
        self.rows.append((amount, *(round(value, 1) for value in values)))

    def growth(self):
        """By how much the size grows over the whole curve, and each column with it."""
        first, last = self.rows[0], self.rows[-1]
        sizes, *columns = (after / before for before, after in zip(first, last))
        return sizes, dict(zip(self.columns, columns))

    def write(self, directory):
        """NAME.csv and NAME.svg."""
        directory.mkdir(parents=True, exist_ok=True)
        table = directory / f"{self.name}.csv"
        with open(table, "w", newline="", encoding="utf-8") as file:
            writer = csv.writer(file, lineterminator="\n")
            writer.writerow((self.x, *self.columns))
            writer.writerows(self.rows)
        scale = "" if "y" in self.logarithmic else "set yrange [0:*]\n"
        if self.logarithmic:
            scale += f"set logscale {self.logarithmic}\nset format x '%.0f'\n"
        lines = ", ".join(f"'{table}' using 1:{column} with linespoints title columnheader"
                          for column in range(2, len(self.columns) + 2))
        script = (f"set terminal svg size 640,320 font 'sans-serif,12' background '#ffffff'\n"
                  f"set output '{directory / self.name}.svg'\nset datafile separator ','\n"
                  f"set title '{self.title}'\nset xlabel '{self.x}'\nset ylabel '{self.y}'\n"
                  f"set key bottom left\nset grid\n{scale}plot {lines}\n")
        subprocess.run(["gnuplot"], input=script, text=True, check=True)


def queue_length(say):
    curve = Curve("queue_length", "A result, by how many are under way", "results",
                  "CPU of the agent, us", ("one in flight and the others waiting", "all in flight"), "")
    parts = parts_with_databases()
    try:
        for length in QUEUE_LENGTHS:
            say(f"{length} results under way")
            costs = []
            for in_flight in (1, length):
                agent = parts.agent("--results-in-flight", str(in_flight))
                costs.append(load.results(parts, agent, warm_up=300, count=1500,
                                          window=length)["cpu_us"])
                parts.end_program(agent)
            curve.add(length, *costs)
    finally:
        parts.end()
    return curve


def _changes(parts, agent, records, count):
    """Requests that change the white list, in turn with the bus requests that they make."""
    return load.requests(
        parts, agent, "white_list_operator",
        {"operator_type": "update_or_add", "dldb_rec": records},
        (WHITE_LIST_QUEUE, {"type": "replace_white_list",
                            "body": {"white_list_rec": records}}), count)


def white_list(say):
    curve = Curve("white_list", "A change of one plate, by the length of the white list", "plates",
                  "p50, us", ("request of the cloud", "bare bus request"), "x")
    change = [{"plate": "AA00001", "note": "changed"}]
    parts = parts_with_databases()
    try:
        parts.camera()
        agent = parts.agent()
        bus = Bus(f"127.0.0.1:{parts.bus_port}")
        filled = 0
        for length in WHITE_LISTS:
            say(f"a white list of {length} plates")
            while filled < length:
                upto = min(length, filled + AT_A_TIME)
                records = [{"plate": f"AA{number:05}", "note": "resident"}
                           for number in range(filled, upto)]
                answer = json.loads(bus.ask(WHITE_LIST_QUEUE, json.dumps(
                    {"type": "replace_white_list", "body": {"white_list_rec": records}}).encode()))
                if answer["body"]["stored"] != len(records):
                    raise RuntimeError(f"the white list took {answer}")
                filled = upto
            figures = _changes(parts, agent, change, 300)
            curve.add(length, figures["request_us"]["p50"], figures["bus_us"]["p50"])
        bus.socket.close()
    finally:
        parts.end()
    return curve


def store(sizes, say):
    curve = Curve("store", "A request to the store, by its undelivered results", "results",
                  "p50, us", ("count", "select 5", "confirm"), "x")
    filled = 0
    parts = parts_with_databases()
    try:
        for size in sizes:
            say(f"a store of {size} results")
            camera_store.fill(parts.directory / "camera", filled + 1, size)
            camera = parts.camera("--keep-results", MANY)
            curve.add(size, *(
                load.bus_requests(parts, STORE_QUEUE, {"type": kind, "body": body}, 300,
                                  filled + 1)["bus_us"]["p50"]
                for kind, body in (
                    ("STP_GET_MQTT_OFFLINE_COUNT", {}),
                    ("STP_SELECT_MQTT_OFFLINE_RECORD", {"count": 5, "id": size // 2}),
                    ("STP_SET_MQTT_OFFLINE_STATUS", {"plate_id": "ID", "push_status": 0}))))
            parts.end_program(camera)
            filled = size
    finally:
        parts.end()
    return curve


def message_size(say):
    curve = Curve("message_size", "A request to the white list, by its records", "records",
                  "us per record",
                  ("request of the cloud (p50)", "bare bus request (p50)", "CPU of the agent"), "xy")
    parts = parts_with_databases()
    try:
        parts.camera()
        agent = parts.agent()
        for length in RECORDS:
            say(f"a request with {length} records")
            records = [{"plate": f"BB{number:05}", "note": "resident"} for number in range(length)]
            figures = _changes(parts, agent, records, max(20, min(300, 3000 // length)))
            curve.add(length, *(figure / length for figure in (
                figures["request_us"]["p50"], figures["bus_us"]["p50"], figures["cpu_us"])))
    finally:
        parts.end()
    return curve


def all_curves(is_long, say):
    return [queue_length(say), white_list(say), store(LONG_STORES if is_long else STORES, say),
            message_size(say)]
