#include "host/effects/framework/SamplerType.h"

#include "host/effects/framework/SourceText.h"

#include <algorithm>
#include <array>

namespace Qx::Host::Effects {

std::optional<SamplerType> SamplerType::named(std::string_view name)
{
    if (equalIgnoringCase(name, "sampler")) {
        return SamplerType{true, 2, false};
    }
    if (equalIgnoringCase(name, "sampler3D")) {
        return SamplerType{false, 3, false};
    }
    if (equalIgnoringCase(name, "samplerCUBE")) {
        return SamplerType{false, 2, true};
    }
    const bool picture = equalIgnoringCase(name, "sampler2D") || equalIgnoringCase(name, "sampler1D");
    return picture ? std::optional(SamplerType{}) : std::nullopt;
}

bool isTextureType(std::string_view name)
{
    static constexpr std::array<std::string_view, 5> types{"texture", "texture1D", "texture2D", "texture3D",
                                                           "textureCUBE"};
    return std::any_of(types.begin(), types.end(),
                       [&](std::string_view type) { return equalIgnoringCase(name, type); });
}

bool readsVolume(std::string_view name)
{
    return name.substr(0, 5) == "tex3D";
}

bool readsCube(std::string_view name)
{
    return name.substr(0, 7) == "texCUBE" || name == "qxfx_levelCUBE";
}

} // namespace Qx::Host::Effects
