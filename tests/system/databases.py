"""The databases of tests/data, and what is in one: the tool behind it is no part of the program."""

import contextlib
import os
import sqlite3
import subprocess

import namespace

# Held open: the scripts stay reachable when a test covers the folder that the sources lie in.
DATA = os.open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data"), os.O_RDONLY)
TOOL = os.path.join(namespace.ROOM, "package-tool")
VERSIONS = (2577, 2603, 3004, 3200, 3300, 3400, 3450, 4000, 4060, 4100, 4150)
LATEST = VERSIONS[-1]
VIEWS = (1, 5, 17, 4294967297)
FIRST_WITH = {"rights": 3004, "activity": 3200, "own-rotation": 3400, "shared-rotation": 3400}  # extra contents


def text_of(version):
    """All branches but two are "master"."""
    return f"({ {2577: '', 2603: 'hos-4.3'}.get(version, 'master')}, {version})"


def tool(*arguments):
    return subprocess.run([TOOL, *arguments], check=True, capture_output=True, cwd=f"/proc/self/fd/{DATA}",
                          encoding="utf-8", errors="surrogateescape").stdout


def query(path, sql):
    with contextlib.closing(sqlite3.connect(f"file:{path}?mode=ro", uri=True)) as db:
        return db.execute(sql).fetchall()


def change(path, sql):
    with contextlib.closing(sqlite3.connect(path)) as db:
        db.executescript(sql)
