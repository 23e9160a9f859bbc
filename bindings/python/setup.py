"""Builds the dynamic library by CMake and puts it into the package with the model and the codec libraries that it needs,
so that a wheel works on its own. The rest of the description of the package is in pyproject.toml.

PARLEY_CMAKE_ARGS holds further arguments for CMake, such as -DPARLEY_WITH_AAC=OFF.
"""
import os
import pathlib
import re
import shlex
import shutil
import subprocess

from setuptools import setup
from setuptools.command.build_py import build_py
from setuptools.dist import Distribution
from wheel.bdist_wheel import bdist_wheel

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
NATIVE = HERE / "src" / "parley" / "native"
VERSION = re.search(r"project\(parley VERSION ([0-9.]+)", (ROOT / "CMakeLists.txt").read_text())[1]
# What every Linux machine has; all else that the library needs travels with it.
SYSTEM_LIBRARIES = re.compile(r"(linux-vdso|ld-linux.*|lib(c|m|pthread|dl|rt))\.so")


def build_native():
    build = HERE / "build" / "native"
    subprocess.run(["cmake", "-S", ROOT, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                    "-DPARLEY_BUILD_TOOLS=OFF", "-DPARLEY_BUILD_TESTS=OFF",
                    "-DPARLEY_WITH_CAIRO=OFF", "-DPARLEY_WITH_SNDFILE=OFF",  # which bring dozens of libraries
                    "-DCMAKE_SHARED_LINKER_FLAGS=-static-libstdc++ -static-libgcc -Wl,-rpath,$ORIGIN",
                    *shlex.split(os.environ.get("PARLEY_CMAKE_ARGS", ""))], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", build, "--target", "parley_diarization", "--", "--quiet"], check=True)
    shutil.rmtree(NATIVE, ignore_errors=True)
    NATIVE.mkdir(parents=True)
    library = NATIVE / "libparley-diarization.so.1"
    shutil.copy(build / "diarization" / "libparley-diarization.so.1", library)
    subprocess.run(["strip", "--strip-unneeded", library], check=True)
    shutil.copy(ROOT / "models" / "parley.zx", NATIVE)
    for line in subprocess.run(["ldd", library], check=True, text=True, stdout=subprocess.PIPE).stdout.splitlines():
        found = re.match(r"\s*(\S+) => (/\S+)", line)
        if found and not SYSTEM_LIBRARIES.match(found[1]):
            shutil.copy(found[2], NATIVE / found[1])


class BuildWithLibrary(build_py):
    def run(self):
        build_native()
        super().run()


class PlatformWheel(bdist_wheel):
    """Any Python 3, but one platform: the library is loaded by ctypes and knows nothing of Python."""

    def get_tag(self):
        return "py3", "none", super().get_tag()[2]


class PlatformDistribution(Distribution):
    def has_ext_modules(self):
        return True


setup(version=VERSION, cmdclass={"build_py": BuildWithLibrary, "bdist_wheel": PlatformWheel}, distclass=PlatformDistribution)
