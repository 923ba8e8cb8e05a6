"""Shape data files that Quillet writes read in the module `shapefile` with the
same geometry and bounding boxes, through the index file Quillet wrote; and for
the same records and extents, Quillet's .shp and .shx match the module's byte
for byte, except the header fields the module fills by a choice of its own
(see `masked`)."""

import os
import tempfile

import interop as I
import shp_records as R

tool, helper = I.environment()
import shapefile  # noqa: E402

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

c = I.Checker()


def extents(shape_type, shapes):
    """x/y extent and z and m ranges over every point; 0, 0 for a measure the
    type does not have."""
    points = [p for shape in shapes if shape for part in shape for p in part]
    low, high = [min(p[k] for p in points) for k in range(4)], [max(p[k] for p in points) for k in range(4)]
    return (low[:2] + high[:2], [low[2], high[2]] if R.has_z(shape_type) else [0.0, 0.0],
            [low[3], high[3]] if R.has_m(shape_type) else [0.0, 0.0])


def write_with_quillet(path, shape_type, shapes):
    box, z, m = extents(shape_type, shapes)
    records = "".join((R.encode(shape_type, shape).hex() if shape else "") + "\n" for shape in shapes)
    I.output(helper, "shp-write", path, str(shape_type), *("%.17g" % v for v in box + z + m), stdin=records)


def write_with_module(path, shape_type, shapes):
    method = {1: "point", 11: "pointz", 21: "pointm", 8: "multipoint", 18: "multipointz", 28: "multipointm",
              3: "line", 13: "linez", 23: "linem", 5: "poly", 15: "polyz", 25: "polym"}[shape_type]
    with open(path, "wb") as shp, open(path[:-4] + ".shx", "wb") as shx:
        writer = shapefile.Writer(shp=shp, shx=shx, shapeType=shape_type)
        for shape in shapes:
            if not shape:
                writer.null()
                continue
            # Each method takes x, y, then z and m, m alone, or neither.
            extra = [2, 3] if R.has_z(shape_type) else [3] if R.has_m(shape_type) else []
            parts = [[[p[0], p[1]] + [p[k] for k in extra] for p in part] for part in shape]
            if shape_type in R.POINT_TYPES:
                getattr(writer, method)(*parts[0][0])
            else:
                getattr(writer, method)(parts[0] if shape_type in R.MULTIPOINT_TYPES else parts)
        writer.close()


def masked(data, shape_type):
    """`data` without the header fields the module fills by a choice of its
    own (the same in .shp and .shx): the z range, bytes 68-83, of a type
    without z and the m range, bytes 84-99, of a type without m (it writes
    zeros). Every other byte must match."""
    data = bytearray(data)
    if not R.has_z(shape_type):
        data[68:84] = bytes(16)
    if not R.has_m(shape_type):
        data[84:100] = bytes(16)
    return bytes(data)


def first_difference(a, b):
    return next((i for i, (x, y) in enumerate(zip(a, b)) if x != y), min(len(a), len(b)))


def check_read_back(name, path, shape_type, shapes):
    with open(path, "rb") as f, open(path[:-4] + ".shx", "rb") as g:
        reader = shapefile.Reader(shp=f, shx=g)
        c.check(reader.shapeType == shape_type, name + ": shape type")
        c.check(len(reader) == len(shapes), name + ": record count")
        c.check(list(reader.bbox) == extents(shape_type, shapes)[0], name + ": extent")
        for i, shape in enumerate(shapes):
            R.compare(c, "%s record %d" % (name, i + 1), R.encode(shape_type, shape), reader.shape(i))


with tempfile.TemporaryDirectory() as folder:
    for name, (shape_type, shapes) in CASES.items():
        ours = os.path.join(folder, name + ".shp")
        module = os.path.join(folder, name + "_module.shp")
        write_with_quillet(ours, shape_type, shapes)
        check_read_back(name, ours, shape_type, shapes)
        write_with_module(module, shape_type, shapes)
        for extension in (".shp", ".shx"):
            a, b = (masked(I.read(path[:-4] + extension), shape_type) for path in (ours, module))
            c.check(a == b, "%s%s: differs from the module's file at byte %d (sizes %d, %d)"
                    % (name, extension, first_difference(a, b), len(a), len(b)))

c.finish("%d cases" % len(CASES))
