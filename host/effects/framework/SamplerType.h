#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace Qx::Host::Effects {

/// The type of a sampler.
struct SamplerType
{
    bool generic = false;         ///< "sampler", which any function may read
    std::uint32_t dimensions = 2; ///< of its texture: 3 for a volume; lines and cubes are pictures too
    bool cube = false;            ///< its picture is the six faces of a cube

    /// The name in plain HLSL.
    std::string_view spelling() const { return dimensions == 3 ? "sampler3D" : "sampler2D"; }

    /// The type of that name, ignoring case; nothing for other names. SamplerState is none: it is only
    /// states.
    static std::optional<SamplerType> named(std::string_view name);
};

/// Whether the name is the type of a texture, ignoring case.
bool isTextureType(std::string_view name);

/// Whether the name is a function that reads a volume: tex3D and its variants.
bool readsVolume(std::string_view name);

/// Whether the name is a function that reads a cube: texCUBE and its variants.
bool readsCube(std::string_view name);

} // namespace Qx::Host::Effects
