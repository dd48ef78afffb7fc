"""The modules of Python and MLT in one process, which have one host between them."""

import ctypes
import os
import pathlib
import subprocess
import tempfile
import unittest

import numpy
import qxfx

module = os.environ.get("QX_MLT_MODULE", "")


def function(library, name, result, *arguments):
    found = getattr(library, name)
    found.restype, found.argtypes = result, arguments
    return found


@unittest.skipUnless(module, "the module of MLT is not built")
class Hosts(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        theirs = subprocess.run(["pkg-config", "--variable=moduledir", "mlt-framework-7"], capture_output=True, text=True, check=True)
        for each in (pathlib.Path(theirs.stdout.strip(), "libmltcore.so"), pathlib.Path(module)):
            pathlib.Path(folder.name, each.name).symlink_to(each)
        os.environ["MLT_REPOSITORY"] = folder.name

    def test_python_draws_on_when_mlt_is_closed(self):
        frame = numpy.full((36, 64, 4), 100, "uint8")
        grade = qxfx.Effect("cc3.fx", gain=1.2)
        self.assertEqual(numpy.asarray(grade(frame))[0, 0, 0], 120)
        self.assertEqual(self.drawn_by_mlt(), 120)
        self.assertEqual(numpy.asarray(grade(frame))[0, 0, 0], 120)

    def drawn_by_mlt(self):
        """The red of a grey of 100 with the same effect, by MLT from its start to its end."""
        mlt = ctypes.CDLL("libmlt-7.so.7")
        pointer, number, text = ctypes.c_void_p, ctypes.c_int, ctypes.c_char_p
        function(mlt, "mlt_factory_init", pointer, text)(None)
        profile = function(mlt, "mlt_profile_init", pointer, text)(None)
        clip = function(mlt, "mlt_factory_producer", pointer, pointer, text, text)(profile, b"color", b"#646464")
        effect = function(mlt, "mlt_factory_filter", pointer, pointer, text, text)(profile, b"qx.effect", b"cc3.fx")
        function(mlt, "mlt_properties_set", number, pointer, text, text)(effect, b"gain", b"1.2")
        function(mlt, "mlt_producer_attach", number, pointer, pointer)(clip, effect)
        frame, image = pointer(), pointer()
        function(mlt, "mlt_service_get_frame", number, pointer, ctypes.POINTER(pointer), number)(clip, ctypes.byref(frame), 0)
        sizes = [number(each) for each in (2, 64, 36)]  # mlt_image_rgba
        get = function(mlt, "mlt_frame_get_image", number, pointer, *[pointer] * 4, number)
        self.assertEqual(get(frame, ctypes.byref(image), *map(ctypes.byref, sizes), 0), 0)
        red = ctypes.c_uint8.from_address(image.value).value
        for kind, each in (("frame", frame), ("filter", effect), ("producer", clip), ("profile", profile)):
            function(mlt, "mlt_%s_close" % kind, None, pointer)(each)
        function(mlt, "mlt_factory_close", None)()
        return red


if __name__ == "__main__":
    unittest.main()
