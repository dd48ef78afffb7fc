#pragma once

#include "host/effects/EffectCompiler.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace Qx::Host {

/// Raised with every change to what the bytes mean, and whenever the compiler comes to another result for the
/// same text.
inline constexpr std::uint32_t effectArchiveVersion = 8;

/// The result of a compilation as bytes, the same on every machine: to keep it, or to hand it to another
/// process. Throws std::bad_alloc only.
std::vector<std::byte> writeEffectArchive(const EffectCompilation& compilation);

/// The result that the bytes hold; empty when they are no archive of this version, or not a whole one, or
/// hold an effect that the compiler could not have made: numbers out of their range, parameters that overlap
/// the end of the uniform buffer, indices of what is not there, shaders that are no SPIR-V. Bytes of any
/// origin are safe to read, and take memory in proportion to their number. That a shader of a valid
/// appearance is one that a driver takes is for the caller to know. Throws std::bad_alloc only.
std::optional<EffectCompilation> readEffectArchive(std::span<const std::byte> bytes);

} // namespace Qx::Host
