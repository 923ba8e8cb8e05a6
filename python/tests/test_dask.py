"""Many layers through Dask, on a local cluster of two worker processes:
read_tables and build_indexes give what reading and building each layer in
turn gives, and the workers import the module the tests import."""

import datetime
import glob
import os
import pathlib
import shutil
import tempfile
import unittest

import quillet
from support import TempDirTest, write_points

try:
    import distributed
    import pandas.testing
except ImportError as error:
    MISSING = error
else:
    MISSING = None
    import quillet.dask

LAYERS = 200
FIELDS = [("NAME", "C", 10), ("COUNT", "N", 6, 0), ("VALUE", "N", 10, 2), ("SEEN", "D", 8),
          ("OPEN", "L", 1)]


def setUpModule():
    if MISSING:
        raise unittest.SkipTest("dask or distributed is not installed (%s)" % MISSING)


def write_layer(base, i):
    """Layer i: 1 to 23 features, some values blank, so that partitions
    differ in what read_table alone would make of them."""
    count = 1 + i % 23
    with quillet.Table.create(base + ".dbf", FIELDS, code_page="UTF-8") as table:
        for n in range(count):
            blank = (n + i) % 7 == 0
            table.append(("L%d-%d" % (i, n), None if blank else i * n, n / 4 + i,
                          None if blank else datetime.date(2000 + n, 1 + i % 12, 1),
                          None if blank else n % 2 == 0))
    write_points(base + ".shp", [(i + n * 0.5, n - i * 0.25) for n in range(count)])


class DaskTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.mkdtemp(prefix="quillet-dask-")
        cls.addClassCleanup(shutil.rmtree, cls.dir)
        for i in range(LAYERS):
            write_layer(os.path.join(cls.dir, "layer%03d" % i), i)
        cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                           dashboard_address=None)
        cls.addClassCleanup(cluster.close)
        cls.client = distributed.Client(cluster)
        cls.addClassCleanup(cls.client.close)

    def test_workers_import_the_module_of_the_tests(self):
        places = self.client.run(lambda: __import__("quillet").__file__)
        self.assertEqual(list(places.values()), [quillet.__file__] * 2)

    def test_read_tables_equals_the_tables_read_in_turn(self):
        paths = sorted(glob.glob(os.path.join(self.dir, "*.dbf")))
        serial = pandas.concat([quillet.read_table(p, as_pandas=True) for p in paths],
                               ignore_index=True)
        for columns in (None, ["value", "Name", "OPEN"]):
            with self.subTest(columns=columns):
                frame = quillet.dask.read_tables(os.path.join(self.dir, "*.dbf"), columns,
                                                 records_per_partition=8)
                self.assertGreater(frame.npartitions, LAYERS)  # the bigger tables were split
                got = frame.compute().reset_index(drop=True)
                expected = serial[[c.upper() for c in columns]] if columns else serial
                self.assertEqual(list(got.columns), list(expected.columns))
                pandas.testing.assert_frame_equal(got, expected.astype(got.dtypes))
        self.assertEqual({str(t) for t in got.dtypes}, {"float64", "object", "boolean"})

    def test_build_indexes_equals_the_layers_built_in_turn(self):
        broken = os.path.join(self.dir, "broken.shp")
        with open(broken, "wb") as f:
            f.write(b"not a shape file")
        self.addCleanup(os.remove, broken)
        summary = quillet.dask.build_indexes(os.path.join(self.dir, "*.shp"))
        self.assertEqual((summary["built"], summary["failed"]), (LAYERS, 1))
        self.assertEqual(summary["features"], sum(1 + i % 23 for i in range(LAYERS)))
        failure = summary["layers"][0]
        self.assertEqual((failure["path"], failure["ok"]), (broken, False))
        self.assertIn("broken.shp", failure["error"])
        for layer in summary["layers"][1:]:
            index = [pathlib.Path(layer["path"]).with_suffix(ext) for ext in (".sbn", ".sbx")]
            ours = [p.read_bytes() for p in index]
            self.assertEqual(quillet.build_bin_index(layer["path"])["features"], layer["features"])
            self.assertEqual([p.read_bytes() for p in index], ours, layer["path"])


class SchemaTest(TempDirTest):
    def test_a_table_of_other_fields_is_named(self):
        write_layer(self.path("a"), 1)
        other = self.path("b.dbf")
        with quillet.Table.create(other, [("NAME", "C", 10), ("COUNT", "D", 8)]):
            pass
        frame = quillet.dask.read_tables([self.path("a.dbf"), other])
        with self.assertRaisesRegex(ValueError, "b.dbf has the fields NAME object, COUNT datetime"):
            frame.compute(scheduler="sync")
        with self.assertRaisesRegex(KeyError, "no field named AREA in .*a.dbf"):
            quillet.dask.read_tables(self.path("*.dbf"), ["AREA"])
        with self.assertRaises(FileNotFoundError):
            quillet.dask.read_tables(self.path("none*.dbf"))
        with self.assertRaisesRegex(ValueError, "fixed"):
            quillet.dask.read_tables(self.path("a.dbf"), text="bytes")

    def test_narrower_fields_keep_the_schema_and_shorter_records_are_read_whole(self):
        wide = self.path("a.dbf")
        with quillet.Table.create(wide, [("NAME", "C", 200)] + FIELDS[1:]) as table:
            table.append(("w",))
        write_layer(self.path("b"), 22)
        frame = quillet.dask.read_tables([wide, self.path("b.dbf")], records_per_partition=4)
        names = frame.NAME.compute(scheduler="sync").tolist()
        self.assertEqual(names, ["w"] + ["L22-%d" % n for n in range(23)])
        fixed = quillet.dask.read_tables([wide, self.path("b.dbf")], records_per_partition=4,
                                         text="fixed")
        self.assertEqual(fixed.NAME.compute(scheduler="sync").tolist(), names)

if __name__ == "__main__":
    unittest.main()
