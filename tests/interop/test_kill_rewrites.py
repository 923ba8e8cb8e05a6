"""A rewrite killed at any point loses nothing. Each of the tool's in-place
rewrites runs on a layer of 100,000 polygons and is killed (SIGKILL) at points
spread over its run. After each kill the next open (`quillet recover`, or
just opening the table) must leave every file of the layer byte for byte as
it was before the command or as an uninterrupted run leaves it, with no
journal nor temporary file left over. Both of those states read alike in
Quillet, dbfread and (when it is installed) GDAL."""

import os
import shutil
import signal
import struct
import subprocess
import tempfile
import time

import interop as I

tool, _ = I.environment()
import dbfread  # noqa: E402
import shapefile  # noqa: E402

try:
    from osgeo import ogr
    ogr.UseExceptions()
except ImportError:
    ogr = None
    print("NOTE: the Python module osgeo (GDAL) is not installed: its checks are skipped")

RECORDS = 100000
KILLS = 32
c = I.Checker()


def make_layer(folder):
    """Polygons with a table whose every 7th row is marked deleted, and a
    bin index."""
    base = os.path.join(folder, "layer")
    with shapefile.Writer(base, shapeType=shapefile.POLYGON) as w:
        w.field("NAME", "C", 20)
        w.field("VALUE", "N", 12, 2)
        w.field("KEEP", "L")
        for i in range(RECORDS):
            x, y = i % 400, i // 400
            w.poly([[[x, y], [x, y + 1], [x + 1, y + 1], [x + 1, y], [x, y]]])
            w.record("feature %d" % i, i * 0.25, i % 3 != 0)
    with open(base + ".dbf", "r+b") as f:
        header = f.read(12)
        header_length, record_length = struct.unpack("<HH", header[8:12])
        for i in range(0, RECORDS, 7):
            f.seek(header_length + i * record_length)
            f.write(b"*")
    I.output(tool, "sbn", "build", base + ".shp")


def snapshot(folder):
    return {name: I.read(os.path.join(folder, name)) for name in sorted(os.listdir(folder))}


def start(command, folder, scratch):
    args = [tool] + [a.replace("@", folder + "/") for a in command]
    return subprocess.Popen(args, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                            env=dict(os.environ, TMPDIR=scratch))


def readers_agree(folder, label):
    """Quillet, dbfread and GDAL see the same rows in the table."""
    table = os.path.join(folder, "layer.dbf")
    ours = I.quillet_records(tool, table)
    theirs = list(dbfread.DBF(table, encoding="latin-1"))
    c.check(len(ours) == len(theirs), "%s: Quillet reads %d rows, dbfread %d"
            % (label, len(ours), len(theirs)))
    for i in (0, len(ours) // 2, len(ours) - 1):
        if i < min(len(ours), len(theirs)):
            c.check(ours[i]["NAME"] == theirs[i]["NAME"], "%s: row %d differs" % (label, i))
    if ogr is not None:
        source = ogr.Open(os.path.join(folder, "layer.shp"))
        count = source.GetLayer(0).GetFeatureCount()
        shapes = len(shapefile.Reader(os.path.join(folder, "layer.shp")).shapes())
        c.check(count == shapes, "%s: GDAL reads %d features, pyshp %d" % (label, count, shapes))


def try_kills(name, command, base, work):
    old = snapshot(base)
    new_folder = os.path.join(work, name + "-new")
    shutil.copytree(base, new_folder)
    began = time.monotonic()
    I.output(*[tool] + [a.replace("@", new_folder + "/") for a in command])
    duration = time.monotonic() - began
    new = snapshot(new_folder)
    c.check(new != old, "%s: the command changed nothing" % name)
    readers_agree(base, name + " before")
    readers_agree(new_folder, name + " after")
    outcomes = {"old": 0, "new": 0, "rolled back": 0}
    for k in range(KILLS):
        folder = os.path.join(work, "%s-%d" % (name, k))
        scratch = folder + "-tmp"
        shutil.copytree(base, folder)
        os.mkdir(scratch)
        process = start(command, folder, scratch)
        time.sleep(duration * (k + 0.5) / KILLS)
        process.send_signal(signal.SIGKILL)
        process.wait()
        # Half the time the next open recovers, half the time `recover` does.
        table = os.path.join(folder, "layer.dbf")
        if k % 2:
            opened = I.run(tool, "dbf", "info", table)
        else:
            opened = I.run(tool, "recover", table)
        if "rolled back" in opened.stdout + opened.stderr:
            outcomes["rolled back"] += 1
        c.check(opened.returncode == 0, "%s kill %d: %s" % (name, k, opened.stderr.strip()))
        after = snapshot(folder)
        state = "old" if after == old else "new" if after == new else None
        c.check(state is not None, "%s kill %d (at %.0f ms): the files are neither the old "
                "nor the new ones: %s" % (name, k, 1000 * duration * (k + 0.5) / KILLS,
                                          sorted(after)))
        if state:
            outcomes[state] += 1
        c.check(not os.listdir(scratch), "%s kill %d left %s in TMPDIR"
                % (name, k, os.listdir(scratch)))
        shutil.rmtree(folder)
        shutil.rmtree(scratch)
    shutil.rmtree(new_folder)
    print("%s: %.0f ms, %d kills: %d old, %d new (%d rolled back by the next open)"
          % (name, duration * 1000, KILLS, outcomes["old"], outcomes["new"],
             outcomes["rolled back"]))


COMMANDS = {
    "dbf pack": ["dbf", "pack", "@layer.dbf"],
    "dbf delete": ["dbf", "delete", "@layer.dbf", "2", "500", "99999"],
    "dbf add-field": ["dbf", "add-field", "@layer.dbf", "EXTRA:C:8", "--value", "x"],
    "dbf drop-field": ["dbf", "drop-field", "@layer.dbf", "VALUE"],
    "shp pack": ["shp", "pack", "@layer.shp"],
}

with tempfile.TemporaryDirectory() as work:
    base = os.path.join(work, "base")
    os.mkdir(base)
    make_layer(base)
    for name, command in COMMANDS.items():
        try_kills(name.replace(" ", "-"), command, base, work)
c.finish("%d kills of %d rewrites" % (KILLS * len(COMMANDS), len(COMMANDS)))
