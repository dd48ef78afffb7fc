#include "host/gpu/images/SharedImage.h"

#include "host/gpu/device/DrawingPath.h"

#include <mutex>

namespace Qx::Host::Vulkan {

namespace {

class SharedImage final : public HostImage
{
public:
    SharedImage(Pooled<Texture> texture, XY<int> size, iGPUImage::eFormat format)
        : HostImage(size, format), context_(texture.context()), texture_(std::move(texture))
    {
        texture_->hosted = true;
    }
    ~SharedImage() override
    {
        texture_->givenOut = false;
        texture_->hosted = false;
    }
    SharedImage(const SharedImage&) = delete;
    SharedImage& operator=(const SharedImage&) = delete;

    void* map(eAccess access) override;
    Qx::Ptr<GPUImage> upload() override;
    Context& context() const override { return context_; }

private:
    bool moveOthers();

    Context& context_;
    std::mutex mutex_;
    Pooled<Texture> texture_; // guarded by mutex_, and changed under the recorder's lock
};

void* SharedImage::map(eAccess access)
{
    return guarded(static_cast<void*>(nullptr), [&]() -> void* {
        const Operation operation(context());
        if (!operation) {
            return nullptr;
        }
        std::uint64_t value = 0;
        void* address = nullptr;
        {
            const std::lock_guard lock(mutex_);
            if (access == Write && texture_.isShared() && !moveOthers()) {
                return nullptr;
            }
            value = access == Read ? texture_->lastWrite : texture_->lastUse;
            address = texture_->memory.mapped;
            texture_->givenOut = true;
        }
        return context().recorder().wait(value) ? address : nullptr;
    });
}

/// Moves the GPU images to a copy.
bool SharedImage::moveOthers()
{
    Pooled<Texture> spare = acquireTexture(context(), texture_->key);
    // Those images are drawn by the path that their texture had; one without views for it is no replacement.
    if (!spare || (spare->companion == nullptr) != (texture_->companion == nullptr)) {
        return false;
    }
    const auto record = [&](Batch& batch) {
        recordCopy(batch, *texture_, *spare);
        texture_->exchange(*spare);
        texture_ = std::move(spare);
        return true;
    };
    return context().recorder().record(2 * spare->key.bytes(), Recorder::Submit::WhenDue, record) != 0;
}

Qx::Ptr<GPUImage> SharedImage::upload()
{
    const std::lock_guard lock(mutex_);
    ++context_.sharedTransfers;
    return Qx::makePtr<GPUImage>(texture_, getSize(), getFormat());
}

} // namespace

bool mayShareMemory(const Device& device, const TextureKey& key)
{
    const DrawingPath* path = device.drawingPath();
    return path != nullptr && path->mayLieAsHostImage(key);
}

Qx::Ptr<HostImage> makeSharedImage(Pooled<Texture> texture, XY<int> size, iGPUImage::eFormat format)
{
    return Qx::makePtr<SharedImage>(std::move(texture), size, format);
}

Qx::Ptr<HostImage> shareTexture(Context& context, GPUImage& source)
{
    std::uint64_t value = 0;
    Qx::Ptr<HostImage> image = context.recorder().locked([&]() -> Qx::Ptr<HostImage> {
        const Pooled<Texture>& texture = source.picture().texture();
        if (!texture->inHostMemory || texture->hosted) {
            return {};
        }
        value = texture->lastWrite;
        return Qx::makePtr<SharedImage>(texture, source.getSize(), source.getFormat());
    });
    if (!image || !context.recorder().submit(value)) {
        return {};
    }
    ++context.sharedTransfers;
    return image;
}

} // namespace Qx::Host::Vulkan
