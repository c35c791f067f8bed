"""The program itself, as the package runs it."""

import re
import subprocess

import harness
import meter
import namespace

FORMER_PROGRAM = namespace.ROOM + "/updater-svr.before"
OUTPUT = namespace.ROOM + "/output"
LAST_LINE = f"Upgrade to '(master, {harness.LAST}) ' successfully"


class Steps:
    """What each step has cost: the program tells where it is by its lines and its status."""

    def __init__(self, meter_of_run, log):
        self.meter, self.log, self.costs = meter_of_run, log, {}
        self.name, self.start = "copies", meter.Cost()
        self.begun = 0

    def watch(self):
        edges = re.findall(r"^updating from \(.*, (\d+)\)  to \(.*, (\d+)\) $", namespace.read(OUTPUT), re.M)
        for edge in edges[self.begun:]:
            self.begin("{} -> {}".format(*edge))
        self.begun = len(edges)
        if self.name.endswith(f"-> {harness.LAST}") and any(LAST_LINE in line for line in self.log[-20:]):
            self.begin("into place")
        if self.name in ("copies", "into place") and 'status="checking"' in namespace.read(harness.STATUS_FILE):
            self.begin("check")

    def begin(self, name):
        self.end()
        self.name = name

    def end(self):
        now = self.meter.now()
        self.costs[self.name] = now - self.start
        self.start = now


def upgrade(volume, program):
    """Returns the cost of each step, and that of the whole run."""
    harness.SystemTest().set_up_package()
    metered = meter.Meter()
    with harness.system_log() as log, open(OUTPUT, "w", encoding="utf-8") as output:
        steps = Steps(metered, log)
        metered.run(program, volume.path, watch=steps.watch, stdout=output, stderr=subprocess.DEVNULL,
                    umask=0o077)
        metered.run("sync", "-f", volume.path)
        steps.end()
    if 'status="done"' not in namespace.read(harness.STATUS_FILE):
        raise RuntimeError(f"the upgrade failed: {log}")
    return steps.costs, metered.cost
