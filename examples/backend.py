#!/usr/bin/python3
"""A small backend for one camera: shows each of its results once, has the stored ones
delivered, follows its status and asks requests. docs/integrating.md leads through it.

exit codes: 0 done, 1 the camera said no, 2 wrong usage, 3 broker trouble, 4 no response
"""
import argparse
import base64
import json
import math
import os
import queue
import re
import socket
import sys
import threading
import time
import uuid

try:
    import paho.mqtt.client as mqtt
    from paho.mqtt.properties import PacketTypes, Properties
except ImportError:
    print("backend: needs Debian's python3-paho-mqtt, with /usr/bin/python3", file=sys.stderr)
    sys.exit(3)


def fail(exit_code, text):  # from any thread
    print("backend:", text, file=sys.stderr, flush=True)
    os._exit(exit_code)


def read_command_line():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("broker", metavar="HOST:PORT")
    parser.add_argument("sn", metavar="SERIAL_NUMBER")
    parser.add_argument("--once", type=int, metavar="RESULTS", help="end after so many")
    parser.add_argument("--ask", nargs="+", metavar=("NAME", "BODY"), help="send one request")
    parser.add_argument("--timeout", type=float, default=10, metavar="SECONDS")
    options = parser.parse_args()
    if not re.fullmatch(r"[^:/@]+:\d{1,5}", options.broker):
        parser.error(f'"{options.broker}" is no HOST:PORT')
    if not re.fullmatch(r"[^/+#\s]+", options.sn):
        parser.error(f'"{options.sn}" is no serial number')
    if not 0 < options.timeout <= 3600 or len(options.ask or []) > 2:
        parser.error("--timeout takes up to 3600 seconds, --ask one or two words")
    try:
        options.body = json.loads(options.ask[1]) if len(options.ask or []) == 2 else None
    except ValueError as error:
        parser.error(f"BODY is not JSON: {error}")
    return options


options = read_command_line()
base = "cameras/" + options.sn
# Two programs with one client id throw each other out, so who only asks has an id of its own.
client_id = f"ask-{uuid.uuid4()}" if options.ask else "backend-py-" + options.sn
reply_topic = f"{base}/response/{client_id}"
orders = queue.SimpleQueue()  # for the main thread; functions named on_... run on the library's

# --- Results: each comes at least once, live (tag 11) or from the camera's store (tag 16) ---
seen = set()


# The library acknowledges the message when this returns. Until then a real backend has
# committed it to a table with a unique index (serial number, plateid, sec, usec): no camera
# gives a plate id twice, and the time tells it from one that had its serial number before.
def on_result(message):
    global pushed_at
    plate = message["payload"]["AlarmInfoPlate"]["result"]["PlateResult"]
    at = plate["timeStamp"]["Timeval"]  # since 1970, by the camera's clock
    number = base64.b64decode(plate["license"]).decode("utf-8", "replace")
    picture = base64.b64decode(plate["imagePath"]).decode()  # empty: it could not be copied
    if message["tag"] == 16:
        pushed_at = time.monotonic()
    key = plate["plateid"], at["sec"], at["usec"]
    if key in seen:
        return
    seen.add(key)
    print(time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(at["sec"])), number, "id", key[0],
          "stored" if message["tag"] == 16 else "live", picture or "no picture", flush=True)
    if len(seen) == options.once:
        orders.put("leave")


# --- The status, and the delivery of stored results: on command, one every five seconds ---
pushed_at = -math.inf  # when the push under way was ordered or last brought a result
status_line = ""


# {"online": false} is the camera's will, which the broker publishes, or its last message.
def on_status(status):
    global pushed_at, status_line
    stored = status.get("undelivered") or {"count": "?"}
    device = "there" if status.get("device") else "not there"
    line = f"online, device {device}, {stored['count']} undelivered"
    line = line if status["online"] else "offline"
    if line != status_line and not options.ask:
        print("status:", line, flush=True)
    status_line = line
    # A result of the last seconds may be on its way right now. One push at a time.
    if (stored.get("oldest_age_s") or 0) > 5 and time.monotonic() - pushed_at > 60:
        pushed_at = time.monotonic()
        orders.put("push")


# Comes when a push has ended, and when the camera has connected.
def on_offline_record(left):
    global pushed_at
    print("stored results left:", left, flush=True)
    pushed_at = -math.inf  # the next status orders the next push


# --- Requests ---
waiting = {}  # queues for the responses, by correlation data


