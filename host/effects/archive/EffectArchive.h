#pragma once

#include "host/effects/EffectCompiler.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace Qx::Host {

/// Raised with every change to the format, and whenever the compiler's result for the same text changes.
inline constexpr std::uint32_t effectArchiveVersion = 24;

/// Writes the result of a compilation as bytes, the same on every machine: to store it, or to send it to
/// another process. Throws std::bad_alloc only.
std::vector<std::byte> writeEffectArchive(const EffectCompilation& compilation);

/// Reads the result of a compilation. Returns nothing if the bytes are not a whole archive of this version,
/// or if they hold an effect that the compiler could not have made: numbers out of range, parameters beyond
/// the end of the uniform buffer, invalid indices, shaders that are not SPIR-V. Bytes of any origin are safe
/// to read, and take memory in proportion to their number. Does not check that a driver accepts the shaders.
/// Throws std::bad_alloc only.
std::optional<EffectCompilation> readEffectArchive(std::span<const std::byte> bytes);

} // namespace Qx::Host
