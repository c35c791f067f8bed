"""The check after the upgrade: what becomes of users, shares and volumes that changed. Every case is a run on a
volume of the latest version and on a machine that agrees with its databases but in the one way told."""

import contextlib
import fcntl
import os
import shutil
import sqlite3
import subprocess
import threading
import time

import databases
import harness
import namespace
from harness import NO_OVERRIDE, SystemTest

LOCK = "/tmp/user-mgr-lock-file"
HOMES, SHARES = namespace.ROOM + "/homes", namespace.ROOM + "/shares"
NO_ALICE, NO_MUSIC = ({name: namespace.CONFIGURATION[name]} for name in ("passwd", "samba/smb.conf"))
# To the users of tests/data: a local one and a share user, with a session, a task and a view each.
USERS = f"""
    UPDATE user_table SET watch_path = '{HOMES}/O''Brien/StratoFolder' WHERE id = 3;
    INSERT INTO user_table (id, attribute, view_id, name, uid, gid, user_type, watch_path) VALUES
      (20, 0, 20, 'alice', 1027, 100, 0, '{HOMES}/alice/StratoFolder'),
      (21, 0, 21, '@music', 0, 0, 1, '{SHARES}/music');
    INSERT INTO session_table (uid, sess_id) VALUES (20, 'alice'), (21, 'music');
    INSERT INTO backup_task_table (session, view_id) VALUES ('sessión 2', 5), ('alice', 20), ('music', 21);
    INSERT INTO rotate_setting_table VALUES (20, 4, 'fifo'), (21, 4, 'fifo');"""
# What a run changes: row (by its rowid) or view -> its new values, None when it is gone.
ALICE_LOGGED_OUT = {"session_table 3": None, "backup_task_table 2": None}
ALICE_GONE = {"user_table 20": None, "view 20": None, **ALICE_LOGGED_OUT}
MUSIC_GONE = {"user_table 21": None, "rotate_setting_table 21": None, "view 21": None}
TEAM_GONE = {"user_table 8": None, "rotate_setting_table 17": None, "view 17": None}
LDAP_GONE = {"user_table 2": None}
DOMAIN_GONE = {"user_table 1": None, "session_table 2": None, "backup_task_table 1": None}

ERROR = "[ERROR] user-mgr(N): "
RENAMED = "[INFO] user-mgr(N): UserManager::Check Normal user user name change, remove session of user '%s'\n"
SKIPPED = "[WARNING] user-mgr(N): UserManager::EnumShareUser: skipping share user '%s'\n"


def music(*parameters, path=SHARES + "/music", name="music"):
    return {"samba/smb.conf": "\n".join((NO_MUSIC["samba/smb.conf"], f"[{name}]", f"path = {path}", *parameters, ""))}


def alice(name="alice", gid=100, home=HOMES + "/alice", until=""):
    return {"passwd": f"{NO_ALICE['passwd']}{name}:x:1027:{gid}::{home}:/bin/false\n",
            "shadow": f"{namespace.CONFIGURATION['shadow']}{name}:*:19000:0:99999:7::{until}:\n"}


def change_user(number, values):
    return {"user": f"UPDATE user_table SET {values} WHERE id = {number};"}


def add_user(*values):
    return {"user": "".join(f"INSERT INTO user_table VALUES ({row});" for row in values)}


def failed_check(*lines):
    return {"status": "upgradefail",
            "log": [*(ERROR + line for line in (*lines, "UserManager::SelfCheck CheckUser fail")),
                    "Failed to do initial self check on user database\n"]}


def failed_opening(line):
    return {"status": "upgradefail", "log": [ERROR + line, "Failed to initialize sync folder user database\n"]}


def rows_of(head, path):
    """Name of every row of every table -> its values; of a file that is no database, nothing."""
    rows = {}
    with contextlib.closing(sqlite3.connect(f"file:{path}?mode=ro", uri=True)) as db:
        db.row_factory = sqlite3.Row
        with contextlib.suppress(sqlite3.DatabaseError):
            for (table,) in db.execute("SELECT name FROM sqlite_master WHERE type = 'table'").fetchall():
                rows |= {f"{head}{table} {row[0]}": dict(zip(row.keys()[1:], row[1:]))
                         for row in db.execute(f"SELECT rowid AS row_id, * FROM {table}")}
            rows[head + "schema"] = {"sql": db.execute("SELECT sql FROM sqlite_master").fetchall()}
    return rows


