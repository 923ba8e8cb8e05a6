"""How other programs read what Quillet writes: each finding the README lists
under "How other programs read what Quillet writes", pinned on both sides, so
that a change in Quillet or in the peer shows here. A peer that is missing
skips its case."""

import json
import os
import shutil
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from interop import Checker, output, skip  # noqa: E402

tool = os.environ.get("QUILLET_TOOL")
if not tool or not os.path.exists(tool):
    skip("QUILLET_TOOL is not set to the built tool (run through ctest)")
try:
    import shapefile
except ImportError:
    skip("pyshp (python3-pyshp) is missing: it writes the layers")
try:
    from osgeo import gdal, ogr
    gdal.UseExceptions()
except ImportError:
    gdal = ogr = None
try:
    import dbfread
except ImportError:
    dbfread = None

checker = Checker()


def gdal_ids(path, box):
    """Record numbers (1-based) GDAL returns for a spatial filter."""
    source = ogr.Open(path)
    layer = source.GetLayer(0)
    layer.SetSpatialFilterRect(*box)
    return sorted(feature.GetFID() + 1 for feature in layer)


def bin_index_misses(folder):
    """GDAL's .sbn reader leaves out features whose bin only touches the
    window; Quillet's query finds them all, and without the .sbn GDAL does."""
    if ogr is None:
        return print("SKIP bin index: python3-gdal is missing")
    path = os.path.join(folder, "grid.shp")
    points = [(float(i), float(j)) for i in range(100) for j in range(100)]
    with shapefile.Writer(path, shapeType=shapefile.POINT) as layer:
        layer.field("ID", "N", 10)
        for n, (x, y) in enumerate(points):
            layer.point(x, y)
            layer.record(n + 1)
    output(tool, "sbn", "build", path)
    windows = [((0.37 + 1.93 * k) % 97, (0.59 + 3.71 * k) % 97) for k in range(60)]
    windows = [(x, y, x + 1.5, y + 1.5) for x, y in windows]
    truth = {box: [n + 1 for n, (x, y) in enumerate(points)
                   if box[0] <= x <= box[2] and box[1] <= y <= box[3]] for box in windows}
    missed = 0
    for box in windows:
        text = ",".join(repr(v) for v in box)
        candidates = {int(n) for n in output(tool, "sbn", "query", path, "--bbox", text).split()}
        checker.check(set(truth[box]) <= candidates, "sbn query %s lost features" % text)
        dump = output(tool, "shp", "dump", path, "--format", "geojsonseq", "--bbox", text)
        found = sorted(json.loads(line)["properties"]["ID"] for line in dump.splitlines())
        checker.check(found == truth[box], "shp dump --bbox %s: %s, not %s" % (text, found, truth[box]))
        ids = gdal_ids(path, box)
        checker.check(set(ids) <= set(truth[box]), "GDAL found features outside %s" % text)
        missed += len(set(truth[box]) - set(ids))
    print("GDAL through the .sbn missed %d features in %d windows" % (missed, len(windows)))
    checker.check(missed > 0, "GDAL's .sbn reader missed nothing: "
                  "the finding no longer holds, update the README")
    for ext in (".sbn", ".sbx"):  # the workaround: hide the index from GDAL
        os.rename(path[:-4] + ext, path[:-4] + ext + ".off")
    for box in windows:
        checker.check(gdal_ids(path, box) == truth[box], "GDAL without the .sbn, at %s" % (box,))


def zero_filled_column(folder):
    """dbfread refuses a number column of zero bytes (what the library's
    AddColumns leaves in existing records); Quillet reads it as null, and the
    tool's add-field, which fills blanks or --value, gives dbfread no trouble."""
    if dbfread is None:
        return print("SKIP added column: python3-dbfread is missing")
    path = os.path.join(folder, "added.dbf")
    with shapefile.Writer(path[:-4], shapeType=shapefile.POINT) as layer:
        layer.field("NAME", "C", 8)
        for n in range(3):
            layer.point(n, n)
            layer.record("r%d" % n)
    output(tool, "dbf", "add-field", path, "SCORE:N:6:0", "--value", "0")
    output(tool, "dbf", "add-field", path, "COUNT:N:6:0")
    rows = [(row["SCORE"], row["COUNT"]) for row in dbfread.DBF(path)]
    checker.check(rows == [(0, None)] * 3, "dbfread, columns the tool added: %s" % rows)
    data = bytearray(open(path, "rb").read())
    header, size = int.from_bytes(data[8:10], "little"), int.from_bytes(data[10:12], "little")
    for n in range(3):  # the new column is the last 6 bytes of each record
        end = header + (n + 1) * size
        data[end - 6:end] = bytes(6)
    open(path, "wb").write(data)
    try:
        list(dbfread.DBF(path))
        checker.check(False, "dbfread read a zero-filled number column: the finding no longer holds")
    except ValueError:
        pass
    dump = output(tool, "dbf", "dump", path, "--format", "jsonl")
    ours = [json.loads(line)["COUNT"] for line in dump.splitlines()]
    checker.check(ours == [None] * 3, "Quillet, zero-filled column: %s" % ours)


def oem_code_page_name(folder):
    """GDAL does not know the .cpg name "OEM 866" that Quillet writes and
    reads; its ENCODING open option, or the .cpg "866", reads the text."""
    if gdal is None:
        return print("SKIP code page name: python3-gdal is missing")
    path = os.path.join(folder, "oem.shp")
    word = "\u041f\u0440\u0438\u0432\u0435\u0442"
    with shapefile.Writer(path, shapeType=shapefile.POINT, encoding="cp866") as layer:
        layer.field("NAME", "C", 20)
        layer.point(1, 1)
        layer.record(word)
    cpg = path[:-4] + ".cpg"

    def gdal_name(*options):
        source = gdal.OpenEx(path, open_options=list(options))
        return source.GetLayer(0).GetNextFeature().GetField("NAME")

    def quillet_name():
        return json.loads(output(tool, "dbf", "dump", path[:-4] + ".dbf", "--format", "jsonl"))["NAME"]

    open(cpg, "w").write("OEM 866")
    checker.check(quillet_name() == word, "Quillet with .cpg OEM 866: %r" % quillet_name())
    checker.check(gdal_name() != word, "GDAL read .cpg OEM 866 right: the finding no longer holds")
    checker.check(gdal_name("ENCODING=CP866") == word,
                  "GDAL with ENCODING=CP866: %r" % gdal_name("ENCODING=CP866"))
    open(cpg, "w").write("866")
    checker.check(gdal_name() == word, "GDAL with .cpg 866: %r" % gdal_name())
    checker.check(quillet_name() == word, "Quillet with .cpg 866: %r" % quillet_name())


folder = tempfile.mkdtemp(prefix="quillet-readers-")
try:
    bin_index_misses(folder)
    zero_filled_column(folder)
    oem_code_page_name(folder)
finally:
    shutil.rmtree(folder, ignore_errors=True)
checker.finish("other readers")
