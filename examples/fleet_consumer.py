#!/usr/bin/python3
"""One of several consumers that divide the results of all cameras between them: each result goes
to one of a group. A result that comes twice, because an acknowledgement was lost on its way, is
kept once, also where the other one of the group had it first. docs/scale.md has more.

exit codes: 0 ended by a signal, 2 wrong usage, 3 broker or database trouble
"""
import argparse
import base64
import json
import os
import re
import signal
import sqlite3
import sys

try:
    import paho.mqtt.client as mqtt
    from paho.mqtt.properties import PacketTypes, Properties
except ImportError:
    print("fleet_consumer: needs Debian's python3-paho-mqtt, with /usr/bin/python3",
          file=sys.stderr)
    sys.exit(3)

# What was given to a consumer and not taken waits for it so long, under its name.
SESSION_S = 24 * 3600
# Of the reason codes of MQTT 5.
FIRST_FAILURE = 0x80


def read_command_line():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("broker", metavar="HOST:PORT", help="of a broker of MQTT 5")
    parser.add_argument("name", metavar="NAME", help="of this consumer; one that takes the place "
                        "of another has the other's name, and gets what it had not taken")
    parser.add_argument("--group", default="results", help="which consumers divide the results")
    parser.add_argument("--database", default="results.db", metavar="FILE",
                        help="where all consumers of the group keep the results")
    parser.add_argument("--root", default="cameras", help="what the topics begin with")
    options = parser.parse_args()
    if not re.fullmatch(r"[^:/@]+:\d{1,5}", options.broker):
        parser.error(f'"{options.broker}" is no HOST:PORT')
    for word in (options.name, options.group):
        if not re.fullmatch(r"[\w.-]+", word):
            parser.error(f'"{word}" is not made of letters, digits and _ . -')
    return options


def fail(text):
    print("fleet_consumer:", text, file=sys.stderr, flush=True)
    os._exit(3)


class Results:
    """One table for the group. A real one is in a database server."""

    def __init__(self, file, consumer):
        self._consumer = consumer
        self._database = sqlite3.connect(file, timeout=30, isolation_level=None)
        self._database.execute("PRAGMA journal_mode = WAL")
        self._database.execute(
            "CREATE TABLE IF NOT EXISTS results(sn TEXT, plateid INTEGER, sec INTEGER, "
            "usec INTEGER, license TEXT, consumer TEXT, PRIMARY KEY(sn, plateid, sec, usec))")

    def add(self, camera, plate):
        """@return whether it is new. It is kept when this returns."""
        at = plate["timeStamp"]["Timeval"]
        added = self._database.execute(
            "INSERT OR IGNORE INTO results VALUES(?, ?, ?, ?, ?, ?)",
            (camera, plate["plateid"], at["sec"], at["usec"], license_of(plate), self._consumer))
        return added.rowcount == 1


def license_of(plate):
    return base64.b64decode(plate["license"]).decode(errors="replace")


def main():
    options = read_command_line()
    try:
        results = Results(options.database, options.name)
    except sqlite3.Error as error:
        fail(f"{options.database}: {error}")

    client = mqtt.Client(f"{options.group}-{options.name}", protocol=mqtt.MQTTv5)

    def on_connect(_client, _data, _flags, reason, _properties):
        if reason.value >= FIRST_FAILURE:
            fail(f"the broker refuses: {reason}")
        client.subscribe(f"$share/{options.group}/{options.root}/+/message/ivs_result", qos=1)

    def on_subscribe(_client, _data, _mid, reasons, _properties):
        if reasons[0].value >= FIRST_FAILURE:
            fail(f"the broker refuses the subscription: {reasons[0]}")
        print(f"{options.name} takes its share of group {options.group}", flush=True)

    def on_message(_client, _data, message):
        # The library acknowledges the message after this, and so when the result is kept.
        camera = message.topic.split("/")[-3]
        try:
            plate = json.loads(message.payload)["payload"]["AlarmInfoPlate"]["result"]["PlateResult"]
            is_new = results.add(camera, plate)
        except (ValueError, KeyError, TypeError) as error:
            print(f"not a result, on {message.topic}: {error!r}", file=sys.stderr, flush=True)
            return
        except sqlite3.Error as error:
            fail(f"{options.database}: {error}")
        print(f"{camera} {plate['plateid']} {license_of(plate)}{'' if is_new else ' again'}",
              flush=True)

    client.on_connect, client.on_subscribe, client.on_message = on_connect, on_subscribe, on_message
    client.reconnect_delay_set(1, 10)
    properties = Properties(PacketTypes.CONNECT)
    properties.SessionExpiryInterval = SESSION_S
    host, port = options.broker.rsplit(":", 1)
    signal.signal(signal.SIGTERM, lambda *_: client.disconnect())
    try:
        client.connect(host, int(port), keepalive=10, clean_start=False, properties=properties)
    except OSError as error:
        fail(f"{options.broker}: {error}")
    try:
        client.loop_forever()
    except KeyboardInterrupt:
        client.disconnect()


if __name__ == "__main__":
    main()
