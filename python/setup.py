"""Builds the wheel: CMake compiles the module, setuptools packs it."""

import os
import pathlib
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent


class CMakeBuild(build_ext):
    def build_extension(self, extension: Extension) -> None:
        build = pathlib.Path(os.environ.get("MAILTREE_BUILD_DIR", ROOT / "build" / "wheel"))
        options = [
            "-DCMAKE_BUILD_TYPE=Release",
            "-DMAILTREE_BUILD_CLI=OFF",
            "-DMAILTREE_BUILD_SHARED=OFF",
            "-DMAILTREE_BUILD_PYTHON=ON",
            f"-DPython_EXECUTABLE={sys.executable}",
        ]
        if shutil.which("ninja"):
            options.append("-GNinja")
        if shutil.which("ccache"):
            options.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        subprocess.check_call(["cmake", "-S", str(ROOT), "-B", str(build), *options])
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", str(os.cpu_count() or 1))
        subprocess.check_call(["cmake", "--build", str(build), "--target", "mailtree_python", "-j", jobs])
        target = pathlib.Path(self.get_ext_fullpath(extension.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        (built,) = (build / "python" / "mailtree").glob("_mailtree*.so")
        shutil.copy2(built, target)


def version() -> str:
    found = re.search(r"project\(mailtree VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"))
    assert found
    return found[1]


setup(
    name="mailtree",
    version=version(),
    description="Email as a tree: load, change, write",
    license="MIT",
    python_requires=">=3.9",
    packages=["mailtree"],
    package_dir={"mailtree": "mailtree"},
    package_data={"mailtree": ["py.typed", "*.pyi"]},
    ext_modules=[Extension("mailtree._mailtree", [])],
    cmdclass={"build_ext": CMakeBuild},
)
