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
# Puts links, pipes and nothing at names in the sync folder, as the service, until it is killed.
SWAP = """if True:
    import contextlib, os, random, sys
    (sync, outside, seed, *names), choose = sys.argv[1:], random.Random(sys.argv[3]).choice
    os.setgroups([]), os.setgid(1234), os.setuid(1234), print(flush=True)
    while True:
        with contextlib.suppress(OSError):
            name, new, target = f"{sync}/{choose(names)}", sync + "/new", choose(("none", "folder/x", "folder", "db"))
            choose([lambda: os.symlink(outside + target, new), lambda: os.mkfifo(new), lambda: os.rename(name, new)])()
            if os.path.isdir(name): os.rename(name, name + ".aside")
            os.rename(new, name)"""


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
        harness.write(OUTSIDE + "/folder/x")
        sets = (("user-db.sqlite.bak", "syncfolder-db.sqlite.bak", "log-db.sqlite.bak", "user-db.sqlite.bak-journal"),
                ("view.bak", "view.bak/5", "view.bak/5/view-db.sqlite"), ("new-syncfolder.sqlite", "rm", "node_delta"))
        outside = lambda: {path: harness.identity_of(path) for path in harness.Package(OUTSIDE).everything()}
        for seed in range(18):
            volume = self.new_volume((2577, 3450, 3300)[seed // 3 % 3])
            shutil.copy(volume.data, OUTSIDE + "/db")
            subprocess.run(["chown", "-R", "1234:1234", volume.package], check=True)
            before = outside()
            with subprocess.Popen([sys.executable, "-c", SWAP, volume.sync, OUTSIDE + "/", str(seed), *sets[seed % 3]],
                                  stdout=subprocess.PIPE) as attacker:
                attacker.stdout.readline()
                run = self.run_updater(volume.path)
                attacker.kill()
            self.assertEqual((run.exit, outside()), (0, before), run)
