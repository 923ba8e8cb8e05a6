"""Column indexes through the module: what a search finds is what a filter
over the records finds, for each kind of field and operator."""

import datetime
import random
import unittest

import quillet
from support import TempDirTest

FIELDS = [("NAME", "C", 8, 0), ("COUNT", "N", 6, 0), ("SEEN", "D", 8, 0)]


class ColumnIndexTest(TempDirTest):
    def test_searches_match_a_filter_of_the_records(self):
        rng = random.Random(3)
        path = self.path("t.dbf")
        with quillet.Table.create(path, FIELDS) as table:
            for _ in range(300):
                table.append([rng.choice(["ash", "birch", "cedar", "elm"]), rng.randrange(-50, 50),
                              datetime.date(2000, 1, 1) + datetime.timedelta(days=rng.randrange(60))])
            table.delete(5)
        with quillet.Table(path) as table:
            records = [(n, table.record(n)) for n in range(len(table))]
            records = [(n, r) for n, r in records if r is not None]
        d1, d2 = datetime.date(2000, 1, 10), datetime.date(2000, 2, 1)
        cases = [
            ("NAME", "=", ("elm",), lambda v: v == "elm"),
            ("NAME", "like", ("c%",), lambda v: v.startswith("c")),
            ("COUNT", "<", (0,), lambda v: v < 0),
            ("COUNT", "in", (1, 2, 3), lambda v: v in (1, 2, 3)),
            ("COUNT", "not between", (-10, 10), lambda v: not -10 <= v <= 10),
            ("SEEN", "between", (d1, d2), lambda v: d1 <= v <= d2),
        ]
        for field in ("NAME", "COUNT", "SEEN"):
            built = quillet.build_column_index(path, field)
            self.assertEqual(built["entries"], len(records))
        for field, op, values, keep in cases:
            with self.subTest(field=field, op=op):
                expected = [n for n, r in records if keep(r[field])]
                got = quillet.query_column_index(path, field, op, *values).tolist()
                self.assertEqual(got, expected)

    def test_a_field_without_index_and_bad_operator(self):
        path = self.path("t.dbf")
        quillet.Table.create(path, FIELDS).close()
        with self.assertRaises(quillet.Error) as caught:
            quillet.query_column_index(path, "NAME", "=", "x")
        self.assertTrue(caught.exception.path.endswith("t.NAME.atx"))
        with self.assertRaises(ValueError):
            quillet.query_column_index(path, "NAME", "~", "x")
        with self.assertRaises(KeyError):
            quillet.build_column_index(path, "NOPE")


if __name__ == "__main__":
    unittest.main()
