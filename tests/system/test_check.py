"""The check after the upgrade: what becomes of users, shares and volumes that changed. Every case is a run on a
volume of the latest version and on a machine that agrees with its databases but in the one way told."""

import contextlib
import os
import re
import shutil
import sqlite3
import subprocess
import time

import harness
import namespace
from harness import SystemTest, query

TODAY = int(time.time()) // (24 * 60 * 60)
HOMES, SHARES = namespace.ROOM + "/homes", namespace.ROOM + "/shares"
NO_ALICE, NO_MUSIC = ({name: namespace.CONFIGURATION[name]} for name in ("passwd", "samba/smb.conf"))
# What a run changes: row (by its rowid) or view -> its new values, None when it is gone.
ALICE_LOGGED_OUT = {"session_table 3": None, "backup_task_table 2": None}
# The same users as the log names them, and what goes with them.
USERS = {
    "alice": (("alice", 1027, 0, 20), "user_table 20", "view 20", *ALICE_LOGGED_OUT),
    "music": (("music", 0, 1, 21), "user_table 21", "rotate_setting_table 21", "view 21"),
    "team": (('team "50%"', 0, 1, 17), "user_table 8", "rotate_setting_table 17", "view 17"),
    "ldap": (("größe.ldap", 2000001, 2, 4294967297), "user_table 2"),
    "domain": (("DOM\\bob 100%", 4000000000, 3, 5), "user_table 1", "session_table 2", "backup_task_table 1"),
}
NO_ACCOUNT, NO_SHARE = "there is no such account", "there is no such share"
LDAP_OFF, DOMAIN_OFF = "the LDAP service is off", "the domain service is off"
REPLICA, MOUNTED = "the share is a replica", "a file system is mounted in the folder of the share"
WARNING = "[WARNING] user-mgr(N): UserManager::SelfCheck: "
REMOVED = WARNING + "removed user '%s' (uid %u, type %u, view %u): %s\n"
SHARED = WARNING + "view %u is not deleted with user '%s': another user row names it\n"
DAMAGED = WARNING + "the row of id %u in user_table is left alone: its %s\n"
ERROR = "[ERROR] user-mgr(N): "
RENAMED = "[INFO] user-mgr(N): UserManager::Check Normal user user name change, remove session of user '%s'\n"
SKIPPED = "[WARNING] user-mgr(N): UserManager::EnumShareUser: skipping share user '%s'\n"


def music(*parameters, path=SHARES + "/music"):
    return {"samba/smb.conf": "\n".join((NO_MUSIC["samba/smb.conf"], "[Music]", f"path = {path}", *parameters, ""))}


def replica(flags):
    return music("plat:replica = yes", f"plat:flags = {flags}")


def alice(name="alice", gid=100, until=""):
    """Her entry is long, and so is the way to her home; another account has the same name."""
    return {"passwd": f"{NO_ALICE['passwd']}{name}:x:1028:7::/:\n"
                      f"{name}:x:1027:{gid}:{'g' * 3000}:/proc/self/root{HOMES}/alice:/bin/false\n",
            "shadow": f"{namespace.CONFIGURATION['shadow']}{name}:*:19000:0:99999:7::{until}:\n"}


def change_user(number, values):
    return f"UPDATE user_table SET {values} WHERE id = {number};"


def unreadable(name):
    return lambda: os.chmod("/etc/" + name, 0)


def failed_check(*lines):
    log = [*(ERROR + line for line in lines), ERROR + "UserManager::SelfCheck CheckUser fail"]
    return {"status": "upgradefail", "log": [*log, "Failed to do initial self check on user database\n"]}


def removed(user, why):
    return REMOVED % (*USERS[user][0], why)


def state_of(volume):
    """Name of every view and of every row of every table -> its values; of a missing or foreign file, nothing."""
    views = os.listdir(volume.sync + "/view")
    state = {f"view {view}": {} for view in views}
    paths = {"": volume.user, "data ": volume.data, **{f"view {view} ": volume.view(view) for view in views}}
    for head, path in paths.items():
        with contextlib.suppress(sqlite3.Error):  # what is no database has no rows
            for (table,) in query(path, "SELECT name FROM sqlite_master WHERE type = 'table'"):
                for row in query(path, f"SELECT rowid AS number, * FROM {table}", sqlite3.Row):
                    state[f"{head}{table} {row['number']}"] = dict(row)
    return state


