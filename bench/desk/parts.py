"""The programs that the benchmark and the test of the peers run: started on picked loopback
ports, waited for, and ended by the process id that they were started with."""
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/desk"))
from desk import free_port, wait_until  # noqa: E402

BUILD = pathlib.Path(os.environ.get("DESK_BUILD", ROOT / "build/dev"))
PEERS = ROOT / "bench/peers"
SERIAL_NUMBER = "BENCH1"


def is_open(port, host="127.0.0.1"):
    try:
        socket.create_connection((host, port), 1).close()
        return True
    except OSError:
        return False


def run_command(name, main):
    """Runs a command of ./dev: what it has started ends with it, and a failure is one line."""
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    try:
        main()
    except (RuntimeError, AssertionError, subprocess.TimeoutExpired) as failure:
        sys.exit(f"./dev {name}: {failure}")
    except KeyboardInterrupt:
        sys.exit(130)


class Program:
    def __init__(self, command, log, environment, ready):
        """@param ready called with what it has written so far: whether it is of use."""
        self._log = log
        with open(log, "wb") as output:
            self._process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output,
                                             stderr=subprocess.STDOUT, env=environment)
        self.pid = self._process.pid

        def is_settled():
            return self._process.poll() is not None or ready(self.output())
        try:
            wait_until(is_settled, f"the start of {command[0]}", 30)
            if self._process.poll() is not None:
                raise AssertionError(f"{command[0]} ended")
        except AssertionError as error:
            self.end()
            raise AssertionError(f"{error}: {self.output()[-2000:]}") from None

    def output(self):
        return self._log.read_text(errors="replace")

    def kill(self):
        self._process.kill()
        self._process.wait()

    def end(self):
        """SIGTERM, and SIGKILL to one that does not hear it."""
        if self._process.poll() is None:
            self._process.send_signal(signal.SIGTERM)
            try:
                self._process.wait(15)
            except subprocess.TimeoutExpired:
                self._process.kill()
                self._process.wait()


class Parts:
    """Two bus servers and a broker; the other programs on demand."""

    def __init__(self):
        # A store on a disk would measure the disk.
        memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="bench-", dir=memory))
        self.directory.chmod(0o755)  # a broker that root starts reads as another user
        self._programs = []
        self._starts = 0
        try:
            self._start_servers()
        except BaseException:
            self.end()
            raise

    def _start_servers(self):
        self.bus_port = self._on_a_port(
            lambda port: ["nats-server", "-a", "127.0.0.1", "-p", str(port)])
        self.kv_port = self._on_a_port(
            lambda port: ["nats-server", "-a", "127.0.0.1", "-p", str(port), "-js", "-sd",
                          str(self.directory / "kv")])
        self.broker_port = self._on_a_port(self._broker_command)
        self.environment = {**os.environ,
                            "TARVEX_BUS_ADDRESS": f"127.0.0.1:{self.bus_port}",
                            "TARVEX_KV_ADDRESS": f"127.0.0.1:{self.kv_port}",
                            "TARVEX_SERIAL_NUMBER": SERIAL_NUMBER,
                            "TARVEX_LOG_LEVEL": "4"}

    def _broker_command(self, port):
        settings = self.directory / f"mosquitto-{port}.conf"
        settings.write_text(f"listener {port} 127.0.0.1\nallow_anonymous true\npersistence false\n"
                            "set_tcp_nodelay true\nmax_queued_messages 0\n"
                            "max_inflight_messages 1000\n")
        return ["mosquitto", "-c", str(settings)]

    def _on_a_port(self, command):
        """Another program can take a port that was free a moment ago."""
        for attempts_left in reversed(range(5)):
            port = free_port()
            try:
                self.start(command(port), lambda _output: is_open(port), dict(os.environ))
                return port
            except AssertionError:
                if not attempts_left:
                    raise

    def start(self, command, ready, environment=None):
        self._starts += 1
        log = self.directory / f"{self._starts}-{pathlib.Path(command[0]).name}.log"
        program = Program([str(word) for word in command], log, environment or self.environment,
                          ready)
        self._programs.append(program)
        return program

    def camera(self, *options):
        return self.start([BUILD / "bin/virtual_camera", "--data", self.directory / "camera",
                           "--cars-per-minute", "0", "--picture-width", "64", *options],
                          lambda output: "virtual_camera ready" in output)

    def agent(self, *options, broker_port=None, root="cameras"):
        """It is of use when it is connected, which only a result that comes through shows."""
        return self.start(
            [BUILD / "bin/cloud_agent", "--plugin", BUILD / "lib/libmqttadapter.so", "--broker",
             f"127.0.0.1:{broker_port or self.broker_port}", "--root", root, "--picture-dir",
             self.directory / f"pictures-{root}", *options],
            lambda _output: True)

    def python(self, *options, root="cameras"):
        return self._peer(["/usr/bin/python3", PEERS / "adapter.py"], root, options)

    def node(self, *options, root="cameras"):
        return self._peer(["node", PEERS / "adapter.mjs"], root, options)

    def calls(self, *options, root="cameras"):
        return self._peer([BUILD / "bin/system_calls"], root, options)

    def _peer(self, command, root, options):
        return self.start(
            [*command, "--broker", f"127.0.0.1:{self.broker_port}", "--root", root,
             "--picture-dir", self.directory / f"pictures-{root}", *options],
            lambda output: "ready\n" in output)

    def end_program(self, program):
        program.end()
        self._programs.remove(program)

    def end(self):
        for program in reversed(self._programs):
            program.end()
        shutil.rmtree(self.directory, ignore_errors=True)
