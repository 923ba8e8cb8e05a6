"""Every table in the shared peer samples opens in Quillet, and every field of
every record reads as the module `dbfread` reads it (in the code page Quillet
chooses: the header's language driver, else the .cpg file, else code page
1252, the default), with the same field types and widths. Field names are
compared through the renaming of reserved and duplicate names, which Quillet
applies and dbfread does not."""

import os

import interop as I

tool, _ = I.environment()
import dbfread  # noqa: E402

samples = I.shared_data()
c = I.Checker()
tables = sorted(name for name in os.listdir(samples) if name.lower().endswith(".dbf"))
c.check(tables, "no tables among the peer samples")
for name in tables:
    path = os.path.join(samples, name)
    ldid, cpg = I.read(path)[29], os.path.splitext(path)[0] + ".cpg"
    if ldid == 0 and os.path.exists(cpg):
        encoding = I.read(cpg).decode().strip().replace("ANSI ", "cp")
    else:
        encoding = {0x57: "cp1252", 0x1B: "cp437", 0: "cp1252"}.get(ldid)
    if encoding is None:
        c.check(False, "%s: language driver %d not covered by this test" % (name, ldid))
        continue
    try:
        ours = I.quillet_records(tool, path)
    except RuntimeError as error:
        c.check(False, "%s: %s" % (name, error))
        continue
    table = dbfread.DBF(path, encoding=encoding)
    fields = I.quillet_fields(tool, path)
    names = [field[0] for field in fields]
    cleaned = I.cleaned_names(table.field_names)
    c.check(names == cleaned, "%s: fields %s, dbfread's cleaned %s" % (name, names, cleaned))
    kinds = [(f.type, f.length, f.decimal_count) for f in table.fields]
    c.check([field[1:] for field in fields] == kinds, "%s: fields %r, dbfread %r" % (name, fields, kinds))
    theirs = list(table)
    c.check(len(ours) == len(theirs), "%s: %d records, dbfread %d" % (name, len(ours), len(theirs)))
    for i, (mine, record) in enumerate(zip(ours, theirs)):
        for field, value in zip(names, record.values()):
            c.check(I.same_value(mine.get(field), value),
                    "%s record %d %s: %r, dbfread %r" % (name, i, field, mine.get(field), value))

c.finish("%d tables checked" % len(tables))
