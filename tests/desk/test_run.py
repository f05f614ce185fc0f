"""./dev run from the outside."""
import os
import pathlib
import pty
import re
import shutil
import socket
import subprocess
import tempfile

from desk import BUILD, ROOT, DeskTest, dev, free_port, is_running

PARTS = ("bus", "kv", "broker", "console", "camera", "agent")


class Run(DeskTest):
    def test_ends_by_itself_and_counts_what_was_acknowledged(self):
        desk = self.desk().start("--for", "5")
        self.assertEqual(desk.wait(), 0, desk.output())
        self.assertRegex(desk.output(), r"[1-9]\d* results acknowledged in 5 seconds")

    def test_begins_with_a_dozen_lines_the_page_first(self):
        desk = self.desk().start()
        desk.shows("ivs_result .*: acknowledged")
        said = desk.output().partition("\n20")[0].splitlines()
        self.assertTrue(said[0].startswith(f"http://127.0.0.1:{desk.ports['--console-port']}/ "))
        self.assertLessEqual(len(said), 12)
        self.assertLessEqual(max(map(len, said)), 100)

    def test_loses_no_message_at_the_start(self):
        desk = self.desk().start()
        desk.shows("ivs_result .*: acknowledged")
        self.assertNotRegex(desk.output(), "link down|heard by nobody")

    def test_shows_messages_in_100_columns_of_a_terminal(self):
        screen, terminal = pty.openpty()
        self.addCleanup(os.close, screen)
        self.desk().start(terminal=terminal)
        os.close(terminal)
        shown = b""
        while not re.search(rb"ivs_result.*\n", shown):
            shown += os.read(screen, 65536)
        line = re.search("^.*ivs_result.*$", shown.decode(), re.MULTILINE).group().rstrip("\r")
        self.assertRegex(line, "…: acknowledged$")
        self.assertEqual(len(line), 100)

    def test_ends_every_process_on_ctrl_c(self):
        desk = self.desk().start()
        desk.shows("ivs_result .*: acknowledged")
        pids = [desk.pid(part) for part in PARTS]
        self.assertEqual(desk.interrupt(), 130)
        self.assertEqual([pid for pid in pids if is_running(pid)], [])


class WithTls(DeskTest):
    def setUp(self):
        self.started = self.desk()
        self.start()

    def start(self, *options):
        self.started.start("--tls", "--cars-per-minute", "60", *options)
        self.started.shows("ivs_result .*: acknowledged")

    def authority(self):
        return (self.started.run_dir / "tls/ca.pem").read_text()

    def test_suggests_commands_that_work(self):
        command = self.started.shows("^  (mosquitto_sub .*)$")[1]
        seen = self.run_(f"{command} -C 1 -W 20")
        self.assertIn(f"cameras/{self.started.sn}/", seen.stdout)
        listed = dev("try", "--port", str(self.started.port)).stdout
        commands = re.findall("^  (mosquitto_pub .*(?:get_sn|snapshot).*)$", listed, re.MULTILINE)
        self.assertEqual(len(commands), 2)
        for command in commands:
            self.assertEqual(self.run_(command).returncode, 0, command)
            self.started.shows(re.search("request/([a-z_]+)", command)[1] + " tag .*: acknowledged")

    def test_lets_nobody_in_without_a_certificate(self):
        files = self.started.run_dir / "tls"
        result = self.run_(f"mosquitto_sub -p {self.started.port} --cafile {files}/ca.pem "
                           "-v -t '#' -C 1 -W 20")
        self.assertNotEqual(result.returncode, 0)
        self.assertNotIn(self.started.sn, result.stdout)

    def test_keeps_its_certificates_unless_it_begins_anew(self):
        before = self.authority()
        self.started.interrupt()
        self.start()
        self.assertEqual(self.authority(), before)
        self.started.interrupt()
        self.start("--fresh")
        self.assertNotEqual(self.authority(), before)

    def test_makes_its_certificates_anew_when_one_is_about_to_expire(self):
        before = self.authority()
        self.started.interrupt()
        self.run_("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=person "
                  f"-days 6 -keyout /dev/null -out {self.started.run_dir}/tls/person.pem")
        self.start()
        self.assertNotEqual(self.authority(), before)

    def run_(self, command):
        return subprocess.run(command, shell=True, cwd=ROOT, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, timeout=60)


