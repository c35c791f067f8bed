"""Runs programs and measures what they cost."""

import contextlib
import dataclasses
import mmap
import os
import re
import resource
import struct
import subprocess
import time

import namespace

COUNTER = os.path.join(namespace.ROOM, "libcount-flushes.so")
FLUSHES = os.path.join(namespace.ROOM, "flushes")
INTERVAL = 0.005  # between two looks at a process


@dataclasses.dataclass
class Cost:
    """Of one program, or of several: everything adds up, but memory, of which the largest counts."""
    seconds: float = 0
    processor: float = 0  # seconds of it, which other work on the machine hardly changes
    written: int = 0  # bytes that were handed to file systems
    flushes: int = 0
    anonymous: int = 0  # the most memory that was in use at once, in KiB
    mapped: int = 0  # the same of pages that are mapped from files

    def __add__(self, other):
        return Cost(self.seconds + other.seconds, self.processor + other.processor,
                    self.written + other.written, self.flushes + other.flushes,
                    max(self.anonymous, other.anonymous), max(self.mapped, other.mapped))

    def __sub__(self, before):
        return Cost(self.seconds - before.seconds, self.processor - before.processor,
                    self.written - before.written, self.flushes - before.flushes,
                    self.anonymous, self.mapped)


def environment(**more):
    return {"PATH": os.environ["PATH"], "LD_PRELOAD": COUNTER, "BENCH_FLUSHES": FLUSHES, **more}


class Meter:
    """Adds up the costs of the programs that it runs."""

    def __init__(self, environment_of_programs=None):
        namespace.write(FLUSHES, "\0" * mmap.PAGESIZE)
        self.cost = Cost()
        self.environment = environment(**(environment_of_programs or {}))
        self.running = Cost()

    def now(self):
        """The costs so far, those of the running program included."""
        return self.cost + self.running

    def run(self, *command, stdin=None, watch=lambda: None, **options):
        """`watch` is called again and again while the program runs."""
        start = time.monotonic()
        flushes, processor = count_flushes(), processor_time_of_ended()
        with subprocess.Popen(command, stdin=stdin or subprocess.DEVNULL, env=self.environment, **options) as process:
            while os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT | os.WNOHANG) is None:
                self.look(process.pid, start, flushes)
                watch()
                time.sleep(INTERVAL)
            self.look(process.pid, start, flushes)
            watch()
        self.running.processor = processor_time_of_ended() - processor  # more exact than what is told meanwhile
        self.cost, self.running = self.cost + self.running, Cost()
        if process.returncode != 0:
            raise RuntimeError(f"{command} ended with {process.returncode}")

    def look(self, pid, start, flushes):
        anonymous, mapped = memory_of(pid)
        self.running = Cost(time.monotonic() - start, processor_time_of(pid), bytes_written_by(pid),
                            count_flushes() - flushes,
                            max(self.running.anonymous, anonymous), max(self.running.mapped, mapped))

    @contextlib.contextmanager
    def clock(self):
        """For work that is no program."""
        start = time.monotonic()
        yield
        self.cost.seconds += time.monotonic() - start


def count_flushes():
    with open(FLUSHES, "rb") as file:
        return struct.unpack("Q", file.read(8))[0]


def numbers_in(path):
    return {name: int(value) for name, value in re.findall(r"^(\w+):\s+(\d+)", namespace.read(path), re.M)}


def memory_of(pid):
    """A process that has ended has none."""
    numbers = numbers_in(f"/proc/{pid}/status")
    return numbers.get("RssAnon", 0), numbers.get("RssFile", 0) + numbers.get("RssShmem", 0)


def processor_time_of(pid):
    user, system = namespace.read(f"/proc/{pid}/stat").rsplit(")", 1)[1].split()[11:13]
    return (int(user) + int(system)) / os.sysconf("SC_CLK_TCK")


def processor_time_of_ended():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def bytes_written_by(pid):
    return numbers_in(f"/proc/{pid}/io").get("wchar", 0)


def drop_caches(folder):
    subprocess.run(["sync", "-f", folder], check=True)
    with contextlib.suppress(OSError):  # not every root may
        namespace.write("/proc/sys/vm/drop_caches", "3")
