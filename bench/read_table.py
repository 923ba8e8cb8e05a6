"""quillet.read_table against the Python readers of other programs, on one
generated table of 1,000,000 records read by all of them in this run: the
seconds each takes for the same four columns (text, integer, decimal, date)
and how many times faster read_table is. A reader that is not installed is
skipped with a line that says so. Targets: 10 times dbfread and pyshp, 2
times GDAL (the faster of its Arrow stream and its feature loop).

The text column repeats 5,000 names; with --distinct every record has a name
of its own, so that no reader can share one string object among records.
With --text fixed, read_table gives text as a fixed-width unicode array, as
GDAL's Arrow stream gives it fixed-width bytes: no str object per value."""

import argparse
import datetime
import os
import struct
import sys
import tempfile
import time

RECORDS = int(os.environ.get("QUILLET_BENCH_RECORDS", "1000000"))
FIELDS = [(b"NAME", b"C", 20, 0), (b"COUNT", b"N", 10, 0), (b"VALUE", b"N", 15, 4),
          (b"SEEN", b"D", 8, 0)]
COLUMNS = ["NAME", "COUNT", "VALUE", "SEEN"]


def write_table(path, distinct):
    """A dBASE III table in code page 1252 (language driver 0x57), written
    here byte by byte so that no reader under test makes it."""
    record_length = 1 + sum(f[2] for f in FIELDS)
    header_length = 32 + 32 * len(FIELDS) + 1
    with open(path, "wb") as f:
        f.write(struct.pack("<BBBBIHH16sB B2s", 3, 124, 1, 1, RECORDS, header_length,
                            record_length, b"", 0, 0x57, b""))
        for name, kind, width, decimals in FIELDS:
            f.write(struct.pack("<11sc4sBB14s", name, kind, b"", width, decimals, b""))
        f.write(b"\r")
        day = datetime.date(1990, 1, 1)
        names = RECORDS if distinct else 5000
        rows = []
        for n in range(RECORDS):
            seen = (day + datetime.timedelta(days=n % 10000)).strftime("%Y%m%d").encode()
            rows.append(b" %-20s%10d%15.4f%s" % (b"name %d" % (n % names), n * 7 - 3000000,
                                                  (n % 100000) / 7.0, seen))
            if len(rows) == 65536:
                f.write(b"".join(rows))
                rows = []
        f.write(b"".join(rows) + b"\x1a")


def best_of(runs, read):
    best = None
    for _ in range(runs):
        start = time.perf_counter()
        read()
        elapsed = time.perf_counter() - start
        best = elapsed if best is None else min(best, elapsed)
    return best


def read_quillet(path, text):
    import quillet
    return lambda: quillet.read_table(path, columns=COLUMNS, text=text)


def read_dbfread(path):
    import dbfread
    return lambda: [tuple(r[c] for c in COLUMNS) for r in dbfread.DBF(path, encoding="cp1252")]


def read_pyshp(path):
    import shapefile
    def read():
        with open(path, "rb") as dbf:
            reader = shapefile.Reader(dbf=dbf, encoding="cp1252")
            return list(reader.iterRecords(fields=COLUMNS))
    return read


def read_gdal_arrow(path):
    from osgeo import ogr
    ogr.UseExceptions()
    def read():
        source = ogr.Open(path)
        layer = source.GetLayer(0)
        stream = layer.GetArrowStreamAsNumPy(options=["INCLUDE_FID=NO"])
        rows = sum(len(batch["COUNT"]) for batch in stream)
        # GDAL crashes when the data source goes before the stream.
        del stream
        return rows
    return read


def read_gdal_loop(path):
    from osgeo import ogr
    ogr.UseExceptions()
    def read():
        source = ogr.Open(path)  # the layer dies with its data source
        layer = source.GetLayer(0)
        return [(f.GetField(0), f.GetField(1), f.GetField(2), f.GetField(3)) for f in layer]
    return read


PEERS = [("dbfread", [read_dbfread], 10), ("pyshp", [read_pyshp], 10),
         ("GDAL", [read_gdal_arrow, read_gdal_loop], 2)]


def peer_seconds(path, readers):
    """The fastest of a peer's ways, or None with the reason it cannot run."""
    times = []
    for reader in readers:
        try:
            read = reader(path)
            times.append((best_of(1, read), reader.__name__))
        except (ImportError, AttributeError) as error:
            print("   %s: skipped (%s)" % (reader.__name__, error))
    return min(times) if times else None


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--distinct", action="store_true",
                        help="a different name in every record (default: 5,000 names repeated)")
    parser.add_argument("--text", choices=["object", "fixed"], default="object",
                        help="read_table's text: str objects (default) or a fixed-width array")
    arguments = parser.parse_args()
    distinct = arguments.distinct
    try:
        import numpy  # noqa: F401
        import quillet  # noqa: F401
    except ImportError as error:
        print("read_table: skipped, %s" % error)
        return 0
    with tempfile.TemporaryDirectory(prefix="quillet-bench-") as folder:
        path = os.path.join(folder, "bench.dbf")
        write_table(path, distinct)
        ours = best_of(3, read_quillet(path, arguments.text))
        print("read_table, %d records, columns %s, %s names, text %s" %
              (RECORDS, ",".join(COLUMNS), "all different" if distinct else "5000",
               arguments.text))
        print("   quillet.read_table   %8.3f s" % ours)
        failed = 0
        for name, readers, target in PEERS:
            result = peer_seconds(path, readers)
            if result is None:
                print("   %-20s skipped: not installed" % name)
                continue
            seconds, how = result
            ratio = seconds / ours
            met = ratio >= target
            failed += not met
            print("   %-20s %8.3f s  (%s)  read_table is %.1fx faster; target %dx %s" %
                  (name, seconds, how, ratio, target, "met" if met else "MISSED"))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
