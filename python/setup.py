"""The version, which the whole project has from one place; pyproject.toml tells the rest."""
import re
from pathlib import Path

from setuptools import setup

PROJECT = Path(__file__).resolve().parent.parent / "CMakeLists.txt"

setup(version=re.search(r"^project\(kvo_hws VERSION (\S+)", PROJECT.read_text(), re.M)[1])
