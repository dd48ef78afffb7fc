#include "host/effects/framework/EffectInput.h"

#include "host/effects/framework/Limits.h"
#include "host/files/ReadFile.h"

#include <system_error>

namespace Qx::Host {

bool isUnchanged(const EffectInput& input, const std::filesystem::path& directory)
{
    const std::filesystem::path path = directory / input.path;
    if (!input.content) {
        std::error_code error;
        return !std::filesystem::is_regular_file(path, error);
    }
    const auto bytes = readFile(path, Effects::Limits::fileBytes);
    return bytes && Cache::digestOf(*bytes) == *input.content;
}

} // namespace Qx::Host
