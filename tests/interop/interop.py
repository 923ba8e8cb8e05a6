"""Shared by the interop scripts: the tool and a helper program (or a skip),
running them, the peer samples, a checker that gathers failures into the
exit code, and the records and fields Quillet reads from a table, compared
with what a Python module reads."""

import datetime
import json
import os
import subprocess
import sys

SKIP = 77


def skip(reason):
    print("SKIP: " + reason)
    sys.exit(SKIP)


def environment(helper):
    """The tool and the helper program named `helper`, or skip when they or
    the Python modules are missing."""
    tool = os.environ.get("QUILLET_TOOL")
    helpers = os.environ.get("QUILLET_INTEROP_BIN")
    if not tool or not os.path.exists(tool):
        skip("QUILLET_TOOL is not set to the built tool (run through ctest)")
    if not helpers or not os.path.exists(os.path.join(helpers, helper)):
        skip("QUILLET_INTEROP_BIN does not hold " + helper)
    try:
        import dbfread  # noqa: F401
        import shapefile  # noqa: F401
    except ImportError as error:
        skip("Python module missing: %s" % error)
    return tool, os.path.join(helpers, helper)


def shared_data(name):
    """A folder of ../shared/data, or a skip when it is absent."""
    folder = os.path.join(os.environ.get("QUILLET_SHARED_DIR", ""), "data", name)
    if not os.path.isdir(folder):
        skip("no %s in %s" % (name, folder))
    return folder


def peer_samples():
    return shared_data("peer-samples")


def run(*args, stdin=None, env=None):
    return subprocess.run(list(args), input=stdin, capture_output=True, text=True,
                          env=None if env is None else dict(os.environ, **env))


def output(*args, stdin=None, env=None):
    """What the program prints; an exception when it fails."""
    result = run(*args, stdin=stdin, env=env)
    if result.returncode != 0:
        raise RuntimeError("%s failed: %s" % (" ".join(args), result.stderr.strip()))
    return result.stdout


def quillet_records(tool, path, env=None):
    dump = output(tool, "dbf", "dump", path, "--format", "jsonl", env=env)
    return [json.loads(line) for line in dump.splitlines() if line]


def quillet_fields(tool, path):
    fields = json.loads(output(tool, "dbf", "info", path, "--json"))["fields"]
    return [(f["name"], f["type"], f["width"], f["decimals"]) for f in fields]


RESERVED_NAMES = ("OID", "FID", "SHAPE")


def names_agree(ours, theirs):
    """Whether Quillet's field names are the names a reader that keeps them as
    stored shows, trimmed, but for a name equal (ignoring case) to a reserved
    name or to a name before it, which Quillet renames to one that clashes
    with neither. How exactly it renames is the unit tests' part."""
    taken = set(RESERVED_NAMES)
    for mine, name in zip(ours, theirs):
        name = name.strip()
        if (mine and mine.upper() in taken) or (name.upper() not in taken and mine != name):
            return False
        taken.add(mine.upper())
    return len(ours) == len(theirs)


def same_value(ours, theirs):
    """Whether a value from Quillet's JSON and one from dbfread or shapefile
    are the same field value."""
    if isinstance(theirs, bytes):
        theirs = theirs.decode("latin-1")
    if isinstance(theirs, str):
        return (ours or "").rstrip(" \0") == theirs.rstrip(" \0")
    if isinstance(theirs, bool) or theirs is None:
        return ours == theirs or (ours is None and theirs == "")
    if isinstance(theirs, (int, float)):
        if ours is None or isinstance(ours, bool):
            return False
        return abs(float(ours) - float(theirs)) <= 1e-9 * max(1.0, abs(float(theirs)))
    if isinstance(theirs, datetime.date):
        return ours == theirs.isoformat()
    return False


class Checker:
    def __init__(self):
        self.failures = []

    def check(self, condition, message):
        if not condition:
            self.failures.append(message)

    def finish(self, summary="ok"):
        for failure in self.failures[:50]:
            print("FAIL: " + failure)
        print("%s, %d failures" % (summary, len(self.failures)))
        sys.exit(1 if self.failures else 0)