def state_of(volume):
    state = rows_of("", volume.user) | rows_of("data ", volume.data)
    for view in os.listdir(volume.sync + "/view"):
        state[f"view {view}"] = {}
        if os.path.exists(volume.view(view)):
            state |= rows_of(f"{view} ", volume.view(view))
    return state


def changes(before, after):
    found = {}
    for name in before | after:
        view = "view " + name.split()[0]
        if before.get(name) == after.get(name) or (view in before and view not in after):
            continue  # the rows of a view go with it
        found[name] = after.get(name)
        if name in before and name in after:
            found[name] = {column: value for column, value in after[name].items() if before[name][column] != value}
    return found


class CheckTest(SystemTest):
    def setUp(self):
        self.volume = self.new_volume()
        os.makedirs(HOMES + "/alice", exist_ok=True)

    def set_up_case(self, files, sql, prepare):
        for entry in os.scandir("/etc"):
            (shutil.rmtree if entry.is_dir() else os.unlink)(entry.path)
        files = namespace.CONFIGURATION | alice() | music() | files
        namespace.configure({name: text for name, text in files.items() if text is not None})
        self.set_up_package()
        shutil.rmtree(self.volume.package, ignore_errors=True)
        self.volume.fill(databases.LATEST)
        for view in (20, 21, 30):
            shutil.copytree(f"{self.volume.sync}/view/5", f"{self.volume.sync}/view/{view}")
        databases.change(self.volume.user, USERS)
        for name, script in sql.items():
            path = {"user": self.volume.user, "data": self.volume.data}.get(name) or self.volume.view(name)
            databases.change(path, script)
        prepare()

    def check(self, changed=(), log=(), status="done", files=(), sql=(), prepare=lambda: None, mounts=(), prefix=()):
        """Runs on a machine with other files (None: there is none), other rows, other mounts."""
        self.set_up_case(dict(files), dict(sql), prepare)
        before, live = state_of(self.volume), self.volume.live()
        with contextlib.ExitStack() as stack:
            stack.callback(shutil.rmtree, SHARES, ignore_errors=True)
            for folder in mounts:
                os.makedirs(folder)
                namespace.mount_tmpfs(folder)
                stack.callback(subprocess.run, ["umount", folder], check=True)
            run = self.run_updater(self.volume.path, prefix=prefix)
        self.assert_ended(run, status)
        self.assertEqual(run.log, [f"database is located at '{self.volume.path}'", *log])
        self.assertEqual(run.stderr, "")
        self.assertEqual(changes(before, state_of(self.volume)), dict(changed))
        self.assertEqual(self.volume.copies(), [])
        if status != "done" and not changed:
            self.assertEqual(self.volume.live(), live)

    def check_each(self, cases):
        for name, case in cases.items():
            with self.subTest(name):
                self.check(**case)


