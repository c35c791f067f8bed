"""Runs the program as the package does: as root, with its fixed paths, on a mounted volume. Every test has
volumes of its own; the machine around them is that of namespace.py."""

import collections
import contextlib
import hashlib
import itertools
import os
import re
import shutil
import socket
import sqlite3
import stat
import subprocess
import sys
import tempfile
import threading
import unittest
import uuid

import namespace
from namespace import read, write

STATUS_FILE = "/var/packages/StratoFolder/etc/enable_status"
ENABLED = "/var/packages/StratoFolder/enabled"
MARK = "/usr/plat/etc/packages/StratoFolder/stfd_upgrading_mark"
PRIVILEGE = "/usr/plat/etc/app_privilege/PLAT.HDS.STFD.Instance"
SCRATCH = "/tmp/.StratoFolder-upgrade.sqlite3"
VERSION_OF = "SELECT value FROM config_table WHERE key = 'version'"
SET_VERSION = "UPDATE config_table SET value = value {} 1 WHERE key = 'version'"
PROGRAM, TOOL, CTL = (os.path.join(namespace.ROOM, name) for name in ("updater-svr", "package-tool", "updater-ctl"))
# Held open: the scripts stay reachable when a test covers the folder that the sources lie in.
DATA = os.open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data"), os.O_RDONLY)
VERSIONS = (2577, 2603, 3004, 3200, 3300, 3400, 3450, 4000, 4060, 4100, 4150)
LAST = VERSIONS[-1]
VIEWS = (1, 5, 17, 4294967297)
FIRST_WITH = {"rights": 3004, "activity": 3200, "own-rotation": 3400, "shared-rotation": 3400}  # extra contents
NO_OVERRIDE = ("setpriv", "--bounding-set", "-dac_override,-dac_read_search")  # root without root's reach
USER_LOG, ERROR, PRIORITIES = 1 << 3, 3, {"INFO": 6, "WARNING": 4}
NUMBERS = itertools.count(1)
SPACE = []  # the last line about free space
Run = collections.namedtuple("Run", "stdout stderr exit status log")
# The users of the databases that are no account here do not get the privilege.
REFUSED_USERS = [f"[ERROR] sdk-impl-6-0(N): Fail to allow user '{user}'\n"
                 for user in ("DOM\\bob 100%", "größe.ldap")]
# Leaves half a transaction to be rolled back, with pages enough to have reached the file.
HALF = """PRAGMA journal_mode = DELETE; PRAGMA cache_size = 1; BEGIN; DELETE FROM config_table; CREATE TABLE junk AS
    WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 500) SELECT zeroblob(1000) FROM n"""
# What a run may make beside the live databases although it fails.
MADE_BY_A_FAILED_RUN = re.compile(
    r"\.bak(/|-|$)|@sync/node_delta|@sync/rm|@sync/(repo|delta)/\.0$|new-syncfolder\.sqlite|-shm$")


def text_of(version):
    """All branches but two are "master"."""
    return f"({ {2577: '', 2603: 'hos-4.3'}.get(version, 'master')}, {version})"


def tool(*arguments):
    """The tool behind the databases of tests/data is no part of the program."""
    return subprocess.run([TOOL, *arguments], check=True, capture_output=True, cwd=f"/proc/self/fd/{DATA}",
                          encoding="utf-8", errors="surrogateescape").stdout


def query(path, sql, row_factory=None, how="mode=ro"):
    with contextlib.closing(sqlite3.connect(f"file:{path}?{how}", uri=True)) as db:
        db.row_factory = row_factory
        db.text_factory = lambda text: text.decode(errors="surrogateescape")
        return db.execute(sql).fetchall()


def change(path, sql):
    with contextlib.closing(sqlite3.connect(path)) as db:
        db.executescript(sql)


def leave(path, script):
    """The files of a database as a killed process leaves them: the connection is never closed."""
    work = "import os, sqlite3, sys; _, path, script = sys.argv; db = sqlite3.connect(path); db.executescript(script); "
    subprocess.run([sys.executable, "-c", work + "os.kill(os.getpid(), 9)", path, script], check=False)


