"""Builds the C++ core of tarnwick_markdown with the project's own CMake build, for the
interpreter that runs pip, and puts it into the package (pyproject.toml has the rest)."""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

SOURCE = Path(__file__).resolve().parent


def version() -> str:
    """The version, from its one definition in the public header."""
    header = (SOURCE / "include" / "tarnwick" / "version.hpp").read_text()
    return re.search(r'#define TARNWICK_MARKDOWN_VERSION "([^"]+)"', header).group(1)


class CMakeBuild(build_ext):
    """Configures the project for the module alone and builds its target."""

    def build_extension(self, ext: Extension) -> None:
        build = Path(self.build_temp).resolve() / "cmake"
        subprocess.run(
            ["cmake", "-S", str(SOURCE), "-B", str(build), "-DCMAKE_BUILD_TYPE=Release",
             "-DTARNWICK_PYTHON=ON", f"-DPython_EXECUTABLE={sys.executable}",
             "-DTARNWICK_CLI=OFF", "-DTARNWICK_TESTS=OFF", "-DTARNWICK_INSTALL=OFF",
             "-DTARNWICK_BENCH=OFF", "-DTARNWICK_FUZZ=OFF", "-DTARNWICK_SANITIZE=OFF",
             "-DTARNWICK_PGO=OFF"],
            check=True)
        jobs = [] if "CMAKE_BUILD_PARALLEL_LEVEL" in os.environ else ["-j", str(os.cpu_count() or 1)]
        subprocess.run(["cmake", "--build", str(build), "--target", "tarnwick_markdown_core", *jobs],
                       check=True)
        built = build / "python" / "tarnwick_markdown" / Path(self.get_ext_filename(ext.name)).name
        target = Path(self.get_ext_fullpath(ext.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(built, target)


setup(
    version=version(),
    ext_modules=[Extension("tarnwick_markdown._core", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    # Out of the way of the CMake build folders (build, build-*) the scripts use.
    options={"build": {"build_base": "build-python"}},
)
