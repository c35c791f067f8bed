"""Whoever has got hold of the package's service costs nothing outside of the volume, and no run goes on for ever."""

import os
import shutil
import subprocess
import sys

import harness
import namespace

OUTSIDE = namespace.ROOM + "/outside"
TRIGGER = f"""CREATE TABLE t (a); INSERT INTO t VALUES {', '.join(['(1)'] * 200)};
              CREATE TRIGGER hostile BEFORE UPDATE ON config_table BEGIN INSERT INTO t %s; END;"""
# Puts links, pipes, folders and nothing at paths, as the service, until it is killed.
SWAP = """if True:
    import contextlib, os, random, shutil, sys
    (outside, seed, *paths), choose = sys.argv[1:], random.Random(sys.argv[2]).choice
    os.setgroups([]), os.setgid(1234), os.setuid(1234), print(flush=True)
    while True:
        with contextlib.suppress(OSError):
            path = choose(paths)
            new, target = path + "+", choose((*(outside + x for x in ("none", "own/x", "own", "db")), "own/x"))
            choose([lambda: os.symlink(target, new), lambda: os.mkfifo(new), lambda: os.rename(path, new),
                    lambda: (os.mkdir(new), shutil.copy(outside + "own/x", new))])()
            if os.path.isdir(path): shutil.rmtree(path + "-", True), os.rename(path, path + "-")
            os.rename(new, path)"""

# SQLite takes as long for so many as their number squared.
MANY_VIEWS = """PRAGMA writable_schema = ON; WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 100000)
                INSERT INTO sqlite_master SELECT 'view', 'w' || i, 'w' || i, 0, 'CREATE VIEW w' || i || ' AS SELECT 1' FROM n"""


class Service(harness.SystemTest):
    def test_schemas(self):
        for script, line in {
                "ALTER TABLE user_table RENAME TO t; CREATE VIEW user_table AS SELECT * FROM t a, t b, t c, t d, t e;":
                    'access to view "user_table" prohibited',
                TRIGGER % "SELECT 1 FROM t a, t b, t c, t d, t e WHERE a.a + b.a + c.a + d.a + e.a < 0":
                    r"a statement is stopped after \d+ seconds of work on .*/user-db.sqlite.bak",
                MANY_VIEWS: "a statement is stopped after 2 seconds of work on .*/user-db.sqlite.bak",
                TRIGGER % "VALUES (randomblob(900000000))": "not authorized to use function: randomblob",
                "CREATE TABLE t (a, CHECK (replace(hex(zeroblob(9)), 'b', '') != a));": r"unsafe use of replace\(\)",
                "DROP TABLE config_table; CREATE VIRTUAL TABLE config_table USING fts5 (a);": "no such module"}.items():
            with self.subTest(line):
                volume = self.new_volume(4100)
                harness.change(volume.user, script)
                os.truncate(volume.user, 1 << 26)  # a hole, which allows no longer work
                before, run = volume.live(), self.run_updater(volume.path)
                self.assertRegex("".join(run.log), line)
                self.assertEqual((run.status, volume.live()), ("upgradefail", before))

    def test_names_swapped_while_the_run_goes_on(self):
        harness.write(OUTSIDE + "/own/x", self.status_text("initializing"))
        sets = (("user-db.sqlite.bak", "syncfolder-db.sqlite.bak", "log-db.sqlite.bak", "user-db.sqlite.bak-journal"),
                ("view.bak", "view.bak/5", "view.bak/5/view-db.sqlite"), ("new-syncfolder.sqlite", "rm", "node_delta"),
                [harness.SCRATCH, harness.SCRATCH + "-journal", harness.SCRATCH + "-wal", "/tmp/user-mgr-lock-file"],
                (harness.STATUS_FILE, os.path.dirname(harness.STATUS_FILE) + "/own", harness.MARK),
                (".upgrade-commit", ".upgrade-commit.new", ".upgrade-commit.set-aside", ".upgrade-probe"))
        outside = lambda: {path: harness.identity_of(path) for path in harness.Package(OUTSIDE).everything()}
        for seed in range(36):
            volume = self.new_volume((2577, 3450, 3300)[seed // 6 % 3])
            shutil.copy(volume.data, OUTSIDE + "/db")
            subprocess.run(["chown", "-R", "1234:1234", volume.package, "/tmp",
                            *map(os.path.dirname, (harness.STATUS_FILE, harness.MARK))], check=True)
            before, paths = outside(), [os.path.join(volume.sync, name) for name in sets[seed % 6]]
            with subprocess.Popen([sys.executable, "-c", SWAP, OUTSIDE + "/", str(seed), *paths],
                                  stdout=subprocess.PIPE) as attacker:
                attacker.stdout.readline()
                run = subprocess.run(["timeout", "-sKILL", "60", harness.PROGRAM, volume.path], capture_output=True)
                self.assertIsNone(attacker.poll())
                attacker.kill()
            self.assertEqual((run.returncode, outside()), (0, before), run)
            if seed % 6 > 2:  # else the attacker may have taken copies away that were about to be moved
                self.assertEqual(len({tuple(harness.query(path, harness.VERSION_OF, how="mode=rw"))
                                      for path in volume.databases() if ".bak" not in path}), 1, run)
            self.doCleanups()
