"""Shape data files that Quillet writes read in the module `shapefile` with the
same geometry and bounding boxes, through the index file Quillet wrote; and for
the same records and extents, Quillet's .shp and .shx match the module's byte
for byte, except the header fields the module fills by a choice of its own
(named below)."""

import os
import struct
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import shp_records as R  # noqa: E402

tool, shpio = R.require_environment()
import shapefile  # noqa: E402

# Header fields (offset, length; the same in .shp and .shx) that the module
# fills by a choice of its own: the z range of a type without z and the m
# range of a type without m (it writes zeros). They are left out of the
# comparison for those types; every other byte must match.
Z_RANGE_OF_A_TYPE_WITHOUT_Z = (68, 16)
M_RANGE_OF_A_TYPE_WITHOUT_M = (84, 16)


def module_choices(shape_type):
    fields = []
    if not R.has_z(shape_type):
        fields.append(Z_RANGE_OF_A_TYPE_WITHOUT_Z)
    if not R.has_m(shape_type):
        fields.append(M_RANGE_OF_A_TYPE_WITHOUT_M)
    return fields


SQUARE = [(0, 0, 1, 10), (0, 4, 1, 11), (4, 4, 2, 12), (4, 0, 2, 13), (0, 0, 1, 10)]
HOLE = [(1, 1, 5, 0), (1, 3, 5, 1), (3, 3, 5, 2), (3, 1, 5, 3), (1, 1, 5, 0)]
FAR = [(10.5, -3.25, -7, 100), (12, -3.25, -8, 101), (12, -1, -9, 102), (10.5, -3.25, -7, 100)]

# name: (shape type, shapes); a shape is a list of parts of (x, y, z, m), None
# is the null shape.
CASES = {
    "points": (1, [[[(1.5, 2.5, 0, 0)]], [[(-4, 7, 0, 0)]], None, [[(3, -1, 0, 0)]]]),
    "points_z": (11, [[[(1, 2, 3, 4)]], [[(5, 6, -7, 8)]]]),
    "points_m": (21, [[[(1, 2, 0, 4)]], None, [[(5, 6, 0, -8)]]]),
    "multipoints": (8, [[[(1, 1, 0, 0), (2, 3, 0, 0), (-1, 0.5, 0, 0)]], [[(9, 9, 0, 0)]]]),
    "multipoints_z": (18, [[[(1, 1, 2, 3), (2, 3, 4, 5)]], None]),
    "multipoints_m": (28, [[[(1, 1, 0, 3), (2, 3, 0, 5)]]]),
    "polylines": (3, [[[(0, 0, 0, 0), (3, 4, 0, 0)], [(5, 5, 0, 0), (6, 7, 0, 0), (8, 1, 0, 0)]], None]),
    "polylines_z": (13, [[[(0, 0, 1, 2), (3, 4, 5, 6)]], [[(1, 1, 1, 1), (2, 2, 2, 2)]]]),
    "polylines_m": (23, [[[(0, 0, 0, 2), (3, 4, 0, 6)], [(7, 7, 0, 1), (8, 8, 0, 9)]]]),
    "polygons": (5, [[SQUARE, HOLE], None, [FAR]]),
    "polygons_z": (15, [[SQUARE], [HOLE, FAR]]),
    "polygons_m": (25, [[FAR], None]),
}

failures = []


def check(condition, message):
    if not condition:
        failures.append(message)


def points_of(shapes):
    return [p for shape in shapes if shape for part in shape for p in part]


def extents(shape_type, shapes):
    """x/y extent and z and m ranges over every point; 0, 0 for a measure the
    type does not have."""
    points = points_of(shapes)
    box = [min(p[0] for p in points), min(p[1] for p in points),
           max(p[0] for p in points), max(p[1] for p in points)]
    z = [min(p[2] for p in points), max(p[2] for p in points)] if R.has_z(shape_type) else [0.0, 0.0]
    m = [min(p[3] for p in points), max(p[3] for p in points)] if R.has_m(shape_type) else [0.0, 0.0]
    return box, z, m


def write_with_quillet(path, shape_type, shapes):
    box, z, m = extents(shape_type, shapes)
    spec = struct.pack("<i8di", shape_type, *box, *z, *m, len(shapes))
    for shape in shapes:
        content = R.encode(shape_type, shape) if shape else b""
        spec += struct.pack("<i", len(content)) + content
    spec_path = path + ".spec"
    with open(spec_path, "wb") as f:
        f.write(spec)
    result = R.run(shpio, "write", path, spec_path)
    if result.returncode != 0:
        raise RuntimeError(path + ": " + result.stderr)


