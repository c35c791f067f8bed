"""Runs that were stopped, and what stopped runs, killed daemons and others leave behind."""

import multiprocessing
import os
import shutil
import sqlite3

import databases
import harness
import namespace
from databases import change, query
from harness import SCRATCH, SystemTest, write

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


class InterruptionTest(SystemTest):
    def upgrade(self, volume):
        run = self.run_updater(volume.path)
        self.assert_ended(run, "done")
        self.assertEqual(run.stderr, "")

    def new_large_volume(self, megabytes):
        volume = self.new_volume(megabytes=megabytes)
        volume.fill(2577)
        change(volume.data, MANY_NODES)
        return volume

    def assert_rerun_succeeds(self, volume):
        self.set_up_package()
        self.upgrade(volume)
        for table, last_node, last_uuid in (("node_table", "max(node_id)", "max(v_file_uuid)"),
                                            ("version_table", "max(node_id)", "max(file_uuid)")):
            rows = f"SELECT count(*), {last_node}, {last_uuid} FROM {table} WHERE node_id >= 1000"
            self.assertEqual(query(volume.view(1), rows), [(COUNT, 999 + COUNT, volume.uuid)])
        for path in (path for path in volume.files() if path.endswith(".sqlite")):
            content = databases.contents_of(os.path.join(volume.package, path))
            self.assertEqual(content["integrity"], [("ok",)])
            self.assertIn(("version", "4150"), content["config_table", "rows"])
        self.assertEqual(volume.copies(), [])


class Killed(InterruptionTest):
    def test_in_every_step(self):
        """At the start of ever later steps, on one volume: the live databases stay, and the run after them
        succeeds over all that was left behind."""
        volume = self.new_large_volume(128)
        before = volume.live()
        for step in ("update from", *(f"updating from (master, {number})" for number in databases.VERSIONS[2:-2])):
            with self.subTest(step):
                self.set_up_package()
                run = self.run_updater(volume.path, kill_at=step)
                self.assertEqual((run.exit, run.status), (-9, "updating"))
                self.assertEqual(volume.live(), before)
        # Who reads the status now finds a dead updater behind it.
        self.assertEqual(self.run_updater(volume.path).log, ["updater-svr:N unexpected status for updater: error"])
        self.assert_rerun_succeeds(volume)


class FullDisk(InterruptionTest):
    def test_live_databases_stay_and_room_helps(self):
        volume = self.new_large_volume(96)
        before, size = volume.live(), os.path.getsize(volume.data)
        no_copy = f"cannot backup db from {volume.data} to {volume.data}.bak"
        for room, last_line in ((size // 2, no_copy), (size * 2, "UpdaterFramework: Error when updating from (")):
            with self.subTest(room=room):
                self.set_up_package()
                for path in volume.copies():
                    os.unlink(os.path.join(volume.package, path))
                free = os.statvfs(volume.path)
                with open(volume.path + "/filler", "wb") as file:
                    os.posix_fallocate(file.fileno(), 0, free.f_bavail * free.f_frsize - room)
                run = self.run_updater(volume.path)
                self.assert_ended(run, "upgradefail")
                self.assertIn(last_line, run.log[-1])
                self.assertRegex("".join(run.log), r"No space left on device \(28\)|database or disk is full \(13\)")
                self.assertEqual(volume.live(), before)
                os.unlink(volume.path + "/filler")
        self.assert_rerun_succeeds(volume)


class Leftovers(InterruptionTest):
    def prepare(self, version, name):
        volume = self.new_volume(name=f"{name}-{version}".replace(" ", "-"))
        self.set_up_package()
        volume.fill(version)
        return volume

    def leave(self, path, *script):
        """The files of a database as a killed process leaves them: the connection is never closed."""
        def work():
            db = sqlite3.connect(path, isolation_level=None)
            for statement in script:
                db.execute(statement)
            os.kill(os.getpid(), 9)
        process = multiprocessing.get_context("fork").Process(target=work)
        process.start()
        process.join()

    def test_committed_rows_of_a_write_ahead_log_survive(self):
        for version in (2577, 3300, 3450, 4150):
            with self.subTest(version):
                volume = self.prepare(version, "log")
                if version >= 3400:
                    shutil.copytree(f"{volume.sync}/view/5", f"{volume.sync}/view/99")
                    self.leave(volume.view(99), "INSERT INTO config_table VALUES ('late', '99')")
                self.leave(volume.user, "PRAGMA journal_mode = WAL",
                           "INSERT INTO user_table VALUES (18, 0, 99, 'late', 99, 99, 2, '')")
                self.assertGreater(os.path.getsize(volume.user + "-wal"), 0)
                self.upgrade(volume)
                self.assertEqual(query(volume.user, "SELECT view_id FROM user_table WHERE id = 18"), [(99,)])
                if version >= 3400:
                    self.assertEqual(query(volume.view(99), "SELECT value FROM config_table WHERE key = 'late'"),
                                     [("99",)])
                for path in (volume.user, volume.view(99)):
                    self.assertEqual(query(path, "SELECT value FROM config_table WHERE key = 'version'"), [("4150",)])
                self.assertEqual([path for path in volume.files() if path.endswith(("-wal", "-shm", "-journal"))], [])

    def test_half_a_transaction_is_rolled_back(self):
        for version in (2577, 4150):
            with self.subTest(version):
                volume = self.prepare(version, "journal")
                self.leave(volume.user, *BEGIN_JUNK, "DELETE FROM user_table")
                self.assertGreater(os.path.getsize(volume.user + "-journal"), 0)
                self.upgrade(volume)
                self.assert_upgraded(volume)

    def test_foreign_companions_and_stale_copies_do_no_harm(self):
        for version in (2577, 3300, 3450):
            with self.subTest(version):
                volume = self.prepare(version, "stale")
                for path in (volume.user, volume.data, volume.client):
                    for suffix in ("-wal", ".bak", ".bak-wal", ".bak-shm", ".bak-journal"):
                        write(path + suffix, "stale " * 1000)
                for name in ("view.bak/7/view-db.sqlite", "file.bak/x/file-db.sqlite"):
                    write(f"{volume.sync}/{name}", "stale")
                if version < 3400:  # only the split makes one
                    write(volume.sync + "/new-syncfolder.sqlite", "stale")
                self.upgrade(volume)
                self.assert_upgraded(volume)

    def test_hostile_temporary_folder(self):
        """Nothing that stands at the name of the scratch database is read, followed or damaged."""
        victim = namespace.ROOM + "/victim"
        plants = {
            "link": lambda: os.symlink(victim, SCRATCH),
            "database": lambda: change(SCRATCH, "CREATE TABLE user_table (view_id, name);"
                                       "INSERT INTO user_table VALUES (666, 'evil');"
                                       "CREATE TABLE progress_table AS SELECT 1 AS view_id, 666 AS sync_id;"),
            "journals": lambda: [os.symlink(victim, SCRATCH + end) for end in ("-journal", "-wal", "-shm")],
            "hot journal": lambda: self.leave(SCRATCH, *BEGIN_JUNK, "ALTER TABLE junk RENAME TO user_table"),
        }
        for name, plant in plants.items():
            with self.subTest(name):
                volume = self.prepare(3300, name)
                write(victim, "precious")
                plant()
                self.upgrade(volume)
                self.assert_upgraded(volume)
                self.assertEqual(harness.read(victim), "precious")


if __name__ == "__main__":
    harness.main()
