#include "tests/effects/ManyParts.h"

namespace Qx::Host::Tests {

std::string repeated(const std::string& text, std::size_t count)
{
    std::string result;
    result.reserve(text.size() * count);
    for (std::size_t i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

std::string numbered(std::size_t count, const std::function<std::string(const std::string&)>& text)
{
    std::string result;
    for (std::size_t i = 0; i < count; ++i) {
        result += text(std::to_string(i));
    }
    return result;
}

} // namespace Qx::Host::Tests
