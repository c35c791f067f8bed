"""Runs that must not upgrade: their log, status and output, and that they leave the live databases alone."""

import os
import shutil

import harness
from databases import change, text_of
from harness import ENABLED, MARK, NO_OVERRIDE, STATUS_FILE, SystemTest, write

NO_VERSION, NEWER = "Updater Cannot get database version", "exist db is newer than package"
# What detaching says after a script that failed inside its transaction.
STILL_OPEN = "sqlite3_exec(SQL): database data_db is locked (1)\n"
# The last lines of a failing updater.
STEP, VERSIONS, VIEWS = (f"failed to {what}\n" for what in ("update databases", "update database versions",
                                                          "update all view db"))


def set_version(path, version):
    change(path, f"UPDATE config_table SET value = {version} WHERE key = 'version'")


def put_folder(path):
    os.unlink(path)
    os.mkdir(path)


def put_file(path):
    shutil.rmtree(path, ignore_errors=True)
    write(path)


class RefusalTest(SystemTest):
    def refuse(self, volume, log, status="upgradefail", copies=False, prefix=()):
        before = volume.live()
        run = self.run_updater(volume.path, prefix=prefix)
        self.assert_ended(run, status)
        self.assertEqual(run.log, log)
        error = [line.removeprefix("UpdaterFramework: ") + "\n" for line in log if line.startswith("UpdaterFramework")]
        self.assertEqual(run.stderr, "".join(error))
        self.assertEqual(volume.live(), before)
        self.assertEqual(volume.copies() != [], copies)

    def refuse_each(self, cases, prefix=()):
        """Name -> (start version, change to the volume, log after its first line[, status, are there copies])."""
        for name, (version, prepare, log, *ending) in cases.items():
            with self.subTest(name):
                volume = self.new_volume(name=name.replace(" ", "-"))
                self.set_up_package()
                volume.fill(version)
                prepare(volume)
                log = [f"database is located at '{volume.path}'", *(line.format(sync=volume.sync) for line in log)]
                self.refuse(volume, log, *(ending or ("upgradefail", True)), prefix)


class Entry(RefusalTest):
    """Refused before the volume is looked into."""

    def test_wrong_argument_count_touches_nothing(self):
        self.set_up_package()
        write(MARK, "1\n")
        for arguments in ((), ("/srv", "--dont-skip", "more")):
            run = self.run_updater(*arguments)
            self.assertEqual(run, harness.Run("", "", 255, "initializing", ["updater: invalid arguments\n"]))
            self.assertEqual(harness.read(MARK), "1\n")

    def test_not_a_mounted_volume(self):
        volume = self.new_volume()
        volume.fill(4150)
        for path in (volume.sync, volume.path + "/none", "", "%s%n"):
            with self.subTest(path=path):
                self.set_up_package()
                run = self.run_updater(path)
                self.assert_ended(run, "upgradefail")
                self.assertEqual((run.stdout, run.log), ("", [f"updater-svr:N {path} is not a mounted volume"]))

    def test_unexpected_status(self):
        volume = self.new_volume()
        volume.fill(2577)
        long_word = "initializing" * 3
        cases = {  # stored status -> how it is read
            "done": "done", "enabled": "error", long_word: long_word[:31],
            "updating": "error",  # its updater is dead
        }
        for stored, word in cases.items():
            with self.subTest(stored):
                self.set_up_package(stored)
                write(MARK, "999999999\n")  # removed although it is another run's
                self.refuse(volume, [f"updater-svr:N unexpected status for updater: {word}"])
        self.set_up_package("updating")
        write(MARK, f"{os.getpid()}\n")
        self.refuse(volume, ["updater-svr:N unexpected status for updater: updating"])

    def test_unreadable_status(self):
        volume = self.new_volume()
        service = "[ERROR] service-ctrl(N): "
        for name, prepare, log, word in (
                ("not enabled", lambda: os.unlink(ENABLED), [], "disabled"),
                ("no file", lambda: os.unlink(STATUS_FILE),
                 [f"{service}access({STATUS_FILE}): No such file or directory (2)\n"], "disabled"),
                ("no key", lambda: write(STATUS_FILE, 'other="initializing"\n'),
                 [f"{service}PLIBCFileGetKeyValue({STATUS_FILE}, status): 61\n"], "error")):
            with self.subTest(name):
                self.set_up_package()
                prepare()
                self.refuse(volume, log + [f"updater-svr:N unexpected status for updater: {word}"])

    def test_no_folder_for_the_mark(self):
        self.set_up_package()
        os.rmdir(os.path.dirname(MARK))
        self.refuse(self.new_volume(), ["updater-svr:N PLIBCProcPidFileCreate: Error code = 2, "
                                        "No such file or directory (2)"])


