#pragma once

#include "host/cache/Sha256.h"
#include "platform/Api.h"

#include <filesystem>
#include <optional>

namespace Qx::Host {

/// A file that a compilation looked for.
struct EffectInput
{
    std::filesystem::path path; ///< as opened
    std::optional<Cache::Digest>
        content; ///< digest of the bytes that were read; nothing if there was no file
};

/// Whether the file still has that content. A relative path is relative to `directory`.
QX_LOCAL bool isUnchanged(const EffectInput& input, const std::filesystem::path& directory);

} // namespace Qx::Host