class Users(CheckTest):
    def test_accounts(self):
        no_answer = failed_check("UserManager::CheckNormalUser fail to look up the account of uid 1026\n",
                                 "Failed to CheckLocalUser O'Brien\n")
        self.check_each({
            "all as before": dict(),
            "gone": dict(files=NO_ALICE, changed=ALICE_GONE),
            "renamed": dict(files=alice("Alicia"), log=[RENAMED % "alice"],
                            changed={"user_table 20": {"name": "Alicia"}, **ALICE_LOGGED_OUT}),
            "other group": dict(files=alice(gid=4000000000), changed={"user_table 20": {"gid": 4000000000}}),
            "expired": dict(files=alice(until=19001), sql=change_user(20, "attribute = 9"),
                            changed={"user_table 20": {"attribute": 11}}),
            "expired no more": dict(sql=change_user(20, "attribute = 11"), changed={"user_table 20": {"attribute": 9}}),
            "no file": dict(files={"passwd": None}, **no_answer),
            "empty file": dict(files={"passwd": ""}, **no_answer),
            "unreadable file": dict(prepare=lambda: os.chmod("/etc/passwd", 0), prefix=NO_OVERRIDE, **no_answer),
        })

    def test_home_folders(self):
        os.symlink("alice", HOMES + "/link")
        self.addCleanup(os.unlink, HOMES + "/link")
        self.check_each({
            "on": dict(sql=change_user(20, "watch_path = '/other'"),
                       changed={"user_table 20": {"watch_path": HOMES + "/alice/StratoFolder"}}),
            "off": dict(files={"samba/smb.conf": music()["samba/smb.conf"].replace("[homes]", "")},
                        changed={"user_table 3": {"watch_path": ""}, "user_table 20": {"watch_path": ""}}),
            "link": dict(files=alice(home=HOMES + "/link/.")),
            "missing": dict(files=alice(home="/none"), changed={"user_table 20": {"watch_path": "/StratoFolder"}}),
        })

    def test_services(self):
        self.check_each({
            "ldap off": dict(files={"nsswitch.conf": "passwd: files winbind"}, changed=LDAP_GONE),
            "domain off": dict(files={"nsswitch.conf": "passwd:\tfiles sss # winbind"}, changed=DOMAIN_GONE),
            "both off": dict(files={"nsswitch.conf": "passwd: files\ngroup: ldap winbind"},
                             changed=LDAP_GONE | DOMAIN_GONE),
            "missing": dict(files={"nsswitch.conf": None}),
            "unreadable": dict(prepare=lambda: os.chmod("/etc/nsswitch.conf", 0), prefix=NO_OVERRIDE),
        })

    def test_rows_that_are_no_users(self):
        """They cost nobody else a row or a view."""
        self.check_each({
            "share without @": dict(sql=change_user(21, "name = 'music'"), files=NO_MUSIC, log=[SKIPPED % "music"]),
            "share without name": dict(sql=change_user(21, "name = NULL"), log=[SKIPPED % "(unknown)"]),
            "no name": dict(sql=add_user("30, 0, 30, NULL, 5555, 0, 0, ''", "31, 0, 31, '', 0, 0, 0, ''"),
                            log=[RENAMED % ""],
                            changed={"user_table 31": {"name": "root", "watch_path": "/root/StratoFolder"}}),
            "no view": dict(sql=add_user("30, 0, NULL, 'lost', 5555, 0, 0, ''"), changed={"user_table 30": None}),
            "number too large": dict(sql=add_user("30, 0, 30, 'far', 4294967296 + 1027, 0, 0, ''"),
                                     changed={"user_table 30": None, "view 30": None}),
            "unknown type": dict(sql=add_user("30, 0, 30, '@none', 5555, 0, 4294967297, ''")),
            "type that is text": dict(sql=add_user("30, 0, 30, 'text', 5555, 0, 'x', ''")),
        })

    def test_long_name(self):
        """A statement that does not fit is not executed: what is left of it could hit every user."""
        name = "n" * 389
        stored = change_user(20, f"name = '{name}'")
        self.check_each({
            "gone": dict(sql=stored, files=NO_ALICE, **failed_check(
                "statement of 1453 bytes does not fit its buffer of 1024 bytes\n",
                f"UserManager::CheckNormalUser fail to RemoveUserNoTransaction {name}\n",
                f"Failed to CheckLocalUser {name}\n")),
            "stays": dict(sql=stored, files=alice(name)),
            "new": dict(files=alice(name), log=[RENAMED % "alice"],
                        changed={"user_table 20": {"name": name}, **ALICE_LOGGED_OUT}),
        })


