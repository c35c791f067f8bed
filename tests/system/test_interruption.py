"""Runs that were stopped, and what stopped runs, killed daemons and others leave behind."""

import multiprocessing
import os
import sqlite3

import databases
import harness
from databases import change, query
from harness import SystemTest, write

COUNT = 20000  # nodes enough for every step to take a while
MANY_NODES = f"""
    WITH RECURSIVE n(i) AS (SELECT 1000 UNION ALL SELECT i + 1 FROM n LIMIT {COUNT})
    INSERT INTO node_table (node_id, parent_id, view_id, attribute, sync_id, ver_cnt, name, path)
      SELECT i, 1, 1, 0, i, 1, 'node ' || i, '/node ' || i FROM n;
    INSERT INTO version_table (node_id, attribute, sync_id, exec_bit, file_id, mac_attr)
      SELECT node_id, 0, sync_id, 0, node_id, 'a=b' FROM node_table WHERE node_id >= 1000;
    INSERT INTO tree_table SELECT node_id, 1, 1 FROM node_table WHERE node_id >= 1000;"""
# Pages enough for an open transaction to reach the file.
BEGIN_JUNK = ("PRAGMA cache_size = 1", "BEGIN", "CREATE TABLE junk AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL "
              "SELECT i + 1 FROM n LIMIT 500) SELECT i AS view_id, zeroblob(1000) FROM n")


class StoppedTest(SystemTest):
    def new_large_volume(self, megabytes):
        volume = self.new_volume(2577, megabytes=megabytes)
        change(volume.data, MANY_NODES)
        return volume, volume.live()

    def assert_rerun_succeeds(self, volume):
        self.set_up_package()
        self.assert_ended(self.run_updater(volume.path), "done")
        for table, uuid in (("node_table", "v_file_uuid"), ("version_table", "file_uuid")):
            rows = f"SELECT count(*), max(node_id), max({uuid}) FROM {table} WHERE node_id >= 1000"
            self.assertEqual(query(volume.view(1), rows), [(COUNT, 999 + COUNT, volume.uuid)])
        content = volume.content()
        for line in ("integrity_check Tok", "config_table: key Tversion|value T4150"):
            self.assertEqual(content.count(line), len(volume.databases()))
        self.assertEqual(volume.copies(), [])


class Killed(StoppedTest):
    def test_in_every_step(self):
        """At the start of ever later steps, on one volume: the live databases stay, and the run after them
        succeeds over all that was left behind."""
        volume, before = self.new_large_volume(128)
        for step in ("update from", *(f"updating from (master, {number})" for number in databases.VERSIONS[2:-2])):
            with self.subTest(step):
                self.set_up_package()
                run = self.run_updater(volume.path, kill_at=step)
                self.assertEqual((run.exit, run.status), (-9, "updating"))
                self.assertEqual(volume.live(), before)
        # Who reads the status now finds a dead updater behind it.
        self.assertEqual(self.run_updater(volume.path).log, ["updater-svr:N unexpected status for updater: error"])
        self.assert_rerun_succeeds(volume)


class FullDisk(StoppedTest):
    def test_live_databases_stay_and_room_helps(self):
        volume, before = self.new_large_volume(96)
        size, filler = os.path.getsize(volume.data), volume.path + "/filler"
        no_copy = f"cannot backup db from {volume.data} to {volume.data}.bak"
        for room, last_line in ((size // 2, no_copy), (size * 2, "UpdaterFramework: Error when updating from (")):
            with self.subTest(room=room):
                self.set_up_package()
                for path in volume.copies():
                    os.unlink(os.path.join(volume.package, path))
                free = os.statvfs(volume.path)
                with open(filler, "wb") as file:
                    os.posix_fallocate(file.fileno(), 0, free.f_bavail * free.f_frsize - room)
                run = self.run_updater(volume.path)
                self.assert_ended(run, "upgradefail")
                self.assertIn(last_line, run.log[-1])
                self.assertRegex("".join(run.log), r"No space left on device \(28\)|database or disk is full \(13\)")
                self.assertEqual(volume.live(), before)
                os.unlink(filler)
        self.assert_rerun_succeeds(volume)


def leave(path, *script):
    """The files of a database as a killed process leaves them: the connection is never closed."""
    def work():
        db = sqlite3.connect(path, isolation_level=None)
        for statement in script:
            db.execute(statement)
        os.kill(os.getpid(), 9)
    process = multiprocessing.get_context("fork").Process(target=work)
    process.start()
    process.join()


class Leftovers(SystemTest):
    def upgrade_each(self, versions, plant):
        for version in versions:
            with self.subTest(version):
                volume = self.new_volume(version)
                plant(volume)
                run = self.run_updater(volume.path)
                self.assert_ended(run, "done")
                self.assertEqual(run.stderr, "")
                self.assert_upgraded(volume)

    def test_committed_rows_of_a_write_ahead_log_survive(self):
        """The version of every database stands only there."""
        version = "UPDATE config_table SET value = value {} 1 WHERE key = 'version'"

        def plant(volume):
            for path in volume.databases():
                change(path, version.format("-"))
                leave(path, "PRAGMA journal_mode = WAL", version.format("+"))
                self.assertGreater(os.path.getsize(path + "-wal"), 0)

        self.upgrade_each((2577, 3300, 3450, 4150), plant)

    def test_half_a_transaction_is_rolled_back(self):
        def plant(volume):
            for path in (volume.user, volume.client):
                leave(path, *BEGIN_JUNK, "DELETE FROM config_table")
                self.assertGreater(os.path.getsize(path + "-journal"), 0)

        self.upgrade_each((2577, 4150), plant)

    def test_foreign_companions_and_stale_copies_do_no_harm(self):
        def plant(volume):
            for path in (volume.user, volume.data, volume.client):
                for suffix in ("-wal", ".bak", ".bak-wal", ".bak-shm", ".bak-journal"):
                    write(path + suffix, "stale " * 1000)
            for name in ("view.bak/7/view-db.sqlite", "file.bak/x/file-db.sqlite"):
                write(f"{volume.sync}/{name}", "stale")
            if not os.path.exists(volume.sync + "/view"):  # only the split makes one
                write(volume.sync + "/new-syncfolder.sqlite", "stale")

        self.upgrade_each((2577, 3300, 3450), plant)


if __name__ == "__main__":
    harness.main()
