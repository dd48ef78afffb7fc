#include "host/effects/EffectInput.h"

#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace Qx::Host {

bool isUnchanged(const EffectInput& input, const std::filesystem::path& directory)
{
    std::error_code error;
    const std::filesystem::path path = directory / input.path;
    if (!std::filesystem::is_regular_file(path, error)) {
        return !input.content;
    }
    std::ifstream stream(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    return stream && input.content == Cache::digestOf(text);
}

} // namespace Qx::Host
