"""Explains results in words. The texts come from the library's C header, which is part of this package."""

from __future__ import annotations

import re
from functools import lru_cache
from pathlib import Path
from typing import Dict, NamedTuple, Tuple

HEADER = Path(__file__).with_name("result.h")


class Texts(NamedTuple):
    """The texts of the header."""

    rows: Dict[Tuple[str, int], str]
    """The texts by function and code. The function "" has the general texts."""
    unexpected: str


@lru_cache(maxsize=None)
def texts() -> Texts:
    """Reads all texts from the header, at the first failure."""
    header = HEADER.read_text(encoding="utf-8")
    rows = re.findall(r'^ *\{"(\w*)", (-?\d+), "([^"]+)"\},$', header, flags=re.MULTILINE)
    (unexpected,) = re.findall(r'general = "([^"]+)";', header)
    return Texts({(function, int(code)): text for function, code, text in rows}, unexpected)


def result_text(function: str, code: int) -> str:
    """Returns the same text as kvo_hws_result_text of the header."""
    rows, unexpected = texts()
    return rows.get((function, code), rows.get(("", code), unexpected))