@contextlib.contextmanager
def system_log():
    """What is logged: a socket at /dev/log, read while the program runs so that it never has to wait."""
    def listen():
        while datagram := log.recv(1 << 20).decode(errors="surrogateescape"):
            priority, text = re.fullmatch(r"<(\d+)>.{15} [^:]*: (.*)", datagram, re.S).groups()
            level = re.match(r"\[(\w+)\]|", text)[1]
            if text.startswith("the upgrade needs about "):
                SPACE[:] = [text]  # the numbers differ with the file system
                continue
            lines.append(comparable(text) if int(priority) == USER_LOG | PRIORITIES.get(level, ERROR) else datagram)
    lines, thread = [], threading.Thread(target=listen)
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as log:
        log.bind("/dev/log")
        thread.start()
        yield lines
        log.connect("/dev/log")
        log.send(b"")
        thread.join()
    os.unlink("/dev/log")


def comparable(text):
    """The text without the line of source that wrote it and without failed statements."""
    text = re.sub(r"sqlite3_(exec|prepare_v2)\(.*\): ", r"sqlite3_\1(SQL): ", text, flags=re.S)
    text = re.sub(r"(Failed to exec|, sql =) .*?(\n?)\Z", r"\1 SQL\2", text, flags=re.S)
    text = re.sub(r"^(Strato Folder Updater|\[[A-Z]+\] [a-z0-9/-]+)\(\d+\)", r"\1(N)", text)
    return re.sub(r"^updater-svr:\d+ ", "updater-svr:N ", text)


def clear(folder):
    for entry in os.scandir(folder):
        (shutil.rmtree if entry.is_dir(follow_symlinks=False) else os.unlink)(entry.path)


class Package:
    """The databases, marker files and folders of a package, below its folder."""

    def __init__(self, folder):
        self.package, self.sync = folder, folder + "/@sync"
        self.data, self.user = self.sync + "/syncfolder-db.sqlite", self.sync + "/user-db.sqlite"
        self.log, self.client = self.sync + "/log-db.sqlite", folder + "/@clientd/db.sqlite"
        self.view = (self.sync + "/view/{}/view-db.sqlite").format

    def fill(self, version, uuid_text, extras=(), sync=None):
        """The databases of the version, and the files and folders that earlier upgrades made."""
        tool(self.package, str(version), uuid_text, sync or self.sync, " ".join(extras))
        made = {2603: ["repo/.0", "delta/.0"], 3200: ["node_delta/.0"],
                3400: [f"view/{view}/sign/.0" for view in VIEWS] + [
                    f"rm/{name}/" for name in
                    ("file", "delta", "node_delta", "deref_file", "rotate_node", "rotate_base")]}
        for path in (f"{self.sync}/{name}" for since, names in made.items() if since <= version for name in names):
            os.makedirs(os.path.dirname(path), exist_ok=True)
            if not path.endswith("/"):
                write(path)

    def files(self):
        """All files below the package folder, and its empty folders."""
        return sorted(os.path.relpath(path, self.package) for path in self.everything()
                      if not os.path.isdir(path) or not os.listdir(path))

    def everything(self):
        return [self.package, *(os.path.join(folder, name) for folder, folders, names in os.walk(self.package)
                                for name in folders + names)]

    def databases(self):
        return [os.path.join(self.package, path) for path in self.files() if path.endswith(".sqlite")]

    def content(self):
        """All that is in the databases. Whoever used one before the run may have changed its journal mode."""
        return [line for line in tool(self.package).splitlines() if not line.startswith("journal_mode")]

    def parts(self):
        """Name of a database -> all in it but what depends on who used it, and when. To look changes nothing."""
        with tempfile.TemporaryDirectory(dir=namespace.ROOM) as copy:
            text = tool(shutil.copytree(self.package, copy, dirs_exist_ok=True))
        parts = re.split(r"^(data|log|user|client|(?:view|file)/.*)\n", text, flags=re.M)
        content = (re.sub(r"^journal_mode.*\n|(?<=watch_path )[^|\n]*", "", part, flags=re.M) for part in parts[2::2])
        return dict(zip(parts[1::2], content))

    def leave_logs(self):
        """What killed daemons leave beside each database: a hot journal, or the version in the write-ahead log only."""
        for path in self.databases():
            is_half = path in (self.user, self.client)
            if not is_half:
                change(path, SET_VERSION.format("-"))
            leave(path, HALF if is_half else "PRAGMA journal_mode = WAL; " + SET_VERSION.format("+"))
            assert os.path.getsize(path + ("-journal" if is_half else "-wal"))

    def live(self):
        """Identity of all files that a failed run must leave as they were."""
        return {path: identity for path in self.files() if not MADE_BY_A_FAILED_RUN.search(path)
                if (identity := identity_of(os.path.join(self.package, path)))}

    def copies(self):
        return [path for path in self.files() if ".bak" in path]


