"""Tables that the module `shapefile` writes read in Quillet with the same
names, types, widths and values: in code page 1252 (no .cpg: Quillet's
default) and in UTF-8 (named by a .cpg file, as a caller of the module would
add)."""

import datetime
import os
import tempfile

import interop as I

tool, _ = I.environment()
import shapefile  # noqa: E402

FIELDS = [("NAME", "C", 20, 0), ("COUNT", "N", 9, 0), ("PRICE", "N", 10, 2), ("RATIO", "F", 15, 4),
          ("DAY", "D", 8, 0), ("OK", "L", 1, 0)]

c = I.Checker()
with tempfile.TemporaryDirectory() as folder:
    for encoding, cpg, name in [("cp1252", None, "Crème"), ("utf-8", "UTF-8", "Κήπος 東")]:
        path = os.path.join(folder, "m%s.dbf" % encoding)
        given = [[name, 123456, -12.5, 0.125, datetime.date(2024, 2, 29), True],
                 ["plain text", -42, 1000000.25, -3.5, datetime.date(1999, 12, 31), False], [None] * 6]
        with open(path, "wb") as dbf:
            writer = shapefile.Writer(dbf=dbf, encoding=encoding)
            for field in FIELDS:
                writer.field(*field)
            for record in given:
                writer.record(*record)
            writer.close()
        if cpg:
            I.write(path[:-4] + ".cpg", cpg)
        fields = I.quillet_fields(tool, path)
        c.check(fields == FIELDS, "%s: Quillet fields %r" % (encoding, fields))
        ours = I.quillet_records(tool, path)
        c.check(len(ours) == len(given), "%s: Quillet reads %d records" % (encoding, len(ours)))
        for i, (record, row) in enumerate(zip(ours, given)):
            for (key, _, _, _), value in zip(FIELDS, row):
                want = value.isoformat() if isinstance(value, datetime.date) else value
                got = record.get(key)
                c.check(got == want or (isinstance(want, float) and I.same_value(got, want)),
                        "%s: record %d %s: %r, wanted %r" % (encoding, i, key, got, want))
c.finish()
