"""Measures upgrades: main.py <folder of the build> <options>. See scripts/bench."""

import argparse
import dataclasses
import json
import os
import signal
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(HERE, "..", "tests", "system")]
os.umask(0o022)

import harness  # noqa: E402
import namespace  # noqa: E402
import contents  # noqa: E402
import measure  # noqa: E402
import meter  # noqa: E402
import report  # noqa: E402
import rows  # noqa: E402
import sample  # noqa: E402
import upgrade  # noqa: E402

PROGRAMS = {harness.PROGRAM: "updater/updater-svr", sample.TOOL: "ctl/updater-ctl",
            contents.TOOL: "bench/volume-digest", meter.COUNTER: "bench/libcount-flushes.so"}


def read_arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description="Measures upgrades beside the sqlite3 shell.")
    parser.add_argument("build", help=argparse.SUPPRESS)
    parser.add_argument("--row", action="append", choices=rows.FIGURES, default=[],
                        help="a row of the table; may be repeated")
    parser.add_argument("--all-rows", action="store_true", help="the whole table; takes hours")
    parser.add_argument("--repeat", type=int, default=3,
                        help="measurements of each, the median of which counts (%(default)s)")
    parser.add_argument("--folder", default="/var/tmp",
                        help="where volumes are made, on the disk to be measured (%(default)s)")
    parser.add_argument("--indexes", choices=("early", "late"), default="early",
                        help="whether the peer makes indexes before the rows, as the log shows them, or after (%(default)s)")
    parser.add_argument("--no-peer", action="store_true", help="where no figure needs it")
    parser.add_argument("--before", type=argparse.FileType("rb"), metavar="UPDATER-SVR",
                        help="a former build of the program, measured in the same run")
    parser.add_argument("--json", type=argparse.FileType("w"), help="where all numbers go besides")
    own = parser.add_argument_group("a package of any size instead of a row")
    own.add_argument("--nodes", type=int, default=300_000)
    own.add_argument("--versions", type=int, default=0, help="of all nodes together (three times as many)")
    own.add_argument("--views", type=int, default=200)
    own.add_argument("--users", type=int, default=0, help="those beyond the views have empty views")
    own.add_argument("--log", type=int, default=0, dest="log_rows",
                     help=f"rows of the activity log, which is there from {sample.LOG_SINCE} on")
    own.add_argument("--shape", choices=("even", "one-huge-view"), default="even")
    own.add_argument("--from", type=int, choices=harness.VERSIONS, default=harness.VERSIONS[0], dest="version")
    own.add_argument("--btrfs", action="store_const", const="btrfs", default="ext4", dest="fs")
    own.add_argument("--stale-statistics", action="store_true", help="of tables with 20 rows")
    own.add_argument("--one-sync-id", action="store_true", help="for all nodes")
    arguments = parser.parse_args()
    if arguments.log_rows and arguments.version < sample.LOG_SINCE:
        parser.error(f"there is no log before {sample.LOG_SINCE}")
    return arguments


class Bench:
    def __init__(self, arguments):
        self.arguments, self.results, self.figures = arguments, {}, []

    def measure(self, row, with_peer):
        """A package that two figures need is measured once."""
        others = ["peer"] * with_peer + ["before"] * (self.arguments.before is not None)
        if row not in self.results:
            self.results[row] = measure.measure(row, self.arguments.folder, self.arguments.repeat, others)
            report.print_result(self.results[row])
            sys.stdout.flush()
        return self.results[row]

    def run(self):
        names = list(rows.FIGURES) if self.arguments.all_rows else self.arguments.row
        beside_peer = {row for name in names for row in rows.FIGURES[name].rows if rows.FIGURES[name].with_peer}
        for name in names:
            figure = rows.FIGURES[name]
            results = [self.measure(dataclasses.replace(row, indexes=self.arguments.indexes), row in beside_peer)
                       for row in figure.rows]
            self.figures.append((name, figure, figure.value(*results)))
        if not names:
            self.measure(own_row(self.arguments), not self.arguments.no_peer)
        if self.figures:
            report.print_figures(self.figures)
        if self.arguments.json:
            json.dump({"rows": [report.as_data(result) for result in self.results.values()],
                       "figures": {name: value for name, _, value in self.figures}}, self.arguments.json, indent=1)
        return any(result.differences for result in self.results.values())


def own_row(arguments):
    return rows.Row(**{name: getattr(arguments, name) for name in rows.Row.__dataclass_fields__})


def main():
    arguments = read_arguments()
    namespace.skip_where_tests_cannot_run()
    programs = {path: os.open(os.path.join(arguments.build, program), os.O_RDONLY)
                for path, program in PROGRAMS.items()}
    if arguments.before:
        programs[upgrade.FORMER_PROGRAM] = arguments.before.fileno()
    namespace.enter(programs)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # what was made goes too
    sys.exit(Bench(arguments).run())


main()
