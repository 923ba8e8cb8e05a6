"""Shared by the shape interop scripts: the standard shape record layout
(encode and decode, independent of any reader) and the records the helper
program reads through ShpFile."""

import struct

from interop import output

NO_DATA = -1e38  # measures below this are "no data"

POINT_TYPES = {1, 11, 21}
MULTIPOINT_TYPES = {8, 18, 28}
MULTIPATCH = 31


def has_z(shape_type):
    return shape_type in (11, 13, 15, 18, 31)


def has_m(shape_type):
    return has_z(shape_type) or shape_type in (21, 23, 25, 28)


def dump(helper, path):
    """Header fields and {number: bytes} of the live records, read through ShpFile."""
    lines = output(helper, "shp-dump", path).splitlines()
    fields = lines[0].split()
    values = [float(v) for v in fields[3:11]]
    header = {"type": int(fields[1]), "count": int(fields[2]), "bbox": values[:4], "zbox": values[4:6],
              "mbox": values[6:], "version": int(fields[11])}
    records = {}
    for line in lines[1:]:
        _, number, content = line.split()
        records[int(number)] = None if content in ("deleted", "unreadable") else bytes.fromhex(content)
    return header, records


def encode(shape_type, parts):
    """A record in the standard layout. parts: list of lists of (x, y, z, m);
    None or [] is the null shape."""
    if not parts:
        return struct.pack("<i", 0)
    points = [p for part in parts for p in part]
    out = struct.pack("<i", shape_type)
    if shape_type in POINT_TYPES:
        x, y, z, m = points[0]
        values = [x, y] + [z] * has_z(shape_type) + [m] * has_m(shape_type)
        return out + struct.pack("<%dd" % len(values), *values)
    xs, ys = [p[0] for p in points], [p[1] for p in points]
    out += struct.pack("<4d", min(xs), min(ys), max(xs), max(ys))
    if shape_type in MULTIPOINT_TYPES:
        out += struct.pack("<i", len(points))
    else:
        firsts = [sum(len(part) for part in parts[:i]) for i in range(len(parts))]
        out += struct.pack("<2i%di" % len(parts), len(parts), len(points), *firsts)
    out += struct.pack("<%dd" % (2 * len(points)), *(v for p in points for v in p[:2]))
    for axis, wanted in ((2, has_z(shape_type)), (3, has_m(shape_type))):
        if wanted:
            values = [p[axis] for p in points]
            out += struct.pack("<2d", min(values), max(values))
            out += struct.pack("<%dd" % len(values), *values)
    return out


def decode(content):
    """The fields of a record in the standard layout, checked against its
    length: shapeType, bbox (None for points and nulls), parts, partTypes,
    points, z, m (None where absent; m below NO_DATA is None)."""
    def take(fmt, at):
        size = struct.calcsize(fmt)
        if at + size > len(content):
            raise ValueError("record too short for its content")
        return struct.unpack_from(fmt, content, at), at + size

    (shape_type,), at = take("<i", 0)
    shape = {"shapeType": shape_type, "bbox": None, "parts": [], "partTypes": [],
             "points": [], "z": None, "m": None}
    if shape_type == 0:
        return shape
    if shape_type in POINT_TYPES:
        (x, y), at = take("<2d", at)
        shape["points"] = [(x, y)]
        if has_z(shape_type):
            (z,), at = take("<d", at)
            shape["z"] = [z]
        if has_m(shape_type) and at < len(content):
            (m,), at = take("<d", at)
            shape["m"] = [None if m < NO_DATA else m]
        return shape
    bbox, at = take("<4d", at)
    shape["bbox"] = list(bbox)
    parts = 0
    if shape_type not in MULTIPOINT_TYPES:
        (parts,), at = take("<i", at)
    (count,), at = take("<i", at)
    if parts < 0 or count < 0 or 16 * count + 4 * parts > len(content):
        raise ValueError("part or point count beyond the record")
    if shape_type not in MULTIPOINT_TYPES:
        firsts, at = take("<%di" % parts, at)
        shape["parts"] = list(firsts)
    if shape_type == MULTIPATCH:
        kinds, at = take("<%di" % parts, at)
        shape["partTypes"] = list(kinds)
    coords, at = take("<%dd" % (2 * count), at)
    shape["points"] = [(coords[2 * i], coords[2 * i + 1]) for i in range(count)]
    if has_z(shape_type):
        _, at = take("<2d", at)
        values, at = take("<%dd" % count, at)
        shape["z"] = list(values)
    if has_m(shape_type) and at < len(content):
        _, at = take("<2d", at)
        values, at = take("<%dd" % count, at)
        shape["m"] = [None if v < NO_DATA else v for v in values]
    return shape


def same_measure(ours, theirs):
    """A header range value of ours against the module's (None: no data)."""
    if theirs is None:
        return ours < NO_DATA
    return ours == theirs


def compare(checker, where, ours, theirs):
    """Checks the record content `ours` against a shape as the module
    `shapefile` reads it."""
    shape = decode(ours)
    checker.check(shape["shapeType"] == theirs.shapeType, where + ": shape type")
    checker.check(shape["points"] == [tuple(p) for p in theirs.points], where + ": points")
    checker.check(shape["parts"] == list(theirs.parts), where + ": parts")
    if shape["bbox"] is not None:
        checker.check(shape["bbox"] == list(theirs.bbox), where + ": bbox")
    for key in ("z", "m"):
        theirs_values = getattr(theirs, key, None)
        if theirs_values is None or len(theirs_values) == 0:
            continue
        # A record may end before its optional measures: all of them "no data".
        ours_values = shape[key] if shape[key] is not None else [None] * len(shape["points"])
        checker.check(ours_values == list(theirs_values), where + ": " + key)
    if theirs.shapeType == MULTIPATCH:
        checker.check(shape["partTypes"] == list(theirs.partTypes), where + ": part types")