class Volume(Package):
    """An image with a file system, mounted through a loop device."""

    def __init__(self, fs="ext4", name="volume", megabytes=128, mkfs=()):
        self.fs, self.path = fs, os.path.join(namespace.ROOM, f"{name} {next(NUMBERS)}")
        super().__init__(self.path + "/@stratofolder")
        identity = uuid.uuid4()
        self.uuid = str(identity)
        self.old_uuid = str(uuid.UUID(bytes_le=identity.bytes))  # the first three groups read as integers
        self.image = tempfile.NamedTemporaryFile(dir=namespace.ROOM)
        self.image.truncate(megabytes << 20)
        options = {"ext4": ["-m", "0"], "btrfs": []}[fs]  # nothing set aside for root, so that a disk can be full
        subprocess.run([f"mkfs.{fs}", "-q", *options, *mkfs, "-U", self.uuid, self.image.name],
                       check=True, capture_output=True)
        os.mkdir(self.path)
        namespace.mount("-o", "loop", self.image.name, self.path)

    def flush(self):
        subprocess.run(["sync", "-f", self.path], check=True)

    def mount_again(self):
        subprocess.run(["umount", self.path], check=True)
        namespace.mount("-o", "loop", self.image.name, self.path)

    def remove(self):
        subprocess.run(["umount", "-R", self.path], check=True)
        os.rmdir(self.path)
        self.image.close()


def identity_of(path):
    status = os.lstat(path)
    if stat.S_ISDIR(status.st_mode) or (status.st_size == 0 and path.endswith("-wal")):
        return None  # an empty write-ahead log is as good as none
    with open(path, "rb") as file:
        return status.st_mode, status.st_uid, status.st_gid, hashlib.sha256(file.read()).hexdigest()


class SystemTest(unittest.TestCase):
    maxDiff = None

    def set_up_package(self, status="initializing"):
        for folder in ("/var/packages/StratoFolder", "/usr/plat/etc"):
            shutil.rmtree(folder, ignore_errors=True)
        clear("/tmp")
        os.makedirs(os.path.dirname(MARK))
        write(ENABLED)
        write(STATUS_FILE, self.status_text(status))

    def status_text(self, status):
        return f'# of the package \n\n last = a=b\nstatus="{status}"\nstatus="2"\nport="6690"'

    def new_volume(self, version=None, uuid_in_old_form=False, extras=(), **options):
        """A volume, and if a version is told a package at that version on it that is about to be upgraded."""
        volume = Volume(**options)
        self.addCleanup(volume.remove)
        if version is not None:
            self.set_up_package()
            volume.fill(version, volume.old_uuid if uuid_in_old_form else volume.uuid, extras)
        return volume

    def run_updater(self, *arguments, prefix=(), environment=(), program=PROGRAM):
        kept = {name: value for name, value in os.environ.items() if name == "PATH" or name.endswith("SAN_OPTIONS")}
        kept.update(environment)
        with system_log() as lines, subprocess.Popen(
                [*prefix, program, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                stderr=subprocess.PIPE, encoding="utf-8", env=kept, umask=0o077) as process:
            stdout, stderr = process.communicate()
        self.assertNotRegex(stderr, "Sanitizer|runtime error")
        status = re.search(r'^status="(.*)"$', read(STATUS_FILE), re.M)[1]
        return Run(stdout, stderr, process.returncode, status, lines)

    def assert_ended(self, run, status):
        self.assertEqual((run.exit, run.status), (0, status), run)
        self.assertFalse(os.path.lexists(MARK))
        self.assertEqual([name for name in os.listdir("/tmp") if name.startswith(".StratoFolder")], [])

    def assert_upgraded(self, volume, extras=()):
        """The volume holds what the latest version holds, and nothing else."""
        self.assertRegex(SPACE.pop(), r"^the upgrade needs about [1-9]\d* bytes on the volume, [1-9]\d* are free\n$")
        with tempfile.TemporaryDirectory(dir=namespace.ROOM) as folder:
            expected = Package(folder)
            expected.fill(VERSIONS[-1], volume.uuid, extras, volume.sync)
            self.assertEqual(volume.files(), expected.files())
            self.assertEqual(volume.parts(), expected.parts())
