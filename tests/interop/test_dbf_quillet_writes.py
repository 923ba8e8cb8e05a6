"""Tables that Quillet writes (every field type; code page 1252 named by the
header byte, 437, and UTF-8 named by a .cpg file; deleted records compacted
away; added and dropped columns) read back in the modules `dbfread` and
`shapefile` with the same names, types, widths and values; and the tool's
pack, delete and info do what they say."""

import json
import os
import tempfile

import interop as I

tool, helper = I.environment()
import dbfread  # noqa: E402
import shapefile  # noqa: E402

SCHEMA = "NAME:C:20,COUNT:N:9,PRICE:N:10:2,RATIO:F:13:3,SMALL:N:4,DAY:D:8,OK:L:1"
FIELDS = [("NAME", "C", 20, 0), ("COUNT", "N", 9, 0), ("PRICE", "N", 10, 2), ("RATIO", "F", 13, 3),
          ("SMALL", "N", 4, 0), ("DAY", "D", 8, 0), ("OK", "L", 1, 0)]

# (code page argument, kind for the helper, Python encoding, header byte, .cpg text, text to store)
CODE_PAGES = [
    ("1252", "ansi", "cp1252", 0x57, None, "Crème brûlée €5"),
    ("437", "oem", "cp437", 0x1B, None, "Smörgåsbord ½"),
    ("UTF-8", "utf8", "utf-8", 0, "UTF-8", "Κήπος 東 €"),
]

c = I.Checker()


def rows_for(text):
    """The rows written (the third is deleted before the table closes) and
    the records that must read back."""
    given = [[text, "123456", "-12.5", "0.125", "7", "20240229", "T"],
             ["second", "-42", "1000000.25", "-3.5e+10", "-99", "19991231", "F"],
             ["gone", "1", "1", "1", "1", "20000101", "T"], [""] * 7]
    read = [[text, 123456, -12.5, 0.125, 7, "2024-02-29", True],
            ["second", -42, 1000000.25, -3.5e10, -99, "1999-12-31", False], [None] * 7]
    return given, [dict(zip((f[0] for f in FIELDS), row)) for row in read]


def compare_with_modules(path, encoding, fields, expected, label):
    table = dbfread.DBF(path, encoding=encoding, char_decode_errors="strict")
    c.check(not list(table.deleted), "%s: dbfread sees deleted records" % label)
    with open(path, "rb") as dbf:
        reader = shapefile.Reader(dbf=dbf, encoding=encoding)
        readers = {
            "dbfread": ([(f.name, f.type, f.length, f.decimal_count) for f in table.fields],
                        [list(record.values()) for record in table]),
            "shapefile": ([tuple(f) for f in reader.fields[1:]], [list(record) for record in reader.records()]),
        }
    for module, (names, records) in readers.items():
        where = "%s: %s" % (label, module)
        c.check(names == fields, "%s fields %r" % (where, names))
        c.check(len(records) == len(expected), "%s reads %d records" % (where, len(records)))
        for i, (record, want) in enumerate(zip(records, expected)):
            for (name, _, _, _), value in zip(fields, record):
                c.check(I.same_value(want[name], value),
                        "%s record %d %s: %r, wanted %r" % (where, i, name, value, want[name]))


with tempfile.TemporaryDirectory() as folder:
    for argument, kind, encoding, ldid, cpg, text in CODE_PAGES:
        label = "code page " + argument
        path = os.path.join(folder, "t%s.dbf" % kind)
        rows, expected = rows_for(text)
        stdin = "".join("\t".join(row) + "\n" for row in rows) + "DELETE 2\n"
        I.output(helper, "dbf-create", path, kind, SCHEMA, stdin=stdin)
        c.check(I.read(path)[29] == ldid, "%s: language driver byte %d" % (label, I.read(path)[29]))
        cpg_path = path[:-4] + ".cpg"
        c.check(I.read(cpg_path) == cpg.encode() if cpg else not os.path.exists(cpg_path), label + ": .cpg")
        compare_with_modules(path, encoding, FIELDS, expected, label)

        # The same rows through the tool's CSV import (text setters throughout).
        csv_path, imported = os.path.join(folder, "rows.csv"), os.path.join(folder, "i%s.dbf" % kind)
        lines = [",".join(f[0] for f in FIELDS)]
        for r in (rows[0], rows[1], rows[3]):
            day = r[5] and "%s-%s-%s" % (r[5][:4], r[5][4:6], r[5][6:])
            lines.append(",".join(['"%s"' % r[0] if r[0] else ""] + r[1:5] + [day, r[6]]))
        I.write(csv_path, "\n".join(lines) + "\n")
        I.output(tool, "dbf", "import-csv", csv_path, imported, "--schema", SCHEMA, "--codepage", argument)
        compare_with_modules(imported, encoding, FIELDS, expected, label + " (import-csv)")

    # Columns added to and dropped from a table with records.
    path = os.path.join(folder, "tansi.dbf")
    I.output(tool, "dbf", "add-field", path, "EXTRA:N:8:1", "--value", "-1.5")
    I.output(tool, "dbf", "drop-field", path, "PRICE")
    fields = [f for f in FIELDS if f[0] != "PRICE"] + [("EXTRA", "N", 8, 1)]
    expected = rows_for(CODE_PAGES[0][5])[1]
    for record in expected:
        del record["PRICE"]
        record["EXTRA"] = -1.5
    compare_with_modules(path, "cp1252", fields, expected, "added and dropped columns")

    # Records marked deleted by another program are packed away; records
    # deleted through the tool are gone when it returns.
    data = bytearray(I.read(path))
    data[int.from_bytes(data[8:10], "little")] = ord("*")
    I.write(path, bytes(data))
    c.check(len(dbfread.DBF(path, encoding="cp1252").deleted) == 1, "pack: the mark did not take")
    I.output(tool, "dbf", "pack", path)
    table = dbfread.DBF(path, encoding="cp1252")
    c.check(len(list(table)) == 2 and not list(table.deleted), "pack left %r" % list(table))
    I.output(tool, "dbf", "delete", path, "1")
    names = [record["NAME"] for record in dbfread.DBF(path, encoding="cp1252")]
    c.check(names == [""], "delete left %r" % names)

    info = json.loads(I.output(tool, "dbf", "info", path, "--json"))
    c.check(list(info) == ["version", "date", "records", "records_in_file", "header_length", "record_length",
                           "ldid", "code_page", "code_page_kind", "code_page_name", "fields", "indexes"],
            "info keys %r" % list(info))
    c.check((info["code_page"], info["code_page_kind"], info["code_page_name"]) == (1252, "ANSI", "ANSI 1252"),
            "info code page %r" % info)
    c.check(info["records"] == 1 and info["records_in_file"] == 1 and info["ldid"] == 0x57,
            "info counts %r" % info)

c.finish()
