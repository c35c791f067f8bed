"""A machine of the test's own: a mount namespace in which the fixed paths of the program are private."""

import ctypes
import os
import pathlib
import shutil
import stat
import subprocess
import sys

ROOM = "/srv"  # a tmpfs: volume images, mount points and whatever else a test needs
HOME = ROOM + "/homes/O'Brien"
# The machine is such that the users of the databases of tests/data belong to it.
CONFIGURATION = {
    "passwd": f"root:x:0:0::/root:/bin/sh\nO'Brien:x:1026:100::{HOME}:/bin/false\n",
    "shadow": "root:*:19000:0:99999:7:::\nO'Brien:*:19000:0:99999:7:::\n",
    "group": "root:x:0:\nusers:x:100:\n",
    "nsswitch.conf": "passwd: files ldap winbind\nshadow: files\n",
    "samba/smb.conf": '[Homes]\n[team "50%"]\npath = /volume1/team "50%"\n',
}
DEVICES = [("null", 1, 3, stat.S_IFCHR), ("zero", 1, 5, stat.S_IFCHR), ("random", 1, 8, stat.S_IFCHR),
           ("urandom", 1, 9, stat.S_IFCHR), ("loop-control", 10, 237, stat.S_IFCHR), ("fuse", 10, 229, stat.S_IFCHR),
           *((f"loop{number}", 7, number, stat.S_IFBLK) for number in range(64))]
CLONE_NEWNS = 0x00020000


def skip_unless(possible, reason):
    if not possible:
        print(f"{__file__}:1: Skipped\n{reason}\n")  # as GoogleTest puts it, for whoever counts the tests
        sys.exit(77)  # ctest knows it as skipped


def skip_where_tests_cannot_run():
    os.environ["PATH"] += ":/usr/sbin:/sbin"  # not on the path of every root
    skip_unless(os.geteuid() == 0, "only root can make a machine of its own")
    for tool in ("mount", "umount", "mkfs.ext4", "mkfs.btrfs", "setpriv"):
        skip_unless(shutil.which(tool), f"{tool} is not installed")
    skip_unless(os.path.exists("/dev/loop-control"), "there are no loop devices")


def enter(programs):
    """Takes the process, and all that it starts, into a machine of its own. Nothing has to be undone: mounts,
    and the loop devices behind them, go with the last process of the namespace. The programs are open files, and get
    there by their names, because the machine may cover the folder that they lie in."""
    if ctypes.CDLL(None, use_errno=True).unshare(CLONE_NEWNS) != 0:
        raise OSError(ctypes.get_errno(), "unshare")
    mount("--make-rprivate", "/")
    for folder in (ROOM, "/tmp", "/etc", "/dev"):
        mount_tmpfs(folder)
    for folder in ("/usr/plat", "/var/packages"):
        make_writable(os.path.dirname(folder))
        os.makedirs(folder, exist_ok=True)
        mount_tmpfs(folder)
    for name, major, minor, kind in DEVICES:
        os.mknod(f"/dev/{name}", 0o600 | kind, os.makedev(major, minor))
    os.makedirs(HOME)
    configure(CONFIGURATION)
    for path, program in programs.items():
        shutil.copy(f"/proc/self/fd/{program}", path)


def mount(*arguments):
    subprocess.run(["mount", *arguments], check=True)


def mount_tmpfs(folder):
    mount("-t", "tmpfs", "-o", "mode=0755", "tmpfs", folder)


def make_writable(folder):
    """Covers the folder with a tmpfs that shows the same entries, so that names can be added to it."""
    cover = os.path.join(ROOM, "cover")
    os.mkdir(cover)
    mount_tmpfs(cover)
    for entry in os.scandir(folder):
        shown = os.path.join(cover, entry.name)
        if entry.is_symlink():
            os.symlink(os.readlink(entry.path), shown)
        elif entry.is_dir():
            os.mkdir(shown)
            mount("--rbind", entry.path, shown)
    mount("--move", cover, folder)
    os.rmdir(cover)


def configure(files):
    for name, text in files.items():
        write("/etc/" + name, text)


def read(path):
    return pathlib.Path(path).read_text("utf-8")


def write(path, text=""):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    pathlib.Path(path).write_text(text, "utf-8")
