"""Every sample layer's shapes, printed by `quillet shp records --format
geojson`, are the geometries GDAL reads from the same layer: the same types,
parts and rings, and the same coordinates. Layers GDAL cannot open are
named and left out."""

import glob
import json
import math
import os

import interop as I

tool, _ = I.environment()
try:
    from osgeo import ogr
    ogr.UseExceptions()
except ImportError:
    I.skip("the Python module osgeo (GDAL) is not installed")

samples = I.shared_data()
c = I.Checker()


def gdal_geometries(path):
    geometries = []
    source = ogr.Open(path)  # the layer lives as long as its source
    for feature in source.GetLayer(0):
        geometry = feature.GetGeometryRef()
        if geometry is not None and geometry.GetGeometryType() in (
                ogr.wkbTIN, ogr.wkbTINZ, ogr.wkbTINM, ogr.wkbTINZM):
            geometry = ogr.ForceToMultiPolygon(geometry)  # a multipatch
        geometries.append(json.loads(geometry.ExportToJson()) if geometry else None)
    return geometries


def same(ours, theirs):
    """Equal, numbers to 15 significant digits (GDAL prints no more)."""
    if isinstance(ours, float) or isinstance(theirs, float):
        return math.isclose(ours, theirs, rel_tol=1e-14, abs_tol=1e-300)
    if isinstance(ours, list) and isinstance(theirs, list):
        return len(ours) == len(theirs) and all(same(a, b) for a, b in zip(ours, theirs))
    if isinstance(ours, dict) and isinstance(theirs, dict):
        return ours.keys() == theirs.keys() and all(same(ours[k], theirs[k]) for k in ours)
    return ours == theirs


layers = 0
for path in sorted(glob.glob(os.path.join(samples, "*.shp"))):
    name = os.path.basename(path)
    try:
        theirs = gdal_geometries(path)
    except RuntimeError as error:
        print("GDAL cannot read %s (%s): left out" % (name, error))
        continue
    result = I.run(tool, "shp", "records", "--format", "geojson", path)
    ours = [json.loads(line) for line in result.stdout.splitlines()]
    layers += 1
    c.check(result.returncode == 0, "%s: %s" % (name, result.stderr.strip()))
    c.check(len(ours) == len(theirs), "%s: %d shapes, GDAL %d" % (name, len(ours), len(theirs)))
    for n, (a, b) in enumerate(zip(ours, theirs), 1):
        c.check(same(a, b), "%s record %d: %s, GDAL %s" % (name, n, json.dumps(a)[:160],
                                                          json.dumps(b)[:160]))
c.check(layers > 0, "no sample layer was compared")
c.finish("%d layers compared with GDAL" % layers)
