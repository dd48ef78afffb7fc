import gc
import os
import pathlib
import sys
import tempfile
import threading
import unittest

import numpy
import qxfx
from support import codes, converted, sanitized


def resident():
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


class Effects(unittest.TestCase):
    def test_gain_is_a_product(self):
        for dtype in ("uint8", "uint16"):
            frame = codes((40, 64, 4), dtype)
            largest = numpy.iinfo(dtype).max
            made = numpy.asarray(qxfx.Effect("cc3.fx", gain=1.2)(frame))
            wanted = numpy.minimum(frame[..., :3] * 1.2, largest)
            self.assertEqual(made.dtype, frame.dtype)
            self.assertLessEqual(numpy.abs(made[..., :3] - wanted).max(), 0.501)
            numpy.testing.assert_array_equal(made[..., 3], frame[..., 3])

    def test_no_saturation_is_grey_of_the_luma(self):
        frame = codes((40, 64, 4))
        made = numpy.asarray(qxfx.Effect("cc3.fx", saturation=0)(frame))
        luma = frame[..., :3] @ numpy.array([0.2126, 0.7152, 0.0722])
        self.assertLessEqual(numpy.abs(made[..., :3] - luma[..., None]).max(), 0.51)

    def test_has_the_codes_of_qxhost(self):
        frame = codes((40, 64, 4))
        for effect, parameters in (("cc3.fx", {"gain": 1.3, "lift": 0.05}), ("qx-blur.fx", {"radius": 5}), ("qx-vignette.fx", {})):
            settings = [word for name, value in parameters.items() for word in ("--set", "%s=%s" % (name, value))]
            wanted = converted(frame, "rgba", "rgba", (64, 40), "--effect", effect, *settings)
            self.assertEqual(bytes(qxfx.Effect(effect, **parameters)(frame)), wanted, effect)

    def test_has_the_codes_of_qxhost_for_ycbcr(self):
        for name, dtype, target in (("yuy2", "uint8", "yuy2"), ("y216", "uint16", "y216"), ("yuy2", "uint8", "rgba")):
            pairs = qxfx.Frame(codes((40, 32, 4), dtype), format=name)
            made = qxfx.Effect("cc3.fx", gain=0.9)(pairs, target=target)
            wanted = converted(pairs, name, target, (64, 40), "--effect", "cc3.fx", "--set", "gain=0.9")
            self.assertEqual(bytes(made), wanted, (name, target))

    def test_parameters_can_be_changed(self):
        frame = codes((8, 8, 4))
        grade = qxfx.Effect("cc3.fx", gain=1.5)
        grade["gain"] = 1
        numpy.testing.assert_array_equal(grade(frame), frame)

    def test_two_effects_of_one_file_have_parameters_of_their_own(self):
        frame = codes((8, 8, 4))
        dark, same = qxfx.Effect("cc3.fx", gain=0), qxfx.Effect("cc3.fx")
        numpy.testing.assert_array_equal(same(frame), frame)
        self.assertEqual(numpy.asarray(dark(frame))[..., :3].max(), 0)

    def test_inputs_are_frames(self):
        first, second = codes((40, 64, 3)), codes((40, 64, 3), seed=2)
        dissolve = qxfx.Effect("qx-dissolve.fx", inputs=["To"], amount=0.25)
        self.assertEqual(dissolve.inputs, ["To"])
        made = numpy.asarray(dissolve(first, To=second))
        self.assertLessEqual(numpy.abs(made - (0.75 * first + 0.25 * second)).max(), 0.51)

    def test_a_chain_is_its_steps(self):
        frame = codes((40, 64, 4))
        with tempfile.TemporaryDirectory() as folder:
            lut = pathlib.Path(folder, "half.cube")
            lut.write_text("LUT_1D_SIZE 2\n0 0 0\n0.5 0.5 0.5\n")
            grade, half = qxfx.Effect("cc3.fx", gain=1.2), qxfx.Lut(str(lut))
            made = qxfx.Chain(grade, half)(frame)
            numpy.testing.assert_array_equal(made, half(grade(frame)))
            wanted = converted(frame, "rgba", "rgba", (64, 40), "--effect", "cc3.fx", "--set", "gain=1.2", "--lut", str(lut))
            self.assertEqual(bytes(made), wanted)
            self.assertLessEqual(numpy.abs(numpy.asarray(half(frame))[..., :3] - frame[..., :3] / 2).max(), 0.51)

    def test_a_text_is_that_of_qxhost(self):
        frame = codes((200, 320, 4))
        text = qxfx.Text("{timecode} {frame}", size=24, position="top-left", rate=25)
        wanted = converted(frame, "rgba", "rgba", (320, 200), "--burn-in", "{timecode} {frame}", "--font-size", "24", "--position",
                           "top-left")
        self.assertEqual(bytes(text(frame, number=0)), wanted)

    def test_threads_draw_what_one_draws(self):
        frames = [codes((40, 64, 4), seed=each) for each in range(8)]
        grade = qxfx.Effect("cc3.fx", gain=1.2)
        wanted = [bytes(grade(each)) for each in frames]
        made = {}

        def draw(first):
            for _ in range(20):
                for number in range(first, 8, 4):
                    made.setdefault(number, set()).add(bytes(grade(frames[number])))

        threads = [threading.Thread(target=draw, args=(first,)) for first in range(4)]
        for each in threads:
            each.start()
        for each in threads:
            each.join()
        self.assertEqual([made[number] for number in range(8)], [{each} for each in wanted])

    def test_other_threads_run_while_the_device_works(self):
        frame = codes((40, 64, 4))
        grade = qxfx.Effect("cc3.fx", gain=1.2)
        counted = []
        going = threading.Event()
        interval = sys.getswitchinterval()
        sys.setswitchinterval(1000)  # a thread gets its turn only if another gives it up

        def count():
            while not going.is_set():
                counted.append(1)
                going.wait(0.001)

        thread = threading.Thread(target=count)
        try:
            thread.start()
            before = len(counted)
            for _ in range(200):
                grade(frame)
            during = len(counted) - before
        finally:
            sys.setswitchinterval(interval)
            going.set()
            thread.join()
        self.assertGreater(during, 0)

    def test_a_thousand_frames_need_no_more_memory(self):
        frame = codes((180, 320, 4))
        glow = qxfx.Effect("qx-glow.fx")
        for _ in range(200):
            glow(frame)
        gc.collect()
        memory, files = resident(), len(os.listdir("/proc/self/fd"))
        for _ in range(1000):
            glow(frame)
        gc.collect()
        if not sanitized():  # which keeps what is freed
            self.assertLess(resident(), memory + 4 * 1024 * 1024)
        self.assertEqual(len(os.listdir("/proc/self/fd")), files)

    def test_effects_describe_themselves(self):
        grade = qxfx.Effect("cc3.fx")
        lift = grade.parameters[0]
        self.assertEqual((lift.name, lift.type, lift.default, lift.minimum, lift.maximum, lift.label), ("lift", "float", [0], -1, 1, "Lift"))
        self.assertIn("EdgeDirected", qxfx.Effect("qx-deinterlace.fx").techniques)


if __name__ == "__main__":
    unittest.main()
