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


def requests(parts, agent, name, body, seconds=300, **options):
    """Requests of the cloud, one at a time."""
    file = parts.directory / "body.json"
    file.write_text(json.dumps(body, separators=(",", ":")))
    return _bench_load(parts, "requests",
                       {"base": BASE, "pid": agent.pid, "name": name, "body_file": file, **options},
                       seconds)


def delivery_floor(parts, queue, request, **options):
    """A message acknowledged by the broker and a bare bus request, in turn."""
    return _bench_load(parts, "delivery-floor",
                       {"base": BASE, "queue": queue, "request": json.dumps(request)
                        .replace('"ID"', "ID"), **options}, 300)


def bus_requests(parts, queue, request, **options):
    """Bare bus requests, one at a time; "ID" in one counts."""
    return _bench_load(parts, "bus-requests",
                       {"queue": queue,
                        "request": json.dumps(request).replace('"ID"', "ID"), **options}, 300)


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
