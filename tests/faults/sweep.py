# Kills runs of the program or lets them fail at every call that changes files, and fills up or takes away their
# volume. Before the commit point all databases must stay as they are; after it the next run must make all of them
# new, and must leave what a run leaves that nothing happens to.
#
#   sweep.py <updater-svr> <package-tool> <fault-injector> <updater-ctl> [--stride N] [--only REGEX]
#
# With a stride only every n-th call is tried, but those around the commit all the same. The names that --only looks
# at are like "kill ext4 4100 other views" or "error btrfs 2577 logs" (live databases have logs of killed daemons).
# A trial that went wrong is told with the call that was hit.

import argparse
import collections
import contextlib
import errno
import functools
import itertools
import multiprocessing
import os
import re
import shutil
import sqlite3
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "system"))
import harness
import namespace
from harness import LAST, STATUS_FILE, VERSION_OF

INJECTOR, TRACE, KEPT, CTL, SAVE = (
    os.path.join(namespace.ROOM, name) for name in ("fault-injector.so", "trace", "kept", "updater-ctl", "save.tar.zst"))
OTHER_VIEWS, LOGS = " other views", " logs"
STARTS = (2577, 3300, 3400, 3450, 4100, LAST)
WITHOUT_EXCHANGE = "ext4 that exchanges no folders"  # as some file systems; there the live one is moved away first
VOLUMES = {"ext4": {}, "btrfs": {"fs": "btrfs"}, "ext4 with 1 KiB blocks": {"mkfs": ("-b", "1024")}, WITHOUT_EXCHANGE: {}}
# With each of these the n-th call of its name fails: once, or from then on for ever.
ERRORS = [*itertools.product((errno.EIO, errno.ENOSPC, errno.EDQUOT, errno.EACCES), ("", "1")), (errno.EINTR, "")]


