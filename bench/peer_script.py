"""Makes the scripts that the sqlite3 shell runs for an edge, from the templates in peer/. A template is SQL with
these lines in between:

  @each view | volume | renamed-volume | view-of-renamed-volume
                        what follows, up to the next such line, is repeated for each of them
  @once                 what follows stands there once
  @attach, @detach      the named databases
  @version BRANCH ...   writes the version that the edge leads to into the named databases
  @index TABLE ...      an index for each of the columns
  @include NAME         another template
  @early, @late         the rest of the line counts only when indexes are made before, or after, the rows
"""

import glob
import os
import string

PEER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "peer")


def read_templates():
    """All of them at once: the machine of the measurements may cover the folder that they lie in."""
    templates = {}
    for path in glob.glob(os.path.join(PEER, "*.sql")):
        with open(path, encoding="utf-8") as file:
            templates[os.path.basename(path)[:-len(".sql")]] = file.read().splitlines()
    return templates


TEMPLATES = read_templates()


def attach(name):
    return f"ATTACH DATABASE '${name}' AS {name}_db;"


def detach(name):
    return f"DETACH DATABASE {name}_db;"


def write_version(branch, *names):
    return ("BEGIN TRANSACTION;\n" +
            "".join(f"UPDATE {name}_db.config_table SET value = $to WHERE key = 'version';\n" for name in names) +
            "".join(f"INSERT OR REPLACE INTO {name}_db.config_table (key, value) VALUES ('branch', '{branch}');\n"
                    for name in names) + "END TRANSACTION;")


def make_indexes(table, *columns):
    schema, name = table.split(".")
    return "\n".join(f"CREATE INDEX IF NOT EXISTS {schema}.{name}_{column}_index ON {name}({column});"
                     for column in columns)


DIRECTIVES = {
    "@attach": lambda *names: "\n".join(map(attach, names)),
    "@detach": lambda *names: "\n".join(map(detach, names)),
    "@version": write_version,
    "@index": make_indexes,
}


def lines_of(name, indexes):
    for line in TEMPLATES[name]:
        word, _, rest = line.partition(" ")
        if word in ("@early", "@late"):
            if word[1:] != indexes:
                continue
            line = rest
            word, _, rest = line.partition(" ")
        if word == "@include":
            yield from lines_of(rest, indexes)
        else:
            yield DIRECTIVES[word](*rest.split()) if word in DIRECTIVES else line


def expand(edge, names, repeated, indexes):
    """The script of an edge. `repeated` has a list of names for each word that can follow @each."""
    script, section, subjects = [], [], [{}]

    def close():
        template = string.Template("\n".join(section))
        script.extend(template.substitute(names, **more) for more in subjects)
        section.clear()

    for line in lines_of(edge, indexes):
        word, _, rest = line.partition(" ")
        if word in ("@each", "@once"):
            close()
            subjects = repeated[rest] if word == "@each" else [{}]
        else:
            section.append(line)
    close()
    return "\n".join(script) + "\n"
