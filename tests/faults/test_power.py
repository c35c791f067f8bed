"""Loss of power. A run on a recorded disk tells what reaches the disk in which order. From the record disks are made
as a loss of power leaves them: all up to a flush is there, and any part of what was written after it. The next run
on each must end as if nothing had happened; and so must one that loses power, too. FAULT_TRIALS are those of every
start version."""

import collections
import contextlib
import filecmp
import os
import random
import subprocess

import namespace
from harness import SystemTest
from recorded_disk import recorded_disk

TRIALS, TRIALS_A_RECORD = int(os.environ.get("FAULT_TRIALS", "12")), 6
DISK, IMAGE, BASE, INTERRUPTED, START, LOST = (os.path.join(namespace.ROOM, name) for name in (
    "disk", "image", "base", "interrupted", "start", "lost"))
BLOCK = 4096  # a disk writes it as a whole
namespace.skip_unless(os.path.exists("/dev/fuse"), "there is no FUSE")


def write_image(path, base, writes=()):
    subprocess.run(["cp", "--sparse=always", base, path], check=True)
    with open(path, "r+b") as image:
        for offset, data in writes:
            image.seek(offset)
            image.write(data)


def lose_some(choice, writes):
    """What the disk kept of these: a first part, a random part, all but one block, or only one."""
    blocks = [(offset + at, data[at:at + BLOCK]) for offset, data in writes for at in range(0, len(data), BLOCK)]
    one, share = choice.randrange(len(blocks)), choice.random()
    return choice.choice((blocks[:choice.choice((0, one, len(blocks)))], blocks[:one] + blocks[one + 1:],
                          [blocks[one]], [block for block in blocks if choice.random() < share]))


def cut(choice, record):
    """The places behind a flush and of the next flush, with writes in between: half of the time anywhere, half of it
    where the copies are put in place."""
    flushes = [at for at, (_, data) in enumerate(record) if not data]
    pairs = [(a + 1, b) for a, b in zip(flushes, [*flushes[1:], len(record)]) if b > a + 1]
    intent = next((at for at, (_, data) in enumerate(record) if b".upgrade-commit" in data), 0)
    near = sum(b <= intent for _, b in pairs) + round(choice.gauss(12, 12))
    return pairs[choice.choice((near, choice.randrange(len(pairs)))) % len(pairs)]


@contextlib.contextmanager
def mounted(image, volume, options):
    namespace.mount("-o", options, image, volume.path)
    try:
        yield
    finally:
        subprocess.run(["umount", volume.path], check=True)


class PowerLoss(SystemTest):
    choice = random.Random(1)

    def record_run(self, volume):
        """The record, and the databases and files after the run."""
        write_image(IMAGE, START)
        with recorded_disk(DISK, IMAGE) as record, mounted(DISK, volume, self.choice.choice(self.options)):
            self.set_up_package()
            self.assert_ended(self.run_updater(volume.path), "done")
            self.assert_upgraded(volume)
            after = volume.parts(), volume.files()
        write_image(LOST, START, record)
        self.assertTrue(filecmp.cmp(LOST, IMAGE, shallow=False), "something was not recorded")
        return record, after

    def start_again(self, volume, old, new, files):
        """Yields what comes next, and at last whether there were old or new databases before, or some of both."""
        yield "mount"
        write_image(volume.image.name, LOST)
        with mounted(volume.image.name, volume, self.options[0]):
            yield "live databases"
            found = volume.parts()
            for name in old | new | found:
                self.assertIn(found.get(name), (old.get(name), new.get(name)), name)
            yield "next run"
            self.set_up_package()
            self.assert_ended(self.run_updater(volume.path), "done")
            yield "databases after it"
            self.assertEqual(volume.parts(), new)
            yield "files after it"
            self.assertEqual(volume.files(), files)
        yield "old" if found == old else "new" if found == new else "both"

    def lose_power(self, version):
        volume = self.new_volume(version, fs=self.fs, megabytes=self.megabytes)
        volume.leave_logs()
        old, bases, ends = volume.parts(), [BASE], collections.Counter()
        subprocess.run(["umount", volume.path], check=True)
        self.addCleanup(namespace.mount, "-o", "loop", volume.image.name, volume.path)  # as its removal expects
        write_image(BASE, volume.image.name)
        for trial in range(TRIALS):
            if trial % TRIALS_A_RECORD == 0:
                write_image(START, self.choice.choice(bases))
                record, after = self.record_run(volume)
            a, b = cut(self.choice, record)
            write_image(LOST, START, record[:a] + lose_some(self.choice, record[a:b]))
            try:
                for stage in self.start_again(volume, old, *after):
                    pass
            except (AssertionError, subprocess.CalledProcessError, OSError) as error:
                stage = "WRONG " + stage
                print(f"{stage}: trial {trial}, cut at {a} to {b} of {len(record)}: {str(error)[:2000]}")
            if stage == "both":
                write_image(INTERRUPTED, LOST)
                bases = [BASE, INTERRUPTED]
            ends[stage] += 1
        print(f"{self.fs} {version}: {TRIALS} trials, which found", *sorted(ends.items()), flush=True)
        self.assertFalse([stage for stage in ends if "WRONG" in stage])

    def test_next_run(self):
        for version in (2577, 3300, 4100):
            with self.subTest(version):
                self.lose_power(version)


class Ext4(PowerLoss):
    # It would hide a missing flush by writing a file early that is renamed over another one. With the last option
    # every change of a folder is on the disk before the next one, as when somebody else flushes it just then.
    plain = "loop,noauto_da_alloc,noinit_itable"
    fs, megabytes, options = "ext4", 24, (plain, plain + ",dirsync")


class Btrfs(PowerLoss):
    fs, megabytes, options = "btrfs", 112, ("loop",)
