import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import numpy
import qxfx
from support import codes


class Failures(unittest.TestCase):
    def refused(self, kind, text, work):
        with self.assertRaises(kind) as raised:
            work()
        self.assertIn(text, str(raised.exception))

    def test_of_effects_say_what_the_compiler_says(self):
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder, "broken.fx")
            file.write_text("texture Input;\nfloat4 main() : COLOR { return undeclared; }\n"
                            "technique T { pass { PixelShader = compile ps_3_0 main(); } }\n")
            self.refused(qxfx.EffectError, "broken.fx:2:32: error: 'undeclared': unknown variable", lambda: qxfx.Effect(str(file)))
            file.write_text("void main(int){}\n")
            self.refused(qxfx.EffectError, "broken.fx", lambda: qxfx.Effect(str(file)))

    def test_of_names_suggest_others(self):
        self.refused(qxfx.EffectError, "did you mean cc3.fx?", lambda: qxfx.Effect("cc4.fx"))
        self.refused(qxfx.EffectError, "did you mean gain?", lambda: qxfx.Effect("cc3.fx", gian=1))
        self.refused(qxfx.EffectError, 'no technique "Soft"', lambda: qxfx.Effect("cc3.fx", "Soft"))
        self.refused(qxfx.EffectError, 'no parameter "x"', lambda: qxfx.Effect("cc3.fx").__setitem__("x", 1))
        self.refused(qxfx.EffectError, "texture.To=FILE", lambda: qxfx.Effect("qx-dissolve.fx"))
        self.refused(qxfx.EffectError, 'no texture "From"', lambda: qxfx.Effect("cc3.fx", inputs=["From"]))
        self.refused(qxfx.EffectError, "missing.cube", lambda: qxfx.Lut("missing.cube"))
        self.refused(qxfx.EffectError, "missing/a.ttf", lambda: qxfx.Text("a", font="missing/a.ttf")(codes((40, 40, 4))))
        self.refused(ValueError, "unknown pixel format", lambda: qxfx.convert(codes((4, 4, 4)), "yuy3"))

    def test_of_values_say_what_is_expected(self):
        for value, kind in ((float("nan"), ValueError), ([], ValueError), ("loud", TypeError), ([1, 2], qxfx.EffectError)):
            with self.assertRaises(kind):
                qxfx.Effect("cc3.fx", gain=value)
        self.refused(ValueError, "{frm}", lambda: qxfx.Text("{frm}"))
        self.refused(ValueError, "expected top-left", lambda: qxfx.Text("a", position="botom"))
        self.refused(ValueError, "expected video or full", lambda: qxfx.Frame(codes((4, 4, 4)), range="wide"))
        self.refused(ValueError, "expected bt601", lambda: qxfx.Frame(codes((4, 4, 4)), matrix="bt7"))
        self.refused(ValueError, "expected point", lambda: qxfx.convert(codes((4, 4, 4)), "yuy2", filter="best"))
        self.refused(ValueError, "video range", lambda: qxfx.convert(codes((4, 4, 4)), "yuy2", target_range="full"))
        self.refused(ValueError, "make it the last", lambda: qxfx.Chain(qxfx.Text("a"), qxfx.Effect("cc3.fx")))

    def test_of_arrays_say_their_shape(self):
        self.refused(ValueError, "(4, 4)", lambda: qxfx.Frame(codes((4, 4))))
        self.refused(ValueError, "(4, 4, 2)", lambda: qxfx.Frame(codes((4, 4, 2))))
        self.refused(ValueError, "a frame has pixels", lambda: qxfx.Frame(numpy.zeros((0, 4, 4), "uint8")))
        self.refused(ValueError, "give width and height", lambda: qxfx.Frame(bytes(96), format="rgba"))
        self.refused(ValueError, "has the shape (4, 7, 4)", lambda: qxfx.Frame(bytes(96), format="rgba", width=7, height=4))
        for dtype in ("float32", "int8", "uint32", ">u2", "bool"):
            self.refused(TypeError, "not codes", lambda: qxfx.Frame(numpy.zeros((4, 4, 4), dtype)))
        self.refused(TypeError, "expected an object", lambda: qxfx.Frame([[1]]))

    def test_of_inputs_name_them(self):
        dissolve = qxfx.Effect("qx-dissolve.fx", inputs=["To"])
        self.refused(TypeError, "To is missing", lambda: dissolve(codes((4, 4, 4))))
        self.refused(TypeError, "other inputs", lambda: dissolve(codes((4, 4, 4)), To=codes((4, 4, 4)), From=1))
        self.refused(TypeError, "no inputs", lambda: qxfx.Effect("cc3.fx")(codes((4, 4, 4)), To=1))

    def test_of_sizes_do_not_end_the_process(self):
        self.refused(ValueError, "16384", lambda: qxfx.convert(numpy.zeros((1, 20000, 4), "uint8"), "argb"))
        self.refused(Exception, "", lambda: qxfx.Frame(b"", format="rgba", width=4294967295, height=4294967295))

    def test_of_the_device_are_raised(self):
        code = "import qxfx\ntry:\n  qxfx.Device('no such device')\nexcept qxfx.DeviceError as e:\n  print(e)\n"
        done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, env=os.environ)
        self.assertEqual((done.returncode, "no such device" in done.stdout), (0, True), done.stderr)

    def test_a_process_ends_cleanly(self):
        code = ("import numpy, qxfx\nkept = qxfx.Effect('cc3.fx')\nframe = kept(numpy.zeros((9, 9, 4), 'uint8'))\n"
                "import threading\nthreading.Thread(target=lambda: [kept(frame) for _ in range(50)]).start()\n")
        done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, env=os.environ)
        self.assertEqual((done.returncode, done.stderr, done.stdout), (0, "", ""))

    def ended(self, code):
        drawing = "import atexit, numpy, threading, time\nimport qxfx\nkept = qxfx.Effect('cc3.fx')\nframe = kept(numpy.zeros((9, 9, 4), 'uint8'))\n"
        done = subprocess.run([sys.executable, "-c", code[0] + drawing + code[1]], capture_output=True, text=True, env=os.environ, timeout=300)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done

    def test_threads_that_draw_to_the_end_do_not_abort_the_process(self):
        loop = "def draw():\n  while True: kept(frame)\n[threading.Thread(target=draw, daemon=True).start() for _ in range(3)]\ntime.sleep(0.2)\n"
        for _ in range(3):
            self.assertNotIn("memory", self.ended(("", loop)).stderr)

    def test_what_draws_after_the_end_is_told_that_it_is_the_end(self):
        late = "import atexit\ndef late():\n  try: kept(frame)\n  except qxfx.DeviceError as error: print(error)\natexit.register(late)\n"
        self.assertIn("the host has been stopped", self.ended((late, "")).stdout)


if __name__ == "__main__":
    unittest.main()
