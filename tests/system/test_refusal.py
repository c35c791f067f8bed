"""Runs that must not upgrade: their log, status and output, and that they leave the live databases alone."""

import os
import re
import subprocess

from harness import (ENABLED, HALF, LAST, MARK, NO_OVERRIDE, STATUS_FILE, Run, SystemTest, change, leave, read,
                     text_of, write)
from namespace import mount

NO_VERSION, NEWER = "Updater Cannot get database version", "exist db is newer than package"
UNREADABLE = "cannot read the version of database "
UNREADABLE_DATA = f"Strato Folder Updater(N): {UNREADABLE}{{sync}}/syncfolder-db.sqlite.bak: "


def failed(start, end, *lines):
    """The log of a chain that ends with an updater that says these lines."""
    return ["Strato Folder Updater(N): " + line for line in lines] + [
        f"UpdaterFramework: Error when updating from {text_of(start)}  to {text_of(end)} : "]


def set_config(path, key, value):
    change(path, f"UPDATE config_table SET value = {value} WHERE key = '{key}'")


class RefusalTest(SystemTest):
    def refuse(self, volume, log, status="upgradefail", copies=False, path=None, arguments=()):
        before, files = volume.live(), volume.files()
        run = self.run_updater(volume.path if path is None else path, *arguments, prefix=NO_OVERRIDE)
        self.assert_ended(run, status)
        self.assertEqual(run.log, log)
        error = [line.removeprefix("UpdaterFramework: ") + "\n" for line in log if line.startswith("UpdaterFramework")]
        self.assertEqual(run.stderr, "".join(error))
        self.assertEqual(volume.live(), before)
        self.assertEqual(volume.copies() != [], copies)
        if status == "dbnewer":
            self.assertEqual(volume.files(), files)
        return run

    def refuse_each(self, cases, **options):
        """Name -> (start version, change to the volume, log after its first line[, status, are there copies])."""
        for name, (version, prepare, log, *ending) in cases.items():
            with self.subTest(name):
                volume = self.new_volume(version)
                prepare(volume)
                log = [line.format(sync=volume.sync, client=volume.client) for line in log]
                self.refuse(volume, [f"database is located at '{volume.path}'", *log], *(ending or ("upgradefail", True)),
                            **options)


class Entry(RefusalTest):
    """Refused before the volume is looked into."""

    def test_wrong_argument_count_touches_nothing(self):
        self.set_up_package()
        write(MARK, "1\n")
        for arguments in ((), ("/srv", "--dont-skip", "more")):
            run = self.run_updater(*arguments)
            self.assertEqual(run, Run("", "", 255, "initializing", ["updater: invalid arguments\n"]))
            self.assertEqual(read(MARK), "1\n")

    def test_not_a_mounted_volume_or_an_unexpected_status(self):
        """The mark is removed although it is another run's."""
        volume, log = self.new_volume(2577), "updater-svr:N unexpected status for updater: "
        for path in (volume.sync, volume.path + "/none", "", "%s%n"):
            with self.subTest(path=path):
                self.set_up_package()
                run = self.refuse(volume, [f"updater-svr:N {path} is not a mounted volume"], path=path)
                self.assertEqual(run.stdout, "")
        no_file = f"[ERROR] service-ctrl(N): access({STATUS_FILE}): No such file or directory (2)\n"
        for stored, missing, *lines in (("%" * 10000, None, log + "%" * 31), ("updating", None, log + "updating"),
                                        ("initializing", ENABLED, log + "disabled"),
                                        ("initializing", STATUS_FILE, no_file, log + "disabled")):
            with self.subTest(stored, lines=lines):
                self.set_up_package(stored)
                write(ENABLED.replace("enabled", "target/etc/syncfolder.debug"), "a=debug\n" * 1300000)
                write(MARK, f"{os.getpid()}\n")
                if missing is not None:
                    os.unlink(missing)
                self.refuse(volume, lines)
                self.assertEqual(os.stat(STATUS_FILE).st_mode & 0o777, 0o644)  # under any mask

    def test_no_folder_for_the_mark(self):
        volume = self.new_volume(2577)
        os.rmdir(os.path.dirname(MARK))
        self.refuse(volume, ["updater-svr:N PLIBCProcPidFileCreate: Error code = 2, No such file or directory (2)"])


