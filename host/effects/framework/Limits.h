#pragma once

#include <cstddef>

namespace Qx::Host::Effects {

/// Limits of one compilation. An effect that exceeds one is refused with a message.
struct Limits
{
    static constexpr std::size_t fileBytes = 4U << 20U;
    static constexpr std::size_t tokens = 1U << 20U; ///< of one file, and of the effect after preprocessing
    static constexpr std::size_t tokenBytes = 16U << 20U; ///< of the tokens of the effect after preprocessing
    static constexpr std::size_t readBytes = 64U << 20U;  ///< of all inclusions together
    static constexpr std::size_t readTokens = 4U << 20U;  ///< of all inclusions together
    static constexpr std::size_t steps = 8U << 20U; ///< of preprocessing, including those without a result
    static constexpr std::size_t inclusions = 4096;
    static constexpr std::size_t includeDepth = 32;
    static constexpr std::size_t macroDepth = 64; ///< of macro calls within macro arguments
    static constexpr std::size_t macroParameters = 256;
    static constexpr std::size_t nesting = 128;    ///< of brackets, and of expressions
    static constexpr std::size_t textBytes = 4096; ///< of a name or a string
    static constexpr std::size_t techniques = 4096;
    static constexpr std::size_t passes = 4096;        ///< of all techniques together
    static constexpr std::size_t declarations = 16384; ///< of functions, types, constants, textures, samplers
    static constexpr std::size_t functionParameters = 256;
    static constexpr std::size_t structNumbers = 4096;
    static constexpr std::size_t uniformBytes = 16384; ///< the least maximum of a Vulkan device
    static constexpr std::size_t parameterElements = uniformBytes / 16; ///< of an array of parameters
    static constexpr std::size_t samplerElements = 16; ///< of an array of samplers or textures
    static constexpr double arrayElements = 4096;      ///< of other arrays, over all dimensions
};

} // namespace Qx::Host::Effects
