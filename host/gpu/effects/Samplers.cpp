#include "host/gpu/effects/Samplers.h"

namespace Qx::Host::Vulkan {

namespace {

VkSamplerAddressMode addressMode(CompiledEffect::Address address)
{
    switch (address) {
    case CompiledEffect::Address::Clamp:
        return VK_SAMPLER_ADDRESS_MODE_CLAMP_TO_EDGE;
    case CompiledEffect::Address::Wrap:
        return VK_SAMPLER_ADDRESS_MODE_REPEAT;
    case CompiledEffect::Address::Mirror:
        return VK_SAMPLER_ADDRESS_MODE_MIRRORED_REPEAT;
    case CompiledEffect::Address::Border:
        break;
    }
    return VK_SAMPLER_ADDRESS_MODE_CLAMP_TO_BORDER;
}

} // namespace

VkSampler Samplers::get(CompiledEffect::Filter filter, CompiledEffect::Address u, CompiledEffect::Address v,
                        bool allLevels)
{
    const std::size_t kind = static_cast<std::size_t>(filter) * 2 + (allLevels ? 1 : 0);
    const std::size_t index =
        (kind * addressModes + static_cast<std::size_t>(u)) * addressModes + static_cast<std::size_t>(v);
    const std::lock_guard lock(mutex_);
    VkSampler& sampler = samplers_.at(index);
    if (sampler == nullptr) {
        VkSamplerCreateInfo info{};
        info.sType = VK_STRUCTURE_TYPE_SAMPLER_CREATE_INFO;
        info.magFilter = filter == CompiledEffect::Filter::Linear ? VK_FILTER_LINEAR : VK_FILTER_NEAREST;
        info.minFilter = info.magFilter;
        info.mipmapMode = VK_SAMPLER_MIPMAP_MODE_NEAREST;
        info.maxLod = allLevels ? VK_LOD_CLAMP_NONE : 0.0F;
        info.addressModeU = addressMode(u);
        info.addressModeV = addressMode(v);
        info.addressModeW = info.addressModeV;
        // The same in every order of components, so that swizzled views do not matter.
        info.borderColor = VK_BORDER_COLOR_FLOAT_TRANSPARENT_BLACK;
        if (!device_.succeeded(vkCreateSampler(device_.handle(), &info, nullptr, &sampler),
                               "making a sampler")) {
            sampler = nullptr;
        }
    }
    return sampler;
}

void Samplers::destroy()
{
    const std::lock_guard lock(mutex_);
    for (VkSampler& sampler : samplers_) {
        vkDestroySampler(device_.handle(), sampler, nullptr);
        sampler = nullptr;
    }
}

} // namespace Qx::Host::Vulkan
