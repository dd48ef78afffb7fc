#pragma once

#include "host/gpu/DeviceSharing.h"
#include "host/gpu/images/Images.h"

#include <optional>

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

/// An image whose memory can be exported. Empty on failure.
Qx::Ptr<GPUImage> makeExportable(Context& context, XY<int> size, iGPUImage::eFormat format);

/// Hands an exportable image to the application with its memory, and waits for the device. Empty on failure.
std::optional<ExportedImage> exportMemory(Context& context, GPUImage& image);

/// An image in memory that was exported. Empty on failure. The descriptor stays the caller's.
Qx::Ptr<GPUImage> importMemory(Context& context, const ExportedImage& exported);

} // namespace Qx::Host::Vulkan
