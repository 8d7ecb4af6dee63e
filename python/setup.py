"""Reads the version from the one place in the project that defines it. pyproject.toml has everything else."""
import re
from pathlib import Path

from setuptools import setup

HERE = Path(__file__).resolve().parent
PROJECT = HERE.parent / "include/kvo_hws/version.h", r"^#define KVO_HWS_VERSION_STRING \"(\S+)\""
# A source archive of only this folder contains its version in PKG-INFO.
PACKED = HERE / "PKG-INFO", r"^Version: (\S+)"

file, pattern = PACKED if PACKED[0].exists() else PROJECT
setup(version=re.search(pattern, file.read_text(encoding="utf-8"), re.M)[1])
