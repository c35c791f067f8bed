"""Every start version, on both file systems, ends in the same databases with the described output."""

import os
import shutil
import stat

import databases
import harness
import namespace
from databases import query, text_of
from harness import SystemTest

EXTRAS = ("rights", "activity", "own-rotation")
REFUSED_USERS = ("DOM\\bob 100%", "größe.ldap")  # those of the user database that are no account here
PRINTS_ITS_SUCCESS = 3450


def edges_from(version):
    chain = [version] + [later for later in databases.VERSIONS if later > max(version, 2603)]
    return list(zip(chain, chain[1:]))


def output_from(version):
    """Every version ends in a blank."""
    lines = [f"update from {text_of(version)} to (master, 4150) "]
    for start, end in edges_from(version):
        lines.append(f"updating from {text_of(start)}  to {text_of(end)} ")
        if end <= PRINTS_ITS_SUCCESS:
            lines.append(f"Upgrade to {text_of(end)}  successfully")
    return "".join(line + "\n" for line in lines)


def log_from(version, volume):
    lines = [f"database is located at '{volume.path}'"]
    for _, end in edges_from(version):
        if end == 4000:
            if volume.fs == "btrfs":
                lines.append(f"Strato Folder Updater(N): Update repo path '{volume.sync}' uuid\n")
            lines += [f"[ERROR] sdk-impl-6-0(N): Fail to allow user '{user}'\n" for user in REFUSED_USERS]
        if end > PRINTS_ITS_SUCCESS:
            lines.append(f"Strato Folder Updater(N): Upgrade to '{text_of(end)} ' successfully\n")
    return lines


class UpgradeTest(SystemTest):
    def prepare(self, version, fs="ext4", name="volume1", uuid_text=None, extras=()):
        volume = self.new_volume(fs, name)
        self.set_up_package()
        volume.fill(version, uuid_text, extras)
        return volume

    def upgrade(self, volume, version, extras=(), arguments=()):
        run = self.run_updater(volume.path, *arguments)
        self.assert_ended(run, "done")
        self.assertEqual((run.stdout, run.stderr), (output_from(version), ""))
        self.assertEqual(run.log, log_from(version, volume))
        self.assert_upgraded(volume, [extra for extra in extras if databases.FIRST_WITH[extra] <= version])
        # What other programs keep in the status file stays, and SQLite's temporary files are gone.
        self.assertEqual(harness.read(harness.STATUS_FILE), self.status_text("done"))
        self.assertEqual(os.listdir(volume.path + "/@tmp"), [])

    def upgrade_each(self, fs, versions, extras):
        for version in versions:
            with self.subTest(version=version):
                volume = self.prepare(version, fs, f"{fs}-{version}", extras=extras)
                self.upgrade(volume, version, extras)


class Ext4(UpgradeTest):
    def test_every_version(self):
        self.upgrade_each("ext4", databases.VERSIONS, EXTRAS)

    def test_rotation_count_for_all_users(self):
        self.upgrade_each("ext4", (3400, 3450, 4000), ("shared-rotation",))

    def test_second_argument(self):
        """Only one word runs the legacy steps; any other is accepted."""
        for argument in ("--dont-skip", "--dont_skip", ""):
            with self.subTest(argument):
                self.upgrade(self.prepare(2577, name="volume" + argument), 2577, arguments=[argument])

    def test_awkward_volume_path(self):
        self.upgrade(self.prepare(2577, name="it's \"100%\" %s%n \\040 größe"), 2577)

    def test_accounts_of_the_machine_get_the_privilege(self):
        self.upgrade(self.prepare(3450), 3450)
        self.assertEqual(harness.read(harness.PRIVILEGE), "O'Brien\n")
        self.assertEqual(stat.S_IMODE(os.stat(harness.PRIVILEGE).st_mode), 0o600)

    def test_owner_and_mode_of_the_databases_stay(self):
        for version in (2577, 3300, 4150):
            with self.subTest(version=version):
                volume = self.prepare(version, name=f"owned-{version}")
                live = [os.path.join(volume.package, path) for path in volume.files() if path.endswith(".sqlite")]
                for path in live:
                    os.chown(path, 1026, 100)
                    os.chmod(path, 0o600)
                self.upgrade(volume, version)
                for path in {*live, volume.log}:
                    found = os.stat(path)
                    self.assertEqual((found.st_uid, found.st_gid, stat.S_IMODE(found.st_mode)),
                                     (1026, 100, 0o600), path)

    def test_parts_that_are_not_there_are_skipped(self):
        volume = self.prepare(4150)
        for path in (volume.log, volume.client):
            os.unlink(path)
        for folder in ("view", "file"):
            shutil.rmtree(f"{volume.sync}/{folder}")
        before = volume.files()
        self.assert_ended(self.run_updater(volume.path), "done")
        self.assertEqual(volume.files(), before)

    def test_check_of_users_and_volumes(self):
        """Who and what the machine does not know any more is gone from the databases, and nothing else."""
        volume = self.prepare(3450, uuid_text="former-uuid")
        self.addCleanup(namespace.configure, namespace.CONFIGURATION)
        namespace.configure({"passwd": "root:x:0:0::/root:/bin/sh\n", "nsswitch.conf": "passwd: files winbind\n"})
        run = self.run_updater(volume.path)
        self.assert_ended(run, "done")
        self.assertEqual(run.log[-2:], [f"uuid changed for {volume.sync} (former-uuid -> {volume.uuid})!",
                                        "Delete uuid former-uuid from Stratofolder DB\n"])
        self.assertEqual(query(volume.user, "SELECT view_id FROM user_table ORDER BY 1"), [(5,), (17,)])
        self.assertEqual(sorted(os.listdir(volume.sync + "/view")), ["17", "4294967297", "5"])
        self.assertEqual(query(volume.data, "SELECT * FROM volume_table"), [])
        self.assertEqual(query(volume.view(17), "SELECT node_id FROM node_table ORDER BY 1"), [(9,), (10,)])


class Btrfs(UpgradeTest):
    def test_some_versions(self):
        self.upgrade_each("btrfs", (2577, 3300, 3450, 4150), EXTRAS)

    def test_uuid_in_the_old_form_is_renamed_everywhere(self):
        volume = self.new_volume("btrfs")
        self.set_up_package()
        volume.fill(3450, volume.old_uuid, EXTRAS)
        self.upgrade(volume, 3450, EXTRAS)


if __name__ == "__main__":
    harness.main()
