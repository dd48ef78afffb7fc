#include "host/gpu/images/Images.h"

#include "host/gpu/FloatImages.h"
#include "host/gpu/drawing/PrimitivesRenderer.h"
#include "host/gpu/images/SharedImage.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace Qx::Host::Vulkan {

namespace {

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
        batch.upload(source, target);
        return true;
    }) != 0;
}

/// An image in a buffer of its own, which the device copies from and to.
class CopiedImage final : public HostImage
{
public:
    CopiedImage(Pooled<HostBuffer> buffer, XY<int> size, iGPUImage::eFormat format)
        : HostImage(size, format), buffer_(std::move(buffer))
    {
    }

    void* map(eAccess access) override;
    Qx::Ptr<GPUImage> upload() override;
    HostBuffer& buffer() const { return *buffer_; }
    Context& context() const override { return buffer_.context(); }

private:
    const Pooled<HostBuffer> buffer_;
};

Qx::Ptr<CopiedImage> makeCopiedImage(Context& context, XY<int> size, iGPUImage::eFormat format)
{
    Pooled<HostBuffer> buffer = acquireHostBuffer(context, keyOf(size, format).bytes());
    if (!buffer) {
        return {};
    }
    buffer->givenOut = false;
    return Qx::makePtr<CopiedImage>(std::move(buffer), size, format);
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

void* CopiedImage::map(eAccess access)
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

Qx::Ptr<GPUImage> CopiedImage::upload()
{
    Pooled<Texture> texture = acquireTextureForUpload(context(), keyOf(getSize(), getFormat()));
    if (!texture || !recordUpload(context(), *buffer_, *texture)) {
        return {};
    }
    return Qx::makePtr<GPUImage>(std::move(texture), getSize(), getFormat());
}

Qx::Ptr<HostImage3D> HostImage3D::create(int size)
{
    const auto edge = static_cast<std::size_t>(size);
    // calloc's pages take no memory before they are touched, so that no size exhausts the machine here.
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
    const TextureKey key = keyOf(size, format);
    if (mayShareMemory(context.device(), key)) {
        Pooled<Texture> texture = acquireIdleTexture(context, key);
        if (!texture) {
            return {};
        }
        if (texture->inHostMemory) {
            return makeSharedImage(std::move(texture), size, format);
        }
    }
    return makeCopiedImage(context, size, format);
}

Qx::Ptr<HostImage> download(Context& context, GPUImage& source)
{
    if (Qx::Ptr<HostImage> shared = shareTexture(context, source)) {
        return shared;
    }
    const Qx::Ptr<CopiedImage> image = makeCopiedImage(context, source.getSize(), source.getFormat());
    if (!image) {
        return {};
    }
    HostBuffer& buffer = image->buffer();
    const auto value =
        context.recorder().record(source.picture().key.bytes(), Recorder::Submit::Now, [&](Batch& batch) {
            batch.download(*source.picture().texture(), buffer);
            return true;
        });
    return value != 0 ? Qx::Ptr<HostImage>(image) : Qx::Ptr<HostImage>();
}

bool copy(Context& context, GPUImage& source, GPUImage& target)
{
    const std::uint64_t bytes = 2 * source.picture().key.bytes();
    return context.recorder().record(bytes, Recorder::Submit::WhenDue, [&](Batch& batch) {
        Texture* const to = target.picture().forWriting(batch, true);
        if (to == nullptr) {
            return false;
        }
        recordCopy(batch, *source.picture().texture(), *to);
        return true;
    }) != 0;
}

Qx::Ptr<GPUImage3D> upload(Context& context, const iHostImage3D& source)
{
    const int size = source.getSize();
    const TextureKey key = tableKey(size);
    Pooled<Texture> texture = acquireTextureForUpload(context, key);
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
           tableKey(size).bytes() <=
               std::min(context.device().largestHeap(), context.device().physical().largestAllocation);
}

GPUImage* usableImage(Context& context, iGPUResource* resource)
{
    auto* image = dynamic_cast<GPUImage*>(resource);
    if (image == nullptr || &image->context() != &context) {
        return nullptr;
    }
    if (image->given) {
        report("GPU: an image cannot be used while the application has it: takeImage() gives it back to the "
               "service");
        return nullptr;
    }
    return image;
}

Picture* pictureOf(Context& context, iGPUResource* resource)
{
    if (GPUImage* const image = usableImage(context, resource)) {
        return &image->picture();
    }
    if (auto* table = dynamic_cast<GPUImage3D*>(resource);
        table != nullptr && &table->context() == &context) {
        return &table->picture();
    }
    return nullptr;
}

} // namespace Qx::Host::Vulkan