def changes(before, after):
    gone = tuple(f"{name} " for name in before.keys() - after.keys())  # the rows of a view go with it
    new = {name: after.get(name) for name in before | after
           if before.get(name) != after.get(name) and not name.startswith(gone)}
    return {name: values and {column: value for column, value in values.items()
                              if name not in before or before[name][column] != value}
            for name, values in new.items()}


class CheckTest(SystemTest):
    def setUp(self):
        self.volume = self.new_volume()
        os.makedirs(HOMES + "/alice", exist_ok=True)

    def set_up_machine(self, files, mounts):
        harness.clear("/etc")
        files = namespace.CONFIGURATION | alice() | music() | files
        namespace.configure({name: text for name, text in files.items() if text is not None})
        subprocess.run(["umount", "-R", SHARES], capture_output=True, check=False)
        for folder in (SHARES, *mounts):
            os.makedirs(folder, exist_ok=True)
            namespace.mount_tmpfs(folder)

    def set_up_databases(self, **scripts):
        self.set_up_package()
        shutil.rmtree(self.volume.package, ignore_errors=True)
        self.volume.fill(harness.VERSIONS[-1], self.volume.uuid, ["more-users"])
        for number in (20, 21, 30):
            shutil.copytree(f"{self.volume.sync}/view/5", f"{self.volume.sync}/view/{number}")
        for name, path in {"user": self.volume.user, "data": self.volume.data, "view": self.volume.view(1)}.items():
            harness.change(path, scripts.get(name, ""))

    def check(self, changed=(), log=(), status="done", prepare=lambda: None, files=(), mounts=(), gone=(), volumes=(),
              **scripts):
        """Runs on a machine with other files (None: there is none) and mounts, and on databases with other rows. The
        log: its first lines, the users who are gone (and why) with their views, and what is said of volumes."""
        changed = dict(changed) | {name: None for user in gone for name in USERS[user][1:]}
        self.set_up_machine(dict(files), mounts)
        self.set_up_databases(**scripts)
        prepare()
        before, live = state_of(self.volume), self.volume.live()
        run = self.run_updater(self.volume.path, prefix=harness.NO_OVERRIDE)
        self.assert_ended(run, status)
        deleted = [f"[WARNING] db(N): DeleteView: {view} ({self.volume.sync}/{view.replace(' ', '/')}): deleted\n"
                   for view, values in changed.items() if re.fullmatch(r"view \d+", view) and values is None]
        self.assertEqual(run.log, [f"database is located at '{self.volume.path}'", *log,
                                   *(removed(*user) for user in dict(gone).items()), *deleted, *volumes])
        self.assertEqual(run.stderr, "")
        self.assertEqual(changes(before, state_of(self.volume)), changed)
        self.assertEqual(self.volume.copies(), [])
        if status != "done" and not changed:
            self.assertEqual(self.volume.live(), live)

    def check_each(self, cases):
        for name, case in cases.items():
            with self.subTest(name):
                self.check(**case)


