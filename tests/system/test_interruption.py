"""Runs that were stopped, and what stopped runs, killed daemons and others leave behind."""

import os
import subprocess
import sys

from harness import LAST, VERSIONS, SystemTest, change, query

COUNT = 20000  # of the many nodes: enough for every step to take a while
HALF = """PRAGMA cache_size = 1; BEGIN; DELETE FROM config_table; CREATE TABLE junk AS
    WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 500) SELECT zeroblob(1000) FROM n"""


class StoppedTest(SystemTest):
    def assert_rerun_succeeds(self, volume):
        self.set_up_package()
        self.assert_ended(self.run_updater(volume.path), "done")
        for table, uuid in ("node_table", "v_file_uuid"), ("version_table", "file_uuid"):
            rows = f"SELECT count(*), max(node_id), max({uuid}) FROM {table} WHERE node_id >= 1000"
            self.assertEqual(query(volume.view(1), rows), [(COUNT, 999 + COUNT, volume.uuid)])
        content = volume.content()
        for line in ("integrity_check Tok", f"config_table: key Tversion|value T{LAST}"):
            self.assertEqual(content.count(line), len(volume.databases()))
        self.assertEqual(volume.copies(), [])


class Killed(StoppedTest):
    def test_in_every_step(self):
        """Ever later, on one volume: the live databases stay, and a run succeeds over all that is left behind."""
        volume = self.new_volume(2577, extras=["many-nodes"])
        before = volume.live()
        for step in ("update from", *(f"updating from (master, {number})" for number in VERSIONS[2:-2])):
            with self.subTest(step):
                self.set_up_package()
                run = self.run_updater(volume.path, kill_at=step)
                self.assertEqual((run.exit, run.status), (-9, "updating"))
                self.assertEqual(volume.live(), before)
        self.assert_rerun_succeeds(volume)


class FullDisk(StoppedTest):
    def test_live_databases_stay_and_room_helps(self):
        volume = self.new_volume(2577, extras=["many-nodes"], megabytes=96)
        before, filler, free = volume.live(), volume.path + "/filler", os.statvfs(volume.path)
        room = 2 * os.path.getsize(volume.data)  # for the working copies, but not for what is made of them
        with open(filler, "wb") as file:
            os.posix_fallocate(file.fileno(), 0, free.f_bavail * free.f_frsize - room)
        run = self.run_updater(volume.path)
        self.assert_ended(run, "upgradefail")
        self.assertIn("UpdaterFramework: Error when updating from (", run.log[-1])
        self.assertRegex("".join(run.log), r"No space left on device \(28\)|database or disk is full \(13\)")
        self.assertEqual(volume.live(), before)
        os.unlink(filler)
        self.assert_rerun_succeeds(volume)


def leave(path, script):
    """The files of a database as a killed process leaves them: the connection is never closed."""
    work = "import os, sqlite3, sys; _, path, script = sys.argv; db = sqlite3.connect(path); db.executescript(script); "
    subprocess.run([sys.executable, "-c", work + "os.kill(os.getpid(), 9)", path, script], check=False)


class Leftovers(SystemTest):
    def test_looking_at_the_version_rolls_no_journal_back(self):
        volume = self.new_volume(LAST)
        change(volume.data, "PRAGMA journal_mode = DELETE; UPDATE config_table SET value = 9999 WHERE key = 'version'")
        leave(volume.data, HALF)
        before = volume.live()
        self.assert_ended(self.run_updater(volume.path), "dbnewer")
        self.assertEqual((volume.live(), volume.copies()), (before, []))

    def test_logs_and_journals_of_killed_processes(self):
        """The version of every database stands in its write-ahead log only, but those of the user and client
        database have half a transaction to be rolled back: with pages enough to have reached the file."""
        version = "UPDATE config_table SET value = value {} 1 WHERE key = 'version'"
        for start in (2577, 3300, 3450, LAST):
            with self.subTest(start):
                volume = self.new_volume(start)
                for path in volume.databases():
                    if path in (volume.user, volume.client):
                        leave(path, HALF)
                        self.assertGreater(os.path.getsize(path + "-journal"), 0)
                    else:
                        change(path, version.format("-"))
                        leave(path, "PRAGMA journal_mode = WAL; " + version.format("+"))
                        self.assertGreater(os.path.getsize(path + "-wal"), 0)
                self.assert_ended(self.run_updater(volume.path), "done")
                self.assert_upgraded(volume)
