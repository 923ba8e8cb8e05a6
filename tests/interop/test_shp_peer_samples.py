"""Every shape data file among the peer samples reads through ShpFile as the
module `shapefile` reads it: record count, shape type, extents, and each
record's content. A data file without its index file fails with a clear
message."""

import glob
import json
import os
import struct
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import shp_records as R  # noqa: E402

tool, shpio = R.require_environment()
import shapefile  # noqa: E402

samples = os.path.join(os.environ.get("QUILLET_SHARED_DIR", ""), "data", "peer-samples")
if not os.path.isdir(samples):
    R.skip("no peer samples at " + samples)

failures = []


def check(condition, message):
    if not condition:
        failures.append(message)


def raw_records(shp, shx):
    """Record contents cut out of the files by their index, read here without
    any library: {number: bytes}."""
    with open(shp, "rb") as f:
        data = f.read()
    with open(shx, "rb") as f:
        index = f.read()
    stated = struct.unpack(">i", index[24:28])[0] * 2
    count = (min(stated, len(index)) - 100) // 8
    out = {}
    for n in range(count):
        offset, length = struct.unpack(">ii", index[100 + 8 * n:108 + 8 * n])
        out[n + 1] = data[offset * 2 + 8:offset * 2 + 8 + length * 2]
    return out


def compare_shape(where, ours, theirs):
    shape = R.decode(ours)
    check(shape["shapeType"] == theirs.shapeType, where + ": shape type")
    check(shape["points"] == [tuple(p) for p in theirs.points], where + ": points")
    check(shape["parts"] == list(theirs.parts), where + ": parts")
    if shape["bbox"] is not None:
        check(shape["bbox"] == list(theirs.bbox), where + ": bbox")
    for key in ("z", "m"):
        theirs_values = getattr(theirs, key, None)
        if theirs_values is None or len(theirs_values) == 0:
            continue
        # A record may end before its optional measures: all of them "no data".
        ours_values = shape[key] if shape[key] is not None else [None] * len(shape["points"])
        check(ours_values == list(theirs_values), where + ": " + key)
    if theirs.shapeType == R.MULTIPATCH:
        check(shape["partTypes"] == list(theirs.partTypes), where + ": part types")


checked = 0
for shp in sorted(glob.glob(os.path.join(samples, "*.shp"))):
    name = os.path.basename(shp)
    shx = shp[:-4] + ".shx"
    if not os.path.exists(shx):
        result = R.run(tool, "shp", "info", shp)
        check(result.returncode == 1 and "index file" in result.stderr,
              name + ": a data file without its index file must fail clearly: " + result.stderr)
        continue
    with open(shp, "rb") as f, open(shx, "rb") as g:
        reader = shapefile.Reader(shp=f, shx=g)
        count = len(reader)
        # Through the index, as ShpFile reads them (not the file's sequence).
        theirs = [reader.shape(i) for i in range(count)]
        header, records = R.dump(shpio, shp)
        check(header["type"] == reader.shapeType, name + ": shape type")
        check(header["count"] == count, name + ": %d records, module %d" % (header["count"], count))
        check(header["bbox"] == list(reader.bbox), name + ": extent")
        check(header["version"] == 1000, name + ": version")
        for i, axis in enumerate(("zbox", "mbox")):
            for ours, theirs_value in zip(header[axis], getattr(reader, axis)):
                check(R.same_measure(ours, theirs_value), name + ": " + axis)
    info = json.loads(R.run(tool, "shp", "info", shp, "--json").stdout)
    check(info["records"] == count and info["shape_type"] == header["type"]
          and info["extent"] == header["bbox"] and info["byte_order"] == "big",
          name + ": shp info disagrees")
    raw = raw_records(shp, shx)
    for n, shape in enumerate(theirs, start=1):
        ours = records.get(n)
        where = "%s record %d" % (name, n)
        if ours is None:
            failures.append(where + ": not readable through ShpFile")
            continue
        check(ours == raw[n], where + ": bytes differ from the file's")
        compare_shape(where, ours, shape)
    checked += 1

check(checked >= 10, "only %d samples checked" % checked)
for failure in failures:
    print("FAIL: " + failure)
print("%d shape data files checked, %d failures" % (checked, len(failures)))
sys.exit(1 if failures else 0)
