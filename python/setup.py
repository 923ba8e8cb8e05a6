"""Builds quillet._quillet with CMake (this folder's CMakeLists.txt, against
an installed libquillet) for the interpreter that runs the build."""

import os
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = os.path.dirname(os.path.abspath(__file__))


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build = os.path.abspath(self.build_temp)
        subprocess.run(["cmake", "-S", HERE, "-B", build, "-DCMAKE_BUILD_TYPE=Release",
                        "-DPython_EXECUTABLE=" + sys.executable], check=True)
        subprocess.run(["cmake", "--build", build, "-j", str(os.cpu_count() or 1)], check=True)
        built = [name for name in os.listdir(os.path.join(build, "quillet"))
                 if name.startswith("_quillet") and name.endswith(".so")]
        target = self.get_ext_fullpath(ext.name)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copyfile(os.path.join(build, "quillet", built[0]), target)


setup(ext_modules=[Extension("quillet._quillet", sources=[])], cmdclass={"build_ext": CMakeBuild})
