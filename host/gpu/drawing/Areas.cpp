#include "host/gpu/drawing/Areas.h"

#include <algorithm>
#include <cmath>

namespace Qx::Host::Vulkan {

namespace {

/// The first pixel whose centre is not before `edge`, within 0 and `size`. Not a number counts as 0.
std::uint32_t firstPixel(float edge, std::uint32_t size)
{
    const float first = std::ceil(edge - 0.5F);
    return first > 0.0F ? static_cast<std::uint32_t>(std::min(first, static_cast<float>(size))) : 0;
}

std::uint32_t clampedTo(int edge, std::uint32_t size)
{
    return edge > 0 ? std::min(static_cast<std::uint32_t>(edge), size) : 0;
}

VkRect2D between(std::uint32_t x0, std::uint32_t y0, std::uint32_t x1, std::uint32_t y1)
{
    return {{static_cast<std::int32_t>(x0), static_cast<std::int32_t>(y0)},
            {x1 > x0 ? x1 - x0 : 0, y1 > y0 ? y1 - y0 : 0}};
}

} // namespace

VkRect2D pixelsInside(const RectangleOf<float>& area, const TextureKey& target)
{
    return between(firstPixel(area.x0, target.width), firstPixel(area.y0, target.height),
                   firstPixel(area.x1, target.width), firstPixel(area.y1, target.height));
}

VkRect2D pixelsInside(const RectangleOf<int>& area, const TextureKey& target)
{
    return between(clampedTo(area.x0, target.width), clampedTo(area.y0, target.height),
                   clampedTo(area.x1, target.width), clampedTo(area.y1, target.height));
}

bool isEmpty(const VkRect2D& area)
{
    return area.extent.width == 0 || area.extent.height == 0;
}

bool coversAll(const VkRect2D& area, const TextureKey& target)
{
    return area.extent.width == target.width && area.extent.height == target.height;
}

} // namespace Qx::Host::Vulkan
