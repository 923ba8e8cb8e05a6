"""What the module's tests share: a fresh folder per test, the shared sample
folder (or a skip), and the built tool."""

import os
import shutil
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
