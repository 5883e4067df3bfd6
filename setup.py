"""Builds the kpz wheel's extension module with this project's CMake build.

pyproject.toml holds the package's metadata; this file only teaches
setuptools how to make kpz._kpz: configure the CMake project (the library's
static layers, the kit and python/) in a build directory of its
own, build the target _kpz for the interpreter running this build, and put
the module where setuptools packs it.
"""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


def project_version() -> str:
    """The file VERSION: the one version of the library, the kpz tool, the
    jar and this package (CMakeLists.txt's project() reads it too)."""
    text = (ROOT / "VERSION").read_text(encoding="utf-8").strip()
    if not re.fullmatch(r"[0-9]+\.[0-9]+\.[0-9]+", text):
        raise RuntimeError(f"kpz: VERSION holds {text!r}, not MAJOR.MINOR.PATCH")
    return text


class CMakeExtension(Extension):
    def __init__(self, name: str) -> None:
        super().__init__(name, sources=[])


class CMakeBuild(build_ext):
    def build_extension(self, ext: Extension) -> None:
        target = Path(self.get_ext_fullpath(ext.name)).resolve()
        build_dir = Path(self.build_temp).resolve() / "cmake"
        build_dir.mkdir(parents=True, exist_ok=True)
        configure = [
            "cmake", "-S", str(ROOT), "-B", str(build_dir),
            "-DCMAKE_BUILD_TYPE=Release",
            f"-DPython3_EXECUTABLE={sys.executable}",
            "-DKPZ_BUILD_PYTHON=ON", "-DKPZ_BUILD_TOOLS=OFF",
            "-DKPZ_BUILD_TESTS=OFF", "-DKPZ_BUILD_JNI=OFF", "-DKPZ_BUILD_JAVA=OFF",
            "-DKPZ_INSTALL=OFF",
        ]
        launcher = shutil.which("ccache")
        if launcher:
            configure += [f"-DCMAKE_CXX_COMPILER_LAUNCHER={launcher}",
                          f"-DCMAKE_C_COMPILER_LAUNCHER={launcher}"]
        subprocess.run(configure, check=True)
        jobs = str(os.cpu_count() or 1)
        subprocess.run(["cmake", "--build", str(build_dir), "--target", "_kpz", "-j", jobs],
                       check=True)
        built = list((build_dir / "python" / "kpz").glob("_kpz*.so"))
        if len(built) != 1:
            raise RuntimeError(f"kpz: expected one built module in {build_dir}, found {built}")
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(built[0], target)


setup(version=project_version(), ext_modules=[CMakeExtension("kpz._kpz")],
      cmdclass={"build_ext": CMakeBuild})
