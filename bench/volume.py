"""The volumes of a measurement: a disk image each, on a real disk, with a copy of the package on it."""

import contextlib
import os
import shutil
import subprocess
import tempfile
import uuid

import harness
import meter
import namespace

IDENTITY = uuid.uuid4()  # of every volume: a run never has more than one at a time
UUID = str(IDENTITY)
OLD_UUID = str(uuid.UUID(bytes_le=IDENTITY.bytes))  # how old versions wrote it on btrfs
MOUNT_POINT = os.path.join(namespace.ROOM, "volume")
# Nothing may go on in the background that a freshly made file system has left to do.
MAKE = {"ext4": ["mkfs.ext4", "-q", "-m", "0", "-U", UUID], "btrfs": ["mkfs.btrfs", "-q", "-U", UUID]}
MOUNT = {"ext4": "loop,noinit_itable", "btrfs": "loop"}


class Volume(harness.Volume):
    """Mounted as long as the context lasts. The image is sparse: only what is written takes space."""

    def __init__(self, fs, image_folder, size):
        harness.Package.__init__(self, MOUNT_POINT + "/@stratofolder")  # with an image and a place of its own
        self.fs, self.path = fs, MOUNT_POINT
        self.image = tempfile.NamedTemporaryFile(dir=image_folder)
        self.image.truncate(size)
        subprocess.run([*MAKE[fs], self.image.name], check=True, stdout=subprocess.DEVNULL)

    def __enter__(self):
        os.makedirs(MOUNT_POINT, exist_ok=True)
        self.mount()
        return self

    def mount(self):
        namespace.mount("-o", MOUNT[self.fs], self.image.name, MOUNT_POINT)

    def mount_again(self):
        subprocess.run(["umount", MOUNT_POINT], check=True)
        self.mount()

    def bytes_on_disk(self):
        """That were written so far, with all that is on its way."""
        self.flush()
        device = subprocess.run(["findmnt", "-no", "SOURCE", MOUNT_POINT], check=True, capture_output=True,
                                encoding="utf-8").stdout.strip()
        return 512 * int(namespace.read(f"/sys/block/{os.path.basename(device)}/stat").split()[6])

    def __exit__(self, *_):
        subprocess.run(["umount", MOUNT_POINT], check=True)
        self.image.close()


@contextlib.contextmanager
def with_package(fs, image_folder, package):
    """A new volume with a copy of the package, nothing of which is in memory."""
    with Volume(fs, image_folder, image_size(package)) as volume:
        shutil.copytree(package, volume.package)
        os.mkdir(volume.path + "/@tmp")
        volume.mount_again()
        meter.drop_caches(volume.path)
        yield volume


def image_size(package):
    """An upgrade keeps copies, what they are rebuilt into, and write-ahead logs as large as a whole view."""
    return (2 << 30) + 24 * sum(os.path.getsize(path) for path in harness.Package(package).databases())
