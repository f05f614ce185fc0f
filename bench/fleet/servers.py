"""The servers that all cameras of a fleet share: bus, databases and broker."""
import json
import os
import pathlib
import shutil
import tempfile
import urllib.error
import urllib.request

from parts import Program, free_port, is_open, wait_until
from process_figures import Cost

NODES = 3
LOOPBACK = "127.0.0.1"


class _Addresses:
    """Where they are, several of a cluster with commas; and a directory for who uses them."""

    def __init__(self):
        memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="fleet-", dir=memory))
        self.directory.chmod(0o755)  # a broker that root starts reads as another user
        self.bus = self.databases = self.broker = ""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end()

    def end(self):
        shutil.rmtree(self.directory, ignore_errors=True)


class SharedServers(_Addresses):
    """Those that are there already."""

    def __init__(self, file):
        """@param file JSON: "bus", "databases" and "broker"."""
        try:
            addresses = json.loads(pathlib.Path(file).read_text())
            found = [addresses[name] for name in ("bus", "databases", "broker")]
        except (OSError, ValueError, KeyError, TypeError) as error:
            raise RuntimeError(f"--servers {file}: {error}") from None
        super().__init__()
        self.bus, self.databases, self.broker = found

    @staticmethod
    def costs():
        return {}


class OwnServers(_Addresses):
    def __init__(self, is_cluster, hosts=(LOOPBACK,) * NODES):
        """@param is_cluster three nats-servers that are all of it, instead of two and mosquitto.
        @param hosts the address of this machine that each of them is to listen on."""
        super().__init__()
        self._programs = {}
        self._nodes = []
        try:
            if is_cluster:
                self._start_cluster(hosts)
            else:
                self._start_singles()
        except BaseException:
            self.end()
            raise

    def _start_singles(self):
        bus, databases, broker = free_port(), free_port(), free_port()
        self.bus, self.databases, self.broker = (
            f"127.0.0.1:{port}" for port in (bus, databases, broker))
        self._start("bus", ["nats-server", "-a", "127.0.0.1", "-p", str(bus)], bus)
        self._start("databases", ["nats-server", "-a", "127.0.0.1", "-p", str(databases), "-js",
                                  "-sd", str(self.directory / "databases")], databases)
        settings = self.directory / "mosquitto.conf"
        settings.write_text(f"listener {broker} 127.0.0.1\nallow_anonymous true\n"
                            "persistence false\nset_tcp_nodelay true\nmax_queued_messages 0\n"
                            "max_inflight_messages 1000\n")
        self._broker = ("broker", ["mosquitto", "-c", str(settings)], broker)
        self.start_broker()

    def _start_cluster(self, hosts):
        clients, brokers, routes, self._monitors = (
            [free_port() for _ in range(NODES)] for _ in range(4))

        def places(ports):
            return [f"{host}:{port}" for host, port in zip(hosts, ports)]
        self.bus = self.databases = ",".join(places(clients))
        self.broker = ",".join(places(brokers))
        route_urls = ", ".join(f'"nats://{place}"' for place in places(routes))
        for node in range(NODES):
            settings = self.directory / f"node{node}.conf"
            settings.write_text(
                f"server_name: node{node}\nlisten: {places(clients)[node]}\n"
                f"http: 127.0.0.1:{self._monitors[node]}\n"
                f'jetstream {{ store_dir: "{self.directory}/node{node}" }}\n'
                f"cluster {{ name: desk, listen: {places(routes)[node]}, "
                f"routes: [{route_urls}] }}\n"
                f"mqtt {{ listen: {places(brokers)[node]}, stream_replicas: {NODES} }}\n")
            self._nodes.append((f"node{node}", ["nats-server", "-c", str(settings)],
                                clients[node], hosts[node]))
            self._start(*self._nodes[node])
        wait_until(lambda: all(map(self._is_healthy, range(NODES))), "the start of the cluster")

    def _is_healthy(self, node):
        """Whether it serves, and its copy of each stream is as the others have it. Consumers do not
        count: those of clients that have gone stay behind for minutes."""
        try:
            with urllib.request.urlopen(
                    f"http://127.0.0.1:{self._monitors[node]}/healthz", timeout=5):
                return True
        except urllib.error.HTTPError as answer:
            return "JetStream consumer" in json.loads(answer.read())["error"]
        except OSError:
            return False

    def kill_node(self, node):
        self._programs.pop(self._nodes[node][0]).kill()

    def start_node(self, node):
        """Returns when it has caught up."""
        self._start(*self._nodes[node])
        wait_until(lambda: self._is_healthy(node), f"the return of node {node}")

    def _start(self, name, command, port, host=LOOPBACK):
        self._programs[name] = Program(command, self.directory / f"{name}.log",
                                       dict(os.environ), lambda _output: is_open(port, host))

    def kill_broker(self):
        """Where it is a server of its own."""
        self._programs.pop("broker").kill()

    def start_broker(self):
        self._start(*self._broker)

    def costs(self):
        return {name: Cost(program.pid) for name, program in self._programs.items()}

    def end(self):
        for program in self._programs.values():
            program.end()
        super().end()