class APartThatEnds(DeskTest):
    def test_is_named_and_started_again_and_results_go_on(self):
        desk = self.desk().start("--cars-per-minute", "60")
        desk.shows("ivs_result .*: acknowledged")
        for part in PARTS:
            with self.subTest(part):
                pid = desk.pid(part)
                desk.kill(part)
                desk.shows(rf"{part} ended \(signal KILL\) and was started again")
                self.assertNotEqual(desk.pid(part), pid)
                desk.waits_for_one_more_result()
        self.assertNotIn("children.sh", desk.output())

    def test_while_the_desk_asks_for_its_first_car_does_not_end_the_run(self):
        build = self.build_of_links()
        self.replace("camera_ctl", "echo 'the camera does not answer' >&2; exit 1")
        desk = self.desk(build=build).start("--cars-per-minute", "60")
        desk.shows("the camera does not answer")
        desk.shows("ivs_result .*: acknowledged")

    def test_and_cannot_start_ends_the_run_with_its_reason(self):
        desk = self.desk(build=self.build_of_links()).start()
        desk.shows("ivs_result .*: acknowledged")
        self.replace("console", "echo 'the page is gone' >&2; exit 3")
        desk.kill("console")
        self.assertEqual(desk.wait(), 1)
        self.assertRegex(desk.output(), "console cannot start: the page is gone\n$")

    def replace(self, program, script):
        (self.programs / program).unlink()
        (self.programs / program).write_text(f"#!/bin/sh\n{script}\n")
        (self.programs / program).chmod(0o755)

    def build_of_links(self):
        """A build whose programs can be replaced."""
        build = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, build)
        self.programs = build / "bin"
        self.programs.mkdir()
        for program in (BUILD / "bin").iterdir():
            (self.programs / program.name).symlink_to(program)
        (build / "lib").symlink_to(BUILD / "lib")
        return build


class TwoDesks(DeskTest):
    def test_stand_side_by_side(self):
        desks = [self.desk().start() for _ in range(2)]
        for desk in desks:
            desk.shows(f"{desk.sn}.*: acknowledged")
        for desk in desks:
            desk.waits_for_one_more_result()


class Kept(DeskTest):
    def setUp(self):
        self.kept = self.desk().start("--cars-per-minute", "0")
        self.kept.shows("ivs_result .*: acknowledged")

    def run_again(self, *options):
        self.kept.interrupt()
        self.kept.start("--cars-per-minute", "0", *options)
        self.kept.shows("ivs_result .*: acknowledged")

    def test_state_is_not_mentioned_where_it_is_as_at_first(self):
        self.run_again()
        self.assertNotIn("earlier run", self.kept.output())

    def test_state_is_named_where_it_matters(self):
        self.kept.ctl("rename", "Gate 7")
        self.run_again()
        self.assertRegex(self.kept.output(), 'earlier run .*: its name is "Gate 7"\n')

    def test_state_goes_with_fresh(self):
        self.kept.ctl("rename", "Gate 7")
        self.run_again("--fresh")
        self.assertNotIn("earlier run", self.kept.output())
        self.kept.shows("_1_0_full_")  # the first plate id


class WrongUse(DeskTest):
    def says(self, line, *options):
        result = dev("run", *options)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout, f"./dev: run: {line}\n")

    def test_is_answered_with_one_line(self):
        for line, *options in (
                ("unknown option --fro (see ./dev run --help)", "--fro"),
                ("unknown option 7 (see ./dev run --help)", "7"),
                ("--for takes whole seconds, not ''", "--for"),
                ("--for takes whole seconds, not '1.5'", "--for", "1.5"),
                ("--for takes whole seconds, not '0'", "--for", "0"),
                ("--cars-per-minute takes a number, not 'many'", "--cars-per-minute", "many"),
                ("--port takes a port from 1 to 65535, not ''", "--port"),
                ("--port takes a port from 1 to 65535, not '0'", "--port", "0"),
                ("--kv-port takes a port from 1 to 65535, not '65536'", "--kv-port", "65536"),
                ("--bus-port takes a port from 1 to 65535, not '-1'", "--bus-port", "-1")):
            with self.subTest(options=options):
                self.says(line, *options)

    def test_of_one_port_twice_is_answered_with_both_options(self):
        result = dev("run", "--port", "6101")
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stdout, r"^\./dev: run: --(bus-port and --port|port and --bus-port) are both 6101\n$")

    def test_of_a_busy_port_names_who_has_it(self):
        with socket.create_server(("127.0.0.1", free_port())) as taken:
            port = taken.getsockname()[1]
            others = [word for option in ("--bus-port", "--kv-port", "--link-port", "--port")
                      for word in (option, str(free_port()))]
            self.says(f"port {port} is held by python3 (pid {os.getpid()}); "
                      "--console-port takes another", "--console-port", str(port), *others)
