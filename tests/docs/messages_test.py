#!/usr/bin/env python3
"""Compares docs/troubleshooting.md with what the library logs and returns.

    messages_test.py ROOT

The messages are compared with the lists of logged texts that a test maintains (tests/library/log_texts/*.golden) and with the
logging calls in the sources; the requests with those lists and the headers; the result codes with result.h.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1])
MODULES = ["runtime", "service", "codecs", "requests", "usbevents", "config", "agent"]
ALWAYS, MESSAGES, LEVEL_1, LEVEL_2 = "always", "messages", "level 1", "level 2"
LOGGED = {ALWAYS, MESSAGES, LEVEL_1, LEVEL_2}
ERROR = 3  # messages up to this syslog priority are always logged


def normalized(text):
    """The text without indentation and columns, for comparisons."""
    return " ".join(text.split())


def rows(page, *header):
    """The cells of all tables with that header."""
    wanted, inside = [list(header)], False
    for line in page.splitlines():
        cells = [cell.strip().replace("\\|", "|") for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
        if cells in wanted:
            inside = True
        elif not cells:
            inside = False
        elif inside and not set(cells[0]) <= set("- "):
            yield cells


def quoted(cell):
    return re.findall(r"`([^`]*)`", cell)


def alternatives(words):
    return "(?:" + "|".join(re.escape(word) for word in sorted(words, key=len, reverse=True)) + ")"


class Message:
    """One message of the page: a text with variable <parts>, and when it is logged."""

    def __init__(self, text, logged, requests):
        self.text = normalized(text)
        self.logged = logged
        pieces = re.split(r"(<[^>]*>)", self.text)
        self._pattern = re.compile("".join(alternatives(requests) if piece == "<request>" else ".*" if piece.startswith("<")
                                           and piece.endswith(">") else re.escape(piece) for piece in pieces), re.DOTALL)

    def covers(self, logged_text):
        text = normalized(logged_text)
        return any(self._pattern.fullmatch(candidate) for candidate in (text, text + " "))  # the last part may be empty


class Source:
    """A text that one call in the sources logs, or the reason that it passes to a logging function."""

    def __init__(self, where, text, logged, is_reason):
        self.where = where
        self.text = text
        self.logged = logged
        parts = re.split(r"%[-0-9.]*l*[a-zA-Z]", normalized(text))
        self._pattern = re.compile((".* - " if is_reason else "") + ".*".join(re.escape(part) for part in parts), re.DOTALL)

    def gives(self, message):
        return self._pattern.fullmatch(message.text) is not None or message.covers(self.text)


LITERAL = r'"((?:[^"\\]|\\.)*)"'
CALLS = [  # pattern in front of the text, when the text is logged, and whether it is only the reason after " - "
    (r"\bSendDLLDebugMessage\(\s*", {MESSAGES}, False),
    (r"\bdebugValues\(\s*", {MESSAGES}, False),
    (r"\bdebugMessage\([\w.]+,\s*", {MESSAGES}, True),
    (r"\blockFailed\(\w+,\s*", {MESSAGES}, True),
    (r"\blogAlways\([^\"]*?,\s*", {ALWAYS}, False),
    (r"\bLOG\(LOG_ERR,\s*", {ALWAYS}, False),
    (r"\bLOG\(LOG_(?:WARNING|NOTICE|INFO|DEBUG),\s*", {LEVEL_1}, False),
    (r"\bLOG\(delivery\.priority,\s*", {ALWAYS, LEVEL_1}, False),
    (r"\bDEBUG\(LOG_(?:WARNING|NOTICE|INFO|DEBUG),\s*", {LEVEL_2}, False),
]


def sources():
    for path in sorted(path for module in MODULES for path in (ROOT / module).glob("*.cpp")):
        code = path.read_text()
        for before, logged, is_reason in CALLS:
            for found in re.finditer(before + LITERAL, code):
                text = re.sub(r'\\(["\\])', r"\1", found[1]).replace("\\n", "\n")
                # Formats without words only pass a message through.
                if re.search("[a-zA-Z]{2}", re.sub("%[a-z]", "", text)):
                    line = code.count("\n", 0, found.start()) + 1
                    yield Source(f"{path.relative_to(ROOT)}:{line}", text, logged, is_reason)


def golden():
    for path in sorted((ROOT / "tests/library/log_texts").glob("*.golden")):
        for line in path.read_text().splitlines():
            heading, priority, text = re.fullmatch(r"(\S.*?) \[(\d)\] (.*)", line).groups()
            yield heading, int(priority), text


def check_messages(messages, found_in_sources):
    for heading, priority, text in golden():
        covering = [message for message in messages if message.covers(text)]
        if len(covering) != 1:
            yield f'{len(covering)} rows for the message "{text}" ({heading})'
        for message in covering:
            if priority <= ERROR and message.logged != ALWAYS:
                yield f'"{message.text}" is always logged, as it has priority {priority}, not at "{message.logged}"'

    seen = [text for _, _, text in golden()]
    for message in messages:
        logging_calls = [source for source in found_in_sources if source.gives(message)]
        if message.logged not in LOGGED:
            yield f'"{message.text}": logged "{message.logged}", which is not one of {sorted(LOGGED)}'
        if logging_calls and not any(message.logged in source.logged for source in logging_calls):
            yield f'"{message.text}" is not logged at "{message.logged}": {logging_calls[0].where}'
        if not logging_calls and not any(message.covers(text) for text in seen):
            yield f'the library logs nothing like "{message.text}"'

    for source in found_in_sources:
        if not any(source.gives(message) for message in messages):
            yield f'no row for the message "{source.text}" ({source.where})'


def check_requests(requests):
    """Each request appears in the log, and its row lists the functions that log it under this name."""
    headers = "".join(path.read_text() for path in (ROOT / "include/kvo_hws").glob("*.h"))
    mark_of_another = "can not allocate memory"  # set backlight's, under another label
    for request, functions in requests.items():
        logged_by = {heading for heading, _, text in golden() if text.startswith(request + " - ") and mark_of_another not in text}
        if not logged_by:
            yield f'no function logs as "{request}"'
        for function in sorted(name for name in logged_by if name.startswith("KVO_HWS_") and name not in functions):
            yield f"{function} logs as \"{request}\", but the page does not list it"
        for function in functions:
            if not re.search(rf"\b{function}\(", headers):
                yield f"{function} is not a function of the headers"


def check_results(page):
    header = (ROOT / "include/kvo_hws/result.h").read_text()
    constants = {(name, number) for name, number in re.findall(r"^\s+(KVO_HWS_\w+) = (-?\d+)", header, re.MULTILINE)}
    shown = {(quoted(name)[0], number) for number, name, *_ in rows(page, "code", "name", "meaning", "what to do")}
    if not constants:
        yield "result.h has no constants that this test can read"
    for name, number in sorted(constants - shown):
        yield f"no row for {name}, {number}"
    for name, number in sorted(shown - constants):
        yield f"result.h has no {name} of {number}"


def main():
    page = (ROOT / "docs/troubleshooting.md").read_text()
    requests = {}
    for request, functions in rows(page, "`<request>`", "function"):
        requests.setdefault(quoted(request)[0], []).extend(quoted(functions))
    messages = [Message(text, logged, requests) for cell, logged, _, _ in
                rows(page, "message", "logged", "what it means", "what to do") for text in quoted(cell)]
    found_in_sources = list(sources())
    mistakes = [*check_messages(messages, found_in_sources), *check_requests(requests), *check_results(page)]
    for mistake in mistakes:
        print(mistake, file=sys.stderr)
    print(f"{len(messages)} messages of {len(requests)} requests and more, {len(list(golden()))} logged texts, "
          f"{len(found_in_sources)} logging calls: {len(mistakes)} mistakes")
    return 1 if mistakes or not messages or not found_in_sources else 0


if __name__ == "__main__":
    sys.exit(main())
