"""How the module finds the library, and that its prototypes, records and names match the headers."""

from __future__ import annotations

import ctypes
import os
import pickle
import re
import shutil
import subprocess
import sys
from functools import lru_cache
from pathlib import Path
from typing import Any, Dict, List, Set, Tuple

import pytest
from conftest import ROOT

import kvo_hws
from kvo_hws import KvoError, _structures, errors
from kvo_hws._prototypes import COMMON, PROTOTYPES, Output
from kvo_hws._result_texts import HEADER, result_text, texts

HEADERS = ROOT / "include" / "kvo_hws"

# Functions that the module leaves out, and the reason.
LEFT_OUT = {
    "KVO_HWS_activateUSBEvents": "its older callback gets less information than that of KVO_HWS_activateUSBEventsV2",
}
SECTIONS_LEFT_OUT = {
    "runtime.h": "threads, locks, time and memory for C programs; Python has its own",
    "service.h": "the channel and the line readers below the requests",
    "codecs.h": "texts of the daemon, which the requests already parse",
    "config.h": "the configuration file of the panel, which the agent already reads",
    "agent.h": "the internals of the agent: its handlers, its writers and its console",
    "usbevents.h": "the parts of activation, for programs that run some of them themselves",
}


def exported() -> Dict[str, str]:
    """The exported names, each with the header that declares it."""
    section = ""
    names: Dict[str, str] = {}
    for line in (ROOT / "library" / "exports.map").read_text().splitlines():
        heading = re.match(r"\s*# (\w+\.h)$", line)
        name = re.match(r"\s*(\w+);$", line)
        if heading:
            section = heading[1]
        elif name:
            names[name[1]] = section
    return names


def test_every_exported_function_is_available_or_left_out_for_a_reason() -> None:
    names = exported()
    requests = {name for name in names if name.startswith("KVO_HWS_")}
    assert len(requests) > 80
    available = set(PROTOTYPES)
    assert requests - available == set(LEFT_OUT)
    assert available <= set(names)
    others = {section for name, section in names.items() if name not in requests | available}
    assert others == set(SECTIONS_LEFT_OUT)


C_TYPES: Dict[str, Any] = {
    "int": ctypes.c_int,
    "unsigned": ctypes.c_uint,
    "int32_t": ctypes.c_int32,
    "uint32_t": ctypes.c_uint32,
    "unsigned long": ctypes.c_ulong,
    "char *": ctypes.c_char_p,
    "const char *": ctypes.c_char_p,
    "const char **": ctypes.POINTER(ctypes.c_char_p),
    "void *": ctypes.c_void_p,
    "void **": ctypes.POINTER(ctypes.c_void_p),
    "unsigned *": ctypes.POINTER(ctypes.c_uint),
    "int32_t *": ctypes.POINTER(ctypes.c_int32),
    "uint32_t *": ctypes.POINTER(ctypes.c_uint32),
    "KvoDescription *": ctypes.POINTER(_structures.KvoDescription),
    "KvoDescriptionEx *": ctypes.POINTER(_structures.KvoDescriptionEx),
    "KvoClientEntry *": ctypes.POINTER(_structures.KvoClientEntry),
    "SendUsbEventV2": _structures.UsbEventCallback,
    "EmbKvoEventCallback": _structures.EmbeddedEventCallback,
    "EmbCmdCallback": _structures.AgentCallback,
    "void *(*start)(void *)": _structures.ThreadBody,
}


@lru_cache(maxsize=None)
def declared() -> Dict[str, Tuple[str, List[str]]]:
    """The result and parameter types of every function in the headers."""
    found: Dict[str, Tuple[str, List[str]]] = {}
    for header in HEADERS.glob("*.h"):
        text = re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.DOTALL)
        for result, name, parameters in re.findall(r"KVO_HWS_API (\w+) (\w+)\(([^;]*?)\) KVO_HWS_NOEXCEPT;", text):
            one_line = " ".join(parameters.split())
            types = [re.sub(r"\w+$", "", one).strip() for one in one_line.split(",")] if one_line != "void" else []
            found[name] = result, types
    return found


@pytest.mark.parametrize("name", PROTOTYPES)
def test_a_prototype_matches_the_header(name: str) -> None:
    result, parameters = declared()[name]
    assert C_TYPES[result] == PROTOTYPES[name].result
    assert [C_TYPES[one] for one in parameters] == [one.type for one in PROTOTYPES[name].parameters]


def test_outputs_are_pointers_to_numbers_in_the_header() -> None:
    for name, prototype in PROTOTYPES.items():
        for parameter, of in zip(prototype.parameters, declared()[name][1]):
            if isinstance(parameter, Output):
                assert of in ("uint32_t *", "int32_t *"), name