class Content(RefusalTest):
    """Refused for what is on the volume."""

    def test_data_database_decides(self):
        def unreadable(why):
            return ["sqlite3_prepare_v2: " + why, UNREADABLE_DATA + why, NO_VERSION]

        in_log = "PRAGMA journal_mode = WAL; UPDATE config_table SET value = 9999 WHERE key = 'version'"
        no_start = "UpdaterFramework: GraphError: UpdateGraph: fail to find start vertex of version "
        self.refuse_each({
            "missing": (LAST, lambda v: os.unlink(v.data), [], "done", False),
            "folder": (LAST, lambda v: (os.unlink(v.data), os.mkdir(v.data)),
                       ["StratoFolder: Open database: {sync}/syncfolder-db.sqlite failed (error code 14)\n", NEWER],
                       "dbnewer", False),
            "newer": (LAST, lambda v: set_config(v.data, "version", LAST + 1),
                      [f"exist db is newer, exist: {LAST + 1}, target: {LAST}", NEWER], "dbnewer", False),
            **{name: (LAST, prepare, [f"exist db is newer, exist: 9999, target: {LAST}", NEWER], "dbnewer", False)
               for name, prepare in {
                   "journal": lambda v: (set_config(v.data, "version", 9999), leave(v.data, HALF)),
                   "no log": lambda v: change(v.data, in_log),
                   "log": lambda v: leave(v.data, "PRAGMA locking_mode = EXCLUSIVE;" + in_log),
                   "log and index": lambda v: leave(v.data, in_log),
                   "log, not to be written": lambda v: (leave(v.data, "PRAGMA locking_mode = EXCLUSIVE;" + in_log),
                                                        os.chmod(v.data, 0o400))}.items()},
            "no database": (3300, lambda v: write(v.data, "this is no database " * 100),
                            unreadable("file is not a database (26)\n")),
            "truncated": (3300, lambda v: os.truncate(v.data, 8192),
                          unreadable("database disk image is malformed (11)\n")),
            "empty": (3300, lambda v: write(v.data), unreadable("no such table: config_table (1)\n")),
            "no version": (3300, lambda v: change(v.data, "DELETE FROM config_table WHERE key = 'version'"),
                           [UNREADABLE_DATA + "config_table has no row for it\n", NO_VERSION]),
            "no number": (3300, lambda v: set_config(v.data, "version", "'x'"),
                          [UNREADABLE_DATA + "'x' is no version number\n", NO_VERSION]),
            # 2^32 + 2577 and 2577 - 2^32
            "beyond 32 bits": (2577, lambda v: set_config(v.data, "version", "'4294969873'"),
                               [f"exist db is newer, exist: 4294969873, target: {LAST}", NEWER], "dbnewer", False),
            "below 32 bits": (2577, lambda v: set_config(v.data, "version", "'-4294964719'"),
                              [UNREADABLE_DATA + "'-4294964719' is no version number\n", NO_VERSION]),
            "unknown": (3300, lambda v: set_config(v.data, "version", "'3100abc'"), [no_start + "(master, 3100) "]),
        })

    def test_parts_that_cannot_be_copied(self):
        no_views = ["Cannot get views to backup view folder at {sync}/view\n",
                    "cannot backup view from {sync}/view to {sync}/view.bak."]
        self.refuse_each({
            "user folder": (3300, lambda v: (os.unlink(v.user), os.mkdir(v.user)),
                            ["[ERROR] file-op(N): CopyFile: read: Is a directory (21)\n",
                             "cannot backup db from {sync}/user-db.sqlite to {sync}/user-db.sqlite.bak"]),
            "unreadable views": (3400, lambda v: os.chmod(v.sync + "/view", 0), no_views),
            "unreadable files": (3400, lambda v: os.chmod(v.sync + "/file", 0),
                                 ["[ERROR] file-op(N): FSCopyTree: {sync}/file: Permission denied (13)\n",
                                  "cannot backup file from {sync}/file to {sync}/file.bak."]),
        })

    def test_parts_that_cannot_be_replaced(self):
        def mounted(name, *options):
            def prepare(volume):
                path = volume.sync + name
                os.rename(path, volume.path + "/elsewhere")
                (os.mkdir if os.path.isdir(volume.path + "/elsewhere") else write)(path)
                mount("--bind", *options, volume.path + "/elsewhere", path)
            return prepare

        def fixed(flag, name):
            return lambda v: subprocess.run(["chattr", flag, v.sync + name], check=True)

        view = "/view/5/view-db.sqlite"
        busy, cross, no = "Device or resource busy (16)", "Invalid cross-device link (18)", "Operation not permitted (1)"
        self.refuse_each({name: (LAST, prepare, ["cannot replace {sync}" + f"{target}: {why}\n"])
                          for name, prepare, target, why in (
            ("file folder mounted", mounted("/file"), "/file", busy),
            ("volume mounted", lambda v: mounted(f"/file/{v.uuid}")(v), "/file", busy),
            ("database mounted", mounted(view), view, busy),
            ("view mounted", mounted("/view/5"), view, cross),
            ("database immutable", fixed("+i", "/user-db.sqlite"), "/user-db.sqlite", no),
            ("view append-only", fixed("+a", view), view, no),
            ("view folder immutable", fixed("+i", "/view/5"), view, no),
            ("view folder append-only", fixed("+a", "/view/5"), view, no),
            ("file in volume immutable", lambda v: fixed("+i", f"/file/{v.uuid}/file-db.sqlite")(v), "/file", no))})


