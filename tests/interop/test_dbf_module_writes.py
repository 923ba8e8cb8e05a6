"""Tables that the module `shapefile` writes read in Quillet with the same
names, types, widths and values: in code page 1252 (no .cpg: Quillet's
default) and in UTF-8 (named by a .cpg file, as a caller of the module would
add)."""

import datetime
import os
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import dbf_interop as I  # noqa: E402

tool, _ = I.require_environment()
import shapefile  # noqa: E402

FIELDS = [("NAME", "C", 20, 0), ("COUNT", "N", 9, 0), ("PRICE", "N", 10, 2), ("RATIO", "F", 15, 4),
          ("DAY", "D", 8, 0), ("OK", "L", 1, 0)]
RECORDS = [
    ["Crème", 123456, -12.5, 0.125, datetime.date(2024, 2, 29), True],
    ["plain text", -42, 1000000.25, -3.5, datetime.date(1999, 12, 31), False],
    [None, None, None, None, None, None],
]
EXPECTED = [
    {"NAME": "Crème", "COUNT": 123456, "PRICE": -12.5, "RATIO": 0.125, "DAY": "2024-02-29", "OK": True},
    {"NAME": "plain text", "COUNT": -42, "PRICE": 1000000.25, "RATIO": -3.5, "DAY": "1999-12-31", "OK": False},
    {"NAME": None, "COUNT": None, "PRICE": None, "RATIO": None, "DAY": None, "OK": None},
]

c = I.Checker()

with tempfile.TemporaryDirectory() as folder:
    for encoding, cpg, name in [("cp1252", None, "Crème"), ("utf-8", "UTF-8", "Κήπος 東")]:
        path = os.path.join(folder, "m%s.dbf" % encoding)
        with open(path, "wb") as dbf:
            writer = shapefile.Writer(dbf=dbf, encoding=encoding)
            for field in FIELDS:
                writer.field(*field)
            for record in RECORDS:
                record = list(record)
                if record[0] == "Crème":
                    record[0] = name
                writer.record(*record)
            writer.close()
        if cpg:
            with open(path[:-4] + ".cpg", "w") as f:
                f.write(cpg)
        label = encoding
        fields = [(f["name"], f["type"], f["width"], f["decimals"]) for f in I.quillet_fields(tool, path)]
        c.check(fields == FIELDS, "%s: Quillet fields %r" % (label, fields))
        records = I.quillet_records(tool, path)
        c.check(len(records) == len(EXPECTED), "%s: Quillet reads %d records" % (label, len(records)))
        for i, (ours, want) in enumerate(zip(records, EXPECTED)):
            want = dict(want)
            if want["NAME"] == "Crème":
                want["NAME"] = name
            for key, value in want.items():
                c.check(ours.get(key) == value or (isinstance(value, float) and I.same_value(ours.get(key), value)),
                        "%s: record %d %s: %r, wanted %r" % (label, i, key, ours.get(key), value))

c.finish()
