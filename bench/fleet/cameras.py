"""Pairs of a virtual camera and its agent, each with a serial number and a bus prefix of its own."""
import concurrent.futures
import contextlib
import os
import sqlite3

from camera_store import UNDELIVERED
from parts import BUILD, Program
from process_figures import Cost

AT_A_TIME = 8


def serial_numbers(first, count):
    """@param first number of the first one: fleets that share servers have others."""
    return [f"FLEET{number:05}" for number in range(first, first + count)]


class Cameras:
    def __init__(self, servers, numbers, cars_per_minute, environment=None):
        """@param numbers the serial numbers.
        @param environment of all programs besides."""
        self._more_environment = environment or {}
        self._servers = servers
        self._cars_per_minute = cars_per_minute
        self.serial_numbers = numbers
        self._cameras = []
        self._agents = []
        self._directory = servers.directory / "cameras"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end()

    def start(self, tell):
        """@param tell called with the number of pairs that have been started, every now and then."""
        with concurrent.futures.ThreadPoolExecutor(AT_A_TIME) as starter:
            pairs = [starter.submit(self._start_pair, serial_number)
                     for serial_number in self.serial_numbers]
            for started, _ in enumerate(concurrent.futures.as_completed(pairs), 1):
                if started % 25 == 0:
                    tell(started)
        for pair in pairs:
            pair.result()

    def _start_pair(self, serial_number):
        directory = self._directory / serial_number
        directory.mkdir(parents=True)
        self._cameras.append(self._camera(serial_number, self._cars_per_minute))
        self._agents.append(Program(
            [str(BUILD / "bin/cloud_agent"), "--plugin", str(BUILD / "lib/libmqttadapter.so"),
             "--trace", "--auto-push", "--broker", self._servers.broker, "--picture-dir",
             str(directory / "pictures"), "--keep-pictures", "20"],
            directory / "agent.log", self._environment(serial_number), lambda _output: True))

    def _environment(self, serial_number):
        return {**os.environ, "TARVEX_SERIAL_NUMBER": serial_number,
                "TARVEX_SUBJECT_PREFIX": serial_number, "TARVEX_LOG_LEVEL": "4",
                "TARVEX_BUS_ADDRESS": self._servers.bus,
                "TARVEX_KV_ADDRESS": self._servers.databases, **self._more_environment}

    def _camera(self, serial_number, cars_per_minute):
        directory = self._directory / serial_number
        return Program(
            [str(BUILD / "bin/virtual_camera"), "--trace", "--data", str(directory / "camera"),
             "--cars-per-minute", str(cars_per_minute), "--keep-results", "1000000",
             "--picture-width", "320"],
            directory / "camera.log", self._environment(serial_number),
            lambda output: "virtual_camera ready" in output)

    def stop_cars(self):
        """Each camera begins again with its store, and no car passes."""
        for camera in self._cameras:
            camera.end()
        self._cameras = [self._camera(serial_number, 0) for serial_number in self.serial_numbers]

    def stored(self):
        """The results in the cameras' stores, by serial number and plate id: (all of them, those
        undelivered)."""
        results, undelivered = set(), set()
        for serial_number in self.serial_numbers:
            file = self._directory / serial_number / "camera/camera.db"
            with contextlib.closing(sqlite3.connect(f"file:{file}?mode=ro", uri=True)) as store:
                for plate, status in store.execute("SELECT id, status FROM results"):
                    results.add((serial_number, plate))
                    if status == UNDELIVERED:
                        undelivered.add((serial_number, plate))
        return results, undelivered

    def costs(self):
        return {"agent": [Cost(agent.pid) for agent in self._agents],
                "camera": [Cost(camera.pid) for camera in self._cameras]}

    def end(self):
        """All at once: each takes its time to say that it goes."""
        with concurrent.futures.ThreadPoolExecutor(AT_A_TIME) as ender:
            for programs in (self._agents, self._cameras):
                list(ender.map(lambda program: program.end(), programs))
