"""Asks bench_load for its measurements."""
import json
import subprocess

from parts import BUILD, SERIAL_NUMBER

BASE = f"cameras/{SERIAL_NUMBER}"
# Results before those that count: what Node needs until its compiler is done.
WARM_UP = 1500


def _bench_load(parts, measurement, options, seconds):
    words = [BUILD / "bin/bench_load", measurement, "--bus", parts.bus_port, "--broker",
             parts.broker_port]
    for name, value in options.items():
        words += [f"--{name.replace('_', '-')}"] + ([] if value is True else [value])
    result = subprocess.run([str(word) for word in words], capture_output=True, text=True,
                            timeout=seconds, check=False)
    if result.returncode != 0:
        raise RuntimeError(f"{measurement}: {result.stderr.strip()}")
    return json.loads(result.stdout)


def results(parts, program, seconds=300, **options):
    """Puts results on the bus for a program; how they fared, and what they cost it."""
    return _bench_load(parts, "results",
                       {"topic": f"{BASE}/message/ivs_result", "pid": program.pid, **options},
                       seconds)


def _compact(value):
    return json.dumps(value, separators=(",", ":"))


def _bus_options(parts, queue, request):
    """An "ID" in a request counts."""
    file = parts.directory / "request.json"
    file.write_text(_compact(request).replace('"ID"', "ID"))
    return {"queue": queue, "request_file": file}


def requests(parts, agent, name, body, beside, count):
    """Requests of the cloud, one at a time, in turn with a message echoed at the broker and with
    the bare request to a service: (queue, request)."""
    file = parts.directory / "body.json"
    file.write_text(_compact(body))
    return _bench_load(parts, "requests",
                       {"base": BASE, "pid": agent.pid, "name": name, "body_file": file,
                        "count": count, **_bus_options(parts, *beside)}, 300)


def delivery_floor(parts, queue, request, count):
    """A message acknowledged by the broker and a bare bus request, in turn."""
    return _bench_load(parts, "delivery-floor",
                       {"base": BASE, "count": count, **_bus_options(parts, queue, request)}, 300)


def bus_requests(parts, queue, request, count, first_id):
    """Bare bus requests, one at a time."""
    return _bench_load(parts, "bus-requests",
                       {"count": count, "first_id": first_id,
                        **_bus_options(parts, queue, request)}, 300)


class SlowLink:
    """A way to the broker that has little room."""

    def __init__(self, parts, bytes_per_second):
        self._process = subprocess.Popen(
            [BUILD / "bin/bench_load", "slow-link", "--broker", str(parts.broker_port),
             "--bytes-per-second", str(bytes_per_second)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.port = int(self._process.stdout.readline())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.communicate(timeout=30)
