"""Builds the extension kora._kora with CMake for `pip install .` (metadata: pyproject.toml).

The kora library is built static and position-independent (KORA_SHARED=OFF) and linked into
the extension, so that the installed package is one self-contained module that needs nothing
from the build tree. Environment: CMAKE_ARGS adds arguments to the configuration (for example
-DKORA_WERROR=ON); CMAKE_BUILD_PARALLEL_LEVEL sets the jobs (2 when unset).
"""

import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent


def version():
    cmake = (ROOT / "CMakeLists.txt").read_text()
    return re.search(r"project\(kora\s+VERSION\s+([0-9.]+)", cmake).group(1)


class CMakeExtension(Extension):
    def __init__(self, name):
        super().__init__(name, sources=[])


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build_dir = pathlib.Path(self.build_temp).resolve() / "cmake"
        configure = [
            "cmake", "-S", str(ROOT), "-B", str(build_dir),
            "-DCMAKE_BUILD_TYPE=Release",
            "-DKORA_BUILD_PYTHON=ON", "-DKORA_BUILD_TESTS=OFF", "-DKORA_BUILD_TOOLS=OFF",
            "-DKORA_SHARED=OFF",
            f"-DPython3_EXECUTABLE={sys.executable}",
        ] + shlex.split(os.environ.get("CMAKE_ARGS", ""))
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", "2")
        subprocess.run(configure, check=True)
        subprocess.run(["cmake", "--build", str(build_dir), "-j", jobs, "--target", "kora_python"],
                       check=True)
        built = sorted((build_dir / "python" / "kora").glob("_kora.*"))
        if len(built) != 1:
            raise RuntimeError(f"expected one extension in {build_dir}/python/kora, found {built}")
        target = pathlib.Path(self.get_ext_fullpath(ext.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(built[0], target)


setup(
    version=version(),
    ext_modules=[CMakeExtension("kora._kora")],
    cmdclass={"build_ext": CMakeBuild},
    options={"build": {"build_base": "build-pip"}},
)
