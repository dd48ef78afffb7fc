#pragma once

#include "host/gpu/DeviceSharing.h"
#include "host/gpu/images/Images.h"

#include <optional>

namespace Qx::Host::Vulkan {

// Images whose memory other processes, devices or interfaces have too. Each function that takes a Context is
// called inside an Operation, and those that make something log why they failed.

/// Whether the device exports or imports images of that format in memory of that kind.
bool canExchange(Context& context, MemoryHandle handle, iGPUImage::eFormat format,
                 VkExternalMemoryFeatureFlagBits wanted);

/// An image whose memory can be exported. Empty on failure.
Qx::Ptr<GPUImage> makeExportable(Context& context, XY<int> size, iGPUImage::eFormat format,
                                 MemoryHandle handle);

/// Hands an exportable image to the application with its memory, and waits for the device. Empty on failure.
std::optional<ExportedImage> exportMemory(Context& context, GPUImage& image);

/// An image in memory that was exported. Empty on failure. The descriptor stays the caller's.
Qx::Ptr<GPUImage> importMemory(Context& context, const ExportedImage& exported);

} // namespace Qx::Host::Vulkan
