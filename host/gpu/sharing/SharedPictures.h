#pragma once

#include "host/gpu/DeviceSharing.h"
#include "host/gpu/images/Images.h"

#include <memory>
#include <optional>
#include <string>

namespace Qx::Host::Vulkan {

// Images that the application uses too. At any time either the service has one or the application: see
// GPUImage::given. Each function is called inside an Operation and logs why it failed.

/// An image around the application's, which the service has from now on. Empty on failure.
Qx::Ptr<GPUImage> wrap(Context& context, const ApplicationImage& image, VkImageLayout layout,
                       const DevicePoint& ready);

/// Hands an image to the application. Empty on failure.
std::optional<GivenImage> give(Context& context, GPUImage& image, VkImageLayout layout);

/// Takes an image back that the application has. Returns false on failure.
bool takeBack(Context& context, GPUImage& image, VkImageLayout layout, const DevicePoint& ready);

/// Whether the image's memory is others' too: see ExchangedMemory.h.
bool isExchanged(Context& context, GPUImage& image);

/// A picture around a texture whose image is not of the service's pools.
Pooled<Texture> adopted(Context& context, std::unique_ptr<Texture> texture);

TextureKey keyOf(XY<int> size, VkFormat format);

/// Logs why images are not shared.
void refuseSharing(const std::string& reason);

} // namespace Qx::Host::Vulkan
