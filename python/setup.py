"""The version, which the whole project has from one place; pyproject.toml tells the rest."""
import re
from pathlib import Path

from setuptools import setup

HERE = Path(__file__).resolve().parent
PROJECT = HERE.parent / "include/kvo_hws/version.h", r"^#define KVO_HWS_VERSION_STRING \"(\S+)\""
# An archive of this folder alone has the version that it was packed with.
PACKED = HERE / "PKG-INFO", r"^Version: (\S+)"

file, pattern = PACKED if PACKED[0].exists() else PROJECT
setup(version=re.search(pattern, file.read_text(encoding="utf-8"), re.M)[1])
