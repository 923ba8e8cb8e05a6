"""What the module's tests share: a fresh folder per test, the shared sample
folder (or a skip), the built tool, and point layers written here."""

import os
import shutil
import struct
import tempfile
import unittest


class TempDirTest(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="quillet-python-")
        self.addCleanup(shutil.rmtree, self.dir)

    def path(self, name):
        return os.path.join(self.dir, name)


def peer_samples():
    """The folder of files other programs wrote, or a skip when it is absent."""
    folder = os.path.join(os.environ.get("QUILLET_SHARED_DIR", ""), "data", "peer-samples")
    if not os.path.isdir(folder):
        raise unittest.SkipTest("no peer samples in %s" % folder)
    return folder


def tool():
    path = os.environ.get("QUILLET_TOOL", "")
    if not os.path.exists(path):
        raise unittest.SkipTest("QUILLET_TOOL is not set to the built tool (run through ctest)")
    return path


def write_points(shp, points):
    """A point layer's .shp and .shx, as the format lays them out: the module
    reads shape files but does not write them."""
    xs, ys = [x for x, _ in points], [y for _, y in points]
    box = (min(xs), min(ys), max(xs), max(ys))

    def header(words):
        return (struct.pack(">7i", 9994, 0, 0, 0, 0, 0, words) + struct.pack("<2i", 1000, 1) +
                struct.pack("<8d", *box, 0, 0, 0, 0))

    records = b"".join(struct.pack(">2i", n + 1, 10) + struct.pack("<i2d", 1, x, y)
                       for n, (x, y) in enumerate(points))
    with open(shp, "wb") as f:
        f.write(header(50 + len(records) // 2) + records)
    with open(shp[:-4] + ".shx", "wb") as f:
        f.write(header(50 + 4 * len(points)) +
                b"".join(struct.pack(">2i", 50 + 14 * n, 10) for n in range(len(points))))
