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


def peer_samples():
    folder = os.path.join(os.environ.get("QUILLET_SHARED_DIR", ""), "data", "peer-samples")
    if not os.path.isdir(folder):
        skip("no peer samples in " + folder)
    return folder


def run(*args, stdin=None):
    return subprocess.run(list(args), input=stdin, capture_output=True, text=True)


def output(*args, stdin=None):
    """What the program prints; an exception when it fails."""
    result = run(*args, stdin=stdin)
    if result.returncode != 0:
        raise RuntimeError("%s failed: %s" % (" ".join(args), result.stderr.strip()))
    return result.stdout


def quillet_records(tool, path):
    return [json.loads(line) for line in output(tool, "dbf", "dump", path, "--format", "jsonl").splitlines() if line]


def quillet_fields(tool, path):
    fields = json.loads(output(tool, "dbf", "info", path, "--json"))["fields"]
    return [(f["name"], f["type"], f["width"], f["decimals"]) for f in fields]


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
