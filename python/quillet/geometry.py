"""Decoded shape records (quillet.decode_shape) as GeoJSON-like geometry
dicts, as the `__geo_interface__` of other Python GIS packages gives them:
coordinates are x, y and, for the Z types, z (GeoJSON has no m). A polyline
of one part is a LineString; a polygon's clockwise rings are outer rings and
each counterclockwise ring a hole of the smallest outer ring that holds its
first point; a multipatch is the polygons of its rings and the triangles of
its strips and fans, always a MultiPolygon. A null shape is None."""

from typing import Optional

SHAPE_TYPE_NAMES = {
    0: "Null", 1: "Point", 3: "Polyline", 5: "Polygon", 8: "Multipoint",
    11: "PointZ", 13: "PolylineZ", 15: "PolygonZ", 18: "MultipointZ",
    21: "PointM", 23: "PolylineM", 25: "PolygonM", 28: "MultipointM", 31: "MultiPatch",
}

_STRIP, _FAN, _OUTER, _INNER, _FIRST, _RING = range(6)


def _coordinates(shape):
    z = shape["z"]
    if z is None:
        return [tuple(p) for p in shape["points"]]
    return [(x, y, zv) for (x, y), zv in zip(shape["points"], z)]


def _paths(shape, coords):
    starts = shape["parts"]
    ends = starts[1:] + [len(coords)]
    return [coords[a:b] for a, b in zip(starts, ends)]


def _signed_area(ring):
    """Twice the area; negative for a clockwise ring."""
    return sum(a[0] * b[1] - b[0] * a[1] for a, b in zip(ring, ring[1:]))


def _contains(ring, point):
    inside = False
    x, y = point[0], point[1]
    for (ax, ay, *_), (bx, by, *_) in zip(ring, ring[-1:] + ring[:-1]):
        if (ay > y) != (by > y) and x < (bx - ax) * (y - ay) / (by - ay) + ax:
            inside = not inside
    return inside


def _group_rings(rings):
    polygons, holes = [], []
    for ring in filter(None, rings):
        if _signed_area(ring) <= 0 or not polygons:
            polygons.append([ring])
        else:
            holes.append(ring)
    for hole in holes:
        holders = [p for p in polygons if _contains(p[0], hole[0])]
        best = min(holders, key=lambda p: abs(_signed_area(p[0])), default=polygons[-1])
        best.append(hole)
    return polygons


def _patch_polygons(shape, parts):
    polygons = []
    for part, kind in zip(parts, shape["part_types"]):
        if kind in (_STRIP, _FAN):
            for t in range(2, len(part)):
                a = part[0] if kind == _FAN else part[t - 2]
                polygons.append([[a, part[t - 1], part[t], a]])
        elif kind in (_INNER, _RING) and polygons:
            polygons[-1].append(part)
        else:
            polygons.append([part])
    return polygons


def _polygons(polygons, multi=False):
    if len(polygons) == 1 and not multi:
        return {"type": "Polygon", "coordinates": polygons[0]}
    return {"type": "MultiPolygon", "coordinates": polygons}


def to_geojson(shape: dict) -> Optional[dict]:
    """The geometry of a decoded shape record; None for a null shape."""
    kind = shape["type"] % 10 if shape["type"] != 31 else 31
    coords = _coordinates(shape)
    if shape["type"] == 0:
        return None
    if kind == 1:
        return {"type": "Point", "coordinates": coords[0]}
    if kind == 8:
        return {"type": "MultiPoint", "coordinates": coords}
    parts = _paths(shape, coords)
    if kind == 3:
        if len(parts) == 1:
            return {"type": "LineString", "coordinates": parts[0]}
        return {"type": "MultiLineString", "coordinates": parts}
    if kind == 5:
        return _polygons(_group_rings(parts))
    # A multipatch is a collection of surfaces, however few.
    return _polygons(_patch_polygons(shape, parts), multi=True)