class Shares(CheckTest):
    def test_configuration(self):
        def replica(value, flags):
            return music(f"plat:replica = {value}", f"plat:flags = {flags}")

        not_asked = failed_check("UserManager::CheckShareUser fail to look up share 'team \"50%\"'\n",
                                 "Failed to CheckShareUser team \"50%\"\n")
        main, moved = NO_MUSIC["samba/smb.conf"], {"user_table 21": {"watch_path": "/moved"}}
        self.check_each({
            "moved": dict(files=music(path="/moved"), changed=moved),
            "gone": dict(files=NO_MUSIC, changed=MUSIC_GONE),
            "other case": dict(files=music(name="MuSiC")),
            "included": dict(files={"samba/smb.conf": main + "include = /etc/samba/more.conf\n",
                                    "samba/more.conf": "[music]\npath = /moved\n"}, changed=moved),
            "replica": dict(files=replica("yes", "other dhos"), changed=MUSIC_GONE),
            "demoted replica": dict(files=replica("Yes", "share_replica_demote"), changed=MUSIC_GONE),
            "replica of another kind": dict(files=replica("yes", "dhosx")),
            "flags of no replica": dict(files=replica("no", "dhos")),
            "no configuration": dict(files={"samba/smb.conf": None}, changed=MUSIC_GONE | TEAM_GONE),
            "no sense": dict(files=music("[broken"), **not_asked),
            "unreadable": dict(prepare=lambda: os.chmod("/etc/samba/smb.conf", 0), prefix=NO_OVERRIDE, **not_asked),
            "path of 950 bytes": dict(files=music(path="/" + "p" * 949),
                                      changed={"user_table 21": {"watch_path": "/" + "p" * 949}}),
            "path of 1000 bytes": dict(files=music(path="/" + "p" * 999), **failed_check(
                "statement of 1058 bytes does not fit its buffer of 1024 bytes\n",
                f"UserManager::CheckShareUser fail to update watch path /{'p' * 999} to share 'music'.\n",
                "Failed to CheckShareUser music\n")),
        })

    def test_mounts(self):
        share = SHARES + "/music"
        suspended = change_user(21, "attribute = 8")
        self.check_each({
            "at the share": dict(mounts=[share], changed=MUSIC_GONE),
            "beneath": dict(mounts=[share + "/a/b"], changed=MUSIC_GONE),
            "snapshots": dict(mounts=[share + "/#snapshot", share + "/x/#snapshots/1"]),
            "suspended": dict(mounts=[share + "/a"], sql=suspended),
            "suspended replica": dict(mounts=[share + "/a"], sql=suspended, changed=MUSIC_GONE,
                                      files=music("plat:replica = yes", "plat:flags = dhos")),
            "beside": dict(mounts=[share + "2", SHARES + "/other/music"]),
            "blank in the path": dict(mounts=[SHARES + "/a b/c"], files=music(path=SHARES + "/a b"),
                                      changed=MUSIC_GONE),
        })


def changed_uuid(old, path="/gone", new=""):
    lines = [] if new else [f"[ERROR] sdk-cpp(N): Failed to get sharebin path of '{path}'\n"]
    return [*lines, f"uuid changed for {path} ({old} -> {new})!"]


def delete_uuid(uuid):
    return f"Delete uuid {uuid} from Stratofolder DB\n"


