"""Every sample layer, printed by `quillet shp dump --format geojson`, is the
layer GDAL writes as GeoJSON: the same features, each with the coordinates
and parts GDAL reads and every attribute as `ogr2ogr -f GeoJSON` writes it.
The GeoJSON lines and the GeoJSON document hold the same features. Layers
GDAL cannot open are named and left out."""

import glob
import json
import os

import interop as I

tool, _ = I.environment()
try:
    from osgeo import gdal, ogr
    ogr.UseExceptions()
    gdal.UseExceptions()
except ImportError:
    I.skip("the Python module osgeo (GDAL) is not installed")

samples = I.shared_data()
c = I.Checker()


def gdal_open_options(path):
    """GDAL reads a table that names no code page as bytes; it is then told
    the code page Quillet chose, so that the text is compared and not the
    choice (which the code page tests check)."""
    source = ogr.Open(path)  # the layer lives as long as its source
    if source.GetLayer(0).GetMetadataItem("SOURCE_ENCODING", "SHAPEFILE") or not os.path.exists(
            path[:-4] + ".dbf"):
        return []
    table = json.loads(I.output(tool, "dbf", "info", "--json", path[:-4] + ".dbf"))
    return ["-oo", "ENCODING=CP%d" % table["code_page"]]


def gdal_properties(path):
    written = I.output("ogr2ogr", *gdal_open_options(path), "-f", "GeoJSON", "/vsistdout/", path)
    return [feature["properties"] for feature in json.loads(written)["features"]]


layers = 0
for path in sorted(glob.glob(os.path.join(samples, "*.shp"))):
    name = os.path.basename(path)
    try:
        geometries = I.gdal_geometries(ogr, path)
        properties = gdal_properties(path)
    except RuntimeError as error:
        print("GDAL cannot read %s (%s): left out" % (name, error))
        continue
    result = I.run(tool, "shp", "dump", path)
    c.check(result.returncode == 0, "%s: %s" % (name, result.stderr.strip()))
    ours = json.loads(result.stdout)["features"]
    layers += 1
    c.check(len(ours) == len(geometries), "%s: %d features, GDAL %d" % (
        name, len(ours), len(geometries)))
    for n, (feature, geometry, values) in enumerate(zip(ours, geometries, properties), 1):
        c.check(I.same_json(feature["geometry"], geometry), "%s feature %d: %s, GDAL %s" % (
            name, n, json.dumps(feature["geometry"])[:160], json.dumps(geometry)[:160]))
        c.check(I.same_json(feature["properties"], values), "%s feature %d: %s, GDAL %s" % (
            name, n, feature["properties"], values))
    lines = I.run(tool, "shp", "dump", "--format", "geojsonseq", path).stdout.splitlines()
    c.check([json.loads(line) for line in lines] == ours, "%s: the GeoJSON lines differ" % name)
c.check(layers > 0, "no sample layer was compared")
c.finish("%d layers compared with GDAL" % layers)
