"""The databases of tests/data: how they are made, and what is in one, told without the program."""

import contextlib
import os
import re
import sqlite3

VERSIONS = (2577, 2603, 3004, 3200, 3300, 3400, 3450, 4000, 4060, 4100, 4150)
LATEST = VERSIONS[-1]
BRANCHES = {2577: "", 2603: "hos-4.3"}  # all others are "master"
FIRST_WITH = {"rights": 3004, "activity": 3200, "own-rotation": 3400, "shared-rotation": 3400}  # extra contents
# Held open: the scripts stay reachable when a test covers the folder that the sources lie in.
DATA = os.open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data"), os.O_RDONLY)


def text_of(version):
    return f"({BRANCHES.get(version, 'master')}, {version})"


def script(name, version):
    """The text of the script that holds for the version; empty when there is none yet."""
    for folder in reversed(VERSIONS[:VERSIONS.index(version) + 1]):
        path = f"/proc/self/fd/{DATA}/{folder}/{name}"
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                return file.read()
    return ""


def views():
    return [match[1] for name in os.listdir(f"/proc/self/fd/{DATA}/3400")
            if (match := re.fullmatch(r"view-(\d+)\.sql", name))]


def scripts_of(version, uuid):
    """Path below the package folder -> scripts that make the database."""
    scripts = {"@sync/syncfolder-db.sqlite": ["data.sql"], "@sync/user-db.sqlite": ["user.sql"],
               "@clientd/db.sqlite": ["client.sql"]}
    if version >= 3300:
        scripts["@sync/log-db.sqlite"] = ["log.sql"]
    if version >= 3400:
        scripts[f"@sync/file/{uuid}/file-db.sqlite"] = ["file.sql"]
        for view in views():
            own = ["view.sql", "view-config.sql", f"view-{view}.sql"]
            scripts[f"@sync/view/{view}/view-db.sqlite"] = own
    return scripts


def fill(db, path, names, version, uuid, sync, extras):
    extras = [extra for extra in extras if FIRST_WITH[extra] <= version]
    for name in names + [f"extra-{extra}-{name}" for extra in extras for name in names]:
        text = script(name, version)
        for placeholder, value in (("@UUID@", uuid), ("@SYNC@", sync)):
            text = text.replace(placeholder, "'" + value.replace("'", "''") + "'")
        db.executescript(text)
    # The databases that the split makes are ahead of it.
    number = LATEST if version == 3400 and ("/view/" in path or "/file/" in path) else version
    written = [("version", str(number)), ("branch", BRANCHES.get(version, "master"))]
    db.executemany("INSERT OR REPLACE INTO config_table VALUES (?, ?)", [row for row in written if row[1]])
    db.commit()


def make(root, version, uuid, sync, extras=()):
    for path, names in scripts_of(version, uuid).items():
        full = os.path.join(root, path)
        os.makedirs(os.path.dirname(full), exist_ok=True)
        with contextlib.closing(sqlite3.connect(full)) as db:
            # As their server leaves them: the log database, and from the split on what the split makes.
            if "log-db" in path or (version >= 3400 and "user-db" not in path and "@clientd" not in path):
                db.execute("PRAGMA journal_mode = WAL")
            fill(db, path, names, version, uuid, sync, extras)


def contents_of_latest(uuid, sync, extras, watch_path):
    """Path -> what an upgrade must make of that database, on a machine that knows all its users. The check
    after the upgrade brings the watch path of the one local user up to date."""
    expected = {}
    for path, names in scripts_of(LATEST, uuid).items():
        with contextlib.closing(sqlite3.connect(":memory:")) as db:
            fill(db, path, names, LATEST, uuid, sync, extras)
            if "user-db" in path:
                db.execute("UPDATE user_table SET watch_path = ? WHERE user_type = 0", (watch_path,))
                db.commit()
            expected[path] = contents(db)
    return expected


def contents(db):
    """Columns, indexes and rows of all tables, and what the delete trigger does."""
    db.text_factory = lambda text: text.decode("utf-8", "surrogateescape")
    rows = lambda table: sorted(db.execute(f"SELECT * FROM {table}"), key=repr)
    master = "SELECT name FROM sqlite_master WHERE name NOT LIKE 'sqlite%' AND type ="
    found = {"integrity": rows("pragma_integrity_check")}
    for (table,) in sorted(db.execute(f"{master} 'table'")):
        found[table, "columns"] = [column[1:] for column in db.execute(f"PRAGMA table_info({table})")]
        found[table, "indexes"] = sorted(
            (name if origin == "c" else "", unique,
             [(part[2], part[4]) for part in db.execute(f"PRAGMA index_xinfo({name})") if part[5]])
            for _, name, unique, origin, _ in db.execute(f"PRAGMA index_list({table})").fetchall())
        found[table, "rows"] = rows(table)
    found["triggers"] = db.execute(f"{master} 'trigger'").fetchall()
    if found["triggers"]:
        db.create_function("get_mac_attr_uuid", 1, lambda text: "uuid of " + str(text))
        db.create_function("get_mac_attr_file_id", 1, lambda text: len(str(text)))
        db.execute("DELETE FROM version_table")
        found["queued for removal"] = rows("remove_file_table")
        db.rollback()
    return found


def contents_of(path):
    with contextlib.closing(sqlite3.connect(path)) as db:
        return contents(db)


def query(path, sql):
    with contextlib.closing(sqlite3.connect(f"file:{path}?mode=ro", uri=True)) as db:
        return db.execute(sql).fetchall()


def change(path, sql):
    with contextlib.closing(sqlite3.connect(path)) as db:
        db.executescript(sql)
