#pragma once

#include "host/gpu/device/Context.h"

namespace Qx::Host::Vulkan {

// A texture with levels, which samplers read where a picture is drawn smaller than it is: each level has half
// the width and height of the one before, rounded down and at least 1. The first is drawn or copied like any
// picture; the others are drawn here.

/// The number of levels of a texture of that size that is to have `wanted`: no more than down to one texel.
std::uint32_t levelsOf(std::uint32_t width, std::uint32_t height, std::uint32_t wanted);

/// Records the drawing of all levels but the first. Returns false, and has recorded nothing, if memory is
/// exhausted or the device cannot draw into the format. For holders of the recorder's lock.
bool recordLevels(Batch& batch, Context& context, Texture& texture);

/// The same, after a copy of `source` to the first level. Both are of one format and size.
bool recordLevels(Batch& batch, Context& context, Texture& source, Texture& texture);

} // namespace Qx::Host::Vulkan
