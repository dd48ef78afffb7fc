"""What the tests share: frames, and qxhost beside the package."""

import os
import pathlib
import subprocess
import tempfile

import numpy


def codes(shape, dtype="uint8", low=0, high=None, seed=1):
    """Codes that differ everywhere."""
    high = numpy.iinfo(dtype).max if high is None else high
    return numpy.random.default_rng(seed).integers(low, high, size=shape, dtype=dtype, endpoint=True)


def converted(frame, source, target, size, *options):
    """The bytes that `qxhost convert` makes of the bytes of a frame."""
    with tempfile.TemporaryDirectory() as folder:
        raw = pathlib.Path(folder, "in.raw")
        raw.write_bytes(bytes(frame))
        result = pathlib.Path(folder, "out.raw")
        command = [os.environ["QX_PROGRAM"], "convert", str(raw), str(result), "--raw", source, "--format", target]
        subprocess.run(command + ["--size", "%dx%d" % size, *options], check=True, capture_output=True)
        return result.read_bytes()


def sanitized():
    """Whether AddressSanitizer watches this process."""
    return "/libasan" in pathlib.Path("/proc/self/maps").read_text()