class Chain(RefusalTest):
    def test_volumes_that_do_not_fit(self):
        self.refuse_each({
            "damaged end": (3450, lambda v: os.truncate(v.data, os.path.getsize(v.data) - 2000), failed(
                3450, 4000, "SQLExecute failed, database disk image is malformed, sql = SQL\n",
                "3450 to 4000, data_db ({sync}/syncfolder-db.sqlite.bak): database disk image is malformed (11)\n",
                "failed to update all rotate_cnt\n")),
            "no client": (2577, lambda v: os.unlink(v.client), failed(
                2577, 3004, "sqlite3_prepare_v2(SQL): no such table: client_db.config_table (1)\n",
                "failed to get database versions\n", UNREADABLE + "{client}.bak: there was no such file\n")),
            "foreign user": (2577, lambda v: write(v.user, "foreign" * 1000), failed(
                2577, 3004, "sqlite3_exec(SQL): file is not a database (26)\n",
                "2577 to 3004, ATTACH DATABASE '{sync}/user-db.sqlite.bak' AS user_db: file is not a database (26)\n",
                "failed to attach database\n", "failed to connect to databases\n",
                "sqlite3_exec(SQL): no such database: user_db (1)\n")),
            "user beyond 32 bits": (2577, lambda v: set_config(v.user, "version", "'4294969873'"), failed(
                2577, 3004, "failed to get database versions\n",
                UNREADABLE + "{sync}/user-db.sqlite.bak: '4294969873' is no version number\n")),
            "stray view": (3400, lambda v: os.mkdir(v.sync + "/view/lost"), failed(
                3400, 3450, "sqlite3_exec(SQL): no such table: view_db.config_table (1)\n",
                "Failed to update version and branch to view-db {sync}/view.bak/lost/view-db.sqlite",
                "failed to update database versions\n")),
        })

    def test_volumes_older_than_2577(self):
        """The steps work on a copy of the client database that is replaced by another one."""
        old = "'2500'"
        for argument in ((), ("--dont_skip",)):
            self.refuse_each({"without the word": (2577, lambda v: set_config(v.data, "version", old), [
                "UpdaterFramework: GraphError: UpdateGraph: fail to find start vertex of version (, 2500) "])},
                arguments=argument)
        self.refuse_each({
            "client": (2577, lambda v: [set_config(path, "version", old) for path in v.databases()], failed(
                2577, 3004, "database version mismatch: (2577, 2577, 2500)\n")),
            "column": (2577, lambda v: (set_config(v.user, "version", old),
                                        change(v.user, "ALTER TABLE user_table ADD own")),
                       ["Strato Folder Updater(N): V1: database {sync}/user-db.sqlite.bak cannot be brought to 2577: "
                        "column user_table.own is not of the layout\n", "Update V1 Fail"]),
        }, arguments=("--dont-skip",))

    def test_a_line_too_long_for_the_log_is_cut_before_its_end(self):
        volume = self.new_volume(4100)
        change(volume.client, "CREATE TRIGGER refuse BEFORE UPDATE ON config_table "
                              f"BEGIN SELECT RAISE(ABORT, '{'long ' * 60000}reason'); END")
        log = self.run_updater(volume.path).log
        for number, head in (1, "sqlite3_exec(SQL): "), (2, f"4100 to 4150, client_db ({volume.client}.bak): "):
            self.assertRegex(log[number], re.escape(head) + r"long .* \[\.\.\.\] .* reason \(19\)\n\Z")
        self.assertLess(len(log[2]), 1000)
