#pragma once

#include "host/gpu/images/Resources.h"
#include "platform/GraphicPrimitives.h"

namespace Qx::Host::Vulkan {

/// The pixels of a target whose centres lie inside a rectangle; may be empty.
VkRect2D pixelsInside(const RectangleOf<float>& area, const TextureKey& target);

/// The part of a rectangle that lies in a target.
VkRect2D pixelsInside(const RectangleOf<int>& area, const TextureKey& target);

bool isEmpty(const VkRect2D& area);
bool coversAll(const VkRect2D& area, const TextureKey& target);

} // namespace Qx::Host::Vulkan
