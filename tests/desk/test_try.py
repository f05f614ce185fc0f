"""./dev try: what it lists can be pasted and works."""
import queue
import re
import subprocess

import paho.mqtt.client as paho

from desk import ROOT, DeskTest, dev


class Try(DeskTest):
    def test_says_that_no_desk_is_running(self):
        result = dev("try", "--port", "9")
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout, "./dev: try: no desk is running with broker port 9 "
                                        "(./dev run starts one)\n")

    def test_refuses_what_it_does_not_know(self):
        for line, *options in (("unknown option all (see ./dev try --help)", "all"),
                               ("--port takes a port, not 'x'", "--port", "x")):
            self.assertEqual(dev("try", *options).stdout, f"./dev: try: {line}\n")

    def test_lists_a_command_for_each_request_that_is_carried_out(self):
        desk = self.desk().start()
        desk.shows("ivs_result .*: acknowledged")
        listed = re.findall(r"^  (mosquitto_pub .*)$", self.try_(desk), re.MULTILINE)
        self.assertEqual(len(listed), 23)
        for command in listed:
            name = re.search("/request/([a-z_]+)", command)[1]
            with self.subTest(name):
                self.assertIn('"result":true', self.answer(desk, name, command))

    def test_lists_events_that_the_camera_takes(self):
        desk = self.desk().start()
        desk.shows("ivs_result .*: acknowledged")
        listed = re.findall(r"^  (.*camera_ctl (?:car|gpio-in|serial|rename|state).*)$",
                            self.try_(desk), re.MULTILINE)
        self.assertEqual(len(listed), 5)
        for command in listed:
            with self.subTest(command):
                subprocess.run(command, shell=True, cwd=ROOT, check=True,
                               stdout=subprocess.DEVNULL)

    def try_(self, desk):
        result = dev("try", "--port", str(desk.port))
        self.assertEqual(result.returncode, 0, result.stdout)
        return result.stdout

    def answer(self, desk, name, command):
        """The response to a listed command; the subscription stands before it is sent."""
        client = paho.Client()
        answers = queue.Queue()
        client.on_connect = lambda *_: client.subscribe(f"cameras/{desk.sn}/response/{name}")
        client.on_subscribe = lambda *_: subprocess.run(command, shell=True, check=True)
        client.on_message = lambda *about: answers.put(about[2].payload.decode())
        client.connect("127.0.0.1", desk.port)
        client.loop_start()
        self.addCleanup(client.loop_stop)
        self.addCleanup(client.disconnect)
        return answers.get(timeout=30)
