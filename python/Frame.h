#pragma once

#include "tools/qxhost/media/StoredLayout.h"
#include "tools/qxhost/pipeline/frames/FrameProcessor.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <pybind11/pybind11.h>
#include <string>
#include <vector>

namespace Qx::Python {

/// A frame in memory of Python's, in a pixel format, as files hold it: nothing lies between rows or planes.
struct Frame
{
    Program::FrameForm form;
    Media::StoredLayout layout;
    std::vector<std::byte> bytes;

    /// RGB has (height, width, components), 4:2:2 (height, pairs, 4), three planes (3, height, width), rows
    /// that are packed otherwise (height, bytes) and several planes (bytes).
    std::vector<std::size_t> shape() const;
    std::size_t itemBytes() const;
};

Frame makeFrame(const Program::FrameForm& form);

/// What a caller may say of an array.
struct Wish
{
    std::string format; ///< empty: R G B or R G B A by the array's shape
    unsigned width = 0; ///< 0: by the shape
    unsigned height = 0;
    std::string range;  ///< empty: full for RGB, video for YCbCr
    std::string matrix; ///< empty: by the width
};

/// A copy of what an object holds that has the buffer protocol or DLPack. Throws py::value_error or
/// py::type_error.
std::shared_ptr<Frame> frameOf(const pybind11::object& array, const Wish& wish);

/// A capsule of DLPack that shares the frame's memory.
pybind11::capsule dlpackOf(const std::shared_ptr<Frame>& frame);

pybind11::buffer_info bufferOf(Frame& frame);

/// Of words; empty text: `otherwise`. Throw py::value_error.
Media::Range rangeNamed(const std::string& word, Media::Range otherwise);
Media::Matrix matrixNamed(const std::string& word, Media::Matrix otherwise);

} // namespace Qx::Python