class Users(CheckTest):
    def test_accounts_and_services(self):
        no_answer = failed_check("UserManager::CheckNormalUser fail to look up the account of uid 1026\n",
                                 "Failed to CheckLocalUser O'Brien\n")
        self.check_each({
            "gone": dict(files=NO_ALICE, gone={"alice": NO_ACCOUNT}),
            "renamed": dict(files=alice("Alicia"), log=[RENAMED % "alice"],
                            changed={"user_table 20": {"name": "Alicia"}, **ALICE_LOGGED_OUT}),
            "other group, expired": dict(
                files=alice(gid=4000000000, until=TODAY), user=change_user(20, "attribute = 9"),
                changed={"user_table 20": {"gid": 4000000000, "attribute": 11}}),
            "other home, not expired": dict(
                files=alice(until=TODAY + 1), user=change_user(20, "attribute = 11, watch_path = '/other'"),
                changed={"user_table 20": {"attribute": 9, "watch_path": HOMES + "/alice/StratoFolder"}}),
            "no accounts": dict(files={"passwd": ""}, **no_answer),
            "unreadable accounts": dict(prepare=unreadable("passwd"), **no_answer),
            "homes off": dict(files={"samba/smb.conf": music()["samba/smb.conf"].replace("[Homes]", "")},
                              changed={"user_table 3": {"watch_path": ""}, "user_table 20": {"watch_path": ""}}),
            "homes elsewhere": dict(files={"samba/smb.conf": music()["samba/smb.conf"].replace(
                "[Homes]", "include = registry")}),
            "ldap off": dict(
                user=change_user(2, "name = CAST(x'27220a25732566ff' AS TEXT)"), changed={"user_table 2": None},
                files={"nsswitch.conf": "passwd:compat winbind"}, log=[REMOVED % (
                    "'\"\n%s%f\udcff", *USERS["ldap"][0][1:], LDAP_OFF)]),
            "domain off": dict(gone={"domain": DOMAIN_OFF}, files={
                "nsswitch.conf": "#passwd: winbind\n passwd:\tfiles [NOTFOUND=return] sss # winbind\n"}),
            "both off": dict(gone={"ldap": LDAP_OFF, "domain": DOMAIN_OFF}, files={
                "nsswitch.conf": "passwd: files systemd\ngroup: files ldap winbind\n"}),
            "unreadable services": dict(prepare=unreadable("nsswitch.conf")),
        })

    def test_awkward_rows_cost_nobody_else_a_row_or_a_view(self):
        damage = {30: "'20abc', 'shifted', 5555, 0, 0", 31: "NULL, 'lost', 5555, 0, 0", 32: "-1, 'below', 5555, 0, 0",
                  33: "20.5, 'half', 5555, 0, 0", 34: "20, 'nobody', NULL, 0, 0", 35: "30, 'far', 4294968323, 0, 0",
                  36: "30, 'text', 'x', 0, 2", 37: "30, NULL, 5555, 0, 0", 38: "20, '', 0, 0, 0",
                  39: "30, x'616C69636961', 5555, 0, 0", 40: "30, 'Alicia' || char(0) || 'x', 5555, 0, 0",
                  41: "21, '@', 0, 0, 1", 42: "30, '@music' || char(0), 0, 0, 1", 43: "30, NULL, 0, 0, 1"}
        rows = "".join(f"INSERT INTO user_table VALUES ({row}, 0, {values}, '');" for row, values in damage.items())
        rows += """INSERT INTO session_table (uid, sess_id) VALUES (36, 'damaged'); INSERT INTO backup_task_table (session)
            VALUES ('damaged'); INSERT INTO user_table VALUES (50, 0, 30, '@none', 0, 0, 4294967297, ''),
            (51, 0, 30, 'no @', 0, 0, 1, '');"""
        whys = ["view_id is no integer from 0 to 2^63-1"] * 4 + ["uid is no integer from 0 to 2^32-1"] * 3 + [
            "name is no text, empty or holds a NUL"] * 7
        view_stays = dict.fromkeys(USERS["music"][1:-1])
        sharers = "INSERT INTO user_table VALUES (22, 0, 21, 'root', 0, 0, 0, ''), (23, 0, 20, 'zoe', 5555, 0, 0, '');"
        self.check_each({
            "damaged rows": dict(
                user=rows, files=alice("Alicia") | NO_MUSIC | {"nsswitch.conf": "passwd: files winbind\n"},
                log=[*(DAMAGED % line for line in zip(damage, whys)), removed("ldap", LDAP_OFF), SKIPPED % "(unknown)",
                     SKIPPED % "no @", RENAMED % "alice", removed("music", NO_SHARE), SHARED % (21, "music")],
                changed={"user_table 20": {"name": "Alicia"}, **ALICE_LOGGED_OUT, "user_table 2": None, **view_stays}),
            "shared views": dict(
                user=sharers, files=NO_ALICE | NO_MUSIC, log=[
                    removed("alice", NO_ACCOUNT), SHARED % (20, "alice"), removed("music", NO_SHARE),
                    SHARED % (21, "music"), REMOVED % ("zoe", 5555, 0, 20, NO_ACCOUNT)],
                changed={**dict.fromkeys(USERS["alice"][1:]), **view_stays, "user_table 23": None,
                         "user_table 22": {"watch_path": "/root/StratoFolder"}}),
        })


