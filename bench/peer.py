"""What a careful administrator would do instead: copies of the databases, the statements of every edge in the sqlite3
shell with its default settings, and the copies moved into place."""

import os
import shutil

import harness
import meter
import namespace
import peer_script

SHELL = shutil.which("sqlite3") or "sqlite3"
SCRATCH = "/tmp/.StratoFolder-upgrade.sqlite3"
WORD = ".bak"
MARKERS = {2603: ["repo/.0", "delta/.0"], 3004: ["repo/.0", "delta/.0"], 3200: ["node_delta/.0"]}
REMOVAL = ("file", "delta", "node_delta", "deref_file", "rotate_node", "rotate_base")


def way_to(last, first=harness.VERSIONS[0]):
    """The edges between two versions; only who stops at 2603 goes there."""
    versions = [number for number in harness.VERSIONS
                if first <= number <= last and (number != 2603 or number in (first, last))]
    return list(zip(versions, versions[1:]))


class Peer:
    """Works on the package itself, or with copies = WORD on copies of its databases."""

    def __init__(self, package, uuid, indexes, environment=None, copies=""):
        self.package, self.uuid, self.indexes, self.copies = package, uuid, indexes, copies
        self.meter = meter.Meter(environment)

    def upgrade(self, first):
        """Returns the cost of each step."""
        steps = {"copies": self.cost_of(self.make_copies)}
        for edge in way_to(harness.LAST, first):
            steps["{} -> {}".format(*edge)] = self.cost_of(lambda edge=edge: self.run_edge(edge))
        steps["into place"] = self.cost_of(self.move_copies)
        return steps

    def cost_of(self, work):
        before = self.meter.now()
        work()
        return self.meter.now() - before

    def parts(self):
        """What a copy is made of, and what is moved."""
        package = self.package
        return [package.user, package.data, package.log, package.client, package.sync + "/view", package.sync + "/file"]

    def make_copies(self):
        for path in filter(os.path.exists, self.parts()):
            self.meter.run("cp", "-a", path, path + self.copies)

    def move_copies(self):
        for path in self.parts():
            if os.path.isdir(path):
                self.meter.run("rm", "-rf", path)
            self.meter.run("mv", "-f", path + self.copies, path)
        self.meter.run("sync", "-f", self.package.package)

    def names(self, edge):
        package, copies = self.package, self.copies
        return {"data": package.data + copies, "log": package.log + copies, "user": package.user + copies,
                "client": package.client + copies, "sync": package.sync, "scratch": SCRATCH,
                "files": package.sync + "/file" + copies, "new_data": package.sync + "/new-syncfolder.sqlite",
                "uuid": self.uuid, "to": edge[1], "file_db": self.file_database(self.uuid)}

    def file_database(self, uuid):
        return f"{self.package.sync}/file{self.copies}/{uuid}/file-db.sqlite"

    def views(self):
        users = harness.query(self.package.user + self.copies, "SELECT view_id, user_type FROM user_table")
        return [{"view": view, "row": view if kind == 1 else 0,
                 "view_db": f"{self.package.sync}/view{self.copies}/{view}/view-db.sqlite"} for view, kind in users]

    def stored_uuids(self):
        return [uuid for (uuid,) in harness.query(self.package.data + self.copies, "SELECT uuid FROM volume_table")]

    def repeated(self, edge):
        """What the parts of a template are repeated for. A volume's uuid in its old form ends at 4000."""
        views, volumes = self.views(), []
        if edge[0] >= 3400:
            volumes = self.stored_uuids()
        renamed = [{"old_uuid": uuid} for uuid in volumes if edge[1] == 4000 and uuid != self.uuid]
        if renamed:
            volumes = [self.uuid]
        return {"view": views, "volume": [{"file_db": self.file_database(uuid)} for uuid in volumes],
                "renamed-volume": renamed,
                "view-of-renamed-volume": [{**view, **names} for names in renamed for view in views]}

    def run_edge(self, edge):
        with self.meter.clock():
            self.make_folders(edge[1])
            name = "{}-{}".format(*edge)
            script = namespace.ROOM + f"/{name}.sql"
            namespace.write(script, peer_script.expand(name, self.names(edge), self.repeated(edge),
                                                            self.indexes))
        if os.path.exists(SCRATCH):
            os.unlink(SCRATCH)
        with open(script, encoding="utf-8") as file, open(os.devnull, "w", encoding="utf-8") as nowhere:
            self.meter.run(SHELL, "-batch", "-bail", "-init", os.devnull, SCRATCH, stdin=file, stdout=nowhere)

    def make_folders(self, version):
        sync = self.package.sync
        for path in MARKERS.get(version, []):
            namespace.write(f"{sync}/{path}")
        if version == 3400:
            for name in REMOVAL:
                os.makedirs(f"{sync}/rm/{name}", exist_ok=True)
            os.makedirs(f"{sync}/file{self.copies}/{self.uuid}")
            for view in self.views():
                namespace.write(os.path.dirname(view["view_db"]) + "/sign/.0")
