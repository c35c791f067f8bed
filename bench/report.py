"""Prints what was measured."""

import dataclasses

MEGABYTE = 1e6
SHORTEST = 1e-3  # seconds: steps below it have no rate


def print_result(result):
    print(f"\n{result.row}: {result.rows:,} rows in the end")
    others = result.others()
    table = [["step", "ours s", "rows/s", "MB written", "flushes",
              *(text for name in others for text in (f"{name} s", "MB written", "flushes", f"{name}/ours"))]]
    for step in dict.fromkeys(step for name in ("ours", *others) for step in result.runs[name].steps):
        table.append([step, *cells(result, others, lambda run, step=step: run.steps.get(step))])
    table.append(["all", *cells(result, others, lambda run: run.cost)])
    print_table(table)
    for name in ("ours", *others, "floor"):
        print_run(name, result.runs[name])
    print(f"ours/floor {result.ours.seconds / result.floor.seconds:.2f}")
    for name in others:
        print(f"{name}/ours {result.ratio(name):.2f} "
              f"({result.runs[name].cost.processor / max(result.ours.processor, SHORTEST):.2f} in processor time)")
    if others:
        print("final databases: " + ("DIFFERENT" if result.differences else "the same"))
    for line in result.differences:
        print(line)


def print_run(name, run):
    cost = run.cost
    print(f"{name}: {cost.seconds:.2f} s, {cost.processor:.2f} s of processor time, {run.disk / MEGABYTE:,.1f} MB to "
          f"the disk, peak of resident memory {cost.anonymous / 1024:.1f} MiB, mapped {cost.mapped / 1024:.1f} MiB")


def cells(result, others, cost_of):
    """Of one line of the table. Not everybody has every step."""
    ours = cost_of(result.runs["ours"])
    texts = texts_of(ours)
    texts.insert(1, f"{result.rows / max(ours.seconds, SHORTEST):,.0f}" if ours else "-")
    for name in others:
        cost = cost_of(result.runs[name])
        texts += [*texts_of(cost), f"{cost.seconds / max(ours.seconds, SHORTEST):.2f}" if ours and cost else "-"]
    return texts


def texts_of(cost):
    return [f"{cost.seconds:.2f}", f"{cost.written / MEGABYTE:,.1f}", str(cost.flushes)] if cost else ["-"] * 3


def print_table(table):
    widths = [max(map(len, column)) for column in zip(*table)]
    for first, *rest in table:
        print(first.ljust(widths[0]), *(text.rjust(width) for text, width in zip(rest, widths[1:])), sep="  ")


def print_figures(figures):
    print()
    print_table([["row", "figure", "measured", "wanted", ""],
                 *([name, figure.title, f"{value:.2f}", f"{'<=' if figure.most else '>='} {figure.wanted:g}",
                    "reached" if (value <= figure.wanted if figure.most else value >= figure.wanted) else "missed"]
                   for name, figure, value in figures)])


def as_data(result):
    return {"row": dataclasses.asdict(result.row), "rows": result.rows, "differences": result.differences,
            "runs": {name: dataclasses.asdict(run) for name, run in result.runs.items()},
            "ratios": {name: result.ratio(name) for name in result.others()},
            "to_floor": result.ours.seconds / result.floor.seconds}
