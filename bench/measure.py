"""One row: the program and those that it is compared with in turn on copies of the same package, and the floor."""

import dataclasses
import statistics
import tempfile

import contents
import floor
import harness
import meter
import peer
import sample
import upgrade
import volume


@dataclasses.dataclass
class Run:
    """Of several runs, the one that took the median of the times; steps have medians of their own."""
    cost: meter.Cost
    steps: dict
    disk: int  # bytes that reached the disk


@dataclasses.dataclass
class Result:
    row: object
    rows: int  # in all final databases
    runs: dict  # by the name of the contender
    differences: list  # between the final databases of the program and of the others

    @property
    def ours(self):
        return self.runs["ours"].cost

    @property
    def floor(self):
        return self.runs["floor"].cost

    @property
    def steps(self):
        return self.runs["ours"].steps

    def others(self):
        return [name for name in self.runs if name not in ("ours", "floor")]

    def ratio(self, name):
        return self.runs[name].cost.seconds / self.ours.seconds


def run_peer(target, row):
    way = peer.Peer(target, volume.UUID, row.indexes, copies=peer.WORD)
    return way.upgrade(row.version), way.meter.cost


CONTENDERS = {
    "ours": lambda target, row: upgrade.upgrade(target, harness.PROGRAM),
    "before": lambda target, row: upgrade.upgrade(target, upgrade.FORMER_PROGRAM),
    "peer": run_peer,
    "floor": lambda target, row: ({}, floor.write_again(target)),  # on a volume that was upgraded
}


def measure(row, folder, repeat, others):
    with tempfile.TemporaryDirectory(dir=folder, prefix="bench.") as room:
        package = sample.make(room, row)
        sample.configure_machine(package)
        names = ["ours", *others]
        runs = {name: [] for name in (*names, "floor")}
        found = {}
        for turn in range(repeat):
            for name in names if turn % 2 == 0 else reversed(names):
                with volume.with_package(row.fs, room, package) as target:
                    runs[name].append(run(name, row, target))
                    if name not in found:
                        found[name] = contents.contents_of(target)
                    if name == "ours":
                        runs["floor"].append(run("floor", row, target))
        differences = [line for name in others
                       for line in contents.differences("ours", found["ours"], name, found[name])]
        return Result(row, contents.rows_in(found["ours"]), {name: median(runs[name]) for name in runs}, differences)


def run(name, row, target):
    before = target.bytes_on_disk()
    steps, cost = CONTENDERS[name](target, row)
    return Run(cost, steps, target.bytes_on_disk() - before)


def median(runs):
    middle = sorted(runs, key=lambda run: run.cost.seconds)[(len(runs) - 1) // 2]
    steps = {name: dataclasses.replace(cost, seconds=statistics.median(run.steps[name].seconds for run in runs))
             for name, cost in middle.steps.items()}
    return dataclasses.replace(middle, steps=steps)
