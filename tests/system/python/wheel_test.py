import os
import pathlib
import subprocess
import sys
import tempfile
import unittest
import zipfile

DRAW = """
import numpy, qxfx
frame = numpy.full((4, 4, 4), 100, "uint8")
assert numpy.asarray(qxfx.Effect("cc3.fx", gain=1.2)(frame))[0, 0, 0] == 120
print(qxfx.__file__)
"""


def drawn(folder, home):
    environment = {"PATH": os.environ["PATH"], "PYTHONPATH": str(folder), "HOME": str(home), "PYTHONDONTWRITEBYTECODE": "1"}
    done = subprocess.run([sys.executable, "-c", DRAW], capture_output=True, text=True, env=environment, cwd=home)
    return done.returncode, done.stdout.strip(), done.stderr


class Wheel(unittest.TestCase):
    def test_draws_without_the_build_and_where_it_is_moved_to(self):
        with tempfile.TemporaryDirectory() as work:
            work = pathlib.Path(work)
            install = [os.environ["QX_CMAKE"], "--install", os.environ["QX_BUILD_FOLDER"], "--prefix", str(work / "prefix")]
            subprocess.run(install, check=True, capture_output=True)
            (work / "prefix").rename(work / "moved")
            packages = work / "moved/lib/python3/dist-packages"
            self.assertEqual(drawn(packages, work), (0, str(packages / "qxfx/__init__.py"), ""))

            script = pathlib.Path(os.environ["QX_SOURCE_FOLDER"], "scripts/make-wheel")
            made = subprocess.run([sys.executable, script, work / "moved", work], check=True, capture_output=True, text=True)
            site = work / "site"
            with zipfile.ZipFile(made.stdout.strip()) as archive:
                self.assertIsNone(archive.testzip())
                archive.extractall(site)
                for each in archive.infolist():
                    (site / each.filename).chmod(each.external_attr >> 16 & 0o777)
            (work / "moved").rename(work / "gone")
            self.assertEqual(drawn(site, work), (0, str(site / "qxfx/__init__.py"), ""))
            (site / "qxfx/lib/libQxHost.so.0").rename(work / "libQxHost.so.0")
            code, _, error = drawn(site, work)
            self.assertEqual(code, 1)
            self.assertIn("ImportError: libQxHost.so.0: cannot open shared object file: No such file or directory; "
                          "a wheel needs Debian's packages of FFmpeg, ", error)

    def test_says_what_it_expects_of_an_installation(self):
        script = pathlib.Path(os.environ["QX_SOURCE_FOLDER"], "scripts/make-wheel")
        with tempfile.TemporaryDirectory() as work:
            program = pathlib.Path(work, "bin/qxhost")
            made = subprocess.run([sys.executable, script, work, work], capture_output=True, text=True)
            self.assertEqual((made.returncode, made.stderr), (
                1, f"make-wheel: {program}: No such file or directory; expected an installation, see docs/python.md\n"))
            program.parent.mkdir()
            program.write_text("#!/bin/sh\necho no library >&2\nexit 127\n")
            program.chmod(0o755)
            made = subprocess.run([sys.executable, script, work, work], capture_output=True, text=True)
            self.assertEqual((made.returncode, made.stderr.splitlines()[0]), (
                1, f"make-wheel: {program} does not run: no library"))


if __name__ == "__main__":
    unittest.main()
