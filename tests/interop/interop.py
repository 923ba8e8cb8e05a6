"""Shared by the interop scripts: the tool and a helper program (or a skip),
running them, the shared sample folders, whole files read and written, a
checker that gathers failures into the exit code, and the records and fields
Quillet reads from a table, compared with what a Python module reads."""

import datetime
import json
import math
import os
import subprocess
import sys


def skip(reason):
    print("SKIP: " + reason)
    sys.exit(77)


def environment():
    """The tool and the helper program, or skip when they or the Python
    modules are missing."""
    tool, helpers = os.environ.get("QUILLET_TOOL"), os.environ.get("QUILLET_INTEROP_BIN")
    if not tool or not os.path.exists(tool):
        skip("QUILLET_TOOL is not set to the built tool (run through ctest)")
    helper = os.path.join(helpers or "", "helper")
    if not os.path.exists(helper):
        skip("QUILLET_INTEROP_BIN does not hold the helper program")
    try:
        import dbfread  # noqa: F401
        import shapefile  # noqa: F401
    except ImportError as error:
        skip("Python module missing: %s" % error)
    return tool, helper


def shared_data(name="peer-samples"):
    """A folder of ../shared/data, or a skip when it is absent."""
    folder = os.path.join(os.environ.get("QUILLET_SHARED_DIR", ""), "data", name)
    if not os.path.isdir(folder):
        skip("no %s in %s" % (name, folder))
    return folder


def read(path):
    with open(path, "rb") as f:
        return f.read()


def write(path, data):
    """Writes bytes, or text as UTF-8."""
    with open(path, "wb") as f:
        f.write(data if isinstance(data, bytes) else data.encode("utf-8"))


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


def _renamed(name):
    """A clashing name grown by what its last character calls for, kept to
    ten characters."""
    last = name[-1]
    if last == "9":
        digits = len(name) - len(name.rstrip("0123456789"))
        add = str(int(name[-digits:]) + 1)
        return name[:9 - len(add)] + "_" + add
    if "0" <= last <= "8" or last == "_":
        return name[:9] + ("1" if last == "_" else chr(ord(last) + 1))
    return name[:8] + "_1"


def cleaned_names(names):
    """Field names as a table reader that keeps names unique shows them:
    trimmed, and renamed while they equal (ignoring case) a reserved name or
    a name before them."""
    out = []
    for name in (n.strip() for n in names):
        while name and (name.upper() in ("OID", "FID", "SHAPE") or name.upper() in (o.upper() for o in out)):
            name = _renamed(name)
        out.append(name)
    return out


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


def gdal_geometries(ogr, path):
    """Each feature's geometry as GDAL reads it, as a GeoJSON object (None
    for a null shape); a multipatch as the multipolygon GDAL makes of it."""
    geometries = []
    source = ogr.Open(path)  # the layer lives as long as its source
    for feature in source.GetLayer(0):
        geometry = feature.GetGeometryRef()
        if geometry is not None and geometry.GetGeometryType() in (
                ogr.wkbTIN, ogr.wkbTINZ, ogr.wkbTINM, ogr.wkbTINZM):
            geometry = ogr.ForceToMultiPolygon(geometry)
        geometries.append(json.loads(geometry.ExportToJson()) if geometry else None)
    return geometries


def same_json(ours, theirs):
    """Equal, numbers to 15 significant digits (GDAL prints no more)."""
    if isinstance(ours, float) or isinstance(theirs, float):
        return (not isinstance(ours, (bool, str, type(None))) and
                not isinstance(theirs, (bool, str, type(None))) and
                math.isclose(ours, theirs, rel_tol=1e-14, abs_tol=1e-300))
    if isinstance(ours, list) and isinstance(theirs, list):
        return len(ours) == len(theirs) and all(same_json(a, b) for a, b in zip(ours, theirs))
    if isinstance(ours, dict) and isinstance(theirs, dict):
        return ours.keys() == theirs.keys() and all(same_json(ours[k], theirs[k]) for k in ours)
    return ours == theirs


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
