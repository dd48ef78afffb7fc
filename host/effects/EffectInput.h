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

/// The digest of a file that an effect could be made of; none when there is no such file to read.
std::optional<Cache::Digest> digestOfFile(const std::filesystem::path& file);

/// Whether another look at the file would find the same: its bytes, or nothing to read. A relative path
/// starts from `directory`, or from where the process stands when that is empty.
bool isUnchanged(const EffectInput& input, const std::filesystem::path& directory = {});

} // namespace Qx::Host
