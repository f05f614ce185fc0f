"""The agent and its peers make the same of the same records, or comparing them says nothing."""
import base64
import json
import pathlib
import queue
import random
import re
import select
import struct
import time
import unittest

import paho.mqtt.client as paho

from adapter import RESULT_TOPIC, STORE_QUEUE, Bus
from parts import SERIAL_NUMBER, Parts

ROOTS = ("agent", "python", "node")
PATIENCE_S = 60
# A result that came before a program was listening comes again after this.
REPEAT_S = 1
PICTURE_OFFSETS = (296, 424)


def record(plate_id, plate=b"AB12345", color=b"0xF7C41E", pictures=(b"", b""), seed=1):
    """A record with something in every byte that is no text."""
    data = bytearray(random.Random(seed).randbytes(552))
    data[0:16] = plate.ljust(16, b"\0")
    data[16:24] = color.ljust(8, b"\0")
    for offset, picture in zip(PICTURE_OFFSETS, pictures):
        data[offset:offset + 128] = picture.ljust(128, b"\0")
    data[80:84] = struct.pack("<I", plate_id)
    return bytes(data)


class Peers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.parts = Parts()
        cls.addClassCleanup(cls.parts.end)
        cls.parts.camera("--name", "Südtor \"7\"", "--user-data", "gelb & \\ \"grün\"")
        cls.published = queue.Queue()
        cls.cloud = paho.Client(protocol=paho.MQTTv5)
        cls.cloud.on_connect = lambda *_: cls.cloud.subscribe("+/+/message/ivs_result", qos=1)
        cls.cloud.on_subscribe = lambda *_: cls.published.put(None)
        cls.cloud.on_message = lambda *about: cls.published.put(about[2])
        cls.cloud.connect("127.0.0.1", cls.parts.broker_port)
        cls.cloud.loop_start()
        cls.addClassCleanup(cls.cloud.loop_stop)
        cls.addClassCleanup(cls.cloud.disconnect)
        cls.published.get(timeout=PATIENCE_S)
        cls.parts.agent(root="agent")
        cls.parts.python(root="python")
        cls.parts.node(root="node")
        cls.bus = Bus(f"127.0.0.1:{cls.parts.bus_port}")
        cls.addClassCleanup(cls.bus.socket.close)
        cls.confirmations = []
        cls.bus.subscribe(STORE_QUEUE, lambda _queue, body: cls.confirmations.append(body))
        cls.bus.flush()

    def published_by_all(self, data):
        """What each of the three publishes of a record, by its root: the topic below it, and the
        message."""
        plate_id = struct.unpack_from("<I", data, 80)[0]
        found = {}
        deadline = time.monotonic() + PATIENCE_S
        repeat_at = 0
        while len(found) < len(ROOTS):
            now = time.monotonic()
            self.assertLess(now, deadline, f"only {sorted(found)} published a result")
            if now >= repeat_at:
                repeat_at = now + REPEAT_S
                self.bus.publish(RESULT_TOPIC, data)
            try:
                message = self.published.get(timeout=REPEAT_S / 4)
            except queue.Empty:
                continue
            body = json.loads(message.payload)
            if self.plate(body)["plateid"] == plate_id:
                root, _, topic = message.topic.partition("/")
                found[root] = (topic, message.qos, body)
        return found

    @staticmethod
    def plate(body):
        return body["payload"]["AlarmInfoPlate"]["result"]["PlateResult"]

    def assert_equal(self, data):
        found = self.published_by_all(data)
        for peer in ("python", "node"):
            self.assertEqual(found[peer], found["agent"], peer)
        return found["agent"]

    def test_publish_the_same_of_a_common_result(self):
        topic, qos, body = self.assert_equal(record(1))
        self.assertEqual((topic, qos), (f"{SERIAL_NUMBER}/message/ivs_result", 1))
        self.assertEqual(base64.b64decode(self.plate(body)["license"]), b"AB12345")

    def test_publish_the_same_of_odd_text_in_the_plate(self):
        plates = (b"", b" ", b"\xff\xfe", "粤B·12345".encode(), b'"\\/\x01\x1f', b"16 bytes exactly")
        for number, plate in enumerate(plates):
            with self.subTest(plate):
                self.assert_equal(record(100 + number, plate=plate))

    def test_publish_the_same_of_odd_text_in_the_colour(self):
        colors = (b"", b"0x", b"0xg", b"-0x7F", b" \t+1f", b"zz", b"-", b"FFFFFFF", b"0XFFFFFF",
                  b"-FFFFFFF", b"FFFFFFFF", b"\xa0FF", b"1 2")
        for number, color in enumerate(colors):
            with self.subTest(color):
                self.assert_equal(record(200 + number, color=color))

    def test_publish_the_same_of_a_record_whose_texts_have_no_end(self):
        for number, letter in enumerate((b"A", b"0", b"\xff")):
            with self.subTest(letter):
                data = bytearray(letter * 552)
                data[80:84] = struct.pack("<I", 0x41414141 + number)
                _, _, body = self.assert_equal(bytes(data))
                self.assertEqual(len(base64.b64decode(self.plate(body)["license"])), 552)

    def test_publish_the_same_of_colours_that_run_on_into_numbers(self):
        for number, digits in enumerate((b"7FFFFFFFFFFFFFFF", b"8000000000000000",
                                         b"-8000000000000000", b"-FFFFFFFFFFFFFFFF",
                                         b"123456789ABCDEF0")):
            with self.subTest(digits):
                data = bytearray(record(300 + number))
                data[16:16 + len(digits) + 1] = digits + b"\0"
                self.assert_equal(bytes(data))

    def test_publish_the_same_of_random_records(self):
        seeds = random.Random(7)
        for number in range(30):
            data = bytearray(seeds.randbytes(552))
            # Paths that are there would be pictures.
            for offset in PICTURE_OFFSETS:
                data[offset] = ord("-")
            data[80:84] = struct.pack("<I", 1000 + number)
            with self.subTest(number):
                self.assert_equal(bytes(data))

    def test_copy_pictures_under_names_that_differ_at_random_and_in_their_number_only(self):
        pictures = [self.parts.directory / f"{kind}.jpg" for kind in ("full", "clip")]
        for picture in pictures:
            picture.write_bytes(picture.name.encode() * 100)
        found = self.published_by_all(
            record(400, pictures=[str(picture).encode() for picture in pictures]))
        names = {}
        for root, (_, _, body) in found.items():
            for member, picture in zip(("imagePath", "imageFragmentPath"), pictures):
                url = base64.b64decode(self.plate(body).pop(member)).decode()
                copy = pathlib.Path(url.removeprefix("file://"))
                self.assertEqual(copy.read_bytes(), picture.read_bytes())
                self.assertEqual(copy.parent, self.parts.directory / f"pictures-{root}")
                # SECONDS_SN_PLATEID_NUMBER_KIND_RANDOM.jpg: the number counts the pictures that
                # a process was asked for, so a result that came again changes it.
                words = re.fullmatch(r"(\d+_\w+_400_)\d+(_\w+)_[0-9a-f]{8}\.jpg", copy.name)
                names.setdefault(member, set()).add(words.groups())
        self.assertEqual({member: len(texts) for member, texts in names.items()},
                         {"imagePath": 1, "imageFragmentPath": 1})
        self.assertEqual(found["python"], found["agent"])
        self.assertEqual(found["node"], found["agent"])

    def test_confirm_a_result_to_the_store_in_the_same_words(self):
        self.published_by_all(record(500))
        wanted = {"type": "STP_SET_MQTT_OFFLINE_STATUS",
                  "body": {"plate_id": 500, "push_status": 0}}
        deadline = time.monotonic() + PATIENCE_S
        while [json.loads(body) for body in self.confirmations].count(wanted) < len(ROOTS):
            left = deadline - time.monotonic()
            self.assertGreater(left, 0, self.confirmations)
            if select.select([self.bus.socket], [], [], left)[0]:
                self.bus.read()


if __name__ == "__main__":
    unittest.main()
