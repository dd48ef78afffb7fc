#include "host/gpu/Images.h"

#include "host/gpu/PrimitivesRenderer.h"

#include <cstdlib>
#include <cstring>

namespace Qx::Host::Vulkan {

namespace {

VkBufferImageCopy wholeImage(const TextureKey& key)
{
    VkBufferImageCopy region{};
    region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
    region.imageExtent = {key.width, key.height, std::max(key.depth, 1U)};
    return region;
}

TextureKey keyOf(XY<int> size, iGPUImage::eFormat format)
{
    return {vulkanFormat(format), static_cast<std::uint32_t>(size.x), static_cast<std::uint32_t>(size.y), 0};
}

TextureKey tableKey(int size)
{
    const auto edge = static_cast<std::uint32_t>(size);
    return {VK_FORMAT_R32G32B32A32_SFLOAT, edge, edge, edge};
}

bool recordUpload(Context& context, HostBuffer& source, Texture& target)
{
    return context.recorder().record(target.key.bytes(), Recorder::Submit::WhenDue, [&](Batch& batch) {
        batch.copyFrom(source);
        batch.copyTo(target);
        batch.flush();
        const VkBufferImageCopy region = wholeImage(target.key);
        vkCmdCopyBufferToImage(batch.commands(), source.buffer, target.image,
                               target.layoutFor(VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL), 1, &region);
        return true;
    }) != 0;
}

} // namespace

Qx::Ptr<iGraphicPrimitivesRenderer> GPUImage::getPrimitivesRenderer(int layer)
{
    return guarded(Qx::Ptr<iGraphicPrimitivesRenderer>(), [&]() -> Qx::Ptr<iGraphicPrimitivesRenderer> {
        if (layer != 1) {
            return {};
        }
        return Qx::makePtr<PrimitivesRenderer>(Qx::Ptr<GPUImage>(this));
    });
}

std::size_t HostImage::getPitch() const
{
    return static_cast<std::size_t>(size_.x) * bytesPerTexel(vulkanFormat(format_));
}

void* HostImage::map(eAccess access)
{
    return guarded(static_cast<void*>(nullptr), [&]() -> void* {
        const Operation operation(context());
        if (!operation) {
            return nullptr;
        }
        const std::uint64_t value = access == Read ? buffer_->lastWrite.load() : buffer_->lastUse.load();
        if (!context().recorder().wait(value)) {
            return nullptr;
        }
        buffer_->givenOut = true;
        return buffer_->memory.mapped;
    });
}

Qx::Ptr<HostImage3D> HostImage3D::create(int size)
{
    const auto edge = static_cast<std::size_t>(size);
    // calloc's pages cost nothing before they are touched, so that no size brings the machine down here.
    Entries entries(static_cast<float*>(std::calloc(edge * edge * edge, 4 * sizeof(float))));
    if (entries == nullptr) {
        return {};
    }
    return Qx::Ptr<HostImage3D>(new HostImage3D(size, std::move(entries)));
}

void HostImage3D::Free::operator()(float* entries) const noexcept
{
    std::free(entries);
}

Qx::Ptr<GPUImage> makeGPUImage(Context& context, XY<int> size, iGPUImage::eFormat format)
{
    if (!isSupported(context, size, format)) {
        return {};
    }
    Pooled<Texture> texture = acquireTexture(context, keyOf(size, format));
    return texture ? Qx::makePtr<GPUImage>(std::move(texture), size, format) : Qx::Ptr<GPUImage>();
}

Qx::Ptr<HostImage> makeHostImage(Context& context, XY<int> size, iGPUImage::eFormat format)
{
    if (!isSupported(context, size, format)) {
        return {};
    }
    Pooled<HostBuffer> buffer = acquireHostBuffer(context, keyOf(size, format).bytes());
    if (!buffer) {
        return {};
    }
    buffer->givenOut = false;
    return Qx::makePtr<HostImage>(std::move(buffer), size, format);
}

Qx::Ptr<GPUImage> upload(Context& context, HostImage& source)
{
    Qx::Ptr<GPUImage> image = makeGPUImage(context, source.getSize(), source.getFormat());
    if (!image || !recordUpload(context, source.buffer(), image->texture())) {
        return {};
    }
    return image;
}

Qx::Ptr<HostImage> download(Context& context, GPUImage& source)
{
    Qx::Ptr<HostImage> image = makeHostImage(context, source.getSize(), source.getFormat());
    if (!image) {
        return {};
    }
    Texture& texture = source.texture();
    HostBuffer& buffer = image->buffer();
    const auto value =
        context.recorder().record(texture.key.bytes(), Recorder::Submit::Now, [&](Batch& batch) {
            batch.copyFrom(texture);
            batch.copyTo(buffer);
            batch.flush();
            const VkBufferImageCopy region = wholeImage(texture.key);
            vkCmdCopyImageToBuffer(batch.commands(), texture.image,
                                   texture.layoutFor(VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL), buffer.buffer, 1,
                                   &region);
            batch.publish(buffer);
            return true;
        });
    return value != 0 ? image : Qx::Ptr<HostImage>();
}

bool copy(Context& context, GPUImage& source, GPUImage& target)
{
    Texture& from = source.texture();
    Texture& to = target.texture();
    const auto record = [&](Batch& batch) {
        batch.copyFrom(from);
        batch.copyTo(to);
        batch.flush();
        const VkImageSubresourceLayers layers{VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
        const VkImageCopy region{layers, {}, layers, {}, wholeImage(from.key).imageExtent};
        vkCmdCopyImage(batch.commands(), from.image, from.layoutFor(VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL),
                       to.image, to.layoutFor(VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL), 1, &region);
        return true;
    };
    return context.recorder().record(2 * from.key.bytes(), Recorder::Submit::WhenDue, record) != 0;
}

Qx::Ptr<GPUImage3D> upload(Context& context, const iHostImage3D& source)
{
    const int size = source.getSize();
    const TextureKey key = tableKey(size);
    Pooled<Texture> texture = acquireTexture(context, key);
    const Pooled<HostBuffer> staging = acquireHostBuffer(context, key.bytes());
    if (!texture || !staging) {
        return {};
    }
    std::memcpy(staging->memory.mapped, source.getData(), key.bytes());
    if (!recordUpload(context, *staging, *texture)) {
        return {};
    }
    return Qx::makePtr<GPUImage3D>(std::move(texture), size, source.getDomain());
}

bool isSupported3D(Context& context, int size)
{
    return size >= 2 && static_cast<std::uint32_t>(size) <= context.device().limits().maxImageDimension3D &&
           tableKey(size).bytes() <= context.device().largestHeap();
}

Texture* textureOf(Context& context, iGPUResource* resource)
{
    if (auto* image = dynamic_cast<GPUImage*>(resource); image != nullptr && &image->context() == &context) {
        return &image->texture();
    }
    if (auto* table = dynamic_cast<GPUImage3D*>(resource);
        table != nullptr && &table->context() == &context) {
        return &table->texture();
    }
    return nullptr;
}

} // namespace Qx::Host::Vulkan
