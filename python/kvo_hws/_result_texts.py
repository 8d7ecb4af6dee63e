"""What results mean, in words. The library's C header has these texts for all programs, and is a part of this package."""

from __future__ import annotations

import re
from functools import lru_cache
from pathlib import Path
from typing import Dict, NamedTuple, Tuple

HEADER = Path(__file__).with_name("result.h")


class Texts(NamedTuple):
    """What the header has."""

    rows: Dict[Tuple[str, int], str]
    """By function and code; those of the function "" are the general ones."""
    unexpected: str


@lru_cache(maxsize=None)
def texts() -> Texts:
    """All texts; the header is read at the first failure."""
    header = HEADER.read_text(encoding="utf-8")
    rows = re.findall(r'^ *\{"(\w*)", (-?\d+), "([^"]+)"\},$', header, flags=re.MULTILINE)
    (unexpected,) = re.findall(r'general = "([^"]+)";', header)
    return Texts({(function, int(code)): text for function, code, text in rows}, unexpected)


def result_text(function: str, code: int) -> str:
    """As kvo_hws_result_text of the header."""
    rows, unexpected = texts()
    return rows.get((function, code), rows.get(("", code), unexpected))
