"""Sees a fleet from both sides: what the programs tell of their messages on the bus, and what comes
at the broker."""
import contextlib
import itertools
import json
import threading
import time
import uuid

import paho.mqtt.client as paho
from paho.mqtt import publish
from adapter import Bus

REQUEST = "get_io_out_status"
REQUEST_BODY = {"gpio": 1}
START_S = 60
RECONNECT_S = 0.1
KEEP_ALIVE_S = 5
PROBE_TOPIC = "cameras/fleet/message/probe"
PROBES = 20
SETTLE_ATTEMPTS = 12


def percentiles(values):
    """In milliseconds, of microseconds."""
    ordered = sorted(values)

    def at(share):
        return round(ordered[min(len(ordered) - 1, int(share * len(ordered)))] / 1000, 2)
    return {"count": len(ordered), "p50": at(0.5), "p99": at(0.99), "most": at(1)} if ordered else {
        "count": 0}


class Observer:
    def __init__(self, servers, serial_numbers):
        """@param serial_numbers of the cameras that it heeds; there may be others."""
        self._mine = frozenset(serial_numbers)
        self._lock = threading.Lock()
        self._online = {}           # by serial number, as the retained status says
        self._recognised_us = {}    # by serial number and plate id, as all that follow
        self._acknowledged_us = {}
        self._arrived = {}          # how often
        self._links_up_us = {}      # by serial number, the latest
        self._asked = {}            # request id: when
        self._answered_us = []
        self._refused = 0
        self._counted_from_us = 0
        self._is_listening, self._is_subscribed = threading.Event(), threading.Event()
        self._buses = itertools.cycle(servers.bus.split(","))
        self._addresses = servers.broker.split(",")
        self._brokers = itertools.cycle(self._addresses)
        self._probes = set()
        self._is_ending = False
        self._threads = [threading.Thread(target=target, daemon=True)
                         for target in (self._read_bus, self._read_broker)]
        # Its session lasts: what comes while it goes from one server to another waits for it.
        self._broker = paho.Client(f"fleet-observer-{uuid.uuid4()}", clean_session=False)
        self._broker.max_inflight_messages_set(1000)
        self._broker.on_connect = self._on_connect
        self._broker.on_subscribe = lambda *_: self._is_subscribed.set()
        self._broker.on_message = self._on_message

    def __enter__(self):
        for thread in self._threads:
            thread.start()
        if not self._is_listening.wait(START_S) or not self._is_subscribed.wait(START_S):
            raise RuntimeError("the observer reaches no bus or no broker")
        return self

    def __exit__(self, *_):
        self._is_ending = True
        self._threads[1].join()

    def _read_bus(self):
        while not self._is_ending:
            try:
                bus = Bus(next(self._buses))
                bus.subscribe("*.TRACE_MESSAGES", self._on_trace)
                bus.flush()
                self._is_listening.set()
                while True:
                    bus.read()
            except OSError:
                time.sleep(RECONNECT_S)  # its server has ended

    def _read_broker(self):
        while not self._is_ending:
            host, port = next(self._brokers).rsplit(":", 1)
            try:
                self._broker.connect(host, int(port), keepalive=KEEP_ALIVE_S)
                while not self._is_ending and self._broker.loop(0.2) == paho.MQTT_ERR_SUCCESS:
                    pass
            except OSError:
                pass
            time.sleep(RECONNECT_S)
        self._broker.disconnect()

    def _on_connect(self, client, *_):
        client.subscribe([("cameras/+/status", 1), ("cameras/+/message/#", 1),
                          ("cameras/+/response/#", 1)])

    def _on_trace(self, _subject, body):
        event = json.loads(body)
        kind, camera = event["event"], event["sn"]
        if camera not in self._mine:
            return
        with self._lock:
            if kind == "stored":
                self._recognised_us[camera, event["plate_id"]] = event["at_us"]
            elif kind == "acknowledged" and "plate_id" in event and event["answer"] == "taken":
                self._acknowledged_us.setdefault((camera, event["plate_id"]), event["at_us"])
            elif kind == "link" and event["up"]:
                self._links_up_us[camera] = event["at_us"]

    def _on_message(self, _client, _data, message):
        now = time.monotonic()
        if message.topic == PROBE_TOPIC:
            with self._lock:
                self._probes.add(message.payload.decode())
            return
        _, camera, kind, *name = message.topic.split("/")
        if camera not in self._mine:
            return
        body = json.loads(message.payload)
        with self._lock:
            if kind == "status":
                self._online[camera] = body["online"]
            elif kind == "response":
                asked = self._asked.pop(body["id"], None)
                if asked is not None:
                    self._answered_us.append((now - asked) * 1e6)
                    self._refused += not body["result"]
            elif name == ["ivs_result"]:
                plate = body["payload"]["AlarmInfoPlate"]["result"]["PlateResult"]["plateid"]
                self._arrived[camera, plate] = self._arrived.get((camera, plate), 0) + 1

    def settle(self):
        """Waits until what is given to any of the brokers comes: those of a cluster that has just
        begun may take what they do not pass on."""
        for broker in self._addresses:
            host, port = broker.rsplit(":", 1)
            for _ in range(SETTLE_ATTEMPTS):
                batch = [f"probe-{uuid.uuid4()}" for _ in range(PROBES)]
                publish.multiple([(PROBE_TOPIC, probe, 1, False) for probe in batch], host, int(port),
                                 f"fleet-probe-{uuid.uuid4()}")
                with contextlib.suppress(RuntimeError):
                    self._await(lambda batch=batch: self._has_probes(batch), "the probes", 5)
                    break
            else:
                raise RuntimeError(f"what is given to {broker} does not come")

    def _has_probes(self, batch):
        with self._lock:
            return self._probes.issuperset(batch)

    def ask(self, camera):
        """Makes a request of the cloud."""
        with self._lock:
            number = f"fleet-{len(self._asked)}-{time.monotonic_ns()}"
            self._asked[number] = time.monotonic()
        self._broker.publish(f"cameras/{camera}/request/{REQUEST}", json.dumps(
            {"id": number, "version": "1.0", "payload": {"type": REQUEST, "body": REQUEST_BODY}}),
            qos=1)

    def online(self):
        with self._lock:
            return sum(self._online.values())

    def await_online(self, cameras, seconds):
        def are_online():
            with self._lock:
                return all(self._online.get(camera) for camera in cameras)
        self._await(are_online, f"{len(cameras)} cameras online", seconds)

    def await_links(self, since_us, count, seconds):
        """Waits until so many agents have connected since then."""
        def are_up():
            with self._lock:
                return sum(at > since_us for at in self._links_up_us.values()) >= count
        self._await(are_up, f"{count} agents connected again", seconds)

    @staticmethod
    def _await(condition, what, seconds):
        deadline = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > deadline:
                raise RuntimeError(f"not within {seconds} s: {what}")
            time.sleep(0.05)

    def begin(self):
        """From here on results count."""
        self._counted_from_us = time.time_ns() // 1000

    def _counted(self, until_us):
        return {key: at for key, at in self._recognised_us.items()
                if self._counted_from_us <= at < until_us}

    def progress(self):
        with self._lock:
            counted = self._counted(time.time_ns() // 1000)
            acknowledged = sum(key in self._acknowledged_us for key in counted)
            answered = len(self._answered_us)
        return (f"{self.online()} online, {len(counted)} results, {acknowledged} acknowledged, "
                f"{answered} requests answered")

    def await_all(self, seconds, cameras):
        """Waits for the results that were recognised until now, so long at the most.
        @param cameras what their stores still have to deliver, after an outage one result every
        five seconds, is not lost.
        @return what has become of them."""
        until_us = time.time_ns() // 1000
        deadline = time.monotonic() + seconds

        def missing():
            with self._lock:
                return [key for key in self._counted(until_us)
                        if key not in self._arrived or key not in self._acknowledged_us]
        while missing() and time.monotonic() < deadline:
            time.sleep(0.1)
        _, left = cameras.stored()
        with self._lock:
            counted = self._counted(until_us)
            return {"results": len(counted), "undelivered": sum(key in left for key in counted),
                    "acknowledged": sum(key in self._acknowledged_us for key in counted),
                    "lost": sum(key not in self._arrived and key not in left for key in counted),
                    "arrived_again": sum(self._arrived.get(key, 1) - 1 for key in counted)}

    def arrived(self):
        """How often each result came, by serial number and plate id."""
        with self._lock:
            return dict(self._arrived)

    def counted(self):
        """The results that count so far, by serial number and plate id."""
        with self._lock:
            return set(self._counted(time.time_ns() // 1000))

    def times(self):
        """From recognition to acknowledgement, and of requests, so far."""
        with self._lock:
            delivered = [self._acknowledged_us[key] - at
                         for key, at in self._counted(time.time_ns() // 1000).items()
                         if key in self._acknowledged_us]
            return {"recognition_to_acknowledgement_ms": percentiles(delivered),
                    "requests_ms": percentiles(self._answered_us),
                    "requests_answered": len(self._answered_us),
                    "requests_failed": self._refused, "requests_unanswered": len(self._asked)}

    def returns_ms(self, since_us):
        """When each agent connected since then, in order."""
        with self._lock:
            return sorted(round((at - since_us) / 1000, 1)
                          for at in self._links_up_us.values() if at > since_us)
