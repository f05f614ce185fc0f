"""What ./dev shows of installing and building, with stand-ins for apt-get, cmake and ninja."""
import json
import os
import pathlib
import pty
import shutil
import subprocess
import tempfile
import unittest

from desk import ROOT


class ScriptTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        (self.folder / "scripts").symlink_to(ROOT / "scripts")
        (self.folder / "tools").mkdir()

    def tool(self, name, script):
        file = self.folder / "tools" / name
        file.write_text("#!/bin/bash\n" + script)
        file.chmod(0o755)

    def bash(self, script, terminal=subprocess.PIPE):
        """Runs a script that has what the commands of ./dev have; (exit status, all output)."""
        result = subprocess.run(
            ["bash", "-c", "set -euo pipefail; . scripts/common.sh; " + script], cwd=self.folder,
            env={**os.environ, "PATH": f"{self.folder}/tools:{os.environ['PATH']}"}, text=True,
            stdout=terminal, stderr=subprocess.STDOUT, timeout=60)
        return result.returncode, result.stdout


class Packages(ScriptTest):
    def setUp(self):
        super().setUp()
        self.tool("dpkg-query", "exit 0")
        self.tool("sudo", '"$@"')

    def apt_get(self, update, install):
        self.tool("apt-get", f'[ "$1" = update ] || {{ echo "$@" >>got; {install}; }}; '
                             f'[ "$1" != update ] || {{ {update}; }}')

    def installed(self):
        return (self.folder / "got").read_text().split()

    def test_are_installed_though_an_index_cannot_be_fetched(self):
        self.apt_get(update="echo 'E: no index'; exit 100", install="true")
        status, said = self.bash("need_packages run")
        self.assertEqual(status, 0, said)
        self.assertNotIn("no index", said)

    def test_that_cannot_be_installed_are_a_failure_with_both_reasons(self):
        self.apt_get(update="echo 'E: no index'; exit 100", install="echo 'E: no package'; exit 100")
        status, said = self.bash("need_packages run")
        self.assertEqual(status, 1)
        self.assertIn("E: no package; apt-get update failed too: E: no index", said)

    def test_of_tests_are_not_waited_for_to_run(self):
        self.apt_get(update="true", install="true")
        self.bash("need_packages run")
        self.assertIn("nats-server", self.installed())
        self.assertNotIn("libgtest-dev", self.installed())

    def test_of_tests_and_of_lint_come_on_top(self):
        self.apt_get(update="true", install="true")
        self.bash("need_packages lint")
        for name in ("nats-server", "libgtest-dev", "clang-tidy"):
            self.assertIn(name, self.installed())

    def test_of_arm_are_those_and_no_others(self):
        self.apt_get(update="true", install="true")
        self.tool("dpkg", "echo amd64")
        self.bash("need_packages arm")
        self.assertIn("qemu-user", self.installed())
        self.assertNotIn("nats-server", self.installed())

    def test_of_another_architecture_are_not_this_machines_own(self):
        self.apt_get(update="true", install="true")
        self.tool("dpkg", 'echo amd64; echo "$@" >>dpkg_got')
        self.tool("dpkg-query", "echo libjsoncpp-dev:amd64 installed; echo googletest:all installed")
        self.bash("need_packages arm")
        self.assertIn("libjsoncpp-dev:armhf", self.installed())
        self.assertNotIn("googletest", self.installed())
        self.assertIn("--add-architecture armhf", (self.folder / "dpkg_got").read_text())


class Building(ScriptTest):
    def ninja(self, script):
        self.tool("cmake", f'[ "$1" = --build ] || {{ configure "$@"; exit; }}; {script}')
        self.tool("configure", """echo "$@" >>configured
            [[ $* == *TESTS=OFF* ]] && tests=OFF || tests=ON
            echo "MQTTADAPTER_TESTS:BOOL=$tests" >build/dev/CMakeCache.txt
            touch build/dev/build.ninja""")

    def configured(self):
        return (self.folder / "configured").read_text().splitlines()

    def test_shows_how_far_it_is(self):
        self.ninja("echo '[1/2] Building a'; echo '[2/2] Building b'")
        self.assertEqual(self.bash("build dev all"), (0, "./dev: [1/2] Building a\n"))

    def test_shows_it_in_one_line_of_a_terminal(self):
        self.ninja("echo '[1/2] Building a'; echo '[2/2] Building b'")
        screen, terminal = pty.openpty()
        self.addCleanup(os.close, screen)
        self.bash("build dev all", terminal)
        os.close(terminal)
        self.assertEqual(os.read(screen, 65536).decode(),
                         "\r[1/2] Building a\x1b[K\r[2/2] Building b\x1b[K\r\x1b[K")

    def test_of_nothing_says_nothing(self):
        self.ninja("echo 'ninja: no work to do.'")
        self.assertEqual(self.bash("build dev all"), (0, ""))

    def test_that_fails_shows_the_error(self):
        self.ninja("echo '[1/2] Building a'; echo 'a.cpp:1: error: no'; exit 1")
        status, said = self.bash("build dev all")
        self.assertEqual(status, 1)
        self.assertIn("a.cpp:1: error: no", said)
        self.assertIn("the build failed, see build/dev/build.log", said)

    def test_without_the_tests_takes_them_in_when_they_are_needed(self):
        self.ninja("true")
        self.bash('build dev all "${only_to_run[@]}"; build dev all; build dev all')
        self.assertEqual(len(self.configured()), 2)
        self.assertIn("TESTS=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo", self.configured()[1])

    def test_does_not_leave_out_tests_that_are_there(self):
        self.ninja("true")
        self.bash('build dev all; build dev all "${only_to_run[@]}"')
        self.assertEqual(len(self.configured()), 1)


