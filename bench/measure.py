"""One row: the program and the peer in turn on copies of the same package, and the floor."""

import dataclasses
import shutil
import statistics
import tempfile

import contents
import floor
import harness
import peer
import sample
import upgrade
import volume


@dataclasses.dataclass
class Result:
    """The medians of all repetitions."""
    row: object
    rows: int  # in all final databases
    steps: dict
    ours: object
    disk: int  # bytes that reached the disk
    floor: object
    peer_steps: dict = dataclasses.field(default_factory=dict)
    peer: object = None
    peer_disk: int = 0
    differences: list = dataclasses.field(default_factory=list)


def measure(row, folder, repeat, with_peer=True):
    with tempfile.TemporaryDirectory(dir=folder, prefix="bench.") as room:
        package = sample.make(room, row)
        sample.configure_machine(package)
        runs = {"ours": [], "peer": [], "floor": []}
        found = {}
        for turn in range(repeat):
            who = ["ours", "peer"] if with_peer else ["ours"]
            for name in who if turn % 2 == 0 else reversed(who):
                with volume.with_package(row.fs, room, package) as target:
                    runs[name].append(run(name, row, target))
                    if name not in found:
                        found[name] = contents.contents_of(target)
                    if name == "ours":
                        runs["floor"].append(run("floor", row, target))
        return summary(row, runs, found)


def run(name, row, target):
    """Returns the costs of the steps and of all, and how many bytes have reached the disk."""
    before = target.bytes_on_disk()
    if name == "ours":
        steps, cost = upgrade.upgrade(target)
    elif name == "floor":
        steps, cost = {}, floor.write_again(target)
    else:
        way = peer.Peer(target, volume.UUID, row.indexes, copies=peer.WORD)
        steps, cost = way.upgrade(row.version), way.meter.cost
    return steps, cost, target.bytes_on_disk() - before


def summary(row, runs, found):
    _, ours, disk = middle(runs["ours"])
    _, floor_cost, _ = middle(runs["floor"])
    result = Result(row, contents.rows_in(found["ours"]), steps_of(runs["ours"]), ours, disk, floor_cost)
    if runs["peer"]:
        _, result.peer, result.peer_disk = middle(runs["peer"])
        result.peer_steps = steps_of(runs["peer"])
        result.differences = contents.differences(found["ours"], found["peer"])
    return result


def middle(runs):
    """The run that took the median of the times."""
    return sorted(runs, key=lambda run: run[1].seconds)[(len(runs) - 1) // 2]


def steps_of(runs):
    return {name: dataclasses.replace(cost, seconds=statistics.median(run[0][name].seconds for run in runs))
            for name, cost in runs[0][0].items()}
