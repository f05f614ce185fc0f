#!/usr/bin/env python3
"""The plate-result path of the agent and its plug-in, as one would write it in Python.

Takes each result from the device bus, publishes it at QoS 1 as the agent does, and has the
camera's store mark it as delivered when the broker has acknowledged it. One result is under way
at a time; up to 64 wait, the others stay in the store.

What it leaves out, and the agent does: requests, the retained status, re-delivery, lane-control
results, inputs and serial data, connecting again, following changes of name, address and user
data (they are read once), making room among the pictures, telling from the acknowledgement
whether anybody has heard the result, and a log of what it does.

One thread: the bus's text protocol and the MQTT client share a select().
"""
import argparse
import base64
import collections
import json
import os
import re
import secrets
import select
import shutil
import socket
import struct
import sys
import time
import urllib.parse

import paho.mqtt.client as paho

RESULT_TOPIC = "BUS_SRV_IVS_RESULT"
STORE_QUEUE = "BUS_GET_IVS_INFO"
CONFIRMATION_TIMEOUT_S = 5
MAX_WAITING = 64
RECORD_SIZE = 552

# The first 145 bytes of a record, texts left out; docs/records.md has them all.
RECORD = struct.Struct("<24x5i4iiIIIBB2xI5B3xI5x3B4iBBH20xB")
COLOR_OFFSET = 16
FULL_PICTURE_OFFSET = 296
CLIP_PICTURE_OFFSET = 424

# What C's strtol() takes for a number to the base 16.
HEXADECIMAL = re.compile(rb"[ \t\n\v\f\r]*([+-]?)(?:0[xX])?([0-9a-fA-F]*)")


class Bus:
    """A connection to a NATS server."""

    def __init__(self, address):
        host, port = address.rsplit(":", 1)
        self.socket = socket.create_connection((host, int(port)))
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._received = b""
        self._handlers = {}
        self._inbox = f"_INBOX.{secrets.token_hex(12)}."
        self._replies = {}
        self._last_request = 0
        self._pongs = 0
        self.socket.sendall(b'CONNECT {"verbose":false,"pedantic":false,"lang":"python"}\r\n')
        self.subscribe(self._inbox + "*", self._on_reply)

    def subscribe(self, subject, handler):
        """Has handler(subject, body) called for each message."""
        sid = str(len(self._handlers) + 1).encode()
        self._handlers[sid] = handler
        self.socket.sendall(b"SUB %s %s\r\n" % (subject.encode(), sid))

    def publish(self, subject, body):
        self.socket.sendall(b"PUB %s %d\r\n%s\r\n" % (subject.encode(), len(body), body))

    def request(self, subject, body, on_reply):
        self._last_request += 1
        inbox = f"{self._inbox}{self._last_request}"
        self._replies[inbox] = on_reply
        self.socket.sendall(b"PUB %s %s %d\r\n%s\r\n"
                            % (subject.encode(), inbox.encode(), len(body), body))
        return inbox

    def forget(self, inbox):
        self._replies.pop(inbox, None)

    def flush(self):
        """Waits until the server has carried out what was sent."""
        self._pongs = 0
        self.socket.sendall(b"PING\r\n")
        while not self._pongs:
            self.read()

    def ask(self, subject, body):
        """The same, waiting for the reply."""
        replies = []
        self.request(subject, body, replies.append)
        while not replies:
            self.read()
        return replies[0]

    def read(self):
        """Waits for bytes, and handles what is complete."""
        data = self.socket.recv(65536)
        if not data:
            raise ConnectionError("the bus has closed the connection")
        received = self._received + data
        at = 0
        while (end := received.find(b"\r\n", at)) >= 0:
            line = received[at:end]
            at = end + 2
            if line.startswith(b"MSG "):
                words = line.split(b" ")
                size = int(words[-1])
                if len(received) < at + size + 2:
                    at = end - len(line)
                    break
                body = received[at:at + size]
                at += size + 2
                self._handlers[words[2]](words[1].decode(), body)
            elif line == b"PONG":
                self._pongs += 1
            elif line == b"PING":
                self.socket.sendall(b"PONG\r\n")
            elif line.startswith(b"-ERR"):
                raise ConnectionError(line.decode())
        self._received = received[at:]

    def _on_reply(self, inbox, body):
        on_reply = self._replies.pop(inbox, None)
        if on_reply:
            on_reply(body)


