#!/usr/bin/env python3
"""scripts/package.sh --check with a small project: the processes that it starts end with it.

    package_test.py ROOT
"""

import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(sys.argv.pop(1))
CONTROL = """Source: small
Maintainer: a <a@b>

Package: small
Architecture: all
Description: small
"""


class Package(unittest.TestCase):
    def setUp(self):
        self.project = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.write("scripts/setup.sh", "#!/bin/sh\n")
        for name in ("package.sh", "common.sh"):
            shutil.copy(ROOT / "scripts" / name, self.project / "scripts" / name)
        self.write("packaging/changelog.py", '#!/bin/sh\nprintf "small (1) unstable; urgency=low\\n\\n  * All.\\n\\n'
                  ' -- a <a@b>  Thu, 01 Jan 1970 00:00:00 +0000\\n"\n')
        self.write("packaging/debian/control", CONTROL)
        self.write("packaging/debian/source/format", "3.0 (native)\n")
        self.write("packaging/debian/rules", f'#!/bin/sh\necho $$ >"{self.project}/build/begun.$$"\nexec sleep 50\n')
        git = ["git", "-C", self.project, "-c", "user.name=a", "-c", "user.email=a@b"]
        for words in (["init", "-q"], ["add", "."], ["commit", "-q", "-m", "all"]):
            subprocess.run([*git, *words], check=True)

    def write(self, name, text):
        path = self.project / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        path.chmod(0o755)

    def builds(self):
        """The ids of the build processes in the project's folder."""
        ids = []
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                if os.readlink(process / "cwd").startswith(f"{self.project.resolve()}/build/packages/"):
                    ids.append(int(process.name))
            except OSError:
                pass
        return ids

    def wait_until(self, true):
        end = time.monotonic() + 20
        while not true() and time.monotonic() < end:
            time.sleep(0.1)
        return true()

    def test_no_build_outlives_the_script(self):
        with subprocess.Popen([self.project / "scripts/package.sh", "--check"], stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, text=True) as script:
            begun = self.wait_until(lambda: len(list((self.project / "build").glob("begun.*"))) == 2)
            script.send_signal(signal.SIGTERM)
            ended = self.wait_until(lambda: script.poll() is not None and not self.builds())
            left = self.builds()
            for process in left:
                os.kill(process, signal.SIGKILL)
            self.assertTrue(begun, "the builds have not begun")
            self.assertTrue(ended, f"left: {left}")


if __name__ == "__main__":
    unittest.main()