def write_with_module(path, shape_type, shapes):
    with open(path, "wb") as shp, open(path[:-4] + ".shx", "wb") as shx:
        writer = shapefile.Writer(shp=shp, shx=shx, shapeType=shape_type)
        for shape in shapes:
            if not shape:
                writer.null()
                continue
            xy = [[[p[0], p[1]] for p in part] for part in shape]
            xym = [[[p[0], p[1], p[3]] for p in part] for part in shape]
            xyzm = [[list(p) for p in part] for part in shape]
            kind = shape_type % 10
            if shape_type in R.POINT_TYPES:
                x, y, z, m = shape[0][0]
                {1: lambda: writer.point(x, y), 11: lambda: writer.pointz(x, y, z, m),
                 21: lambda: writer.pointm(x, y, m)}[shape_type]()
            elif kind == 8:
                {8: writer.multipoint, 18: writer.multipointz, 28: writer.multipointm}[shape_type](
                    {8: xy, 18: xyzm, 28: xym}[shape_type][0])
            else:
                method = {3: writer.line, 13: writer.linez, 23: writer.linem,
                          5: writer.poly, 15: writer.polyz, 25: writer.polym}[shape_type]
                method({3: xy, 5: xy, 13: xyzm, 15: xyzm, 23: xym, 25: xym}[shape_type])
        writer.close()


def masked(data, shape_type):
    data = bytearray(data)
    for offset, length in module_choices(shape_type):
        data[offset:offset + length] = b"\0" * length
    return bytes(data)


def first_difference(a, b):
    for i, (x, y) in enumerate(zip(a, b)):
        if x != y:
            return i
    return min(len(a), len(b))


def check_read_back(name, path, shape_type, shapes):
    with open(path, "rb") as f, open(path[:-4] + ".shx", "rb") as g:
        reader = shapefile.Reader(shp=f, shx=g)
        box, _, _ = extents(shape_type, shapes)
        check(reader.shapeType == shape_type, name + ": shape type")
        check(len(reader) == len(shapes), name + ": record count")
        check(list(reader.bbox) == box, name + ": extent")
        for i, shape in enumerate(shapes):
            theirs = reader.shape(i)
            where = "%s record %d" % (name, i + 1)
            if not shape:
                check(theirs.shapeType == 0, where + ": not a null shape")
                continue
            points = [p for part in shape for p in part]
            check(theirs.shapeType == shape_type, where + ": shape type")
            check([tuple(p) for p in theirs.points] == [(p[0], p[1]) for p in points], where + ": points")
            if shape_type not in R.POINT_TYPES:
                xs, ys = [p[0] for p in points], [p[1] for p in points]
                check(list(theirs.bbox) == [min(xs), min(ys), max(xs), max(ys)], where + ": bbox")
            if shape_type not in R.POINT_TYPES | R.MULTIPOINT_TYPES:
                firsts = [sum(len(part) for part in shape[:k]) for k in range(len(shape))]
                check(list(theirs.parts) == firsts, where + ": parts")
            if R.has_z(shape_type):
                check(list(theirs.z) == [p[2] for p in points], where + ": z")
            if R.has_m(shape_type):
                check(list(theirs.m) == [p[3] for p in points], where + ": m")


with tempfile.TemporaryDirectory() as folder:
    for name, (shape_type, shapes) in CASES.items():
        ours = os.path.join(folder, name + ".shp")
        module = os.path.join(folder, name + "_module.shp")
        write_with_quillet(ours, shape_type, shapes)
        check_read_back(name, ours, shape_type, shapes)
        write_with_module(module, shape_type, shapes)
        for extension in (".shp", ".shx"):
            with open(ours[:-4] + extension, "rb") as f:
                a = masked(f.read(), shape_type)
            with open(module[:-4] + extension, "rb") as f:
                b = masked(f.read(), shape_type)
            check(a == b, "%s%s: differs from the module's file at byte %d (sizes %d, %d)"
                  % (name, extension, first_difference(a, b), len(a), len(b)))

for failure in failures:
    print("FAIL: " + failure)
print("%d cases, %d failures" % (len(CASES), len(failures)))
sys.exit(1 if failures else 0)