class Databases:
    """The camera's key-value databases: buckets of the server's JetStream."""

    def __init__(self, address):
        self._bus = Bus(address)

    def get(self, database, key):
        """The value of a key, None without one."""
        reply = json.loads(self._bus.ask(
            f"$JS.API.STREAM.MSG.GET.KV_{database}",
            json.dumps({"last_by_subj": f"$KV.{database}.{key}"}).encode()))
        message = reply.get("message")
        return base64.b64decode(message.get("data", "")).decode(errors="replace") if message else None


def device_info(databases, sn):
    """What each message says of the camera. Read once, where the plug-in reads its copy of the
    databases for each result."""
    settings = json.loads(databases.get("skvdb", "net_rj45") or "{}")
    return {"user_data": databases.get("usr_data_kvdb", "bus_cipher_data") or "",
            "serialno": sn,
            "deviceName": databases.get("skvdb", "dev_name") or to_base64(b"IVS"),
            "ipaddr": settings.get("ip", ""),
            "channel": 0}


def to_base64(data):
    return base64.b64encode(data).decode()


def text_at(record, offset):
    """A text ends at a NUL; one that fills its field runs on, to the record's end at most."""
    end = record.find(b"\0", offset)
    return record[offset:] if end < 0 else record[offset:end]


def color_number(text):
    """As the plug-in reads it: 64 bits, of which the lower 32 stay."""
    sign, digits = HEXADECIMAL.match(text).groups()
    number = int(digits or b"0", 16)
    number = max(-number, -1 << 63) if sign == b"-" else min(number, (1 << 63) - 1)
    return (number + (1 << 31)) % (1 << 32) - (1 << 31)


def rect(left, top, right, bottom):
    return {"RECT": {"left": left, "top": top, "right": right, "bottom": bottom}}


class Pictures:
    """Copies that the cloud can fetch. None is ever removed."""

    def __init__(self, directory):
        self._directory = os.path.abspath(directory)
        os.makedirs(self._directory, exist_ok=True)
        self._url = "file://" + urllib.parse.quote(self._directory) + "/"

    def store(self, source, name):
        """The URL of a copy; empty without one."""
        if not source:
            return ""
        stem, extension = os.path.splitext(name)
        name = f"{stem}_{secrets.token_hex(4)}{extension}"
        temporary = os.path.join(self._directory, f".{name}.part")
        try:
            shutil.copyfile(source, temporary)
            os.rename(temporary, os.path.join(self._directory, name))
        except OSError as error:
            print(f"picture {os.fsdecode(source)} cannot be copied: {error.strerror}",
                  file=sys.stderr)
            return ""
        return self._url + urllib.parse.quote(name)


