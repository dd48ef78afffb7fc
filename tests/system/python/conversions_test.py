import unittest

import numpy
import qxfx
from support import codes, converted

COEFFICIENTS = {"bt601": (0.299, 0.114), "bt709": (0.2126, 0.0722)}


def rgb_of(pairs, matrix):
    """R G B from 0 to 1 of the even pixels, by the formulae of BT.601 and BT.709 for video range."""
    kr, kb = COEFFICIENTS[matrix]
    y = (pairs[..., 0] - 16.0) / 219
    cb, cr = (pairs[..., 1] - 128.0) / 224, (pairs[..., 3] - 128.0) / 224
    r, b = y + 2 * (1 - kr) * cr, y + 2 * (1 - kb) * cb
    g = (y - kr * r - kb * b) / (1 - kr - kb)
    return numpy.clip(numpy.stack([r, g, b], axis=-1), 0, 1)


class Conversions(unittest.TestCase):
    def test_ycbcr_becomes_rgb_by_the_formulae(self):
        for matrix in COEFFICIENTS:
            pairs = codes((40, 32, 4), low=16, high=235)
            made = numpy.asarray(qxfx.convert(pairs, "rgba", format="yuy2", matrix=matrix))
            self.assertEqual(made.shape, (40, 64, 4))
            wanted = rgb_of(pairs, matrix) * 255
            self.assertLessEqual(numpy.abs(made[:, ::2, :3] - wanted).max(), 0.51, matrix)

    def test_rgb_becomes_ycbcr_by_the_formulae(self):
        frame = codes((40, 64, 3))
        for matrix, (kr, kb) in COEFFICIENTS.items():
            made = numpy.asarray(qxfx.convert(frame, "yuy2", target_matrix=matrix)).astype(float)
            r, g, b = (frame[..., each] / 255 for each in range(3))
            y = kr * r + (1 - kr - kb) * g + kb * b
            cb, cr = (b - y) / (2 * (1 - kb)), (r - y) / (2 * (1 - kr))
            luma = made[..., (0, 2)].reshape(40, 64)
            self.assertLessEqual(numpy.abs(luma - (16 + 219 * y)).max(), 0.51)
            self.assertLessEqual(numpy.abs(made[..., 1] - (128 + 224 * cb[:, ::2])).max(), 0.51)
            self.assertLessEqual(numpy.abs(made[..., 3] - (128 + 224 * cr[:, ::2])).max(), 0.51)

    def test_has_the_codes_of_qxhost(self):
        for source, shape, dtype in (("yuy2", (40, 32, 4), "uint8"), ("uyvy", (40, 32, 4), "uint8"), ("y216", (40, 32, 4), "uint16"),
                                     ("rgba", (40, 64, 4), "uint8"), ("bgr3:16", (40, 64, 3), "uint16")):
            frame = qxfx.Frame(codes(shape, dtype), format=source)
            for target in ("rgba", "argb:16", "b64a", "yuy2", "v210", "m101", "yv12", "planar", "y216"):
                made = bytes(qxfx.convert(frame, target))
                self.assertEqual(made, converted(frame, source, target, (64, 40)), (source, target))

    def test_full_range_has_the_codes_of_qxhost(self):
        for name, dtype in (("yuy2", "uint8"), ("y216", "uint16")):
            frame = qxfx.Frame(codes((40, 32, 4), dtype), format=name, range="full", matrix="bt709")
            made = bytes(qxfx.convert(frame, "rgba:16"))
            self.assertEqual(made, converted(frame, name, "rgba:16", (64, 40), "--range", "full", "--matrix", "bt709"), name)

    def test_ycbcr_comes_back_from_every_layout(self):
        frame = qxfx.Frame(codes((40, 33, 4)), format="yuy2", width=65)
        for target in ("uyvy", "yvyu", "vyuy", "v210", "m101", "y216", "yuy2:16"):
            packed = qxfx.convert(frame, target)
            back = numpy.asarray(qxfx.convert(bytes(packed), "yuy2", format=target, width=65, height=40))
            pixels = numpy.asarray(frame).reshape(40, -1)
            there = back.reshape(40, -1)
            numpy.testing.assert_array_equal(there[:, :130], pixels[:, :130], target)

    def test_full_frames_of_odd_sizes(self):
        for height, width in ((1, 1), (1, 2), (3, 7), (17, 31)):
            frame = codes((height, width, 4))
            numpy.testing.assert_array_equal(qxfx.convert(qxfx.convert(frame, "argb"), "rgba"), frame)


if __name__ == "__main__":
    unittest.main()
