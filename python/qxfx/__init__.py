"""Effects, LUTs, text and pixel formats of video frames on the GPU.

    import numpy, qxfx
    grade = qxfx.Effect("cc3.fx", gain=1.2)
    result = numpy.asarray(grade(frame))      # frame: (height, width, 4), uint8 or uint16
"""

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
