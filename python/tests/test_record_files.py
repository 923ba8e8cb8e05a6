"""Record files through the module, against a dict of what was written:
inserts, updates, deletes, reopening and compaction."""

import random
import unittest

import quillet
from support import TempDirTest


class RecordFileTest(TempDirTest):
    def test_random_operations_match_a_dict(self):
        path = self.path("store.dat")
        model = {}
        rng = random.Random(7)
        with quillet.RecordFile(path, "w") as store:
            for step in range(400):
                choice = rng.random()
                data = bytes(rng.randrange(256) for _ in range(rng.randrange(0, 300)))
                if choice < 0.5 or not model:
                    model[store.put(data)] = data
                elif choice < 0.8:
                    n = rng.choice(list(model))
                    self.assertEqual(store.put(data, n), n)
                    model[n] = data
                else:
                    n = rng.choice(list(model))
                    store.delete(n)
                    del model[n]
        with quillet.RecordFile(path, "r+") as store:
            self.assertEqual(store.numbers(), sorted(model))
            self.assertEqual({n: store.get(n) for n in store.numbers()}, model)
            self.assertIsNone(store.get(max(model) + 1))
            with self.assertRaises(KeyError):
                store.delete(max(model) + 1)
            store.compact(renumber=True)
            self.assertEqual([store.get(n) for n in store.numbers()],
                             [model[n] for n in sorted(model)])
            self.assertEqual(len(store), len(model))

    def test_read_only_refuses_writes(self):
        path = self.path("store.dat")
        quillet.RecordFile(path, "w").close()
        with quillet.RecordFile(path) as store, self.assertRaises(quillet.Error) as caught:
            store.put(b"x")
        self.assertEqual(caught.exception.path, path)
        with self.assertRaises(quillet.Error):
            quillet.RecordFile(self.path("missing.dat"))


if __name__ == "__main__":
    unittest.main()
