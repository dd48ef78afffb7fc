#include "host/effects/EffectInput.h"

#include "host/cache/ReadWhole.h"
#include "host/effects/Preprocessor.h"

#include <system_error>

namespace Qx::Host {

std::optional<Cache::Digest> digestOfFile(const std::filesystem::path& file)
{
    const auto bytes = Cache::readWhole(file, Effects::Limits::fileBytes);
    return bytes ? std::optional(Cache::digestOf(*bytes)) : std::nullopt;
}

bool isUnchanged(const EffectInput& input, const std::filesystem::path& directory)
{
    const std::filesystem::path path = directory / input.path;
    if (input.content) {
        return digestOfFile(path) == input.content;
    }
    std::error_code error;
    return !std::filesystem::is_regular_file(path, error);
}

} // namespace Qx::Host
