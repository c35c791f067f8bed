"""What killed daemons and others leave behind."""

import os
import subprocess
import sys

from harness import LAST, SystemTest, change

HALF = """PRAGMA cache_size = 1; BEGIN; DELETE FROM config_table; CREATE TABLE junk AS
    WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 500) SELECT zeroblob(1000) FROM n"""


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
