"""Tables that the module `shapefile` writes read in Quillet with the same
names, types, widths and values: in code page 1252 (no .cpg: Quillet's
default) and in UTF-8 (named by a .cpg file, as a caller of the module would
add)."""

import datetime
import os
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import interop as I  # noqa: E402

tool, _ = I.environment("dbf_write")
import shapefile  # noqa: E402

FIELDS = [("NAME", "C", 20, 0), ("COUNT", "N", 9, 0), ("PRICE", "N", 10, 2), ("RATIO", "F", 15, 4),
          ("DAY", "D", 8, 0), ("OK", "L", 1, 0)]


def records(name):
    """What the module is given, and what Quillet must read of it."""
    given = [[name, 123456, -12.5, 0.125, datetime.date(2024, 2, 29), True],
             ["plain text", -42, 1000000.25, -3.5, datetime.date(1999, 12, 31), False],
             [None] * 6]
    read = [[name, 123456, -12.5, 0.125, "2024-02-29", True],
            ["plain text", -42, 1000000.25, -3.5, "1999-12-31", False],
            [None] * 6]
    return given, [dict(zip((f[0] for f in FIELDS), row)) for row in read]


c = I.Checker()
with tempfile.TemporaryDirectory() as folder:
    for encoding, cpg, name in [("cp1252", None, "Crème"), ("utf-8", "UTF-8", "Κήπος 東")]:
        path = os.path.join(folder, "m%s.dbf" % encoding)
        given, expected = records(name)
        with open(path, "wb") as dbf:
            writer = shapefile.Writer(dbf=dbf, encoding=encoding)
            for field in FIELDS:
                writer.field(*field)
            for record in given:
                writer.record(*record)
            writer.close()
        if cpg:
            with open(path[:-4] + ".cpg", "w") as f:
                f.write(cpg)
        fields = I.quillet_fields(tool, path)
        c.check(fields == FIELDS, "%s: Quillet fields %r" % (encoding, fields))
        ours = I.quillet_records(tool, path)
        c.check(len(ours) == len(expected), "%s: Quillet reads %d records" % (encoding, len(ours)))
        for i, (record, want) in enumerate(zip(ours, expected)):
            for key, value in want.items():
                c.check(record.get(key) == value or (isinstance(value, float) and I.same_value(record.get(key), value)),
                        "%s: record %d %s: %r, wanted %r" % (encoding, i, key, record.get(key), value))
c.finish()