class Volumes(CheckTest):
    # Records of two more volumes: of b one version of three and an attribute, of a node 4 and a delta.
    RECORDS = """
        UPDATE version_table SET file_uuid = 'b' WHERE ver_id = 4;
        UPDATE version_table SET mac_attr = 'uuid=b&x=1' WHERE ver_id = 3;
        UPDATE version_table SET file_uuid = 'a' WHERE ver_id = 7;
        UPDATE node_table SET v_file_uuid = 'a' WHERE node_id = 4;
        UPDATE node_table SET node_delta_file_uuid = 'a', node_delta_file_id = 5 WHERE node_id = 2;"""
    A_GONE = {"1 node_table 4": None, "1 version_table 7": None, "1 tree_table 3": None,
              "1 node_table 2": {"node_delta_file_uuid": None, "node_delta_file_id": 0}}
    B_GONE = {"1 version_table 4": None, "1 version_table 3": {"mac_attr": ""}, "1 node_table 3": {"ver_cnt": 2}}
    BOTH_GONE = {"data volume_table 2": None, "data volume_table 3": None, **A_GONE, **B_GONE}

    def record(self, path_of_b="/gone"):
        return {"1": self.RECORDS, "data": f"INSERT INTO volume_table VALUES ('b', '{path_of_b}'), ('a', '/gone');"}

    def test_changed_uuids(self):
        path, room = self.volume.path, namespace.ROOM
        other = self.new_volume(name="volume2")
        self.check_each({
            "none recorded": dict(sql={"data": "DELETE FROM volume_table;"}),
            "other path of the volume": dict(sql={"data": f"UPDATE volume_table SET repo_path = '{path}';"}),
            "path that is gone": dict(sql=self.record(), changed=self.BOTH_GONE, log=[
                *changed_uuid("a"), *changed_uuid("b"), delete_uuid("a"), delete_uuid("b")]),
            "volume made anew": dict(sql=self.record(other.path), changed=self.BOTH_GONE, log=[
                *changed_uuid("a"), *changed_uuid("b", other.path, other.uuid), delete_uuid("a"), delete_uuid("b")]),
            "not mounted": dict(sql={"data": f"INSERT INTO volume_table VALUES ('a', '{room}');"}, log=[
                f"[ERROR] sdk-cpp(N): Unknow file system type: 0 ('{room}')\n", f"uuid changed for {room} (a -> )!",
                delete_uuid("a")], changed={"data volume_table 2": None}),
            "with a user": dict(sql={"data": "INSERT INTO volume_table VALUES ('a', '/gone');"}, files=NO_ALICE,
                                changed={**ALICE_GONE, "data volume_table 2": None},
                                log=[*changed_uuid("a"), delete_uuid("a")]),
        })

    def test_view_database_that_cannot_be_opened(self):
        """Fails at once: the views before it have lost their records, what is not handled stays recorded."""
        view = self.volume.view(17)
        missing = f"cannot open {view}: unable to open database file (14)\n"
        self.check_each({name: dict(
            sql=self.record(), prepare=prepare, changed=self.A_GONE, status="upgradefail",
            log=[*changed_uuid("a"), *changed_uuid("b"), delete_uuid("a"), "[ERROR] db(N): " + line,
                 "Failed to open view db with view_id 17\n"])
            for name, prepare, line in (
                ("missing", lambda: os.unlink(view), missing),
                ("folder missing", lambda: shutil.rmtree(os.path.dirname(view)), missing),
                ("foreign", lambda: databases.change(view, "DROP TABLE node_table;"),
                 f"{view} is not a database of version 4150\n"))})


class Opening(CheckTest):
    """The user database and its lock."""

    def test_user_database(self):
        self.check_each({
            "text": dict(prepare=lambda: harness.write(self.volume.user, "this is no database " * 100),
                         **failed_opening("sqlite3_exec: file is not a database (26)\n")),
            "foreign": dict(sql={"user": "DROP TABLE user_table; CREATE TABLE user_table (mail);"}, **failed_check(
                "UserManager::EnumUser: sqlite3_prepare_v2(SQL): no such column: name\n",
                "Failed to enumerate users\n")),
        })

    def test_lock_file_must_be_a_plain_file(self):
        """In a folder where everybody may put something."""
        victim = namespace.ROOM + "/victim"
        for name, plant, remove, reason in (
                ("link", lambda: os.symlink(victim, LOCK), os.unlink, "Too many levels of symbolic links"),
                ("folder", lambda: os.mkdir(LOCK), os.rmdir, "Is a directory"),
                ("pipe", lambda: os.mkfifo(LOCK), os.unlink, "Invalid argument")):
            with self.subTest(name), contextlib.ExitStack() as stack:
                stack.callback(remove, LOCK)
                self.check(prepare=plant, files=NO_ALICE,
                           **failed_opening(f"UserManager::Initialize: open: {reason}\n"))
                self.assertFalse(os.path.lexists(victim))

    def test_held_lock_is_waited_for(self):
        waits = []

        def is_checking():
            return harness.read(harness.STATUS_FILE) == self.status_text("checking")

        def release_later(lock):
            end = time.monotonic() + 60
            while not is_checking() and time.monotonic() < end:
                time.sleep(0.01)
            time.sleep(0.5)
            waits.append(is_checking())
            os.close(lock)

        def hold():
            lock = os.open(LOCK, os.O_RDWR | os.O_CREAT, 0o644)
            fcntl.flock(lock, fcntl.LOCK_EX)
            threading.Thread(target=release_later, args=(lock,)).start()

        self.check(prepare=hold, files=NO_ALICE, changed=ALICE_GONE)
        self.assertEqual(waits, [True])


if __name__ == "__main__":
    harness.main()