# The response, or None. The key stays the same, so the camera carries the request out once,
# also when only its response was lost. After the time-out nobody shall act on it: the broker
# drops it after the message expiry (whole seconds), the camera refuses it after expires_ms.
# QoS 0: a library sends a QoS 1 request again when it has reconnected, however late.
def ask(name, body=None):
    request = {"id": str(uuid.uuid4()), "version": "1.0", "idempotency_key": str(uuid.uuid4()),
               "expires_ms": math.ceil(options.timeout * 1000), "payload": {"type": name}}
    if body is not None:
        request["payload"]["body"] = body
    properties = Properties(PacketTypes.PUBLISH)
    properties.ResponseTopic = reply_topic
    properties.CorrelationData = request["id"].encode()
    properties.MessageExpiryInterval = math.ceil(options.timeout)
    responses = waiting[properties.CorrelationData] = queue.SimpleQueue()
    response = None
    for attempt in 1, 2, 3:
        client.publish(f"{base}/request/{name}", json.dumps(request), properties=properties)
        try:
            response = responses.get(timeout=options.timeout)
            if response.get("code") != "busy":
                break
            time.sleep(1)
        except queue.Empty:
            pass
        print(f"{name}: {'busy' if response else 'no response'}, try {attempt} of 3",
              file=sys.stderr, flush=True)
    del waiting[properties.CorrelationData]
    return response


# --- The connection: a persistent session, in which the broker keeps results meanwhile ---
is_ready = threading.Event()


def on_connect(_client, _userdata, _flags, code, _properties):
    if code.value >= 128:
        fail(3, f"{options.broker}: {code}")
    # Without it the kernel holds back a request that follows an acknowledgement, until the
    # broker's kernel has confirmed that one: 44 ms instead of 1.
    client.socket().setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    topics = {base + "/status": 0, reply_topic: 0}
    if not options.ask:
        # QoS 1, which the broker keeps for an absent backend, for results only: a status every
        # ten seconds would use up its queue (mosquitto: max_queued_messages, 1000).
        topics.update({base + "/message/ivs_result": 1, base + "/message/offline_record": 0})
    client.subscribe([(topic, mqtt.SubscribeOptions(qos)) for topic, qos in topics.items()])


def on_subscribe(_client, _userdata, _mid, codes, _properties):
    if any(code.value >= 128 for code in codes):
        fail(3, "the broker refuses the subscription")
    if not options.ask:
        print("listening to", options.sn, flush=True)
    is_ready.set()


def on_disconnect(_client, _userdata, code, _properties=None):
    if code != 0:
        print("broker lost, connecting again", file=sys.stderr, flush=True)


def on_message(_client, _userdata, packet):
    name = packet.topic[len(base) + 1:]
    try:
        message = json.loads(packet.payload)
        if packet.topic == reply_topic:
            if packet.properties.CorrelationData in waiting:
                waiting[packet.properties.CorrelationData].put(message)
        elif name == "status":
            on_status(message)
        elif name == "message/ivs_result":
            on_result(message)
        elif name == "message/offline_record":
            on_offline_record(message["payload"]["body"]["offline_record"])
    except (ValueError, KeyError, TypeError, AttributeError) as error:
        print(f"not understood: {packet.topic}: {error!r}", file=sys.stderr, flush=True)


client = mqtt.Client(client_id=client_id, protocol=mqtt.MQTTv5)
client.on_connect, client.on_subscribe = on_connect, on_subscribe
client.on_disconnect, client.on_message = on_disconnect, on_message
client.reconnect_delay_set(max_delay=5)
session = Properties(PacketTypes.CONNECT)
session.SessionExpiryInterval = 0 if options.ask else 7 * 24 * 3600  # longer than any absence
host, port = options.broker.split(":")
try:
    client.connect(host, int(port), clean_start=bool(options.ask), properties=session)
except (OSError, ValueError) as error:
    fail(3, f"{options.broker}: {error}")
client.loop_start()
if not is_ready.wait(10):
    fail(3, f"{options.broker} does not answer as an MQTT broker")
exit_code = 0
if options.ask:
    begin = time.monotonic()
    answer = ask(options.ask[0], options.body)
    if answer is None:
        fail(4, f"no response to {options.ask[0]}; the camera is {status_line or 'unknown'}")
    print(json.dumps(answer))
    took_ms = 1000 * (time.monotonic() - begin)
    print(f"{answer.get('code', 'done')} in {took_ms:.1f} ms", file=sys.stderr)
    exit_code = 0 if answer["result"] else 1
else:
    while orders.get() != "leave":
        answer = ask("check_offline_record", {"enable": "push", "max_count": 20, "min_id": 0})
        if not answer or not answer["result"]:
            pushed_at = -math.inf  # the next status tries again
client.loop_stop()  # when everything is sent, the last acknowledgement too
client.disconnect()
sys.exit(exit_code)
