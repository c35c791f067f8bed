"""The companion command on real volumes. What only looks must leave everything as it is, whatever it meets."""

import contextlib
import glob
import glob
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import termios
import time

import harness
import namespace
from harness import CTL, ENABLED, LAST, MARK, PROGRAM, STATUS_FILE, change, query

WRITES = re.compile(r"open(?:at)?\([^)]*O_(?:RDWR|WRONLY|CREAT|TRUNC)(?!.*/dev/null)|"
                    r"(?:unlink|rename|mkdir|rmdir|link|symlink|chmod|chown|truncate|utimensat)\w*\(.*\) = 0|"
                    r"mmap\(.*PROT_WRITE.*MAP_SHARED, [0-9]")
# What is done to a volume -> what check finds. Without it the version it is done at is upgraded well.
SET = "UPDATE config_table SET value = {} WHERE key = 'version'"
FAULTS = [
    (2577, lambda v: os.rmdir(v.sync + "/rm"), {"missing-folder"}),
    (2577, lambda v: os.mkdir(v.sync + "/view"), {"early-view-folder"}),
    (2577, lambda v: [change(path, SET.format(2500)) for path in v.databases()], {"needs-dont-skip", "old-client"}),
    (2577, lambda v: change(v.user, SET.format(2500) + "; ALTER TABLE user_table ADD mine"),
     {"not-understood"}),
    (2577, lambda v: os.truncate(v.user, 0), {"not-understood"}),
    (2577, lambda v: change(v.user, "DELETE FROM config_table; DROP TABLE session_table"), {"needs-dont-skip"}),
    (3450, lambda v: os.truncate(v.data, 5000), {"damaged", "unreadable-database"}),
    (3450, lambda v: namespace.write(v.user, "no database at all"), {"damaged", "unreadable-database"}),
    (3450, lambda v: change(v.data, SET.format(9999)), {"newer", "mixed-versions"}),
    (3450, lambda v: change(v.user, SET.format(3400)), {"mixed-versions"}),
    (4000, lambda v: change(v.sync + "/view/5/view-db.sqlite", SET.format(3450)), {"mixed-versions"}),
    (3450, lambda v: change(v.data, SET.format(3456)), {"no-chain", "mixed-versions"}),
    (3450, lambda v: os.unlink(v.client), {"missing-database"}),
    (3450, lambda v: os.unlink(v.data), {"no-data-database"}),
    (3450, lambda v: shutil.rmtree(v.sync + "/view/5"), {"user-without-view"}),
    (3450, lambda v: change(v.user, "UPDATE user_table SET view_id = 'x' WHERE view_id = 17"),
     {"damaged-view-id", "view-without-user", "user-would-change"}),
    (3450, lambda v: change(v.view(1), "ALTER TABLE node_table ADD mine; DROP TABLE temp_table"),
     {"strange-column", "missing-table", "missing-index"}),
    (3450, lambda v: change(v.view(1), "CREATE VIEW a AS SELECT 1; DROP TRIGGER version_delete_trigger"),
     {"strange-view", "other-trigger"}),
    (3450, lambda v: namespace.mount("--bind", v.sync + "/view/5", v.sync + "/view/5"), {"mount-point"}),
    (3450, lambda v: subprocess.run(["chattr", "+i", v.user], check=True), {"cannot-be-replaced"}),
    (3450, lambda v: namespace.write(STATUS_FILE, 'status="done"'), {"wrong-status"}),
    (3450, lambda v: os.unlink(ENABLED), {"not-enabled"}),
    (3450, lambda v: namespace.write(v.sync + "/.upgrade-commit", "?"), {"damaged-commit"}),
    (3450, lambda v: change(v.data, "UPDATE volume_table SET uuid = 'other'"), {"volume-changed"}),
]


def state_of(folder):
    """Content and identity of everything in the folder."""
    return {path: (os.lstat(path)[:7], os.lstat(path).st_mtime_ns, os.path.islink(path) or harness.identity_of(path))
            for path in harness.Package(folder).everything()[1:]}


