"""Every sample layer's shapes, printed by `quillet shp records --format
geojson`, are the geometries GDAL reads from the same layer: the same types,
parts and rings, and the same coordinates. Layers GDAL cannot open are
named and left out."""

import glob
import json
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


layers = 0
for path in sorted(glob.glob(os.path.join(samples, "*.shp"))):
    name = os.path.basename(path)
    try:
        theirs = I.gdal_geometries(ogr, path)
    except RuntimeError as error:
        print("GDAL cannot read %s (%s): left out" % (name, error))
        continue
    result = I.run(tool, "shp", "records", "--format", "geojson", path)
    ours = [json.loads(line) for line in result.stdout.splitlines()]
    layers += 1
    c.check(result.returncode == 0, "%s: %s" % (name, result.stderr.strip()))
    c.check(len(ours) == len(theirs), "%s: %d shapes, GDAL %d" % (name, len(ours), len(theirs)))
    for n, (a, b) in enumerate(zip(ours, theirs), 1):
        c.check(I.same_json(a, b), "%s record %d: %s, GDAL %s" % (name, n, json.dumps(a)[:160],
                                                          json.dumps(b)[:160]))
c.check(layers > 0, "no sample layer was compared")
c.finish("%d layers compared with GDAL" % layers)