class Shares(CheckTest):
    def test_shares(self):
        share, suspended = SHARES + "/music", change_user(21, "attribute = 8")
        not_asked = failed_check("UserManager::CheckShareUser fail to look up share 'team \"50%\"'\n",
                                 "Failed to CheckShareUser team \"50%\"\n")
        self.check_each({
            "moved": dict(files=music(path="/moved"), changed={"user_table 21": {"watch_path": "/moved"}}),
            "gone": dict(files=NO_MUSIC, gone={"music": NO_SHARE}),
            "replica": dict(files=replica("other dhos"), gone={"music": REPLICA}),
            "demoted replica of a suspended user": dict(files=replica("share_replica_demote"), user=suspended,
                                                        gone={"music": REPLICA}),
            "no configuration": dict(files={"samba/smb.conf": None}, gone={"team": NO_SHARE, "music": NO_SHARE}),
            "unreadable": dict(prepare=unreadable("samba/smb.conf"), **not_asked),
            "link to nowhere": dict(prepare=lambda: os.system("ln -sf /x /etc/samba/smb.conf"), **not_asked),
            "mounted": dict(mounts=[share], gone={"music": MOUNTED}),
            "mount beneath": dict(mounts=[share + "/a b/c"], gone={"music": MOUNTED}),
            "other mounts": dict(mounts=[share + "/#snapshot", share + "/x/#snapshots/1", share + "2"]),
            "mount under a suspended user": dict(mounts=[share + "/a"], user=suspended),
        })


class Volumes(CheckTest):
    # Records of two more volumes: of b one version of three, of a node 4.
    RECORDS = """
        UPDATE version_table SET file_uuid = CASE ver_id WHEN 4 THEN 'b' ELSE 'a' END WHERE ver_id IN (4, 7);
        UPDATE node_table SET v_file_uuid = 'a' WHERE node_id = 4;"""
    A_GONE = {"view 1 node_table 4": None, "view 1 version_table 7": None, "view 1 tree_table 3": None}
    BOTH_GONE = {"view 1 version_table 4": None, "view 1 node_table 3": {"ver_cnt": 2}, **A_GONE,
                 "data volume_table 2": None, "data volume_table 3": None}
    NOT_FOUND = "[ERROR] sdk-cpp(N): Failed to get sharebin path of '/gone'\n"

    def check_volumes(self, path_of_b, new_uuid_of_b, *lines, **options):
        self.check(view=self.RECORDS, data=f"INSERT INTO volume_table VALUES ('b', '{path_of_b}'), ('a', '/gone');",
                   volumes=[self.NOT_FOUND, "uuid changed for /gone (a -> )!",
                            *[self.NOT_FOUND] * (path_of_b == "/gone"),
                            f"uuid changed for {path_of_b} (b -> {new_uuid_of_b})!",
                            "Delete uuid a from Stratofolder DB\n", *lines], **options)

    def test_volumes_that_changed(self):
        other = self.new_volume()
        self.check(data=f"UPDATE volume_table SET repo_path = '{self.volume.path}';")
        both_gone = "Delete uuid b from Stratofolder DB\n"
        self.check_volumes("/gone", "", both_gone, changed=self.BOTH_GONE, files=NO_ALICE, gone={"alice": NO_ACCOUNT})
        self.check_volumes(other.path, other.uuid, both_gone, changed=self.BOTH_GONE)

    def test_volumes_without_a_uuid_and_damaged_ones(self):
        alone = "[WARNING] db(N): EnumVolumeTable: the row of uuid 'a' and path '/gone' is damaged and left alone\n"
        self.check(view=self.RECORDS + "UPDATE version_table SET file_uuid = '' WHERE ver_id = 2;",
                   user="INSERT INTO user_table VALUES (30, 0, '9x', 'views nothing', 5555, 0, 0, '');",
                   data="INSERT INTO volume_table SELECT column1, '/gone' FROM "
                        "(VALUES (''), (NULL), ('a' || char(0)), (x'61'));",
                   log=[DAMAGED % (30, "view_id is no integer from 0 to 2^63-1")],
                   volumes=[alone, alone, self.NOT_FOUND, "uuid changed for /gone ( -> )!",
                            "Delete uuid  from Stratofolder DB\n"],
                   changed={"data volume_table 2": None, "data volume_table 3": None})

    def test_view_database_that_cannot_be_opened(self):
        """Fails at once: the views before it have lost their records, what is not handled stays recorded."""
        view = self.volume.view(17)
        self.check_volumes("/gone", "", f"[ERROR] db(N): cannot open {view}: unable to open database file (14)\n",
                           "Failed to open view db with view_id 17\n",
                           prepare=lambda: os.unlink(view), changed=self.A_GONE, status="upgradefail")