class Content(RefusalTest):
    """Refused for what is on the volume."""

    def test_data_database_decides(self):
        no_start = "UpdaterFramework: GraphError: UpdateGraph: fail to find start vertex of version "
        self.refuse_each({
            "missing": (4150, lambda v: os.unlink(v.data), [], "done", False),
            "folder": (4150, lambda v: put_folder(v.data),
                       ["StratoFolder: Open database: {sync}/syncfolder-db.sqlite failed (error code 14)\n", NEWER],
                       "dbnewer", False),
            "newer": (4150, lambda v: set_version(v.data, 4151),
                      ["exist db is newer, exist: 4151, target: 4150", NEWER], "dbnewer", False),
            "no database": (3300, lambda v: write(v.data, "this is no database " * 100),
                            ["sqlite3_prepare_v2: file is not a database (26)\n", NO_VERSION]),
            "empty": (3300, lambda v: write(v.data),
                      ["sqlite3_prepare_v2: no such table: config_table (1)\n", NO_VERSION]),
            "no version": (3300, lambda v: change(v.data, "DELETE FROM config_table WHERE key = 'version'"),
                           [NO_VERSION]),
            "no number": (3300, lambda v: set_version(v.data, "'x'"), [NO_VERSION]),
            "unknown version": (3300, lambda v: set_version(v.data, 3100), [no_start + "(master, 3100) "]),
            "unknown branch": (3300, lambda v: change(v.data, "UPDATE config_table SET value = 'b' WHERE key = 'branch'"),
                               [no_start + "(b, 3300) "]),
        })

    def test_parts_that_cannot_be_copied(self):
        no_views = ["Cannot get views to backup view folder at {sync}/view\n",
                    "cannot backup view from {sync}/view to {sync}/view.bak."]
        self.refuse_each({
            "user folder": (3300, lambda v: put_folder(v.user),
                            ["[ERROR] file-op(N): CopyFile: read: Is a directory (21)\n",
                             "cannot backup db from {sync}/user-db.sqlite to {sync}/user-db.sqlite.bak"]),
            "view file": (3400, lambda v: put_file(v.sync + "/view"), no_views),
        })
        self.refuse_each({
            "unreadable view": (3400, lambda v: os.chmod(v.sync + "/view", 0), no_views),
            "unreadable file": (3400, lambda v: os.chmod(v.sync + "/file", 0),
                                ["[ERROR] file-op(N): FSCopyTree: {sync}/file: Permission denied (13)\n",
                                 "cannot backup file from {sync}/file to {sync}/file.bak."]),
        }, NO_OVERRIDE)


class Chain(RefusalTest):
    """Every updater, failing."""

    def fail_each(self, cases):
        """Name -> (from, to, change to the volume, lines of the updater); its lines but of mkdir have a head."""
        self.refuse_each({
            name: (start, prepare, [line if line.startswith("mkdir") else "Strato Folder Updater(N): " + line
                                    for line in lines] +
                   [f"UpdaterFramework: Error when updating from {text_of(start)}  to {text_of(end)} : "])
            for name, (start, end, prepare, *lines) in cases.items()})

    def test_early_updaters(self):
        self.fail_each({
            "mismatch": (2577, 3004, lambda v: set_version(v.user, 3004),
                         "database version mismatch: (2577, 3004, 2577)\n"),
            "no client": (2577, 3004, lambda v: os.unlink(v.client),
                          "sqlite3_prepare_v2(SQL): no such table: client_db.config_table (1)\n",
                          "failed to get database versions\n"),
            "no repo": (2577, 3004, lambda v: os.rmdir(v.sync + "/repo"),
                        "failed to open file({sync}/repo/.0): No such file or directory\n",
                        "failed to create empty file\n", STEP),
            "column of 3004": (2603, 3004, lambda v: change(v.data, "ALTER TABLE version_table ADD acl_hash"),
                               "sqlite3_exec(SQL): duplicate column name: acl_hash (1)\n", STEP, STILL_OPEN),
            "node_delta file": (3004, 3200, lambda v: put_file(v.sync + "/node_delta"),
                                "failed to create node_delta folder\n",
                                "UpdateDatabases: CreateNodeDeltaFolder failed\n", STEP),
            "no log table": (3200, 3300, lambda v: change(v.data, "DROP TABLE log_table"),
                             "sqlite3_exec(SQL): no such table: data_db.log_table (1)\n", STEP, STILL_OPEN),
        })

    def test_later_updaters(self):
        self.fail_each({
            "no rm": (3300, 3400, lambda v: os.rmdir(v.sync + "/rm"),
                      "mkdir({sync}/rm/file): No such file or directory (2)\n",
                      "failed to create new db and rotate folders\n"),
            "stray view": (3400, 3450, lambda v: os.mkdir(v.sync + "/view/lost"),
                           "sqlite3_exec(SQL): no such table: view_db.config_table (1)\n",
                           "Failed to update version and branch to view-db {sync}/view.bak/lost/view-db.sqlite",
                           VERSIONS),
            "column of 4000": (3450, 4000, lambda v: change(v.user, "ALTER TABLE session_table ADD client_type"),
                               "sqlite3_exec(1), duplicate column name: client_type, sql = SQL",
                               "failed to update user database schema\n"),
            "no settings": (4000, 4060, lambda v: change(v.user, "DROP TABLE rotate_setting_table"),
                            "sqlite3_exec(SQL): no such table: user_db.rotate_setting_table (1)\n",
                            "Failed to update rotate_cnt for view 5\n",
                            "Failed to update rotate count for view 5\n", "failed to update all rotate_cnt\n"),
            "column of 4100": (4060, 4100, lambda v: change(v.view(17), "ALTER TABLE version_table ADD committer_sess_id"),
                               "sqlite3_exec(SQL): duplicate column name: committer_sess_id (1)\n",
                               "Failed to update view db for view 17\n", VIEWS),
            "no version table": (4100, 4150, lambda v: change(v.view(1), "DROP TABLE version_table"),
                                 "sqlite3_exec(SQL): no such table: view_db.version_table (1)\n",
                                 "Failed to exec SQL\n", "Failed to update view db for view 1\n", VIEWS),
        })


if __name__ == "__main__":
    harness.main()
