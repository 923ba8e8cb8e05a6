"""Tables through the module: typed values written and read back (also by
dbfread, an independent reader), schema changes, packing, and the library's
failures as quillet.Error with status and path."""

import datetime
import math
import os
import struct
import threading
import unittest
import warnings

import quillet
from support import TempDirTest

FIELDS = [("NAME", "C", 12, 0), ("COUNT", "N", 9, 0), ("VALUE", "N", 12, 3),
          ("RATIO", "F", 10, 4), ("SEEN", "D", 8, 0), ("OPEN", "L", 1, 0)]
ROWS = [
    ("Zürich", 42, 1.5, 0.25, datetime.date(2020, 2, 29), True),
    ("", -7, -1234.125, None, None, False),
    (None, None, None, 3.5, datetime.date(1901, 12, 31), None),
]


class TableTest(TempDirTest):
    def make(self, rows=ROWS):
        path = self.path("t.dbf")
        with quillet.Table.create(path, FIELDS, code_page="UTF-8") as table:
            for row in rows:
                table.append(row)
        return path

    def test_values_read_back_typed(self):
        path = self.make()
        with quillet.Table(path) as table:
            self.assertEqual([f[0] for f in table.fields], [f[0] for f in FIELDS])
            self.assertEqual(table.code_page["code_page_name"], "UTF-8")
            got = list(table.records(as_tuples=True))
        # Blank text reads as None, as every blank field does.
        expected = [tuple(None if v == "" else v for v in row) for row in ROWS]
        self.assertEqual(got, expected)
        self.assertIsInstance(got[0][1], int)
        self.assertIsInstance(got[0][2], float)

    def test_dbfread_reads_what_the_module_wrote(self):
        try:
            import dbfread
        except ImportError:
            self.skipTest("dbfread is not installed")
        path = self.make()
        theirs = list(dbfread.DBF(path, encoding="utf-8"))
        with quillet.Table(path) as table:
            ours = list(table)
        for mine, their in zip(ours, theirs):
            for name, value in mine.items():
                other = their[name]
                self.assertEqual(value, None if other == "" else other, name)

    def test_update_delete_pack(self):
        path = self.make()
        with quillet.Table(path, "r+") as table:
            table.update(1, {"NAME": "second"})
            table.delete(0)
            self.assertTrue(table.is_deleted(0))
            self.assertIsNone(table.record(0))
            table.pack()
            self.assertEqual(len(table), 2)
            self.assertEqual(table[0]["NAME"], "second")

    def test_add_and_drop_fields(self):
        path = self.make()
        with quillet.Table(path, "r+") as table:
            table.add_field("EXTRA", "N", 5, 0, value=9)
            table.add_field("NOTE", "C", 4)
            table.drop_field("VALUE")
            self.assertEqual(table.field_names,
                             ["NAME", "COUNT", "RATIO", "SEEN", "OPEN", "EXTRA", "NOTE"])
            self.assertEqual([r["EXTRA"] for r in table], [9, 9, 9])
            self.assertEqual([r["NOTE"] for r in table], [None] * 3)

    def test_text_cut_to_the_width_warns_and_is_stored(self):
        path = self.path("t.dbf")
        with quillet.Table.create(path, [("S", "C", 3)]) as table:
            with warnings.catch_warnings(record=True) as caught:
                warnings.simplefilter("always")
                table.append(["abcdef"])
            self.assertEqual(len(caught), 1)
            self.assertEqual(table[0]["S"], "abc")

    def test_threads_sharing_a_table_each_read_every_record(self):
        path = self.make(ROWS * 200)
        with quillet.Table(path) as table:
            results = [None] * 4
            def read(slot):
                results[slot] = list(table.records(as_tuples=True))
            threads = [threading.Thread(target=read, args=(i,)) for i in range(4)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            expected = list(table.records(as_tuples=True))
        self.assertEqual(len(expected), 600)
        self.assertEqual(results, [expected] * 4)

    def test_read_table_and_iteration_skip_what_another_program_marked_deleted(self):
        path = self.make()
        with open(path, "r+b") as f:
            header_length, record_length = struct.unpack("<HH", f.read(12)[8:12])
            f.seek(header_length + record_length)
            f.write(b"*")
        with quillet.Table(path) as table:
            self.assertEqual([r["COUNT"] for r in table], [42, None])
        self.assertEqual(quillet.read_table(path)["COUNT"].tolist()[0], 42)
        self.assertEqual(len(quillet.read_table(path)["COUNT"]), 2)
        # Ranges count the deleted record, so that ranges side by side read
        # every live record once.
        names = [quillet.read_table(path, ["NAME"], start=a, stop=b)["NAME"].tolist()
                 for a, b in ((0, 1), (1, 2), (2, None), (3, 9))]
        self.assertEqual(names, [["Zürich"], [], [None], []])
        with self.assertRaises(ValueError):
            quillet.read_table(path, start=-1)

    def test_read_table_matches_the_records(self):
        path = self.make()
        columns = quillet.read_table(path)
        self.assertEqual(str(columns["COUNT"].dtype), "float64")  # a blank makes it NaN
        self.assertEqual(str(columns["SEEN"].dtype), "datetime64[D]")
        self.assertEqual(columns["OPEN"].tolist(), [True, False, None])
        frame = quillet.read_table(path, columns=["count", "SEEN"], as_pandas=True)
        self.assertEqual(list(frame.columns), ["COUNT", "SEEN"])
        self.assertEqual(frame["SEEN"].iloc[0].date(), datetime.date(2020, 2, 29))
        self.assertTrue(math.isnan(frame["COUNT"].iloc[2]))

    def test_read_table_text_past_the_shared_strings(self):
        # More records than read_table keeps shared strings for, all
        # different at first, so that it stops sharing; then repeats,
        # non-ASCII text and blanks.
        names = ["n%d" % (n % 66000) for n in range(70000)]
        names[5::997] = ["Zürich %d" % n for n in range(len(names[5::997]))]
        names[7::1001] = [None] * len(names[7::1001])
        path = self.path("names.dbf")
        with quillet.Table.create(path, [("NAME", "C", 12, 0)], code_page="UTF-8") as table:
            for name in names:
                table.append((name,))
        self.assertEqual(quillet.read_table(path)["NAME"].tolist(), names)

    def test_read_table_fixed_width_text_equals_the_str_values(self):
        # Text that fills the field, ASCII and not, in a single-byte code page
        # (where the euro's byte is no code point's number) and in UTF-8; a
        # blank is "" where a str column has None.
        for code_page, width in (("ANSI", 8), ("UTF-8", 11)):
            names = ["a" * width, "Zürich€s", None, "a b", "Ærø"]
            path = self.path("fixed.dbf")
            fields = [("NAME", "C", width, 0)]
            with quillet.Table.create(path, fields, code_page=code_page) as table:
                for name in names:
                    table.append((name,))
            as_str = quillet.read_table(path)["NAME"]
            fixed = quillet.read_table(path, text="fixed")["NAME"]
            self.assertEqual(as_str.tolist(), names)
            self.assertEqual(fixed.dtype, "<U%d" % width)
            self.assertEqual(fixed.tolist(), [name or "" for name in names])
            frame = quillet.read_table(path, text="fixed", as_pandas=True)
            self.assertEqual(frame["NAME"].tolist(), fixed.tolist())
        with self.assertRaisesRegex(ValueError, "fixed"):
            quillet.read_table(path, text="bytes")


class ErrorTest(TempDirTest):
    def test_missing_file(self):
        missing = self.path("none.dbf")
        for call in (lambda: quillet.Table(missing), lambda: quillet.read_table(missing)):
            with self.assertRaises(quillet.Error) as caught:
                call()
            self.assertEqual(caught.exception.path, missing)
            self.assertEqual(caught.exception.status, 3)
            self.assertIsInstance(caught.exception, OSError)

    def test_refused_value_names_field_and_file(self):
        path = self.path("t.dbf")
        with quillet.Table.create(path, [("D", "D", 8, 0)]) as table:
            table.append([None])
            with self.assertRaises(quillet.Error) as caught:
                table.update(0, ["not a date"])
        self.assertEqual(caught.exception.path, path)
        self.assertNotEqual(caught.exception.status, 0)
        self.assertIn("D", str(caught.exception))

    def test_not_a_table_and_read_only(self):
        path = self.path("t.dbf")
        with open(path, "wb") as f:
            f.write(b"\x03")
        with self.assertRaises(quillet.Error):
            quillet.Table(path)
        made = self.path("u.dbf")
        quillet.Table.create(made, [("A", "C", 2, 0)]).close()
        with quillet.Table(made) as table, self.assertRaises(quillet.Error) as caught:
            table.pack()
        self.assertEqual(caught.exception.path, made)

    def test_truncated_table_raises_while_iterating(self):
        path = self.path("t.dbf")
        with quillet.Table.create(path, [("A", "C", 100, 0)]) as table:
            for i in range(5):
                table.append(["x" * 100])
        os.truncate(path, os.path.getsize(path) - 250)
        with quillet.Table(path) as table, self.assertRaises(quillet.Error) as caught:
            list(table)
        self.assertIn("record 3", str(caught.exception))
        with self.assertRaises(quillet.Error):
            quillet.read_table(path)


class CodePageTest(unittest.TestCase):
    def test_round_trip_and_names(self):
        for code_page, text in ((1252, "Ærø café"), ("UTF-8", "Straße ∑"), (437, "Ñandú")):
            self.assertEqual(quillet.decode(quillet.encode(text, code_page), code_page), text)
        self.assertEqual(quillet.encode("é", 1252), b"\xe9")
        self.assertEqual(quillet.code_page_info("ANSI 1252")["code_page"], 1252)
        with self.assertRaises(ValueError):
            quillet.decode(b"x", "no such code page")


if __name__ == "__main__":
    unittest.main()
