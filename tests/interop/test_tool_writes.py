"""What the tool's writing commands leave reads the same in other programs.
Every sample layer copied by `quillet shp copy` reads, shape by shape and
field by field, as the original in `shapefile`, `dbfread` and (when it is
installed) GDAL. Each copy then takes `dbf add-field`, whose new fields
read as blanks or the value given, and `dbf delete`, whose shapes and rows
lose the same features; and a table made by `dbf import-csv` reads as its
CSV file."""

import datetime
import glob
import os
import tempfile

import interop as I

tool, _ = I.environment()
import dbfread  # noqa: E402
import shapefile  # noqa: E402

try:
    from osgeo import gdal, ogr
    gdal.UseExceptions()
except ImportError:
    ogr = None
    print("NOTE: the Python module osgeo (GDAL) is not installed: its checks are skipped")

samples = I.shared_data()
c = I.Checker()


def dbfread_rows(path):
    # Latin-1 maps every byte, so that rows compare whatever the code page.
    return [dict(row) for row in dbfread.DBF(path, encoding="latin-1")]


def pyshp_features(shp):
    with shapefile.Reader(shp) as reader:
        return [(shape.shapeType, shape.points, list(shape.parts)) for shape in reader.shapes()]


def gdal_features(path):
    """Each feature's fields and geometry as GDAL reads them, or None without GDAL."""
    if ogr is None:
        return None
    source = ogr.Open(path)  # the layer goes with its source
    return [(feature.items(), feature.GetGeometryRef() and feature.GetGeometryRef().ExportToIsoWkt())
            for feature in source.GetLayer(0)]


def same_everywhere(label, source, copy, table=True):
    """The copy of a layer reads as the source in every reader."""
    c.check(pyshp_features(copy) == pyshp_features(source), label + ": shapefile reads other shapes")
    if table:
        source_table, copy_table = source[:-4] + ".dbf", copy[:-4] + ".dbf"
        c.check(dbfread_rows(copy_table) == dbfread_rows(source_table), label + ": dbfread reads other rows")
    c.check(gdal_features(copy) == gdal_features(source), label + ": GDAL reads other features")


def check_add_field(name, shp):
    """The new fields read as blank and as the value given; every other value
    as before. The library's rewrite may rename fields (reserved or clashing
    names) and set the language driver byte, which the tool reports: values
    are compared by position, and GDAL, which decodes text by that byte, only
    on the new fields."""
    table = shp[:-4] + ".dbf"
    before, count = dbfread_rows(table), len(gdal_features(shp) or [])
    I.output(tool, "dbf", "add-field", table, "BLANK:N:8:2")
    I.output(tool, "dbf", "add-field", table, "TAG:C:5", "--value", "hi")
    after = dbfread_rows(table)
    wanted = [list(row.values()) + [None, "hi"] for row in before]
    c.check([list(row.values()) for row in after] == wanted and all(list(row)[-2:] == ["BLANK", "TAG"] for row in after),
            "%s add-field: dbfread reads %r" % (name, after[:1]))
    if ogr is not None:
        added = [(items["BLANK"], items["TAG"]) for items, _ in gdal_features(shp)]
        c.check(added == [(None, "hi")] * count, "%s add-field: GDAL reads %r" % (name, added[:1]))


def check_delete(name, shp):
    table = shp[:-4] + ".dbf"
    shapes, rows = pyshp_features(shp), dbfread_rows(table)
    I.output(tool, "dbf", "delete", table, "2", "4")
    kept = [n for n in range(len(rows)) if n not in (1, 3)]
    c.check(dbfread_rows(table) == [rows[n] for n in kept], name + " delete: dbfread reads other rows")
    c.check(pyshp_features(shp) == [shapes[n] for n in kept], name + " delete: shapefile reads other shapes")
    if ogr is not None:
        c.check(len(gdal_features(shp)) == len(kept), name + " delete: GDAL reads another count")


with tempfile.TemporaryDirectory() as folder:
    copied = 0
    layers = sorted(p for p in glob.glob(os.path.join(samples, "*.shp")) if os.path.exists(p[:-4] + ".shx"))
    for source in layers:
        name = os.path.basename(source)
        target = os.path.join(folder, name)
        result = I.run(tool, "shp", "copy", source, target)
        c.check(result.returncode == 0, "%s: shp copy failed: %s" % (name, result.stderr.strip()))
        if result.returncode != 0:
            continue
        copied += 1
        with_table = os.path.exists(source[:-4] + ".dbf")
        same_everywhere(name, source, target, with_table)
        # The copy, which reads as the sample, takes the other writing commands.
        if with_table:
            check_add_field(name, target)
        if with_table and len(dbfread_rows(target[:-4] + ".dbf")) >= 4:
            check_delete(name, target)
    c.check(copied == len(layers) and copied > 0, "copied %d of %d sample layers" % (copied, len(layers)))

    csv_path = os.path.join(folder, "rows.csv")
    I.write(csv_path, 'NAME,COUNT,DAY,OK\n"Zürich, Stadt",12,2024-02-29,T\n,,,\nCafé,-7,1999-12-31,F\n')
    imported = os.path.join(folder, "imported.dbf")
    I.output(tool, "dbf", "import-csv", csv_path, imported, "--schema", "NAME:C:16,COUNT:N:5,DAY:D:8,OK:L:1",
             "--codepage", "1252")
    wanted = [{"NAME": "Zürich, Stadt", "COUNT": 12, "DAY": datetime.date(2024, 2, 29), "OK": True},
              {"NAME": "", "COUNT": None, "DAY": None, "OK": None},
              {"NAME": "Café", "COUNT": -7, "DAY": datetime.date(1999, 12, 31), "OK": False}]
    got = [dict(row) for row in dbfread.DBF(imported, encoding="cp1252")]
    c.check(got == wanted, "import-csv: dbfread reads %r" % got)
    if ogr is not None:
        names = [items["NAME"] for items, _ in gdal_features(imported)]
        c.check(names == ["Zürich, Stadt", None, "Café"], "import-csv: GDAL reads names %r" % names)

c.finish("%d sample layers copied" % copied)
