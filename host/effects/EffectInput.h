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

} // namespace Qx::Host
