#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/native/NativeCode.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Qx::Host::Tests {

/// The module that makes native code, beside the test program. A test fails without it.
const Native::Library& nativeLibrary();

/// The shipped effect files, by name.
std::vector<std::string> shippedFiles();
std::filesystem::path shippedFile(const std::string& name);

/// A shipped effect with shaders of single texels. Compiled once.
const CompiledEffect& shippedEffect(const std::string& name);

/// A picture, or a table of floats if it has a depth.
struct NativePicture
{
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t depth = 0;
    std::uint32_t bits = 8;         ///< of a component
    std::vector<std::byte> bytes{}; ///< without padding

    /// Noise, in which each eighth component is 0 and each eighth the largest code.
    static NativePicture noise(std::uint32_t width, std::uint32_t height, std::uint32_t bits,
                               std::uint32_t seed);
    /// Floats from 0 to 1.
    static NativePicture table(std::uint32_t points);

    std::uint32_t texelBytes() const { return depth > 0 ? 16 : bits / 2; }
    std::size_t rowBytes() const { return std::size_t{width} * texelBytes(); }
};

/// What is drawn of an effect: the pictures by texture, and values of parameters that are not the defaults.
struct NativeDraw
{
    const CompiledEffect& effect;
    const CompiledEffect::PackedShader& shader;
    std::vector<NativePicture> pictures;
    std::map<std::string, float> settings;
    std::uint32_t width;
    std::uint32_t height;
};

/// The texels of each binding.
std::vector<Native::Texels> texelsOf(const CompiledEffect& effect,
                                     const CompiledEffect::PackedShader& shader);

/// The uniforms that the host would fill in.
std::vector<std::byte> uniformsOf(const NativeDraw& draw);

/// The bytes of the picture that native code draws, without padding. A test fails if anything beside it is
/// written, and ends if anything beside the buffers is read.
std::vector<std::byte> drawnBy(const Native::Code& code, const NativeDraw& draw);

} // namespace Qx::Host::Tests
