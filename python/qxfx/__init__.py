"""Effects, LUTs, text and pixel formats of video frames on the GPU.

    import numpy, qxfx
    grade = qxfx.Effect("cc3.fx", gain=1.2)
    result = numpy.asarray(grade(frame))      # frame: (height, width, 4), uint8 or uint16
"""

try:
    from ._qxfx import (
        Chain,
        Device,
        DeviceError,
        Effect,
        EffectError,
        Error,
        Frame,
        Lut,
        Parameter,
        Step,
        Text,
        __version__,
        convert,
    )
except ImportError as error:
    if "cannot open shared object file" not in str(error):
        raise
    raise ImportError(f"{error}; a wheel needs Debian's packages of FFmpeg, OpenColorIO, spdlog, toml++, zimg and Mesa's "
                      "Vulkan drivers: docs/python.md has their names", name=error.name, path=error.path) from None

__all__ = [
    "Chain",
    "Device",
    "DeviceError",
    "Effect",
    "EffectError",
    "Error",
    "Frame",
    "Lut",
    "Parameter",
    "Step",
    "Text",
    "convert",
]
