import array
import unittest

import numpy
import qxfx
from support import codes


class Tensor:
    """An array without the buffer protocol, as those of other libraries are."""

    def __init__(self, values):
        self.values = values

    def __dlpack__(self, **options):
        return self.values.__dlpack__(**options)

    def __dlpack_device__(self):
        return self.values.__dlpack_device__()


class Arrays(unittest.TestCase):
    def test_shapes_say_the_format(self):
        for shape, dtype, name in (((4, 6, 3), "uint8", "bgr3"), ((4, 6, 4), "uint8", "rgba"), ((4, 6, 3), "uint16", "bgr3:16"),
                                   ((4, 6, 4), "uint16", "rgba:16")):
            frame = qxfx.Frame(codes(shape, dtype))
            self.assertEqual((frame.format, frame.width, frame.height, frame.shape), (name, 6, 4, shape))
            self.assertEqual((frame.range, frame.matrix), ("full", "bt601"))

    def test_numpy_shares_the_memory_of_a_frame(self):
        frame = qxfx.Frame(codes((4, 6, 4)))
        numpy.asarray(frame)[1, 2, 3] = 99
        self.assertEqual(memoryview(frame)[1, 2, 3], 99)
        self.assertEqual(numpy.from_dlpack(frame)[1, 2, 3], 99)

    def test_memory_outlives_its_frame(self):
        values = codes((400, 600, 4))
        shared = [numpy.asarray(qxfx.Frame(values)), numpy.from_dlpack(qxfx.Frame(values))]
        [qxfx.Frame(codes((400, 600, 4), seed=each)) for each in range(4)]
        for each in shared:
            numpy.testing.assert_array_equal(each, values)

    def test_a_frame_is_a_copy_of_its_array(self):
        values = codes((4, 6, 4))
        frame = qxfx.Frame(values)
        before = values.copy()
        values[:] = 0
        numpy.testing.assert_array_equal(frame, before)

    def test_strides_are_followed(self):
        values = codes((8, 12, 4))
        for view in (values[::2, ::-1], values[:, :, ::-1], values.transpose(1, 0, 2), values[2:5, 3:8]):
            numpy.testing.assert_array_equal(qxfx.Frame(view), view)
            numpy.testing.assert_array_equal(qxfx.Frame(Tensor(view)), view)

    def test_tensors_are_arrays(self):
        values = codes((4, 6, 3), "uint16")
        numpy.testing.assert_array_equal(qxfx.convert(Tensor(values), "bgr3:16"), values)

    def test_bytes_are_frames_with_a_size(self):
        data = bytes(range(96))
        for each in (data, bytearray(data), memoryview(data), array.array("B", data)):
            frame = qxfx.Frame(each, format="rgba", width=6, height=4)
            self.assertEqual(bytes(frame), data)

    def test_planes_have_their_shapes(self):
        values = codes((20, 30, 3))
        planes = qxfx.convert(values, "planar")
        self.assertEqual(planes.shape, (3, 20, 30))
        numpy.testing.assert_array_equal(numpy.asarray(planes).transpose(1, 2, 0), values)
        self.assertEqual(qxfx.convert(values, "yv12").shape, (20 * 30 + 2 * 10 * 15,))

    def test_a_capsule_that_nobody_takes_is_freed(self):
        frame = qxfx.Frame(codes((4, 6, 4)))
        for _ in range(1000):
            frame.__dlpack__()
        self.assertEqual(frame.__dlpack_device__(), (1, 0))


if __name__ == "__main__":
    unittest.main()
