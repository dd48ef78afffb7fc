#pragma once

#include "host/effects/spirv/SpirvModule.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>

namespace Qx::Host::Effects::Spirv {

/// How a number of a shader depends on the shader's inputs.
struct Form
{
    enum class Kind : std::uint8_t
    {
        Uniform, ///< not at all: it may depend on uniforms, and on textures at fixed places
        Affine,  ///< a sum of the inputs, each times a number that is Uniform, and a number that is
        Other
    };

    Kind kind = Kind::Uniform;
    std::optional<float> value;               ///< of a constant
    std::optional<std::uint32_t> copiedInput; ///< the component of the input that it is

    friend bool operator==(const Form&, const Form&) = default;
};

/// The components of the float4 outputs of a fragment shader, by location, as forms of the components of its
/// one input, a float4. The module is optimized. A number is said to be Other if it cannot be told, and
/// constant or a copy only if it certainly is.
std::map<std::uint32_t, std::array<Form, 4>> outputForms(const Words& spirv);

} // namespace Qx::Host::Effects::Spirv
