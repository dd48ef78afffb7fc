#include "host/gpu/GPUService.h"
#include "host/gpu/sharing/ExchangedMemory.h"
#include "host/gpu/sharing/SharedPictures.h"

// The service's images that an application uses too.

namespace Qx::Host {

bool GPUService::holdsDevice()
{
    const std::lock_guard lock(mutex_);
    return context_ != nullptr && context_->holdsDevice();
}

Qx::Ptr<iGPUImage> ImageSharing::wrapImage(const ApplicationImage& image, VkImageLayout layout,
                                           const DevicePoint& ready)
{
    return Vulkan::operate<Qx::Ptr<iGPUImage>>(service_.context(),
                                               [&](Vulkan::Context& context) -> Qx::Ptr<iGPUImage> {
                                                   return Vulkan::wrap(context, image, layout, ready);
                                               });
}

std::optional<GivenImage> ImageSharing::giveImage(const Qx::Ptr<iGPUImage>& image, VkImageLayout layout)
{
    return Vulkan::operate<std::optional<GivenImage>>(
        service_.context(), [&](Vulkan::Context& context) -> std::optional<GivenImage> {
            Vulkan::GPUImage* const ours = Vulkan::usableImage(context, image.get());
            return ours != nullptr ? Vulkan::give(context, *ours, layout) : std::nullopt;
        });
}

bool ImageSharing::takeImage(const Qx::Ptr<iGPUImage>& image, VkImageLayout layout, const DevicePoint& ready)
{
    return Vulkan::operate<bool>(service_.context(), [&](Vulkan::Context& context) {
        auto* const ours = dynamic_cast<Vulkan::GPUImage*>(image.get());
        return ours != nullptr && &ours->context() == &context &&
               Vulkan::takeBack(context, *ours, layout, ready);
    });
}

bool ImageSharing::canExport(MemoryHandle handle, iGPUImage::eFormat format)
{
    return Vulkan::operate<bool>(service_.context(), [&](Vulkan::Context& context) {
        return Vulkan::canExchange(context, handle, format, VK_EXTERNAL_MEMORY_FEATURE_EXPORTABLE_BIT);
    });
}

bool ImageSharing::canImport(MemoryHandle handle, iGPUImage::eFormat format)
{
    return Vulkan::operate<bool>(service_.context(), [&](Vulkan::Context& context) {
        return Vulkan::canExchange(context, handle, format, VK_EXTERNAL_MEMORY_FEATURE_IMPORTABLE_BIT);
    });
}

Qx::Ptr<iGPUImage> ImageSharing::createExportableImage(XY<int> size, iGPUImage::eFormat format,
                                                       MemoryHandle handle)
{
    return Vulkan::operate<Qx::Ptr<iGPUImage>>(
        service_.context(), [&](Vulkan::Context& context) -> Qx::Ptr<iGPUImage> {
            return Vulkan::makeExportable(context, size, format, handle);
        });
}

std::optional<ExportedImage> ImageSharing::exportImage(const Qx::Ptr<iGPUImage>& image)
{
    return Vulkan::operate<std::optional<ExportedImage>>(
        service_.context(), [&](Vulkan::Context& context) -> std::optional<ExportedImage> {
            Vulkan::GPUImage* const ours = Vulkan::usableImage(context, image.get());
            return ours != nullptr ? Vulkan::exportMemory(context, *ours) : std::nullopt;
        });
}

Qx::Ptr<iGPUImage> ImageSharing::importImage(const ExportedImage& exported)
{
    return Vulkan::operate<Qx::Ptr<iGPUImage>>(service_.context(),
                                               [&](Vulkan::Context& context) -> Qx::Ptr<iGPUImage> {
                                                   return Vulkan::importMemory(context, exported);
                                               });
}

bool ImageSharing::wait(const GivenImage& given)
{
    return Vulkan::operate<bool>(service_.context(), [&](Vulkan::Context& context) {
        return context.recorder().wait(given.ready.value);
    });
}

} // namespace Qx::Host
