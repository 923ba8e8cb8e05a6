"""Every shape data file among the peer samples reads through ShpFile as the
module `shapefile` reads it: record count, shape type, extents, and each
record's content. A data file without its index file fails with a clear
message."""

import glob
import json
import os
import struct

import interop as I
import shp_records as R

tool, helper = I.environment()
import shapefile  # noqa: E402

c = I.Checker()


def raw_records(shp, shx):
    """Record contents cut out of the files by their index, read here without
    any library: {number: bytes}."""
    data, index = I.read(shp), I.read(shx)
    count = (min(struct.unpack(">i", index[24:28])[0] * 2, len(index)) - 100) // 8
    out = {}
    for n in range(count):
        offset, length = struct.unpack(">ii", index[100 + 8 * n:108 + 8 * n])
        out[n + 1] = data[offset * 2 + 8:offset * 2 + 8 + length * 2]
    return out


checked = 0
for shp in sorted(glob.glob(os.path.join(I.shared_data(), "*.shp"))):
    name, shx = os.path.basename(shp), shp[:-4] + ".shx"
    if not os.path.exists(shx):
        result = I.run(tool, "shp", "info", shp)
        c.check(result.returncode == 1 and "index file" in result.stderr,
                name + ": a data file without its index file must fail clearly: " + result.stderr)
        continue
    with open(shp, "rb") as f, open(shx, "rb") as g:
        reader = shapefile.Reader(shp=f, shx=g)
        count = len(reader)
        # Through the index, as ShpFile reads them (not the file's sequence).
        theirs = [reader.shape(i) for i in range(count)]
        header, records = R.dump(helper, shp)
        c.check(header["type"] == reader.shapeType, name + ": shape type")
        c.check(header["count"] == count, name + ": %d records, module %d" % (header["count"], count))
        c.check(header["bbox"] == list(reader.bbox), name + ": extent")
        c.check(header["version"] == 1000, name + ": version")
        for axis in ("zbox", "mbox"):
            for ours, theirs_value in zip(header[axis], getattr(reader, axis)):
                c.check(R.same_measure(ours, theirs_value), name + ": " + axis)
    info = json.loads(I.output(tool, "shp", "info", shp, "--json"))
    c.check(info["records"] == count and info["shape_type"] == header["type"]
            and info["extent"] == header["bbox"] and info["byte_order"] == "big", name + ": shp info disagrees")
    raw = raw_records(shp, shx)
    for n, shape in enumerate(theirs, start=1):
        ours, where = records.get(n), "%s record %d" % (name, n)
        c.check(ours is not None, where + ": not readable through ShpFile")
        if ours is not None:
            c.check(ours == raw[n], where + ": bytes differ from the file's")
            R.compare(c, where, ours, shape)
    checked += 1

c.check(checked >= 10, "only %d samples checked" % checked)
c.finish("%d shape data files checked" % checked)
