#pragma once

#include "host/gpu/device/Context.h"

namespace Qx::Host::Vulkan {

/// The contents of an image on the device: a texture of its own, or one that it shares until it is written
/// to.
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

    /// The texture to read from. Only for holders of the recorder's lock, since a draw on another thread may
    /// replace it.
    const Pooled<Texture>& texture() const { return texture_; }

    /// The texture to write to, which no other image shares. It holds the picture's contents, unless
    /// `replacesAll`. Null if memory is exhausted. Call it before the uses of the batch's next commands are
    /// announced.
    Texture* forWriting(Batch& batch, bool replacesAll);

    /// The same for what replaces all contents, without a batch.
    Texture* forReplacing();

private:
    Pooled<Texture> texture_; // guarded by the recorder's lock
};

/// Records a copy of all texels between textures of the same key.
void recordCopy(Batch& batch, Texture& source, Texture& target);

/// Records a copy of an area to the first texels of another texture of the same format.
void recordCopy(Batch& batch, Texture& source, const VkRect2D& area, Texture& target);

/// A texture of at least that size for the length of a draw: of few different sizes, so that the next draw
/// finds one in the pool. As acquireTexture().
Pooled<Texture> acquireScratch(Context& context, VkFormat format, VkExtent2D size);

/// The region of all texels, for copies from or to a buffer.
VkBufferImageCopy wholeImage(const TextureKey& key);

} // namespace Qx::Host::Vulkan
