#include "host/gpu/sharing/SharedPictures.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Qx::Host::Vulkan {

namespace {

/// A format of images that applications have.
struct SharedFormat
{
    VkFormat format;
    iGPUImage::eFormat texels;
    bool isReinterpreted; ///< views have the format of `texels`
};

const SharedFormat* sharedFormat(VkFormat format)
{
    static constexpr std::array<SharedFormat, 6> formats{{
        {VK_FORMAT_R8G8B8A8_UNORM, iGPUImage::eARGB8, false},
        {VK_FORMAT_R16G16B16A16_UNORM, iGPUImage::eARGB16, false},
        {VK_FORMAT_A2R10G10B10_UNORM_PACK32, iGPUImage::eARGB10, false},
        {VK_FORMAT_R8G8B8A8_SRGB, iGPUImage::eARGB8, true},
        {VK_FORMAT_B8G8R8A8_UNORM, iGPUImage::eARGB8, true},
        {VK_FORMAT_B8G8R8A8_SRGB, iGPUImage::eARGB8, true},
    }};
    const auto* const found = std::find_if(formats.begin(), formats.end(),
                                           [format](const auto& each) { return each.format == format; });
    return found != formats.end() ? &*found : nullptr;
}

std::string namesOfUses(VkImageUsageFlags uses)
{
    static constexpr std::array<std::pair<VkImageUsageFlags, const char*>, 4> names{{
        {VK_IMAGE_USAGE_SAMPLED_BIT, "VK_IMAGE_USAGE_SAMPLED_BIT"},
        {VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT, "VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT"},
        {VK_IMAGE_USAGE_TRANSFER_SRC_BIT, "VK_IMAGE_USAGE_TRANSFER_SRC_BIT"},
        {VK_IMAGE_USAGE_TRANSFER_DST_BIT, "VK_IMAGE_USAGE_TRANSFER_DST_BIT"},
    }};
    std::string list;
    for (const auto& [use, name] : names) {
        if ((uses & use) != 0) {
            list += (list.empty() ? "" : ", ") + std::string(name);
        }
    }
    return list;
}

/// Why the application's image cannot be used; empty if it can.
std::string obstacleTo(Context& context, const ApplicationImage& image)
{
    const SharedFormat* const format = sharedFormat(image.format);
    if (image.image == nullptr) {
        return "ApplicationImage::image is null";
    }
    if (format == nullptr) {
        return "its format is VkFormat " + std::to_string(image.format) +
               ", expected 37 (R8G8B8A8_UNORM), 91 (R16G16B16A16_UNORM), 58 (A2R10G10B10_UNORM_PACK32) or "
               "another of four components of 8 bits";
    }
    if (format->isReinterpreted && (image.flags & VK_IMAGE_CREATE_MUTABLE_FORMAT_BIT) == 0) {
        return "its format is VkFormat " + std::to_string(image.format) +
               ", for which it must be created with VK_IMAGE_CREATE_MUTABLE_FORMAT_BIT";
    }
    if (const VkImageUsageFlags missing = requiredImageUsage & ~image.usage; missing != 0) {
        return "it was created without " + namesOfUses(missing) + "; see requiredImageUsage";
    }
    if (!isSupported(context, image.size, format->texels)) {
        return "its size of " + std::to_string(image.size.x) + " x " + std::to_string(image.size.y) +
               " is not one of the device's";
    }
    return {};
}

} // namespace

void refuseSharing(const std::string& reason)
{
    report("GPU: " + reason);
}

Pooled<Texture> adopted(Context& context, std::unique_ptr<Texture> texture)
{
    context.textures().adopt(*texture);
    return {context.shared_from_this(), std::move(texture)};
}

TextureKey keyOf(XY<int> size, VkFormat format)
{
    return {format, static_cast<std::uint32_t>(size.x), static_cast<std::uint32_t>(size.y), 0};
}

bool isExchanged(Context& context, GPUImage& image)
{
    return context.recorder().locked([&] { return image.picture().texture()->origin == Origin::Exchanged; });
}

Qx::Ptr<GPUImage> wrap(Context& context, const ApplicationImage& image, VkImageLayout layout,
                       const DevicePoint& ready)
{
    if (const std::string obstacle = obstacleTo(context, image); !obstacle.empty()) {
        refuseSharing("the application's image cannot be used: " + obstacle);
        return {};
    }
    const iGPUImage::eFormat texels = sharedFormat(image.format)->texels;
    auto texture = std::make_unique<Texture>();
    texture->key = keyOf(image.size, vulkanFormat(texels));
    texture->origin = Origin::Application;
    texture->image = image.image;
    if (!context.device().succeeded(texture->createViews(context.device()),
                                    "creating views of the application's image")) {
        texture->destroy(context.device(), context.memory());
        return {};
    }
    const Pooled<Texture> held = adopted(context, std::move(texture));
    const std::uint64_t value =
        context.recorder().recordAfter(ready, [&](Batch& batch) { batch.takeBack(*held, layout); });
    return value != 0 ? Qx::makePtr<GPUImage>(held, image.size, texels) : Qx::Ptr<GPUImage>();
}

std::optional<GivenImage> give(Context& context, GPUImage& image, VkImageLayout layout)
{
    if (layout == VK_IMAGE_LAYOUT_UNDEFINED || layout == VK_IMAGE_LAYOUT_PREINITIALIZED) {
        refuseSharing(
            "an image cannot be given in the layout UNDEFINED or PREINITIALIZED: its texels would be lost");
        return {};
    }
    if (isExchanged(context, image)) {
        layout = VK_IMAGE_LAYOUT_GENERAL; // in which processes pass images on
    }
    GivenImage given;
    const auto record = [&](Batch& batch) {
        // Not the texture of a host image too, which the application would change with it.
        Texture* const texture = image.picture().forWriting(batch, false);
        if (texture == nullptr) {
            return false;
        }
        batch.giveAway(*texture, layout);
        given.image = texture->image;
        given.format = texture->key.format;
        given.layout = texture->use.layout;
        texture->given = true;
        image.given = true;
        return true;
    };
    const std::uint64_t value =
        context.recorder().record(image.picture().key.bytes(), Recorder::Submit::Now, record);
    given.ready = context.recorder().pointOf(value);
    return value != 0 ? std::optional(given) : std::nullopt;
}

bool takeBack(Context& context, GPUImage& image, VkImageLayout layout, const DevicePoint& ready)
{
    if (!image.given) {
        refuseSharing("an image cannot be taken back: the application has not got it");
        return false;
    }
    const Picture& picture = image.picture();
    const bool isExternal = isExchanged(context, image);
    if ((picture.hasCompanion || isExternal) && layout != VK_IMAGE_LAYOUT_GENERAL) {
        refuseSharing("an image cannot be taken back in VkImageLayout " + std::to_string(layout) +
                      ": it was given in the layout GENERAL, and must be returned in it");
        return false;
    }
    return context.recorder().recordAfter(ready, [&](Batch& batch) {
        Texture& texture = *picture.texture();
        batch.takeBack(texture, layout);
        texture.given = false;
        image.given = false;
    }) != 0;
}

} // namespace Qx::Host::Vulkan
