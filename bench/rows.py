"""What is measured: packages of given size and shape, and the figures that are wanted of them."""

import dataclasses
import typing


@dataclasses.dataclass(frozen=True)
class Row:
    """A package. Without a number of versions every node has three on average, without one of users every view has
    one."""
    fs: str = "ext4"
    nodes: int = 300_000
    versions: int = 0
    views: int = 200
    users: int = 0
    log_rows: int = 0
    shape: str = "even"
    version: int = 2577
    stale_statistics: bool = False
    one_sync_id: bool = False
    indexes: str = "early"

    def __post_init__(self):
        object.__setattr__(self, "versions", self.versions or 3 * self.nodes)
        object.__setattr__(self, "users", self.users or self.views)

    def __str__(self):
        more = [f"{self.users:,} users"] * (self.users != self.views)
        more += [f"{self.log_rows:,} log rows"] * (self.log_rows > 0)
        more += [self.shape] * (self.shape != "even") + ["stale statistics"] * self.stale_statistics
        more += ["one sync_id"] * self.one_sync_id
        return ", ".join([f"{self.nodes:,} nodes", f"{self.versions:,} versions", f"{self.views:,} views", *more,
                          f"from {self.version}", self.fs])


class Figure(typing.NamedTuple):
    """A figure of the table, made of the results of some rows. `most` tells that less is better."""
    title: str
    wanted: float
    rows: list
    value: typing.Callable
    most: bool = True
    with_peer: bool = False


def ratio(title, wanted, row):
    return Figure(title, wanted, [row], lambda result: result.ratio("peer"), most=False, with_peer=True)


def times_slower(title, wanted, row, step=None, **change):
    """Of the whole run or of one step."""
    def seconds(result):
        return (result.steps[step] if step else result.ours).seconds
    return Figure(title, wanted, [row, dataclasses.replace(row, **change)],
                  lambda plain, changed: seconds(changed) / seconds(plain))


def per_node(title, wanted, *rows):
    def spread(*results):
        costs = [result.ours.seconds / result.row.nodes for result in results]
        return max(costs) / min(costs)
    return Figure(title, wanted, list(rows), spread)


def beyond_files(few, many):
    """What floor(many) takes longer than floor(few) is the creation of the files."""
    return (many.ours.seconds - (many.floor.seconds - few.floor.seconds)) / few.ours.seconds


def check_per_user(few, many):
    return (many.steps["check"].seconds / many.row.users) / (few.steps["check"].seconds / few.row.users)


MANY_VIEWS = Row(nodes=50_000, views=1_000)
CHECK_ONLY = Row(nodes=1_000, views=1, users=1_000, version=4150)
FIGURES = {
    "ext4-300k": ratio("300,000 nodes, 200 views, ext4: peer/ours", 3, Row()),
    "btrfs-300k": ratio("the same on btrfs: peer/ours", 4, Row(fs="btrfs")),
    "ext4-1m": ratio("1,000,000 nodes, 200 views, ext4: peer/ours", 3, Row(nodes=1_000_000)),
    "views-1000": ratio("50,000 nodes, 1,000 views: peer/ours", 6, MANY_VIEWS),
    "flushes": Figure("flushes of the latter", 60, [MANY_VIEWS], lambda result: result.ours.flushes),
    "one-huge-view": ratio("300,000 nodes in one of 200 views: peer/ours", 3, Row(shape="one-huge-view")),
    "stale-statistics": times_slower("300 views at 3300, stale statistics: times slower", 1.4,
                                     Row(nodes=100_000, views=300, version=3300), stale_statistics=True),
    "one-sync-id": times_slower("20,000 nodes at 3004, one sync_id: step times slower", 1.6,
                                Row(nodes=20_000, views=20, version=3004), step="3004 -> 3200", one_sync_id=True),
    "self-check": Figure("self-check, 16,000 users: time per user against 1,000", 1.5,
                         [CHECK_ONLY, dataclasses.replace(CHECK_ONLY, users=16_000)], check_per_user),
    "views-20-2000": Figure("20 to 2,000 views: times slower beyond the files", 2,
                            [Row(nodes=100_000, views=20), Row(nodes=100_000, views=2_000)], beyond_files),
    "linear": per_node("100,000 to 1,000,000 to 4,000,000 nodes: largest time per node to smallest", 1.3,
                       Row(nodes=100_000), Row(nodes=1_000_000), Row(nodes=4_000_000)),
    "memory": Figure("peak of resident memory at 1,000,000 nodes without mapped pages, MiB", 400,
                     [Row(nodes=1_000_000)], lambda result: result.ours.anonymous / 1024),
}
