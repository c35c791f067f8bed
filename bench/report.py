"""Prints what was measured."""

import dataclasses

MEGABYTE = 1e6


def print_result(result):
    print(f"\n{result.row}: {result.rows:,} rows in the end")
    head = ["step", "ours s", "rows/s", "MB written", "flushes"]
    head += ["peer s", "MB written", "flushes", "peer/ours"] if result.peer else []
    table = [head]
    for name in {**result.steps, **result.peer_steps}:
        table.append(line_of(name, result.rows, result.steps.get(name), result.peer_steps.get(name), result.peer))
    table.append(line_of("all", result.rows, result.ours, result.peer, result.peer))
    print_table(table)
    for who, cost, disk in (("ours", result.ours, result.disk), ("peer", result.peer, result.peer_disk)):
        if cost:
            print(f"{who}: {cost.processor:.1f} s of processor time, {disk / MEGABYTE:,.1f} MB to the disk, peak of resident "
                  f"memory {cost.anonymous / 1024:.1f} MiB, mapped {cost.mapped / 1024:.1f} MiB")
    print(f"floor: {result.floor.seconds:.2f} s, {result.floor.written / MEGABYTE:,.1f} MB written; "
          f"ours/floor {result.ours.seconds / result.floor.seconds:.2f}")
    if result.peer:
        print(f"peer/ours {result.peer.seconds / result.ours.seconds:.2f} "
              f"({result.peer.processor / result.ours.processor:.2f} in processor time)")
        print("final databases: " + ("DIFFERENT" if result.differences else "the same"))
        for line in result.differences:
            print(line)


def line_of(name, rows, ours, peer, with_peer):
    line = [name]
    line += [f"{ours.seconds:.2f}", f"{rows / max(ours.seconds, 1e-3):,.0f}", f"{ours.written / MEGABYTE:,.1f}",
             str(ours.flushes)] if ours else ["-"] * 4
    if with_peer:
        line += [f"{peer.seconds:.2f}", f"{peer.written / MEGABYTE:,.1f}", str(peer.flushes)] if peer else ["-"] * 3
        line += [f"{peer.seconds / max(ours.seconds, 1e-3):.2f}" if ours and peer else "-"]
    return line


def print_table(table):
    widths = [max(len(line[column]) for line in table) for column in range(len(table[0]))]
    for line in table:
        print(line[0].ljust(widths[0]), *(text.rjust(width) for text, width in zip(line[1:], widths[1:])), sep="  ")


def print_figures(figures):
    print()
    print_table([["row", "figure", "measured", "wanted", ""],
                 *([name, figure.title, f"{value:.2f}", f"{'<=' if figure.most else '>='} {figure.wanted:g}",
                    "reached" if (value <= figure.wanted) == figure.most or value == figure.wanted else "missed"]
                   for name, figure, value in figures)])


def as_data(result):
    data = dataclasses.asdict(result)
    data["ratio"] = result.peer.seconds / result.ours.seconds if result.peer else None
    data["to_floor"] = result.ours.seconds / result.floor.seconds
    return data