class Adapter:
    def __init__(self, options, sn):
        self._info = device_info(Databases(os.environ.get("TARVEX_KV_ADDRESS", "127.0.0.1:6102")),
                                 sn)
        self._sn = sn
        self._topic = f"{options.root}/{sn}/message/ivs_result"
        self._pictures = Pictures(options.picture_dir)
        self._picture_count = 0
        self._max_in_flight = options.results_in_flight
        self._waiting = collections.deque()
        self._published = {}  # plate ids by message id
        self._confirming = {}  # deadlines by inbox, in their order
        self._bus = Bus(os.environ.get("TARVEX_BUS_ADDRESS", "127.0.0.1:6101"))
        self._mqtt = paho.Client(client_id=f"{sn}-python", protocol=paho.MQTTv5)
        self._mqtt.max_inflight_messages_set(options.results_in_flight)
        self._mqtt.on_connect = self._on_connect
        self._mqtt.on_publish = self._on_acknowledged
        host, port = options.broker.rsplit(":", 1)
        self._mqtt.connect(host, int(port))
        self._mqtt.socket().setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def run(self):
        """Until a connection is lost: whoever runs it starts it again."""
        bus, mqtt = self._bus.socket, self._mqtt.socket()
        check_at = 0
        while self._mqtt.socket():
            readable, writable, _ = select.select(
                [bus, mqtt], [mqtt] if self._mqtt.want_write() else [], [], 1)
            if bus in readable:
                self._bus.read()
            if mqtt in readable:
                self._mqtt.loop_read()
            if writable:
                self._mqtt.loop_write()
            now = time.monotonic()
            if now >= check_at:
                check_at = now + 1
                self._mqtt.loop_misc()
                self._give_up_confirmations(now)
        raise ConnectionError("the broker is gone")

    def _on_connect(self, _client, _userdata, _flags, reason, _properties):
        if reason != 0:
            raise ConnectionError(f"the broker refuses: {reason}")
        self._bus.subscribe(RESULT_TOPIC, self._on_result)
        self._bus.flush()
        print("ready", flush=True)

    def _on_result(self, _topic, record):
        if len(record) != RECORD_SIZE:
            print(f"not a record: {len(record)} bytes", file=sys.stderr)
        elif len(self._waiting) < MAX_WAITING:
            self._waiting.append(record)
            self._publish_waiting()

    def _publish_waiting(self):
        while self._waiting and len(self._published) + len(self._confirming) < self._max_in_flight:
            plate_id, message = self._message(self._waiting.popleft())
            text = json.dumps(message, separators=(",", ":"), ensure_ascii=False)
            self._published[self._mqtt.publish(self._topic, text, qos=1).mid] = plate_id

    def _on_acknowledged(self, _client, _userdata, mid):
        request = {"type": "STP_SET_MQTT_OFFLINE_STATUS",
                   "body": {"plate_id": self._published.pop(mid), "push_status": 0}}
        inbox = self._bus.request(STORE_QUEUE, json.dumps(request).encode(),
                                  lambda _reply: self._on_confirmed(inbox))
        self._confirming[inbox] = time.monotonic() + CONFIRMATION_TIMEOUT_S

    def _on_confirmed(self, inbox):
        del self._confirming[inbox]
        self._publish_waiting()

    def _give_up_confirmations(self, now):
        for inbox in [inbox for inbox, deadline in self._confirming.items() if deadline < now]:
            self._bus.forget(inbox)
            self._on_confirmed(inbox)

    def _picture(self, record, offset, sec, plate_id, kind):
        name = f"{sec}_{self._sn}_{plate_id}_{self._picture_count}_{kind}.jpg"
        self._picture_count += 1
        return to_base64(self._pictures.store(text_at(record, offset), name).encode())

    def _message(self, record):
        """The plate id of a result, and its message."""
        (color_type, plate_type, confidence, bright, direction,
         left, top, right, bottom, time_used, sec, usec, trigger_type,
         car_bright, car_color, plate_id,
         dec_sec, dec_min, dec_hour, dec_day, dec_mon, dec_year,
         true_width, distance, is_fake,
         car_left, car_top, car_right, car_bottom, brand, brand_type, brand_year,
         ext_type) = RECORD.unpack_from(record)
        plate = {
            "plateid": plate_id,
            "license": to_base64(text_at(record, 0)),
            "license_ext_type": ext_type,
            "isoffline": 0,
            "type": plate_type,
            "colorType": color_type,
            "colorValue": color_number(text_at(record, COLOR_OFFSET)),
            "direction": direction,
            "triggerType": trigger_type,
            "confidence": confidence,
            "bright": bright,
            "carBright": car_bright,
            "carColor": car_color,
            "car_brand": {"brand": brand, "type": brand_type, "year": brand_year},
            "location": rect(left, top, right, bottom),
            "car_location": rect(car_left, car_top, car_right, car_bottom),
            "plate_true_width": true_width,
            "plate_distance": distance,
            "is_fake_plate": is_fake,
            "timeUsed": time_used,
            "clean_time": time_used & 0x0FFFFFFF,
            "timeStamp": {"Timeval": {
                "decyear": dec_year, "decmon": dec_mon, "decday": dec_day,
                "dechour": dec_hour, "decmin": dec_min, "decsec": dec_sec,
                "sec": sec, "usec": usec}},
            "imagePath": self._picture(record, FULL_PICTURE_OFFSET, sec, plate_id, "full"),
            "imageFragmentPath": self._picture(record, CLIP_PICTURE_OFFSET, sec, plate_id, "clip"),
            "gioouts": [],
            "feature_code": True}
        return plate_id, {
            "version": "1.0", "tag": 11,
            "payload": {"AlarmInfoPlate": {**self._info, "result": {"PlateResult": plate}}}}


def main():
    parser = argparse.ArgumentParser(description="Publishes a camera's plate results at a broker")
    parser.add_argument("--broker", default="127.0.0.1:1883", metavar="HOST:PORT")
    parser.add_argument("--root", default="cameras", help="what every topic begins with")
    parser.add_argument("--picture-dir", default="pictures", metavar="DIR")
    parser.add_argument("--results-in-flight", type=int, default=1, metavar="N")
    Adapter(parser.parse_args(), os.environ["TARVEX_SERIAL_NUMBER"]).run()


if __name__ == "__main__":
    try:
        main()
    except ConnectionError as failure:
        sys.exit(f"adapter.py: {failure}")
