"""Replaces programs that install or build by stubs that only record their calls."""

import os
import pathlib
import stat


class Stubs:
    def __init__(self, folder, **programs):
        """programs: the name, with "_" for "-", and shell commands that the stub also runs."""
        self._folder = pathlib.Path(folder)
        self._calls = self._folder / "calls"
        self._calls.touch()
        for name, commands in programs.items():
            program = self._folder / name.replace("_", "-")
            program.write_text(f'#!/bin/sh\necho "${{0##*/}} $*" >>"{self._calls}"\n{commands}\n')
            program.chmod(program.stat().st_mode | stat.S_IXUSR)

    def environment(self):
        return os.environ | {"PATH": f"{self._folder}:{os.environ['PATH']}"}

    def calls(self):
        return self._calls.read_text().splitlines()