class KeptState(ScriptTest):
    def line(self, offset_s=0, undelivered=0, check=0, name="Virtual camera"):
        state = {"clock": {"offset_s": offset_s}, "results": {"undelivered": undelivered},
                 "white_list": {"filter_enable": check}, "name": name}
        return self.bash(f"jq -r -f scripts/kept_state.jq <<<'{json.dumps(state)}'")[1]

    def test_says_nothing_of_what_is_as_at_first(self):
        self.assertEqual(self.line(offset_s=-1), "")

    def test_is_one_line(self):
        self.assertEqual(self.line(offset_s=4 * 31557600, undelivered=3, check=1, name="Gate 7"),
                         "its clock is 4 years ahead, undelivered results: 3, "
                         'the white list is checked (1), its name is "Gate 7"\n')

    def test_says_how_far_behind_a_clock_is(self):
        self.assertEqual(self.line(offset_s=-7200), "its clock is 2 hours behind\n")


class Replays(ScriptTest):
    """./dev replay, with a stand-in for adapter_replay that has its exit status in a file."""
    def setUp(self):
        super().setUp()
        for name in ("tests/replay/captures/a.jsonl", "tests/replay/captures/a.transcript",
                     "build/dev/bin/adapter_replay", "build/status"):
            (self.folder / name).parent.mkdir(parents=True, exist_ok=True)
            (self.folder / name).write_text("as committed\n")
        replay = self.folder / "build/dev/bin/adapter_replay"
        replay.write_text('#!/bin/bash\necho "$@"; exit "$(cat build/status)"\n')
        replay.chmod(0o755)
        self.git("init", "--quiet", "--initial-branch", "other", ".")
        self.commit()

    def git(self, *words):
        return subprocess.run(["git", "-c", "user.name=t", "-c", "user.email=t@t", *words],
                              cwd=self.folder, check=True, capture_output=True, text=True).stdout

    def commit(self):
        self.git("add", "tests")
        self.git("commit", "--quiet", "--allow-empty", "--message", "state")

    def replay(self, function):
        return self.bash(". scripts/replay.sh; " + function)

    def compared(self, status):
        """A comparison with the present commit, where its plug-in has been built already."""
        (self.folder / "build/status").write_text(str(status))
        earlier = self.folder / "build/replay" / self.git("rev-parse", "HEAD").strip()
        earlier.mkdir(parents=True)
        (earlier / "done").touch()
        return self.replay("compare_with_revision HEAD")

    def change_transcript(self):
        (self.folder / "tests/replay/captures/a.transcript").write_text("another\n")

    def test_without_a_difference_pass(self):
        status, said = self.compared(0)
        self.assertEqual(status, 0)
        self.assertIn("a.jsonl --plugin build/dev/lib/libmqttadapter.so --against build/replay/",
                      said)

    def test_that_differ_fail_where_the_transcript_is_the_same(self):
        self.assertEqual(self.compared(1)[0], 1)

    def test_that_differ_pass_where_the_transcript_has_changed(self):
        self.change_transcript()
        status, said = self.compared(1)
        self.assertEqual(status, 0)
        self.assertIn("wanted: tests/replay/captures/a.jsonl has another transcript since HEAD",
                      said)

    def test_that_cannot_be_made_fail_whatever_has_changed(self):
        self.change_transcript()
        self.assertEqual(self.compared(2)[0], 2)

    def test_are_against_the_latest_release(self):
        self.git("tag", "v1.2")
        self.commit()
        self.assertEqual(self.replay("released_before"), (0, "v1.2\n"))

    def test_are_against_what_was_before_where_there_is_no_release(self):
        before = self.git("rev-parse", "HEAD")
        self.commit()
        self.assertEqual(self.replay("released_before"), (0, before))

    def test_are_against_nothing_where_nothing_is_known_of_before(self):
        self.assertEqual(self.replay("released_before"), (0, ""))

    def test_build_the_plug_in_of_a_revision_from_its_sources(self):
        self.tool("cmake", '[ "$1" = -S ] || exit 0; cat "$2/tests/replay/captures/a.jsonl" >built')
        status, said = self.replay("plugin_of $(git rev-parse HEAD)")
        self.assertEqual((status, (self.folder / "built").read_text()), (0, "as committed\n"))
        self.assertRegex(said, "^build/replay/[0-9a-f]{40}/build/lib/libmqttadapter.so$")

    def test_say_why_a_plug_in_cannot_be_built(self):
        self.tool("cmake", "echo no compiler; exit 1")
        status, said = self.replay("compare_with_revision HEAD")
        self.assertEqual(status, 1)
        self.assertIn("no compiler", said)
