#pragma once

#include "host/cache/Sha256.h"

#include <filesystem>
#include <optional>

namespace Qx::Host {

/// A file that a compilation looked for.
struct EffectInput
{
    std::filesystem::path path; ///< as opened
    std::optional<Cache::Digest>
        content; ///< of the bytes that were read; none when no file was there to read
};

/// Whether another look at the file would find the same: its bytes, or nothing to read. A relative path
/// starts from `directory`.
bool isUnchanged(const EffectInput& input, const std::filesystem::path& directory);

} // namespace Qx::Host
