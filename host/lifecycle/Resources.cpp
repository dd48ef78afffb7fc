#include "platform/Text.h"

#include <algorithm>
#include <iterator>

namespace {

struct Resource
{
    int number;
    const wchar_t* text;
};

constexpr Resource resources[] = {
    {13226, L"Compiling effects"},
};

} // namespace

LightweightString<wchar_t> resourceStrW(int resource)
{
    const auto* found = std::find_if(std::begin(resources), std::end(resources),
                                     [&](const Resource& r) { return r.number == resource; });
    return found != std::end(resources) ? LightweightString<wchar_t>(found->text)
                                        : LightweightString<wchar_t>();
}
