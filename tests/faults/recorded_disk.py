"""A file system that is one file, a disk: it writes down all that is written to it, and every flush, in order.

A loop device on the disk passes writes on one by one, and makes every flush of the file system above (and of every
write that must be on the disk when it ends) an fsync. The recorder answers one request at a time. So a write that
stands before a flush in the record was done when the flush began, and one that stands behind it was not.

It speaks to the kernel itself: there is no binding that every Python has, and so little of it is needed here."""

import contextlib
import ctypes
import errno
import multiprocessing
import os
import struct
import subprocess

import namespace

# As in linux/fuse.h.
GETATTR, READ, WRITE, FSYNC, INIT = 3, 15, 16, 20, 26
REQUEST, ANSWER, TRANSFER = struct.Struct("<IIQQIIII"), struct.Struct("<IiQ"), struct.Struct("<QQIIQII")
VERSION, BIG_WRITES, MAX_WRITE, MODE = (7, 31), 1 << 5, 1 << 17, 0o100600


def answer(kind, data, image, record):
    """None for what a disk has no need of."""
    if kind == INIT:
        return struct.pack("<4I2H2I2H8I", *VERSION, 0, BIG_WRITES, 0, 0, MAX_WRITE, 1, *[0] * 10)
    if kind == GETATTR:
        return struct.pack("<QII6Q10I", 0, 0, 0, 1, os.fstat(image).st_size, *[0] * 7, MODE, 1, *[0] * 5)
    if kind == FSYNC:
        record.append((0, b""))
        return b""
    if kind not in (READ, WRITE):
        return None
    _, offset, size, *_ = TRANSFER.unpack_from(data)
    if kind == READ:
        return os.pread(image, size, offset)
    record.append((offset, data[TRANSFER.size:]))
    return struct.pack("<II", os.pwrite(image, data[TRANSFER.size:], offset), 0)


def serve(fuse, image, pipe, other_end):
    """Runs outside of the mount namespace: when a test is killed, its last process unmounts what lies on the disk. That
    one would wait for ever if it had to serve the disk, too."""
    ctypes.CDLL(None).unshare(namespace.CLONE_NEWNS)
    other_end.close()  # or nobody would tell that the test is gone
    image, record = os.open(image, os.O_RDWR), []
    pipe.send("outside")  # before there is a mount that would be held here
    pipe.recv()
    with contextlib.suppress(OSError):  # unmounted
        while request := os.read(fuse, MAX_WRITE + (1 << 16)):
            _, kind, number, *_ = REQUEST.unpack_from(request)
            data = answer(kind, request[REQUEST.size:], image, record)
            head = ANSWER.pack(ANSWER.size + len(data or b""), -errno.ENOSYS if data is None else 0, number)
            os.write(fuse, head + (data or b""))
    with contextlib.suppress(BrokenPipeError):
        pipe.send(record)


@contextlib.contextmanager
def recorded_disk(path, image):
    """A disk with the content of the image at the path. In the end the record has the offset and bytes of every write;
    a flush has no bytes."""
    namespace.write(path)
    fuse, (pipe, other_end), record = os.open("/dev/fuse", os.O_RDWR), multiprocessing.Pipe(), []
    process = multiprocessing.Process(target=serve, args=(fuse, image, other_end, pipe), daemon=True)
    process.start()
    pipe.recv()
    options = f"fd={fuse},rootmode={MODE:o},user_id=0,group_id=0"
    subprocess.run(["mount", "-i", "-t", "fuse", "-o", options, "disk", path], check=True, pass_fds=[fuse])
    os.close(fuse)
    pipe.send("mounted")
    try:
        yield record
    finally:
        subprocess.run(["umount", "-l", path], check=False)  # the loop device may need it a little longer
        record += pipe.recv() if pipe.poll(60) else []
        process.kill()
