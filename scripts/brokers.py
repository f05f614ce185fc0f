"""The table of docs/brokers.md, from what the tests with each broker found."""
import json
import pathlib
import subprocess
import sys
from typing import NamedTuple

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "bench/desk"))
import report  # noqa: E402

AEDES = ROOT / "tests/brokers/node_modules/aedes/package.json"
# What does not work where a test fails.
WORKS = {"TakeResultsInOrderAndAcknowledgeThem": "results",
         "CarryEveryRequestAndItsResponse": "requests",
         "KeepTheStatusAndPublishTheWill": "status and will",
         "LoseNothingWhenTheyAreAwayAndComeBack": "outage and re-delivery",
         "AreConnectedToAgainWhenTheyWereRestarted": "restart"}
SILENT = "acknowledges and drops what an access list denies"


class Broker(NamedTuple):
    name: str
    mqtt: str
    package: str  # of Debian; empty: from npm
    configuration: str  # below tests/brokers
    beware: str


BROKERS = {
    "mosquitto": Broker("mosquitto", "5", "mosquitto", "mosquitto.conf.in",
                        "slow without `set_tcp_nodelay`; drops beyond `max_queued_messages`"),
    "mosquitto_3_1_1": Broker("mosquitto", "3.1.1", "mosquitto", "mosquitto.conf.in", SILENT),
    "nats_server": Broker("nats-server", "3.1.1", "nats-server", "nats-server.conf.in",
                          f"no `.` in a topic; {SILENT}"),
    "aedes": Broker("aedes", "3.1.1", "", "aedes.mjs", "keeps everything in memory only"),
    "ejabberd": Broker("ejabberd", "5", "ejabberd", "ejabberd.yml.in",
                       "ends sessions after 5 minutes unless told; no shared subscriptions"),
}


def version(broker):
    if not broker.package:
        return json.loads(AEDES.read_text())["version"]
    debian = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", broker.package],
                            stdout=subprocess.PIPE, text=True, check=True).stdout
    return debian.rpartition(":")[2].partition("-")[0]


def outcomes(results):
    """Of each broker its tests, by name."""
    found = {}
    for suite in json.loads(results.read_text())["testsuites"]:
        for test in suite["testsuite"]:
            name, _, broker = test["name"].partition("/")
            found.setdefault(broker, {})[name] = test
    return found


def row(broker, tests):
    failed = [text for name, text in WORKS.items() if tests[name].get("failures")]
    works = "all but " + ", ".join(failed) if failed else "all"
    round_trip = tests["TakeResultsInOrderAndAcknowledgeThem"].get("round_trip_us")
    return [broker.name, version(broker), broker.mqtt, works,
            f"[`{broker.configuration}`](../tests/brokers/{broker.configuration})",
            f"{int(round_trip) / 1000:.2f} ms" if round_trip else "", broker.beware]


def main():
    found = outcomes(pathlib.Path(sys.argv[1]))
    report.write("brokers", report.table(
        ["Broker", "Version", "MQTT", "Works", "Configuration", "QoS 1 round trip", "Beware"],
        [row(broker, found[key]) for key, broker in BROKERS.items()]), ROOT / "docs/brokers.md")


main()
