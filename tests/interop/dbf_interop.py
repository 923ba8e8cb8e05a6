"""Shared by the dBASE interop scripts: finding the tool and the helper, the
records Quillet reads (through `quillet dbf dump --format jsonl`), and the
comparison of one value as Quillet and a Python module read it."""

import datetime
import json
import os
import subprocess
import sys

SKIP = 77


def skip(reason):
    print("SKIP: " + reason)
    sys.exit(SKIP)


def require_environment():
    tool = os.environ.get("QUILLET_TOOL")
    helpers = os.environ.get("QUILLET_INTEROP_BIN")
    if not tool or not os.path.exists(tool):
        skip("QUILLET_TOOL is not set to the built tool")
    if not helpers or not os.path.exists(os.path.join(helpers, "dbf_write")):
        skip("QUILLET_INTEROP_BIN does not hold dbf_write")
    try:
        import dbfread  # noqa: F401
        import shapefile  # noqa: F401
    except ImportError as error:
        skip("Python module missing: %s" % error)
    return tool, os.path.join(helpers, "dbf_write")


def run(args, stdin=None):
    result = subprocess.run(args, input=stdin, capture_output=True, text=True)
    if result.returncode != 0:
        raise RuntimeError("%s failed: %s" % (" ".join(args), result.stderr.strip()))
    return result.stdout


def quillet_records(tool, path):
    out = run([tool, "dbf", "dump", path, "--format", "jsonl"])
    return [json.loads(line) for line in out.splitlines() if line]


def quillet_fields(tool, path):
    return json.loads(run([tool, "dbf", "info", path, "--json"]))["fields"]


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

    def finish(self):
        for failure in self.failures[:50]:
            print("FAIL: " + failure)
        if self.failures:
            print("%d failures" % len(self.failures))
            sys.exit(1)
        print("ok")
