#pragma once

#include "host/gpu/images/Images.h"

namespace Qx::Host::Vulkan {

// Host images and GPU images that share one texture, on devices whose images lie in memory that the host
// sees: an upload or a download copies nothing. Sharing is copy on write. A GPU image that is written to
// moves to another texture (Picture::forWriting). If the host writes, the GPU images move, since the address
// of the host image must not change.

/// Whether host images and GPU images of that key may share memory.
bool mayShareMemory(const Device& device, const TextureKey& key);

/// A host image in the memory of a texture, which has Texture::inHostMemory.
Qx::Ptr<HostImage> makeSharedImage(Pooled<Texture> texture, XY<int> size, iGPUImage::eFormat format);

/// Downloads without a copy: a host image that shares the GPU image's texture. Empty if that is not possible,
/// for example because another host image shares it already. Inside an Operation.
Qx::Ptr<HostImage> shareTexture(Context& context, GPUImage& source);

} // namespace Qx::Host::Vulkan
