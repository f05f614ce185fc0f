"""adapter_replay, as a firmware engineer runs it before they replace the library on a camera."""
import base64
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("DESK_BUILD", ROOT / "build/dev"))
LIBRARY = BUILD / "lib/libmqttadapter.so"
HEADER = {"capture": "mqtt_adapter", "version": 1, "by": "test", "sn": "CAM1",
          "start_us": 1700000000000000}
COUNT = b'{\n\t"type" : "STP_GET_MQTT_OFFLINE_COUNT"\n}\n'


def encoded(text):
    return base64.b64encode(text).decode()


def request(us, name, **body):
    payload = {"type": name, "body": body}
    return {"us": us, "event": "request", "name": name, "version": "1.0", "payload": payload}


def bus_request(us, queue, body, reply=None):
    event = {"us": us, "event": "bus_request", "queue": queue, "body": encoded(body)}
    return event if reply is None else {**event, "reply": encoded(reply)}


class Replay(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        changed = LIBRARY.read_bytes().replace(b"OnMQTTConnected\0", b"OnMQTTConn3cted\0")
        (cls.folder / "changed.so").write_bytes(changed)

    def run_with(self, *words):
        """(exit status, output, errors)"""
        result = subprocess.run([BUILD / "bin/adapter_replay", *words], cwd=self.folder,
                                capture_output=True, text=True, timeout=300)
        return result.returncode, result.stdout, result.stderr

    def capture(self, *events, name="capture.jsonl"):
        lines = [json.dumps(line) for line in (HEADER, *events)]
        (self.folder / name).write_text("\n".join(lines) + "\n")
        return name

    def steps(self, *events):
        """{title without its time: lines} of what the library does with the events."""
        status, said, errors = self.run_with(self.capture(*events), "--plugin", LIBRARY)
        self.assertEqual((status, errors), (0, ""))
        steps = {}
        for line in said.splitlines():
            if line.startswith("== "):
                lines = steps.setdefault(line.split(" ", 2)[2], [])
            elif line.startswith("  "):
                lines.append(line.strip())
        return steps

    def built(self, name, handler):
        """A library that does `handler` with each request."""
        source = f"""
            #include <csignal>
            #include "{ROOT}/tests/unit/cloud_agent/fake_plugins/idle_adapter.h"
            struct Adapter : IdleAdapter {{
              using IdleAdapter::IdleAdapter;
              bool RequestMessage(const std::string&, const Json::Value&, const std::string&,
                                  Json::Value&) override {{ {handler} }}
            }};
            BaseAdapter* create_adapter(boost::shared_ptr<tarvex::EventService> events, int id) {{
              return new Adapter(events, id);
            }}
            void destory_adapter(BaseAdapter* adapter) {{ delete adapter; }}"""
        subprocess.run(["g++", "-std=c++17", "-shared", "-fPIC", "-x", "c++", "-", "-o",
                        self.folder / name, f"-I{ROOT}/include", "-I/usr/include/jsoncpp"],
                       input=source, text=True, check=True)
        return name

    def test_the_same_library_does_not_differ(self):
        capture = self.capture(request(5, "get_sn"))
        status, said, _ = self.run_with(capture, "--plugin", LIBRARY, "--against", LIBRARY)
        self.assertEqual((status, said), (0, "capture.jsonl: no difference in 5 steps\n"))

    def test_a_changed_text_is_shown_with_the_event_that_led_to_it(self):
        capture = self.capture({"us": 1500000, "event": "link", "up": True})
        status, said, _ = self.run_with(capture, "--plugin", "changed.so", "--against", LIBRARY)
        self.assertEqual(status, 1)
        self.assertIn("@@ 1.500000 link up @@\n-  logs 6 mqtt_adapter: OnMQTTConnected\n"
                      "+  logs 6 mqtt_adapter: OnMQTTConn3cted\n", said)
        self.assertTrue(said.endswith("1 of 4 steps differ\n"), said)

    def test_a_transcript_stands_in_for_the_library_that_it_is_of(self):
        capture = self.capture(request(5, "get_sn"))
        transcript = self.folder / "capture.transcript"
        transcript.write_text(self.run_with(capture, "--plugin", LIBRARY)[1])
        for library, expected in ((LIBRARY, 0), ("changed.so", 1)):
            status, _, _ = self.run_with(capture, "--plugin", library, "--against", transcript)
            self.assertEqual(status, expected)

    def test_a_crash_ends_one_capture_and_is_shown(self):
        captures = [self.capture(request(5, "get_sn"), name=name) for name in ("a", "b")]
        crashing = self.built("crashing.so", "return raise(SIGSEGV) == 0;")
        status, said, _ = self.run_with(*captures, "--plugin", crashing)
        self.assertEqual((status, said.count("ends the process: Segmentation fault")), (1, 2))

    def test_a_library_that_does_not_come_to_its_end_is_shown(self):
        hanging = self.built("hanging.so", "for (;;) raise(0);")
        status, said, _ = self.run_with(self.capture(request(5, "get_sn")), "--plugin", hanging,
                                        "--timeout", "1")
        self.assertEqual((status, said.count("  does not come to its end in time\n")), (1, 1))

    def test_what_is_thrown_is_shown(self):
        throwing = self.built("throwing.so", "throw std::runtime_error(\"why\");")
        status, said, _ = self.run_with(self.capture(request(5, "get_sn")), "--plugin", throwing)
        self.assertEqual((status, said.count("  throws why\n")), (0, 1))

    def test_the_clock_is_the_captures(self):
        steps = self.steps(request(3000000, "get_device_timestamp"))
        self.assertIn('"timestamp" : 1700000003', sum(steps.values(), []))

    def test_what_is_delayed_happens_at_its_time(self):
        steps = self.steps(request(1000000, "check_offline_record", enable="push"),
                           request(7000000, "get_sn"))
        push = next(lines for title, lines in steps.items() if "check_offline_record" in title)
        self.assertIn("posts 199403 after 5000 ms", push)
        self.assertLess(push.index("at 6.000000"), push.index("publishes offline_record 1.0, tag 17"))

    def test_databases_have_what_the_capture_says(self):
        event = {"us": 0, "event": "database", "database": "skvdb", "key": "dev_name",
                 "value": encoded(b"R2F0ZQ==")}
        self.assertIn("logs 6 mqtt_adapter: GetDevName : R2F0ZQ==", self.steps(event)["start"])

    def test_the_plug_in_starts_with_the_first_event_that_is_no_setting(self):
        late = {"us": 3000000, "event": "database", "database": "skvdb", "key": "dev_name",
                "value": encoded(b"TGF0ZQ==")}
        steps = self.steps(late, request(4000000, "get_device_timestamp"))
        self.assertIn("logs 6 mqtt_adapter: GetDevName : TGF0ZQ==", steps["start"])

    def test_a_setting_can_change_and_go(self):
        change = {"event": "database", "database": "skvdb", "key": "dev_name"}
        trigger = {"event": "message", "topic": "EVT_SRV_EXTERNAL_TRIGGER", "body": "e30="}
        steps = self.steps({"us": 1, "event": "link", "up": True},
                           {"us": 2, **change, "value": encoded(b"TmV3")}, {"us": 3, **trigger},
                           {"us": 4, **change}, {"us": 5, **trigger})
        names = [line for line in steps["message EVT_SRV_EXTERNAL_TRIGGER, {}"]
                 if "GetDevName" in line]
        self.assertEqual(names, ["logs 6 mqtt_adapter: GetDevName : TmV3",
                                 "logs 6 mqtt_adapter: GetDevName : SVZT"])

    def test_a_service_answers_what_it_answered_to_the_same_body(self):
        steps = self.steps({"us": 5, "event": "link", "up": True},
                           bus_request(7, "BUS_GET_IVS_INFO", b"other", b"{}"),
                           bus_request(9, "BUS_GET_IVS_INFO", COUNT,
                                       b'{"body":{"offline_count":4}}'))
        self.assertIn("is answered as at 0.000009", steps["link up"])
        self.assertIn('"offline_record" : 4', steps["link up"])

    def test_a_service_answers_the_same_body_again_as_it_did_the_next_time(self):
        written = {"serialChannel": 0, "data": "YQ==", "dataLen": 1}
        body = bytes([111, 0, 0, 0, 0, 0, 0, 0]) + b"a"
        steps = self.steps(*(bus_request(us, "EVS_RS485_WRITE", body, b"") for us in (1, 8, 9)),
                           request(5, "serial_data", serialData=[written] * 3))
        answered = [line for line in sum(steps.values(), [])
                    if line.startswith("is answered")]
        self.assertEqual(answered, [f"is answered as at 0.00000{us}" for us in (8, 9, 8)])

    def test_a_service_answers_something_else_as_it_did_in_order(self):
        steps = self.steps(bus_request(9, "BUS_GET_IVS_INFO", b"other", b"{}"),
                           {"us": 5, "event": "link", "up": True})
        self.assertIn("is answered as at 0.000009, where something else was asked",
                      steps["link up"])

    def test_a_service_that_was_not_asked_does_not_answer(self):
        steps = self.steps({"us": 5, "event": "link", "up": True})
        self.assertIn("is not answered: the capture has no request to this queue",
                      steps["link up"])

    def test_a_service_that_did_not_answer_does_not(self):
        steps = self.steps(bus_request(9, "BUS_GET_IVS_INFO", COUNT),
                           {"us": 5, "event": "link", "up": True})
        self.assertIn("is not answered, as at 0.000009", steps["link up"])

    def test_a_message_reaches_only_who_listens_to_it(self):
        message = {"us": 5, "event": "message", "topic": "EVT_SRV_EXTERNAL_TRIGGER", "body": "e30="}
        down = {"us": 4, "event": "link", "up": False}
        title = "message EVT_SRV_EXTERNAL_TRIGGER, {}"
        self.assertIn("publishes gpio_in 1.0, tag 13", self.steps(message)[title])
        self.assertEqual(self.steps(down, message)[title], ["does not listen to it"])

    def test_only_what_was_published_is_confirmed(self):
        steps = self.steps({"us": 5, "event": "confirmed", "tag": 17},
                           {"us": 6, "event": "confirmed", "tag": 11})
        self.assertIn("logs 6 mqtt_adapter: OnMessagePublished tag :17",
                      steps["confirmed, tag 17"])
        self.assertEqual(steps["confirmed, tag 11"],
                         ["has nothing with this tag to be confirmed"])

    def test_words_and_files_that_cannot_be_used(self):
        capture = self.capture()
        (self.folder / "bad.jsonl").write_text(json.dumps(HEADER) + "\n{}\n")
        for words, why in (
                ((), "which capture?"), ((capture,), "which library?"),
                ((capture, "--plugin"), "unexpected: --plugin"),
                ((capture, "--timeout", "0"), "--timeout takes whole seconds, not 0"),
                ((capture, "--plugin", "none.so"), "./none.so cannot be read"),
                ((capture, "--plugin", LIBRARY, "--against", capture),
                 f"./{capture} is neither a library nor a transcript"),
                (("none.jsonl", "--plugin", LIBRARY),
                 "none.jsonl cannot be read, or is empty"),
                (("bad.jsonl", "--plugin", LIBRARY), 'bad.jsonl:2: no such "event"')):
            status, said, errors = self.run_with(*words)
            self.assertEqual((status, said), (2, ""))
            self.assertEqual(errors.splitlines()[0], f"adapter_replay: {why}")


if __name__ == "__main__":
    unittest.main()
