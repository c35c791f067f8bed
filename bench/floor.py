"""What any way of making the final databases costs at least: one pass that writes their tables and builds their
indexes, with nothing kept that could undo it and one flush at the end."""

import os

import harness
import meter
import namespace
import peer

SCHEMA = "SELECT type, name, sql FROM sqlite_schema WHERE sql IS NOT NULL AND name NOT LIKE 'sqlite_%'"
# Enough for the sorts of the indexes of one view.
SETTINGS = "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; PRAGMA cache_size = -131072;"


def write_again(volume):
    """Returns the cost."""
    databases = volume.databases()
    path = namespace.ROOM + "/floor.sql"
    namespace.write(path, "\n".join(script_for(database) for database in databases))
    meter.drop_caches(volume.path)
    metered = meter.Meter()
    with open(path, encoding="utf-8") as script, open(os.devnull, "w", encoding="utf-8") as nowhere:
        metered.run(peer.SHELL, "-batch", "-bail", "-init", os.devnull, stdin=script, stdout=nowhere)
    metered.run("sync", "-f", volume.path)
    for database in databases:
        os.unlink(copy_of(database))
    return metered.cost


def copy_of(database):
    return database + ".floor"


def script_for(database):
    schema = harness.query(database, SCHEMA)
    tables = [(name, sql) for kind, name, sql in schema if kind == "table"]
    return "\n".join([
        f".open '{copy_of(database)}'", SETTINGS, f"ATTACH '{database}' AS final;", "BEGIN;",
        *(f"{sql};\nINSERT INTO main.\"{name}\" SELECT * FROM final.\"{name}\";" for name, sql in tables),
        *(f"{sql};" for kind, _, sql in schema if kind == "index"),
        *(f"{sql};" for kind, _, sql in schema if kind == "trigger"), "COMMIT;"])
