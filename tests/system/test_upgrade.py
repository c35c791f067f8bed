"""Every start version, on both file systems, ends in the same databases with the described output."""

import os
import shutil
import stat
import subprocess

from harness import (FIRST_WITH, HALF, LAST, PRIVILEGE, REFUSED_USERS, SCRATCH, SET_VERSION, STATUS_FILE, VERSIONS,
                     SystemTest, Volume, change, leave, read, text_of, write)
from namespace import mount

# What wins every table name that a statement does not tell the database of.
PLANTED = """CREATE TABLE config_table (key, value); CREATE TABLE user_table (a); CREATE VIEW node_table AS SELECT 1 a;
    CREATE TABLE progress_table (view_id, a); CREATE TRIGGER t AFTER INSERT ON config_table BEGIN SELECT a; END;"""
EXTRAS = ("rights", "activity", "own-rotation")


def told_from(version, volume):
    """What a run prints, and what it logs. Every version in them ends in a blank."""
    chain = [version] + [later for later in VERSIONS if later > max(version, 2603)]
    out = [f"update from {text_of(version)} to (master, {LAST}) "]
    log = [f"database is located at '{volume.path}'"]
    for start, end in zip(chain, chain[1:]):
        out.append(f"updating from {text_of(start)}  to {text_of(end)} ")
        if end == 4000:
            log += [f"Strato Folder Updater(N): Update repo path '{volume.sync}' uuid\n"] * (volume.fs == "btrfs")
            log += REFUSED_USERS
        if end <= 3450:
            out.append(f"Upgrade to {text_of(end)}  successfully")
        else:
            log.append(f"Strato Folder Updater(N): Upgrade to '{text_of(end)} ' successfully\n")
    return "".join(line + "\n" for line in out), log


class UpgradeTest(SystemTest):
    def upgrade(self, version, *arguments, extras=EXTRAS, **options):
        volume = self.new_volume(version, extras=extras, **options)
        for path in (*volume.everything(), STATUS_FILE):
            os.chown(path, 1026, 100)
            os.chmod(path, 0o755 if os.path.isdir(path) else 0o600)
        write(PRIVILEGE, "somebody\nO'Brien\n" if volume.fs == "btrfs" else "somebody")
        os.makedirs(volume.sync + "/.upgrade-probe/full")
        for path in (volume.log, volume.sync + "/view", volume.sync + "/file"):
            if not os.path.exists(path):
                write(path + ".bak", "made by a failed run")
        if version != LAST:  # then nothing looks at it
            leave(SCRATCH, PLANTED + ("PRAGMA journal_mode = WAL; DROP TABLE user_table" if version % 2 else HALF))
        headers = lambda: {path: open(path, "rb").read(20)[18:] for path in volume.databases()}
        modes = headers()
        run = self.run_updater(volume.path, *arguments)
        self.assert_ended(run, "done")
        # What is new has a write-ahead log, and what had one has it again.
        self.assertEqual(headers(), {
            path: b"\2\2" if path == volume.data and version <= 3300 else modes.get(path, b"\2\2")
            for path in volume.databases()})
        self.assertEqual((run.stdout, run.log, run.stderr), (*told_from(version, volume), ""))
        self.assert_upgraded(volume, [extra for extra in extras if FIRST_WITH[extra] <= version])
        for path in (*volume.everything(), STATUS_FILE):  # what is new is owned like what is around it
            status, mode = os.stat(path), 0o755 if os.path.isdir(path) else 0o600
            self.assertEqual((status.st_uid, status.st_gid, stat.S_IMODE(status.st_mode)), (1026, 100, mode), path)
        if version <= 3450:  # the accounts of the machine get the privilege on the way
            self.assertEqual(read(PRIVILEGE), "somebody\nO'Brien\n")
            self.assertEqual(stat.S_IMODE(os.stat(PRIVILEGE).st_mode), 0o600)
        # What other programs keep in the status file stays, and SQLite's temporary files are gone.
        self.assertEqual(read(STATUS_FILE), self.status_text("done"))
        self.assertEqual(os.listdir(volume.path + "/@tmp"), [])

    def upgrade_each(self, *versions, **options):
        for version in versions:
            with self.subTest(version=version, **options):
                self.upgrade(version, **options)


class Ext4(UpgradeTest):
    def test_every_version(self):
        self.upgrade_each(*VERSIONS)
        self.upgrade_each(3400, 3450, 4000, extras=("shared-rotation",))

    def test_awkward_volume_path_and_any_second_argument(self):
        """Only one word runs the legacy steps; any other is accepted."""
        for argument in ("--dont-skip", "--dont_skip", ""):
            with self.subTest(argument):
                self.upgrade(2577, argument, name="it's \"100%\" %s%n\n\udcff \\040 größe")

    def test_older_than_2577_on_the_word(self):
        """What is missing comes back, and rows that are moved by position keep their columns."""
        volume, columns = self.new_volume(2577), "delta_file_id, attribute, to_id, from_id, node_id"
        change(volume.data, f"""{SET_VERSION.format("- 77 *")}; DROP INDEX version_table_sync_id_index;
            DELETE FROM config_table WHERE key = 'row1'; ALTER TABLE delta_table RENAME TO old;
            CREATE TABLE delta_table ({columns.replace(",", " INTEGER,")} INTEGER);
            INSERT INTO delta_table SELECT {columns} FROM old; DROP TABLE old""")
        leave(volume.user, "PRAGMA journal_mode = WAL; DELETE FROM config_table")
        run = self.run_updater(volume.path, "--dont-skip")
        self.assert_ended(run, "done")
        self.assertEqual(run.stdout, told_from(2577, volume)[0])
        self.assert_upgraded(volume)

    def test_a_client_folder_on_a_file_system_of_its_own(self):
        volume, other = self.new_volume(4100), Volume()
        self.addCleanup(other.remove)
        folder, there = os.path.dirname(volume.client), other.path + "/client"
        shutil.copytree(folder, there)
        mount("--bind", there, folder)
        self.assert_ended(self.run_updater(volume.path), "done")
        # It forgets what was not flushed.
        subprocess.run(["mount", "-o", "remount,abort", other.path], capture_output=True, check=False)
        subprocess.run(["umount", folder], check=True)
        other.mount_again()
        mount("--bind", there, folder)
        self.assert_upgraded(volume)


class Btrfs(UpgradeTest):
    def test_some_versions_and_the_uuid_in_both_forms(self):
        self.upgrade_each(2577, 3300, 3450, LAST, fs="btrfs")
        self.upgrade_each(3450, fs="btrfs", uuid_in_old_form=True)