class Looking(harness.SystemTest):

    def look(self, volume, command, *options, at=None):
        """The document that the command writes; to write it, nothing else is written."""
        before, trace = state_of(volume.path), namespace.ROOM + "/trace"
        # What is traced cannot be looked through for leaks.
        run = subprocess.run(["strace", "-f", "-o", trace, "-E", "ASAN_OPTIONS=detect_leaks=0", CTL, command,
                              at or volume.path, "--json", *options], capture_output=True, text=True)
        written = [line for line in namespace.read(trace).splitlines() if WRITES.search(line)]
        self.assertEqual((written, state_of(volume.path), run.stderr), ([], before, ""))
        document = json.loads(run.stdout)
        problems = [one for one in document.get("findings", []) if one["severity"] == "problem"]
        self.assertEqual((document["schema"], run.returncode), ("updater-ctl." + command, int(bool(problems))))
        return document

    def codes(self, volume):
        return {(one["code"], one["subject"], one["text"]) for one in self.look(volume, "check")["findings"]
                if one["code"] != "space"}

    def test_sees_through_logs_and_journals_and_leaves_them(self):
        for version in harness.VERSIONS:
            volume = self.new_volume(version)
            self.assertEqual({one[0] for one in self.codes(volume)} - {"user-would-change"}, set())
            if version not in (2577, 3450, LAST):
                continue
            volume.leave_logs()
            daemon = subprocess.Popen([sys.executable, "-c", "import sqlite3, sys; db = sqlite3.connect(sys.argv[1]);"
                                       "db.execute('SELECT * FROM config_table'); print(flush=True); sys.stdin.read()",
                                       volume.data], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
            self.addCleanup(daemon.communicate)
            daemon.stdout.readline()
            for log in glob.glob(volume.data + "-[sw]*"):
                os.chown(log, 1234, 1234)
            databases = self.look(volume, "status", "--all")["databases"]
            self.assertEqual({one["version"] for one in databases}, {version})
            self.assertEqual([one["in_use_by"] for one in databases if one["in_use_by"]], [daemon.pid])
            self.assertLessEqual({"in-use", "logs-left"}, {one[0] for one in self.codes(volume)})
            self.look(volume, "plan")
            self.assertEqual([one for one in self.look(volume, "diff", volume.path)["databases"] if not one["equal"]], [])
            namespace.write(volume.path + "/log", "updater-svr: database is located at '/v'\n"
                            "updater-svr: Strato Folder Updater(9): Upgrade to '(master, 4150) ' successfully\n")
            self.look(volume, "report", at=volume.path + "/log")
            self.assertEqual(self.look(volume, "verify")["good"], version == LAST)
        shutil.rmtree(volume.sync + "/file")
        self.assertIn("missing-folder", {one["code"] for one in self.look(volume, "verify")["findings"]})

    def test_check_finds_what_would_go_wrong(self):
        for version, do, expected in FAULTS:
            volume = self.new_volume(version)
            well = self.codes(volume)
            do(volume)
            with self.subTest(expected):
                self.assertEqual({one[0] for one in self.codes(volume) - well}, expected)
            subprocess.run(["chattr", "-i", volume.user], check=True)


def rehearse(volume, *arguments):
    return subprocess.run([CTL, "rehearse", volume.path, *arguments], capture_output=True, text=True, check=False)


class Rehearse(harness.SystemTest):
    def test_it_tells_what_the_run_then_does_and_touches_nothing(self):
        for fs, version, options in (("ext4", 3300, {}), ("btrfs", 3450, {"uuid_in_old_form": True}), ("btrfs", LAST, {})):
            with self.subTest(fs=fs, version=version):
                volume = self.new_volume(version, fs=fs, **options)
                volume.leave_logs()
                machine, before = state_of("/var/packages") | state_of("/usr/plat"), state_of(volume.path)
                run = rehearse(volume, "--json", "--html", "/srv/page.html")
                self.assertEqual((run.returncode, run.stderr), (0, ""), run.stdout)
                self.assertEqual(state_of(volume.path), before)
                self.assertEqual(state_of("/var/packages") | state_of("/usr/plat"), machine)
                told = json.loads(run.stdout)
                self.assertEqual(told["copies"]["share_blocks"], fs == "btrfs")
                self.assertEqual([phase["name"] for phase in told["run"]["phases"]],
                                 ["copies", "updaters", "placing", "checking"])
                real = self.run_updater(volume.path)
                self.assert_ended(real, "done")
                self.assertEqual([line["text"].split(":")[-1] for line in told["log"] if "need" not in line["text"]
                                  and "mark" not in line["text"]][-1:], [real.log[-1].split(":")[-1]])
                paths = {"data": volume.data, "user": volume.user, "log": volume.log, "client": volume.client}
                for database in told["after"]:
                    path = paths.get(database["kind"]) or f"{volume.sync}/{database['kind']}/{database['name']}/" \
                        f"{database['kind']}-db.sqlite"
                    rows = {table: query(path, f'SELECT count(*) FROM "{table}"')[0][0] for table in database["rows"]}
                    self.assertEqual((database["version"], database["rows"]), (LAST, rows), path)
                self.assertEqual(len(told["after"]), len(volume.databases()))
                self.assertEqual(told["users"]["after"], [name for name, in query(
                    volume.user, "SELECT name FROM user_table ORDER BY view_id")])

    def test_what_would_fail_or_cannot_be_tried(self):
        def fill(volume):
            with contextlib.suppress(OSError), open(volume.path + "/big", "wb", buffering=0) as file:
                while True:
                    file.write(bytes(1 << 16))
        for name, prepare, status, text in (
                ("newer", lambda v: change(v.data, "UPDATE config_table SET value = 9999 WHERE key = 'version'"), 1,
                 'would end in "dbnewer"'),
                ("no folder", lambda v: os.rename(v.sync + "/delta", v.sync + "/d"), 1, "failed to create empty file"),
                ("linked marker", lambda v: os.symlink("/srv/outside", v.sync + "/repo/.0"), 1, "failed to create empty"),
                ("mismatch", lambda v: change(v.client, "UPDATE config_table SET value = 9 WHERE key = 'version'"), 1,
                 "database version mismatch"),
                ("full", fill, 2, "too little room"),
                ("running", lambda v: namespace.write(MARK, f"{os.getpid()}\n"), 2, "an upgrade is running"),
                ("half done", lambda v: namespace.write(v.sync + "/.upgrade-commit", "x"), 2, "put databases in place"),
                ("no access", lambda v: os.unlink(v.user) or os.mkdir(v.user), 2, "Is a directory")):
            with self.subTest(name):
                volume = self.new_volume(2577)
                os.makedirs(volume.sync + "/repo", exist_ok=True)
                os.makedirs(volume.sync + "/delta", exist_ok=True)
                prepare(volume)
                before = state_of(volume.path)
                run = rehearse(volume)
                self.assertEqual(run.returncode, status, run)
                self.assertIn(text, run.stdout + run.stderr)
                self.assertEqual(state_of(volume.path), before)
                self.assertFalse(os.path.lexists("/srv/outside"))

    def test_nothing_is_left_of_one_that_is_stopped(self):
        volume = self.new_volume(2577, megabytes=512)
        change(volume.data, "CREATE TABLE junk AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
               "LIMIT 60) SELECT zeroblob(1000000) FROM n")
        def is_there(part=""):
            return glob.glob(volume.path + "/@updater-ctl-rehearsal-*" + part)
        before = state_of(volume.path)
        for stop in (signal.SIGINT, signal.SIGTERM, signal.SIGKILL):
            for part in ("", "/@stratofolder/@sync/*.sqlite", "/@stratofolder/@sync/*.bak"):
                with subprocess.Popen([CTL, "rehearse", volume.path], stdout=subprocess.DEVNULL) as process:
                    while not is_there(part):
                        time.sleep(0.001)
                    process.send_signal(stop)
                self.assertEqual(process.returncode, -stop)
                deadline = time.monotonic() + (10 if stop == signal.SIGKILL else 0)  # nobody waits for it then
                while is_there() and time.monotonic() < deadline:
                    time.sleep(0.01)
                self.assertEqual(state_of(volume.path), before)
        os.makedirs(volume.path + "/@updater-ctl-rehearsal-1/of a crash")
        self.assertEqual((rehearse(volume).returncode, state_of(volume.path)), (0, before))


class Progress(harness.SystemTest):
    def run_on_terminal(self, columns, program, *arguments):
        """The lines on the terminal behind its standard error, its standard output, and its status."""
        ours, theirs = os.openpty()
        termios.tcsetwinsize(ours, (24, columns))
        with subprocess.Popen([program, *arguments], stdout=subprocess.PIPE, stderr=theirs) as process:
            os.close(theirs)
            shown = b""
            try:
                while part := os.read(ours, 65536):
                    shown += part
            except OSError:
                pass  # the other end is closed
            os.close(ours)
            self.assertRegex(shown, rb"\r *\r\Z")  # cleared
            lines = [line.rstrip() for line in shown.decode().split("\r")]
            self.assertLess(max(map(len, lines)), columns)
            return "\n".join(lines), process.stdout.read().decode(), process.wait()

    def test_a_terminal_shows_a_line_and_nothing_else_does(self):
        os.mkdir("/dev/pts")
        namespace.mount("-t", "devpts", "-o", "newinstance,ptmxmode=0666", "devpts", "/dev/pts")
        os.symlink("pts/ptmx", "/dev/ptmx")
        quiet = self.new_volume(2577)
        expected = self.run_updater(quiet.path)
        self.assertEqual(expected.stderr, "")
        volume = self.new_volume(2577, megabytes=512)
        change(volume.data, "CREATE TABLE junk AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
               "LIMIT 60) SELECT zeroblob(1000000) FROM n")  # takes longer than the pause between two drawings
        shown, out, status = self.run_on_terminal(20, CTL, "rehearse", volume.path, "--json")
        self.assertEqual((json.loads(out)["succeeds"], status), (True, 0))
        self.assertRegex(shown, r"(?m)^(copying|making|putting|step \d of \d)")
        shown, out, status = self.run_on_terminal(80, PROGRAM, volume.path)
        self.assertEqual((out, status), (expected.stdout, 0), shown)
        self.assertRegex(shown, r"(?m)^\[#*\.*\] (step \d of \d \(\d+ to \d+\)|making|putting).*, 0:0\d$")
