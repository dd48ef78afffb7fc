import array
import ctypes
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


class Described(ctypes.Structure):
    """DLManagedTensor, as a library describes its memory; what it says of it may be anything."""

    _fields_ = [("data", ctypes.c_void_p), ("device", ctypes.c_int32), ("device_id", ctypes.c_int32), ("dimensions", ctypes.c_int32),
                ("code", ctypes.c_uint8), ("bits", ctypes.c_uint8), ("lanes", ctypes.c_uint16),
                ("shape", ctypes.POINTER(ctypes.c_int64)), ("strides", ctypes.POINTER(ctypes.c_int64)), ("offset", ctypes.c_uint64),
                ("context", ctypes.c_void_p), ("deleter", ctypes.c_void_p)]

    def __init__(self, values, shape=None, strides=None, offset=0, device=1, code=1, bits=8, lanes=1, name=b"dltensor"):
        shape = values.shape if shape is None else shape
        self.values, self.name = values, name
        super().__init__(values.ctypes.data if values is not None else None, device, 0, len(shape), code, bits, lanes,
                         (ctypes.c_int64 * len(shape))(*shape), (ctypes.c_int64 * len(shape))(*strides) if strides else None, offset)

    def __dlpack__(self, **options):
        new = ctypes.pythonapi.PyCapsule_New
        new.restype, new.argtypes = ctypes.py_object, [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p]
        return new(ctypes.addressof(self), self.name, None)


class Capsules:
    """What a library answers in __dlpack__, without the buffer protocol that ctypes gives structures."""

    def __init__(self, *arguments, **options):
        self.described = Described(*arguments, **options)

    def __dlpack__(self, **options):
        return self.described.__dlpack__(**options)


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

    def test_strides_of_any_sign_and_none_are_followed(self):
        values = codes((8, 12, 4))
        flat = values.reshape(-1)
        rows = 12 * 4
        for shape, strides, offset, expected in (
                ((8, 12, 4), None, 0, values),
                ((7, 12, 4), None, rows, values[1:]),
                ((8, 12, 4), (0, 4, 1), rows, numpy.broadcast_to(values[1], values.shape)),
                ((8, 12, 4), (-rows, -4, 1), flat.size - 4, values[::-1, ::-1]),
                ((1, 12, 4), (12345678901234, 4, 1), 0, values[:1]),
                ((6, 12, 3), (rows + 4, 4, 1), 1, numpy.lib.stride_tricks.as_strided(flat[1:], (6, 12, 3), (rows + 4, 4, 1)))):
            numpy.testing.assert_array_equal(qxfx.Frame(Capsules(flat, shape, strides, offset)), expected)

    def test_tensors_that_cannot_be_are_refused(self):
        values = codes((4, 6, 4))
        for options, kind, text in (
                ({"shape": (4, -6, 4)}, ValueError, "impossible"),
                ({"shape": (2**40, 2**40, 4)}, ValueError, "impossible"),
                ({"shape": (2**62, 2, 4)}, ValueError, "impossible"),
                ({"shape": (0, 6, 4)}, ValueError, "a frame has pixels"),
                ({"shape": ()}, ValueError, "expected (height, width, 3)"),
                ({"bits": 4}, TypeError, "not codes"),
                ({"bits": 0}, TypeError, "not codes"),
                ({"lanes": 4}, TypeError, "not codes"),
                ({"code": 0}, TypeError, "not codes"),
                ({"code": 2, "bits": 16}, TypeError, "not codes"),
                ({"device": 2}, TypeError, "memory of a device"),
                ({"name": b"used_dltensor"}, ValueError, "PyCapsule_GetPointer")):
            with self.assertRaises(kind, msg=options) as raised:
                qxfx.Frame(Capsules(values, **options))
            self.assertIn(text, str(raised.exception))
        with self.assertRaises(ValueError):
            qxfx.Frame(Capsules(None, (4, 6, 4)))

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
