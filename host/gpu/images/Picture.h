#pragma once

#include "host/gpu/device/Context.h"

namespace Qx::Host::Vulkan {

/// What an image on the device consists of: a texture, its own or one that it shares until it is written to.
class Picture
{
public:
    explicit Picture(Pooled<Texture> texture)
        : key(texture->key), hasCompanion(texture->companion != nullptr), texture_(std::move(texture))
    {
    }

    const TextureKey key;
    const bool hasCompanion; ///< as Texture::companion

    Context& context() const { return texture_.context(); }

    /// What the picture is read from. Only for who holds the recorder's lock: another thread's drawing may
    /// put another texture in its place.
    const Pooled<Texture>& texture() const { return texture_; }

    /// What to draw into, which nobody else has. Unless everything is replaced it holds what the picture
    /// held. Null when memory is exhausted. Before the uses of the batch's next commands are announced.
    Texture* forWriting(Batch& batch, bool replacesAll);

private:
    Pooled<Texture> texture_; // guarded by the recorder's lock
};

/// Copies all texels; both textures have the same key.
void recordCopy(Batch& batch, Texture& source, Texture& target);

/// A copy from or to a buffer of all texels.
VkBufferImageCopy wholeImage(const TextureKey& key);

} // namespace Qx::Host::Vulkan