class Sweep(harness.SystemTest):
    # Trials on a volume with the package in one version. Its folder is kept aside and put back for each.

    def __init__(self, name, kind, volume, version, state):
        super().__init__()
        self.name, self.count, self.volume = name, collections.Counter(), harness.Volume(**VOLUMES[volume])
        self.intent, self.prepare, self.clean_up = self.volume.sync + "/.upgrade-commit", int, int  # which do nothing
        self.filler, self.never = self.volume.path + "/filler", "exchange" if volume == WITHOUT_EXCHANGE else ""
        self.set_up_package()
        self.volume.fill(version, self.volume.uuid)
        if state == OTHER_VIEWS and version >= 3400:  # none, but for the updaters the folder must be there
            harness.change(self.volume.user, "DELETE FROM user_table")
            (shutil.rmtree if version == LAST else harness.clear)(self.volume.sync + "/view")
        for view in ("1", "99") * (state == OTHER_VIEWS and version < 3400):  # too early: of a user, and of nobody
            namespace.write(f"{self.volume.sync}/view/{view}/something")
        if state == LOGS:
            self.volume.leave_logs()
        self.make_ready(state)
        shutil.rmtree(KEPT, ignore_errors=True)
        shutil.copytree(self.volume.package, KEPT)
        # The commit needs live databases without logs, so these may be in the databases already when it fails.
        self.before, self.parts = self.volume.live(), state == LOGS and self.volume.parts()
        self.restore()
        self.assert_ended(self.run_with(kind=errno.EIO if kind.endswith("error") else "kill"), "done")
        # However many views have logs.
        assert not [call for call in self.trace if call.startswith("fsync ") and "/view/" in call], "flushes a view"
        self.calls, self.expected = self.trace, (self.leftovers(), self.volume.content())
        self.commit, self.end = (self.calls.index(f"{call} {self.intent}") + 1 for call in ("rename", "unlink"))

    def make_ready(self, _):
        # What else is to be there before all trials.
        pass

    def restore(self):
        harness.clear(self.volume.path)
        shutil.copytree(KEPT, self.volume.package)
        self.set_up_package()
        self.is_committed = False

    def run_with(self, **fault):
        # One run; `trace` then has its calls, and `hits` those that were hit.
        variables = {"FAULT_" + name.upper(): str(value) for name, value in fault.items()}
        namespace.write(TRACE)
        namespace.write(STATUS_FILE, self.status_text("initializing"))
        run = self.start({
            "LD_PRELOAD": INJECTOR, "FAULT_TRACE": TRACE, "FAULT_VOLUME": self.volume.path, "FAULT_NEVER": self.never,
            **variables})
        self.trace = namespace.read(TRACE).splitlines()
        self.hits = [line for line in self.trace if line.endswith(" *")]
        self.is_committed |= any(line.removesuffix(" *") == "rename " + self.intent for line in self.trace)
        return run

    def start(self, environment):
        return self.run_updater(self.volume.path, environment=environment)

    def leftovers(self):
        walks = map(os.walk, (self.volume.path, "/tmp", "/var/packages", "/usr/plat/etc/packages"))
        return {f"{folder}/{name}" for folder, folders, names in itertools.chain(*walks) for name in folders + names}

    def is_new(self):
        # All live databases are of the latest version. Looking at a copy does not change them.
        with tempfile.TemporaryDirectory(dir=namespace.ROOM) as copy, contextlib.suppress(sqlite3.Error):
            shutil.copytree(self.volume.package, copy, dirs_exist_ok=True)
            return {(str(LAST),)} == {row for path in harness.Package(copy).databases() if ".bak" not in path
                                      for row in harness.query(path, VERSION_OF, how="mode=rw") or [None]}
        return False

    def faults_after_hit(self, run, exit_status):
        live = self.volume.live()
        is_old = all(live.get(path) == identity for path, identity in self.before.items()) or (
            self.parts and self.parts == self.volume.parts())
        will_be_new = self.is_committed and (os.path.lexists(self.intent) or self.is_new())
        if not is_old and not will_be_new:
            yield "live databases are mixed" if self.is_committed else "live databases changed before the commit point"
        if run.exit != exit_status:
            yield f"ended with {run.exit}"
        if run.exit == 0 and not any("/var/packages/" in line for line in self.hits):  # those that write the status
            if run.status not in (("done", "upgradefail") if self.is_committed else ("upgradefail", "dbnewer")):
                yield f"status {run.status}"
            if run.status == "done" and not will_be_new:
                yield "done over old databases"

    def faults_after_all(self, stuck):
        run = self.run_with()
        if (run.exit, run.status) != (0, "done"):
            yield f"the next run ends with {run.exit}, {run.status}, {run.log[-3:]}"
        leftovers, content = (self.leftovers() ^ self.expected[0]) - stuck, self.volume.content()
        if content != self.expected[1]:
            yield f"content differs in {len(set(content) ^ set(self.expected[1]))} lines"
        if leftovers:
            yield f"leftovers differ: {leftovers}"

    def trial(self, *faults):
        # Runs that something happens to, and one that nothing happens to.
        self.restore()
        self.prepare()
        # Nobody reads an intent that was set aside, but after a mere kill there is no reason to do so.
        wrong, where, stuck = [], [], set() if "kill" in self.name else {self.intent + ".set-aside"}
        for fault in faults:
            if callable(fault):
                fault()
                continue
            self.last = self.run_with(**fault)
            wrong += self.faults_after_hit(self.last, -9 if fault["kind"] == "kill" and self.hits else 0)
            where += (self.hits or self.trace[-1:])[:1]
            stuck |= {line[7:-2] for line in self.hits if line.startswith("unlink ")}  # may stay
        self.clean_up()
        wrong += self.faults_after_all(stuck)
        self.count.update(trials=1, wrong=bool(wrong))
        if wrong:
            print(f"WRONG {self.name}: {faults} {where} {self.last.status} {self.last.log[-3:]}: {wrong}", flush=True)

    def sample(self, stride):
        # All calls from the checkpoints and probes before the commit to the end of the intent, and some others.
        return [number for number in range(1, len(self.calls) + 1)
                if self.commit - 40 < number < self.end + 5 or number % stride == 0]

    def kill(self, stride):
        for number in self.sample(stride):
            yield [{"kind": "kill", "at": number}]

    def kill_twice(self, stride):
        # Again at every call of the next run until that has finished what the first one began.
        for first in range(self.commit + 1, self.end + 1, min(stride, 8)):
            self.restore()
            self.run_with(kind="kill", at=first)
            self.run_with(kind="kill")
            for second in range(1, self.trace.index("unlink " + self.intent) + 3, min(stride, 8)):
                yield [{"kind": "kill", "at": first}, {"kind": "kill", "at": second}]

    def error_after_kill(self, stride):
        # Killed in the moves, and then every call of the next run fails in turn until that has finished them.
        for first in range(self.commit + 1, self.end + 1, min(stride, 8)):
            self.restore()
            self.run_with(kind="kill", at=first)
            self.run_with(kind="kill")
            seen = collections.Counter()
            for number, line in enumerate(self.trace[:self.trace.index("unlink " + self.intent) + 1], first // 8):
                seen[name := line.split()[0]] += 1
                kind, ever = ERRORS[number % len(ERRORS)]
                if number % min(stride, 4) == 0:
                    yield [{"kind": "kill", "at": first}, {"kind": kind, "ever": ever, "only": name, "at": seen[name]}]

    def error(self, stride):
        # Around the commit each call with every error if all calls are tried, else each with one of them. There no
        # rename may succeed any more, too: whatever the check after the moves writes then is to be told by other means.
        seen, near, wanted = collections.Counter(), self.sample(1 << 30), self.sample(stride)
        for number, line in enumerate(self.calls, 1):
            seen[name := line.split()[0]] += 1
            some = {*ERRORS} if number in near and stride == 1 else {ERRORS[number % len(ERRORS)]}
            if number in near and name == "rename":
                some.add((errno.EACCES, "1"))
            for kind, ever in sorted(some) * (number in wanted):
                yield [{"kind": kind, "ever": ever, "only": name, "at": seen[name]}]

    def lost_volume(self, stride):
        # The file system is read-only from a call on, and forgets what was not flushed.
        self.prepare, self.clean_up = self.volume.flush, self.volume.mount_again
        for number in self.sample(stride):
            yield [{"kind": "abort", "at": number}]

    def leave(self, room):
        self.volume.flush()
        with open(self.filler, "wb") as file:
            for bit in range(25, 9, -1):
                with contextlib.suppress(OSError):
                    while True:
                        os.posix_fallocate(file.fileno(), file.seek(0, os.SEEK_END), 1 << bit)
            file.truncate(max(0, file.seek(0, os.SEEK_END) - room))

    def full_disk(self, stride):
        # Ever more space is left, until it is enough.
        self.clean_up = lambda: os.unlink(self.filler)
        yield from self.until_done(self.leave, 4096 * stride)

    def full_disk_after_kill(self, stride):
        # Killed in the moves, and then there is no space to finish them, or a little.
        self.clean_up = lambda: os.unlink(self.filler)
        for first, room in itertools.product(range(self.commit + 1, self.end + 1, min(stride, 8)), (0, 4096, 1 << 16)):
            yield [{"kind": "kill", "at": first}, functools.partial(self.leave, room), {"kind": "none"}]

    def until_done(self, leave, step):
        ends = []
        while ends[-2:] != ["done", "done"]:
            self.prepare = functools.partial(leave, len(ends) * step)
            yield [{"kind": "none"}]
            ends.append(self.last.status)

    def quota(self, stride):
        # The same with a limit, which on btrfs also holds for root.
        def btrfs(*arguments):
            subprocess.run(["btrfs", *arguments, self.volume.path], check=True, capture_output=True)
        def leave(room):
            namespace.write(self.filler, "x" * (1 << 20))
            self.volume.flush()
            btrfs("qgroup", "limit", str((5 << 18) + sum(map(os.path.getsize, self.volume.everything())) + room))
        def lift():  # with nothing left not even the limit could be changed
            os.unlink(self.filler)
            self.volume.flush()
            btrfs("qgroup", "limit", "none")
        self.clean_up = lift
        btrfs("quota", "enable")
        yield from self.until_done(leave, 4096 * stride)


JOBS = {"kill": ["ext4", "btrfs"], "kill_twice": ["ext4", "btrfs", WITHOUT_EXCHANGE], "error_after_kill": ["ext4"],
        "error": ["ext4", "btrfs"], "lost_volume": ["ext4"],
        "full_disk": ["ext4", "ext4 with 1 KiB blocks", "btrfs"], "full_disk_after_kill": ["ext4", "btrfs"], "quota": ["btrfs"],
        "restore_kill": ["ext4", "btrfs", WITHOUT_EXCHANGE],
        "restore_error": ["ext4", "btrfs"]}


class RestoreSweep(Sweep):
    # Trials of restores of a save in one version over what an upgrade has made of it.

    def ctl(self, command, environment=()):
        return self.run_updater(command, self.volume.path, SAVE, environment=environment, program=CTL)

    def make_ready(self, state):
        with contextlib.suppress(FileNotFoundError):
            os.unlink(SAVE)
        self.old = self.volume.parts()
        run = self.ctl("save")
        assert run.exit == 0, run
        self.assert_ended(self.run_updater(self.volume.path), "done")
        self.upgraded = self.volume.content()
        if state == LOGS:
            self.volume.leave_logs()

    def start(self, environment):
        return self.ctl("restore", environment)

    def assert_ended(self, run, status):
        super().assert_ended(run, "initializing" if self.is_restore(run) else status)
        assert not self.is_restore(run) or self.volume.parts() == self.old, run

    def is_restore(self, run):
        return run.stdout.startswith("Volume")

    def restore_kill(self, stride):
        return self.followed(self.kill(stride), stride)

    def restore_error(self, stride):
        return self.followed(self.error(stride), stride)

    def followed(self, faults, stride):
        # By a restore and by an upgrade, or with a stride by one of them in turn.
        for number, [fault] in enumerate(faults):
            yield from ((fault, is_upgrade) for is_upgrade in (False, True) if stride == 1 or number // 2 % 2 == is_upgrade)

    def trial(self, fault, is_upgrade):
        self.restore()
        run, wrong, live = self.run_with(**fault), [], self.volume.live()
        is_killed = fault["kind"] == "kill" and bool(self.hits)
        is_old = all(live.get(path) == identity for path, identity in self.before.items()) or (
            self.parts and self.parts == self.volume.parts())
        if not is_old and not self.is_committed:
            wrong.append("live databases changed before the commit point")
        if self.is_committed and not os.path.lexists(self.intent) and self.volume.parts() != self.old and not is_old:
            wrong.append("live databases are mixed")
        if run.exit not in ((-9,) if is_killed else (0, 1, 2)) or (run.exit == 0 and self.volume.parts() != self.old):
            wrong.append(f"ended with {run.exit}")
        namespace.write(STATUS_FILE, self.status_text("initializing"))
        next_run = self.run_updater(self.volume.path) if is_upgrade else self.run_with()
        is_well = self.volume.content() == self.upgraded if is_upgrade else (
            self.volume.parts() == self.old and self.leftovers() == self.expected[0])
        if (next_run.exit, next_run.status) != (0, "done" if is_upgrade else "initializing") or not is_well:
            wrong.append(f"the next {'upgrade' if is_upgrade else 'restore'} ends with {next_run} {is_well}")
        self.count.update(trials=1, wrong=bool(wrong))
        if wrong:
            print(f"WRONG {self.name}: {fault} {self.hits} {run}: {wrong}", flush=True)


def sweep(job):
    name, (kind, volume, *what), part, parts, stride = job
    tried = (RestoreSweep if kind.startswith("restore") else Sweep)(name, kind, volume, *what)
    for faults in itertools.islice(getattr(tried, kind)(stride), part, None, parts):
        tried.trial(*faults)
    tried.volume.remove()
    return f"{kind:18}{volume}", tried.count


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("programs", nargs=4)
    parser.add_argument("--stride", type=int, default=1)
    parser.add_argument("--only", default="")
    options = parser.parse_args()
    namespace.skip_where_tests_cannot_run()
    jobs = []
    for kind, volume in [(kind, volume) for kind, volumes in JOBS.items() for volume in volumes]:
        parts = 1 if options.stride > 1 or kind in ("full_disk", "quota") else 8
        for version, state in itertools.product(STARTS, ("", OTHER_VIEWS, LOGS)):
            name = f"{kind} {volume} {version}{state}"
            jobs += [(name, (kind, volume, version, state), part, parts, options.stride)
                     for part in range(parts) if re.search(options.only, name)]
    total = collections.defaultdict(collections.Counter)
    programs = {path: os.open(program, os.O_RDONLY)
                for path, program in zip((harness.PROGRAM, harness.TOOL, INJECTOR, CTL), options.programs)}
    # Who interrupts it sees what there is so far.
    with multiprocessing.Pool(None, namespace.enter, (programs,)) as pool, contextlib.suppress(KeyboardInterrupt):
        for name, count in pool.imap_unordered(sweep, jobs):
            total[name] += count
            total["all"] += count
    for name, count in sorted(total.items()):
        print(f"{name:36}{count['trials']:7} trials{count['wrong']:6} wrong")
    sys.exit(total["all"]["wrong"] > 0 or not total["all"]["trials"])


if __name__ == "__main__":
    main()
