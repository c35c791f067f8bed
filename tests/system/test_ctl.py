"""The companion command on real volumes. What only looks must leave everything as it is, whatever it meets."""

import json
import os
import re
import shutil
import subprocess
import sys

import harness
import namespace
from harness import CTL, ENABLED, LAST, STATUS_FILE, change

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
     {"not-understood", "strange-column"}),
    (3450, lambda v: os.truncate(v.data, 5000), {"damaged", "unreadable-database"}),
    (3450, lambda v: namespace.write(v.user, "no database at all"), {"damaged", "unreadable-database"}),
    (3450, lambda v: change(v.data, SET.format(9999)), {"newer", "mixed-versions"}),
    (3450, lambda v: change(v.user, SET.format(3400)), {"mixed-versions"}),
    (3450, lambda v: change(v.data, SET.format(3456)), {"no-chain", "mixed-versions"}),
    (3450, lambda v: os.unlink(v.client), {"missing-database"}),
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


class Looking(harness.SystemTest):

    def look(self, volume, command, *options, at=None):
        """The document that the command writes; to write it, nothing else is written."""
        before, trace = self.state(volume), namespace.ROOM + "/trace"
        # What is traced cannot be looked through for leaks.
        run = subprocess.run(["strace", "-f", "-o", trace, "-E", "ASAN_OPTIONS=detect_leaks=0", CTL, command,
                              at or volume.path, "--json", *options], capture_output=True, text=True)
        written = [line for line in namespace.read(trace).splitlines() if WRITES.search(line)]
        self.assertEqual((written, self.state(volume), run.stderr), ([], before, ""))
        document = json.loads(run.stdout)
        problems = [one for one in document.get("findings", []) if one["severity"] == "problem"]
        self.assertEqual((document["schema"], run.returncode), ("updater-ctl." + command, int(bool(problems))))
        return document

    @staticmethod
    def state(volume):
        return {path: (harness.identity_of(path), os.lstat(path).st_mtime_ns) for path in volume.everything()}

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

    def test_check_finds_what_would_go_wrong(self):
        for version, do, expected in FAULTS:
            volume = self.new_volume(version)
            well = self.codes(volume)
            do(volume)
            with self.subTest(expected):
                self.assertEqual({one[0] for one in self.codes(volume) - well}, expected)
            subprocess.run(["chattr", "-i", volume.user], check=True)
