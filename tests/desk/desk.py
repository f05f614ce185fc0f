"""A running `./dev run` for tests: on ports of its own, ended and cleared away at the end."""
import os
import pathlib
import random
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("DESK_BUILD", ROOT / "build/dev"))
PORT_OPTIONS = ("--port", "--console-port", "--link-port", "--bus-port", "--kv-port")


reserved = []


def free_port():
    """A port below those that outgoing connections get. The UDP port of the same number is taken
    until the tests are over: that tells tests that run at the same time that it is not theirs."""
    while True:
        port = random.randint(10000, 32000)
        mark = socket.socket(type=socket.SOCK_DGRAM)
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
                mark.bind(("127.0.0.1", port))
                reserved.append(mark)
                return port
            except OSError:
                mark.close()


def wait_until(condition, what, seconds=60):
    deadline = time.monotonic() + seconds
    while not (result := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f"{what} did not come within {seconds} s")
        time.sleep(0.05)
    return result


def is_running(pid):
    try:
        return pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] != "Z"
    except (FileNotFoundError, ProcessLookupError):
        return False


def dev(*arguments, environment=None):
    """A command of ./dev that ends by itself; its outputs come together as stdout."""
    return subprocess.run(
        [ROOT / "dev", *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT, text=True, timeout=120,
        env={**os.environ, "DESK_BUILD": str(BUILD), **(environment or {})})


class Desk:
    def __init__(self, build=BUILD):
        self.ports = {option: free_port() for option in PORT_OPTIONS}
        self.port = self.ports["--port"]
        self.run_dir = ROOT / f"build/run-{self.port}"
        self.sn = f"DESK{self.port}"
        self._environment = {**os.environ, "DESK_BUILD": str(build)}
        self._process = None
        self._output = tempfile.TemporaryFile()

    def start(self, *options, terminal=None):
        """Starts it, with a terminal's file descriptor as its standard output if one is given."""
        ports = [str(word) for pair in self.ports.items() for word in pair]
        self._output.seek(0)
        self._output.truncate()
        self._process = subprocess.Popen(
            [ROOT / "dev", "run", *ports, *options], stdin=subprocess.DEVNULL,
            stdout=terminal or self._output, stderr=self._output, env=self._environment,
            # A shell that has started the tests in the background ignores it, and so would they.
            preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
        return self

    def output(self):
        size = os.fstat(self._output.fileno()).st_size
        return os.pread(self._output.fileno(), size, 0).decode()

    def shows(self, pattern, seconds=60):
        """Waits for a text in the output; its match object."""
        def is_there():
            found = re.search(pattern, self.output(), re.MULTILINE)
            if not found and self._process.poll() is not None:
                raise AssertionError(f"the desk ended without /{pattern}/")
            return found
        try:
            return wait_until(is_there, f"/{pattern}/", seconds)
        except AssertionError as error:
            raise AssertionError(f"{error}:\n{self.output()}") from None

    def waits_for_one_more_result(self):
        def count():
            return len(re.findall("ivs_result.*: acknowledged", self.output()))
        before = count()
        wait_until(lambda: count() > before, "another result")

    def pid(self, part):
        return int((self.run_dir / f"{part}.pid").read_text())

    def kill(self, part):
        os.kill(self.pid(part), signal.SIGKILL)

    def ctl(self, *arguments):
        environment = {**os.environ,
                       "TARVEX_BUS_ADDRESS": f"127.0.0.1:{self.ports['--bus-port']}"}
        subprocess.run([BUILD / "bin/camera_ctl", *arguments], env=environment, check=True,
                       stdout=subprocess.DEVNULL)

    def wait(self, seconds=60):
        return self._process.wait(seconds)

    def interrupt(self):
        self._process.send_signal(signal.SIGINT)
        return self.wait()

    def clear_away(self):
        if self._process and self._process.poll() is None:
            self.interrupt()
        self._output.close()
        shutil.rmtree(self.run_dir, ignore_errors=True)


class DeskTest(unittest.TestCase):
    def desk(self, **arguments):
        desk = Desk(**arguments)
        self.addCleanup(desk.clear_away)
        return desk
