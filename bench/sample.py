"""Makes the packages that are measured: their databases at any version, with the users of this machine."""

import contextlib
import os
import shutil
import sqlite3
import subprocess

import harness
import meter
import namespace
import peer
import volume

TOOL = os.path.join(namespace.ROOM, "updater-ctl")
SHARES = namespace.ROOM + "/shares"
HOMES = namespace.ROOM + "/homes"
LOG_SINCE = 3200

# All users are what the machine knows them as, so that the check after the upgrade changes nothing.
USERS = f"""
    UPDATE user_table SET name = 'user' || view_id, attribute = 0,
        watch_path = '{HOMES}/user' || view_id || '/StratoFolder' WHERE user_type = 0;
    UPDATE user_table SET name = '@share' || view_id, watch_path = '{SHARES}/share' || view_id WHERE user_type = 1;
"""

# With views that have no nodes.
MORE_USERS = """
    WITH RECURSIVE n(i) AS (SELECT :views + 1 UNION ALL SELECT i + 1 FROM n WHERE i < :users)
        INSERT INTO user_table (attribute, view_id, name, uid, gid, user_type, watch_path)
        SELECT 0, i, 'new' || i, 1000 + i, 100, 0, '' FROM n WHERE i <= :users;
"""

# All nodes but the roots of the other views are in the first one.
ONE_HUGE_VIEW = """
    CREATE TEMP TABLE roots AS SELECT node_id FROM node_table WHERE parent_id = 0;
    UPDATE node_table SET view_id = 1 WHERE parent_id != 0;
    UPDATE tree_table SET parent_id = 1 WHERE parent_id IN roots;
    UPDATE node_table SET parent_id = 1 WHERE parent_id IN roots;
"""

# The latest version of a node is the one with its sync id.
ONE_SYNC_ID = """
    UPDATE version_table SET sync_id = 7000000 WHERE (node_id, sync_id) IN (SELECT node_id, sync_id FROM node_table);
    UPDATE node_table SET sync_id = 7000000;
"""

LOG_ROWS = """
    WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < :rows)
        INSERT INTO log_table SELECT i % 12, 1000 + i % 50, 'user' || (i % 50), i % 50, 'share' || (i % 9), i % 2,
        1400000000 + i, 'folder ' || (i % 1000) || '/document ' || i, 'laptop ' || (i % 40), '192.0.2.' || (i % 250),
        i % 7, '', 'p' || i, NULL, NULL, NULL, '' FROM n;
"""


def run_sql(database, script, **values):
    """One statement after the other; the file is not flushed."""
    with contextlib.closing(sqlite3.connect(database, isolation_level=None)) as db:
        db.execute("PRAGMA synchronous = OFF")
        for statement in statements_of(script):
            db.execute(statement, {name: value for name, value in values.items() if ":" + name in statement})


def statements_of(script):
    statement = ""
    for part in script.split(";"):
        statement += part + ";"
        if sqlite3.complete_statement(statement) and statement.strip(" \n;"):
            yield statement
            statement = ""


def make(folder, row):
    """The package of the row in a new folder. Returns the folder of the package."""
    made = folder + "/sample"
    subprocess.run([TOOL, "sample", made, "--nodes", str(row.nodes), "--versions", str(row.versions), "--views",
                    str(row.views)], check=True, stdout=subprocess.DEVNULL)
    package = harness.Package(made + "/@stratofolder")
    if row.version != harness.LAST:
        run_sql(package.user, MORE_USERS, views=row.views, users=row.users)
    if row.shape == "one-huge-view":
        run_sql(package.data, ONE_HUGE_VIEW)
    if row.one_sync_id:
        run_sql(package.data, ONE_SYNC_ID)
    if row.version != harness.VERSIONS[0]:
        lift(package, row)
    if row.version == harness.LAST:
        # Nothing opens their views any more, so that there need not be thousands of databases.
        run_sql(package.user, MORE_USERS, views=row.views, users=row.users)
    run_sql(package.user, USERS)
    if row.log_rows:
        run_sql(package.data if row.version == LOG_SINCE else package.log, LOG_ROWS, rows=row.log_rows)
    if row.stale_statistics:
        for database in package.databases():
            write_stale_statistics(database)
    meter.drop_caches(folder)
    return package.package


def lift(package, row):
    """Brings a package to the version of the row with the peer's statements, which stay the same when the program
    changes."""
    uuid = volume.OLD_UUID if row.fs == "btrfs" and row.version < 4000 else volume.UUID
    way = peer.Peer(package, uuid, row.indexes, {"BENCH_SKIP_FLUSHES": "1"})
    for edge in peer.way_to(row.version):
        way.run_edge(edge)
    if row.version >= 3400:
        run_sql(package.data, f"UPDATE volume_table SET repo_path = '{volume.MOUNT_POINT}/@stratofolder/@sync'")


def write_stale_statistics(database):
    """What ANALYZE told long ago, when every table had 20 rows and there was one view."""
    with contextlib.closing(sqlite3.connect(":memory:", isolation_level=None)) as past:
        past.execute("ATTACH ? AS now", (database,))
        schema = """SELECT name, sql FROM now.sqlite_schema
            WHERE type = ? AND sql IS NOT NULL AND name NOT LIKE 'sqlite_%'"""
        for name, sql in past.execute(schema, ("table",)).fetchall():
            past.execute(sql)
            oldest = "ORDER BY view_id" if "view_id" in sql else ""
            past.execute(f"INSERT INTO main.{name} SELECT * FROM now.{name} {oldest} LIMIT 20")
        for _, sql in past.execute(schema, ("index",)).fetchall():
            past.execute(sql)
        past.execute("PRAGMA now.synchronous = OFF")
        past.execute("ANALYZE main")
        past.execute("ANALYZE now.sqlite_schema")
        for (table,) in past.execute("SELECT name FROM main.sqlite_schema WHERE name LIKE 'sqlite_stat%'").fetchall():
            past.execute(f"DELETE FROM now.{table}")
            past.execute(f"INSERT INTO now.{table} SELECT * FROM main.{table}")


def configure_machine(package):
    """Accounts and shares for all users of the package."""
    accounts, shares = ["root:x:0:0::/root:/bin/sh\n"], ["[homes]\n"]
    shutil.rmtree(HOMES, ignore_errors=True)
    users = harness.query(harness.Package(package).user, "SELECT name, uid, user_type FROM user_table")
    for name, uid, kind in users:
        if kind == 0:
            os.makedirs(f"{HOMES}/{name}")
            accounts.append(f"{name}:x:{uid}:100::{HOMES}/{name}:/bin/false\n")
        elif kind == 1:
            shares.append(f"[{name[1:]}]\npath = {SHARES}/{name[1:]}\n")
    namespace.configure({"passwd": "".join(accounts), "samba/smb.conf": "".join(shares),
                         "shadow": "".join(line.split(":")[0] + ":*:19000:0:99999:7:::\n" for line in accounts)})
