"""B-tree indexes through the module, against a sorted list of what was
written: single entries, bulk loads, searches, reopening in both formats,
and the errors of bad keys and files."""

import datetime
import random
import unittest

import numpy

import quillet
from support import TempDirTest


class BTreeIndexTest(TempDirTest):
    def check_against(self, index, model):
        """The index holds exactly the (key, id) entries of the model."""
        model = sorted(model)
        self.assertEqual(index.items(), model)
        self.assertEqual(len(index), len(model))
        index.validate()

    def test_random_operations_match_a_sorted_list(self):
        for fmt in ("ng", "old"):
            path = self.path("numbers." + fmt)
            rng = random.Random(3)
            model = set()
            with quillet.BTreeIndex(path, "w", key_type="long", format=fmt) as index:
                # Few keys, many ids each: the tree grows past one level
                # and entries of one key span leaves.
                for _ in range(6000):
                    entry = (rng.randrange(-50, 50), rng.randrange(10000))
                    if model and rng.random() < 0.3:
                        entry = rng.choice(sorted(model))
                        self.assertTrue(index.delete(*entry))
                        self.assertFalse(index.contains(*entry))
                        model.discard(entry)
                    else:
                        self.assertEqual(index.insert(*entry), entry not in model)
                        model.add(entry)
                self.assertGreater(index.levels, 1)
                self.assertFalse(index.delete(1000, 1))
            with quillet.BTreeIndex(path, "r+", key_type="long", format=fmt) as index:
                self.check_against(index, model)
                self.assertEqual(list(index.search(7)), sorted(i for k, i in model if k == 7))
                self.assertEqual(list(index.search_range(-3, 4, include_high=False)),
                                 sorted({i for k, i in model if -3 <= k < 4}))
                self.assertEqual(list(index.search_range(low=40, include_low=False)),
                                 sorted({i for k, i in model if k > 40}))
                self.assertEqual((index.min_key, index.max_key),
                                 (min(model)[0], max(model)[0]))
                self.assertEqual(index.items(start=10, limit=3),
                                 [e for e in sorted(model) if e[0] >= 10][:3])

    def test_bulk_load_of_arrays_and_sequences(self):
        path = self.path("names.idx")
        names = ["name %d" % (n % 700) for n in range(5000)]
        with quillet.BTreeIndex(path, "w", key_type="string", width=12) as index:
            self.assertEqual(index.bulk_load(names, range(5000)), 5000)
            self.assertTrue(index.insert("name 5", 99999))
            self.assertEqual(list(index.search("name 5")), list(range(5, 5000, 700)) + [99999])
            self.check_against(index, list(zip(names, range(5000))) + [("name 5", 99999)])
        with quillet.BTreeIndex(path, "r+", key_type="string", width=12) as index:
            self.assertEqual(index.bulk_load(["a", "name 5"], [1, 2], merge=True), 5003)
            self.assertEqual(index.items(limit=2), [("a", 1), ("name 0", 0)])
        reals = numpy.random.default_rng(1).normal(size=20000)
        with quillet.BTreeIndex(self.path("reals.idx"), "w", key_type="double") as index:
            index.bulk_load(reals, numpy.arange(20000, dtype=numpy.int32))
            self.assertEqual(index.bulk_load(reals[:10], numpy.arange(10), merge=True), 20000)
            inside = numpy.flatnonzero((reals >= -0.5) & (reals <= 0.25))
            self.assertEqual(list(index.search_range(-0.5, 0.25)), list(inside))
            self.assertEqual(index.min_key, reals.min())

    def test_dates_round_trip(self):
        path = self.path("dates.idx")
        days = [datetime.date(2000, 1, 1) + datetime.timedelta(days=n * 37) for n in range(200)]
        with quillet.BTreeIndex(path, "w", key_type="date", format="old") as index:
            index.bulk_load(days, range(200))
            index.insert(datetime.datetime(2001, 2, 3, 4, 5, 6), 500)
            self.assertEqual(index.items(start=datetime.date(2001, 2, 3), limit=1),
                             [(datetime.datetime(2001, 2, 3, 4, 5, 6), 500)])
            self.assertEqual(index.min_key, days[0])
            self.assertEqual(list(index.search(days[3])), [3])

    def test_errors(self):
        with self.assertRaises(quillet.Error) as caught:
            quillet.BTreeIndex(self.path("missing.idx"))
        self.assertEqual(caught.exception.path, self.path("missing.idx"))
        path = self.path("small.idx")
        with quillet.BTreeIndex(path, "w", key_type="short") as index:
            with self.assertRaises(OverflowError):
                index.insert(40000, 1)
            with self.assertRaises(TypeError):
                index.insert("7", 1)
            with self.assertRaises(ValueError):
                index.bulk_load([1, 2], [1])
            index.insert(7, 1)
        with quillet.BTreeIndex(path) as index:
            self.assertEqual(index.key_type, "short")
            with self.assertRaises(quillet.Error):
                index.insert(8, 2)
        with self.assertRaises(ValueError):
            quillet.BTreeIndex(path, format="old")


if __name__ == "__main__":
    unittest.main()
