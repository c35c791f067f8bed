"""Whether two upgrades have ended in the same databases."""

import os
import re
import subprocess

import namespace

TOOL = os.path.join(namespace.ROOM, "volume-digest")
WHOLE_COMMAND_LINE = 500  # databases a call


def contents_of(volume):
    """Files, tables with the digests of their rows, schemas and settings, as a set of lines."""
    lines = {f"{path} is there" for path in volume.files()}
    databases = volume.databases()
    for start in range(0, len(databases), WHOLE_COMMAND_LINE):
        output = subprocess.run([TOOL, *databases[start:start + WHOLE_COMMAND_LINE]], check=True, capture_output=True,
                                encoding="utf-8", errors="surrogateescape").stdout
        lines.update(line_without_layout(line[len(volume.package) + 1:]) for line in output.splitlines())
    return lines


def line_without_layout(line):
    """How a statement was broken into lines stays in the schema, and means nothing."""
    path, name, text = line.split("\t", 2)
    if text.startswith("CREATE "):
        text = re.sub(r"\s*([(),;=])\s*", r"\1", re.sub(r"\s+", " ", text))
    return f"{path}\t{name}\t{text}"


def rows_in(contents):
    return sum(int(count) for line in contents for count in re.findall(r"\t(\d+) rows\t", line))


def differences(one, lines, other, others_lines, most=10):
    """The first lines that only one of them has."""
    return [f"{name} only: {line}" for name, own in ((one, lines - others_lines), (other, others_lines - lines))
            for line in sorted(own)[:most]]
