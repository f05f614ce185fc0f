"""The console of a fleet: knows its cameras by what the broker says."""
import json
import os
import re
import time
import urllib.request

from parts import BUILD, ROOT, Program


class Console:
    def __init__(self, servers, port=0):
        """@param port 0: a free one."""
        broker = servers.broker.split(",", maxsplit=1)[0]
        self._program = Program(
            [str(BUILD / "bin/console"), "--no-bus", "--port", str(port), "--broker", broker,
             "--page", str(ROOT / "src/console/page"),
             "--contract", str(ROOT / "contract/asyncapi.json")],
            servers.directory / "console.log", dict(os.environ),
            lambda output: re.search("console ready: .*\n", output))
        self.address = re.search("console ready: (.*)\n", self._program.output())[1]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._program.end()

    def await_online(self, cameras, seconds=10):
        """Waits until it says that so many are. @return how many it says in the end."""
        deadline = time.monotonic() + seconds
        while (online := self.online()) != cameras and time.monotonic() < deadline:
            time.sleep(0.1)
        return online

    def online(self):
        """How many cameras it says are online."""
        with urllib.request.urlopen(self.address + "metrics", timeout=10) as answer:
            figures = answer.read().decode()
        return len(re.findall(r"^camera_online\{.*\} 1$", figures, re.MULTILINE))

    def request(self, serial_number, name, payload):
        """As its page does it. Raises urllib.error.HTTPError where it is refused."""
        with urllib.request.urlopen(self.address, timeout=10) as page:
            token = re.search('name="console-token" content="(.*?)"', page.read().decode())[1]
        request = urllib.request.Request(
            f"{self.address}api/cameras/{serial_number}/requests/{name}",
            json.dumps(payload).encode(),
            {"X-Console-Token": token, "Origin": self.address.rstrip("/")})
        with urllib.request.urlopen(request, timeout=10) as answer:
            return json.load(answer)
