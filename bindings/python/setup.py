# SPDX-License-Identifier: Apache-2.0
"""Builds the dynamic library by CMake and puts it into the package with the model and the codec libraries that it needs,
so that a wheel works on its own, with the terms of all that it holds. A source distribution carries the engine's sources. The rest of
the description of the package is in pyproject.toml.

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
from setuptools.command.sdist import sdist
from setuptools.dist import Distribution
from wheel.bdist_wheel import bdist_wheel

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE / "engine" if (HERE / "engine").exists() else HERE.parent.parent  # the first in a source distribution
# What building the library takes.
SOURCES = ["CMakeLists.txt", "LICENSE", "cmake", "models/parley.zx", "models/README.md", "web/player", "diarization",
           "src/system/src",
           *(f"src/{m}/src" for m in ("core", "io", "util", "kernels", "math", "feature", "nn", "audio", "parley")),
           "include/parley"]
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
    terms = NATIVE / "licenses"
    terms.mkdir()
    shutil.copy(ROOT / "LICENSE", terms / "parley.txt")
    shutil.copy(build / "NOTICES", terms / "NOTICES.txt")  # of what is compiled in
    for line in subprocess.run(["ldd", library], check=True, text=True, stdout=subprocess.PIPE).stdout.splitlines():
        found = re.match(r"\s*(\S+) => (/\S+)", line)
        if found and not SYSTEM_LIBRARIES.match(found[1]):
            shutil.copy(found[2], NATIVE / found[1])
            copy_terms(found[2], terms)


def copy_terms(library, folder):
    """The terms of a library of Debian's, where it is one."""
    for path in (library, os.path.realpath(library), "/usr" + os.path.realpath(library)):
        try:
            owner = subprocess.run(["dpkg-query", "-S", path], text=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
        except FileNotFoundError:
            return
        if owner:
            package = owner.split(":")[0]
            shutil.copy(f"/usr/share/doc/{package}/copyright", folder / f"{package}.txt")
            return


class BuildWithLibrary(build_py):
    def run(self):
        build_native()
        super().run()


class PlatformWheel(bdist_wheel):
    """Any Python 3, but one platform, with the lowest C library that has what its libraries ask for: they are loaded by ctypes and
    know nothing of Python."""

    def get_tag(self):
        platform = super().get_tag()[2]
        if platform.startswith("linux_"):
            asked = [tuple(map(int, version)) for library in NATIVE.glob("*.so*")
                     for version in re.findall(r"GLIBC_(\d+)\.(\d+)", subprocess.run(["objdump", "-T", library], check=True, text=True,
                                                                                     stdout=subprocess.PIPE).stdout)]
            major, minor = max(asked)
            platform = f"manylinux_{major}_{minor}_{platform.removeprefix('linux_')}"
        return "py3", "none", platform


class WithEngine(sdist):
    def make_release_tree(self, base_dir, files):
        super().make_release_tree(base_dir, files)
        for name in SOURCES:
            to = pathlib.Path(base_dir, "engine", name)
            to.parent.mkdir(parents=True, exist_ok=True)
            if (ROOT / name).is_dir():
                shutil.copytree(ROOT / name, to, dirs_exist_ok=True)
            else:
                shutil.copy(ROOT / name, to)


class PlatformDistribution(Distribution):
    def has_ext_modules(self):
        return True


setup(version=VERSION, cmdclass={"build_py": BuildWithLibrary, "bdist_wheel": PlatformWheel, "sdist": WithEngine},
      distclass=PlatformDistribution)