def members(record: Any) -> Dict[str, Tuple[int, int]]:
    """Offset and size of each member. The members of an anonymous member count as members of the record."""
    found: Dict[str, Tuple[int, int]] = {}
    for name, kind in record._fields_:
        field = getattr(record, name)
        if name in getattr(record, "_anonymous_", ()):
            found.update({member: (field.offset + offset, size) for member, (offset, size) in members(kind).items()})
        elif name == "extAttr1":  # an array here, and seven members in C
            found.update({f"extAttr{number + 1}": (field.offset + 4 * number, field.size // 7) for number in range(7)})
        else:
            found[name] = field.offset, field.size
    return found


def documented_layout(record: str) -> Tuple[int, Dict[str, Tuple[int, int]]]:
    """Size of a record, and offset and size of each member, from the library's own table."""
    table = (ROOT / "library" / "abi" / "records.cpp").read_text()
    here = 1 if ctypes.sizeof(ctypes.c_void_p) == 8 else 2
    table = re.sub(r"on64or32\((\d+), (\d+)\)", lambda either: either[here], table)
    sizes = re.findall(rf"^SIZE\({record}, (\d+)\);$", table, re.MULTILINE)
    rows = re.findall(rf"^MEMBER\({record}, (\w+), (\d+), (\d+)\);$", table, re.MULTILINE)
    return int(sizes[0]), {name: (int(offset), int(size)) for name, offset, size in rows}


RECORDS = [
    "KvoDescription", "KvoDescriptionEx", "KvoClientEntry", "UsbDeviceInfo", "UsbStateInfo", "UsbRemoveInfo", "UsbEventV2",
]  # fmt: skip


@pytest.mark.parametrize("name", RECORDS)
def test_a_record_has_the_layout_of_the_library(name: str) -> None:
    record = getattr(_structures, name)
    assert (ctypes.sizeof(record), members(record)) == documented_layout(name)


def test_the_running_flag_is_the_first_member_of_the_agents_record() -> None:
    assert documented_layout("EmbKvoInst")[1]["running"] == (0, 4)


def test_usb_event_codes_match_the_header() -> None:
    text = (HEADERS / "usbevents.h").read_text()
    codes = {name: int(value) for name, value in re.findall(r"USB_EVENT_(\w+)\s*=\s*(\d+)", text)}
    assert codes == {code.name: code.value for code in kvo_hws.UsbEventCode}


def documented_failures(name: str, comments: Dict[str, str]) -> Set[int]:
    """The negative results that a function's comment names after @return. Follows references to other functions."""
    comment = comments[name]
    returns = comment.partition("@return")[2].partition("\n *\n")[0]
    codes = {int(code) for code in re.findall(r"(?:^|[;(,:. ])\s?(-\d+)\b(?! where)", returns)}
    other = re.search(r"(?:@return|Works|\A)[\s*]+[Aa]s[\s*]+(KVO_HWS_\w+)", comment)
    return codes | (documented_failures(other[1], comments) if other else set())


def test_the_errors_match_the_result_codes_of_the_headers() -> None:
    comments: Dict[str, str] = {}
    for header in HEADERS.glob("*.h"):
        pieces = re.findall(r"/\*\*((?:(?!\*/).)*)\*/\s*KVO_HWS_API \w+ (\w+)\(", header.read_text(), flags=re.DOTALL)
        comments.update({name: comment for comment, name in pieces})
    for name, prototype in PROTOTYPES.items():
        common = {-1, -2, -7}
        assert documented_failures(name, comments) - common == set(prototype.errors) - common, name


def test_errors_share_a_base_class_and_can_be_pickled() -> None:
    kinds = [kind for kind in vars(errors).values() if isinstance(kind, type) and issubclass(kind, KvoError)]
    assert len(kinds) > 15
    for kind in kinds:
        error = kind("KVO_HWS_setKVOCksIndex", -3)
        assert str(error) == "the index is not one of 0 to 255 (KVO_HWS_setKVOCksIndex returned -3)"
        again = pickle.loads(pickle.dumps(error))
        assert (type(again), again.code, again.function, str(again)) == (kind, -3, error.function, str(error))
        assert kind("KVO_HWS_setKVOCksIndex", -3, "another reason").reason == "another reason"
    assert issubclass(errors.OutOfRange, ValueError) and issubclass(errors.Ambiguous, LookupError)


def test_result_texts_match_the_header() -> None:
    header = HEADERS / "result.h"
    assert HEADER.read_bytes() == header.read_bytes()
    rows, unexpected = texts()
    assert len(rows) == header.read_text().count('{"') > 200
    assert unexpected in header.read_text()
    assert result_text("KVO_HWS_getUsbLock", -2) == rows["", -2] == "no service answers at /tmp/kvo_hws/cmd_sock"
    assert result_text("KVO_HWS_getUsbLock", -99) == unexpected


def test_every_failure_of_a_function_has_a_specific_text() -> None:
    rows, unexpected = texts()
    for name, prototype in PROTOTYPES.items():
        for code, kind in prototype.errors.items():
            assert result_text(name, code) != unexpected, (name, code)
            # -6 has the same meaning for all functions.
            if kind != COMMON.get(code) and code != -6:
                assert (name, code) in rows, (name, code)


def python(program: str, **environment: str) -> "subprocess.CompletedProcess[str]":
    variables = {**os.environ, "PYTHONPATH": str(ROOT / "python"), **environment}
    variables = {name: value for name, value in variables.items() if value}
    return subprocess.run([sys.executable, "-c", program], env=variables, capture_output=True, text=True)


def test_the_package_can_be_imported_without_the_library() -> None:
    assert python("import kvo_hws; kvo_hws.Panel('10.0.0.5')", KVO_HWS_LIBRARY="/nowhere").returncode == 0


def test_the_error_for_a_missing_library_says_what_to_do() -> None:
    ended = python("import kvo_hws; kvo_hws.Service().is_ready()", KVO_HWS_LIBRARY="", LD_LIBRARY_PATH="")
    if "NotConnected" in ended.stderr:
        pytest.skip("the library is installed on this machine")
    assert "LibraryNotFound" in ended.stderr
    assert "install the library, or set KVO_HWS_LIBRARY" in ended.stderr


def test_the_error_names_the_variable_and_its_invalid_path() -> None:
    ended = python("import kvo_hws; kvo_hws.Service().is_ready()", KVO_HWS_LIBRARY="/nowhere/lib.so")
    assert "LibraryNotFound: KVO_HWS_LIBRARY names /nowhere/lib.so" in ended.stderr


def test_a_different_library_is_an_error() -> None:
    ended = python("import kvo_hws; kvo_hws.Service().is_ready()", KVO_HWS_LIBRARY="libm.so.6")
    assert "has no KVO_HWS_isInitComplete" in ended.stderr


def test_the_loader_finds_the_library() -> None:
    folder = str(Path(os.environ["KVO_HWS_LIBRARY"]).resolve().parent)
    ended = python("import kvo_hws; print(kvo_hws.library_version())", KVO_HWS_LIBRARY="", LD_LIBRARY_PATH=folder)
    assert ended.stdout == "V%#.%#.#%.#%\n", ended.stderr


def test_the_library_of_the_same_installation_is_found(tmp_path: Path) -> None:
    packages = tmp_path / "lib" / "python3" / "dist-packages"
    shutil.copytree(ROOT / "python" / "kvo_hws", packages / "kvo_hws")
    library = Path(os.environ["KVO_HWS_LIBRARY"]).resolve()
    shutil.copy(library, tmp_path / "lib" / "libkvo_hws.so.0")
    program = """if True:
        import sys
        sys.path.pop(0)  # the folder of the sources, in which the tests run
        import kvo_hws
        kvo_hws.library_version()
        print(*[line.split()[-1] for line in open("/proc/self/maps") if "kvo_hws.so" in line])"""

    def loaded(**environment: str) -> str:
        ended = python(program, KVO_HWS_LIBRARY="", PYTHONPATH=str(packages), **environment)
        return ended.stdout.split()[0] if ended.returncode == 0 else ended.stderr

    # The libraries that the library itself needs are not in this folder.
    preload = " ".join(str(library.parent / name) for name in ("libpavo.so.1", "libdrak.so"))
    assert loaded(LD_LIBRARY_PATH="", LD_PRELOAD=preload) == str(tmp_path / "lib" / "libkvo_hws.so.0")
    assert loaded(LD_LIBRARY_PATH=str(library.parent)) == str(library)


def test_all_public_names_are_documented() -> None:
    for name in kvo_hws.__all__:
        of = getattr(kvo_hws, name)
        if isinstance(of, type):
            assert (of.__doc__ or "").strip(), name
            public = {key: value for key, value in vars(of).items() if not key.startswith("_") and callable(value)}
            for key, value in public.items():
                assert isinstance(value, type) or (value.__doc__ or "").strip(), f"{name}.{key}"
    assert sorted(kvo_hws.__all__) == sorted(set(kvo_hws.__all__))
