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

/// Whether the file is now as it was then. A relative path is taken from that directory.
bool isUnchanged(const EffectInput& input, const std::filesystem::path& directory);

} // namespace Qx::Host
