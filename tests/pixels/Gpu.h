#pragma once

#include "tests/pixels/Picture.h"
#include "tests/pixels/Reference.h"

#include "platform/Surface.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

/// The way of a picture through the library: uploaded, drawn on the device, read back.
namespace Qx::Pixels {

/// A surface in GPU memory with the picture's texels as its rows hold them, padding included. Without pixels
/// when the device refused.
Image::Surface upload(const Picture& picture);

/// The picture in a surface's GPU image. Empty when it cannot be read back.
std::optional<Picture> download(const Image::Surface& surface, Layout layout, const std::string& name);

/// The picture converted by the library to the depth. Empty when the library or the device refused.
std::optional<Picture> convert(const Conversion& conversion, const Picture& source, int targetDepth);

using Parameters = std::vector<std::pair<std::string, float>>;

/// An RGB picture through a technique of an effect with these parameters set, at its own depth. Parameters
/// keep their values: later calls see them. Empty when the effect, the technique or a parameter does not
/// exist, or the device refused.
std::optional<Picture> throughEffect(const std::wstring& effect, const std::string& technique,
                                     const Parameters& parameters, const Picture& source);

} // namespace Qx::Pixels
