#include "host/files/NamePattern.h"

#include "Qx/LightweightString.h"

#include <cstddef>

namespace Qx::Host {

// Only the last '*' needs backtracking, so that the time is bounded by the product of both lengths.
bool matchesPattern(std::wstring_view name, std::wstring_view pattern)
{
    std::size_t n = 0;
    std::size_t p = 0;
    std::size_t star = std::wstring_view::npos;
    std::size_t nameAtStar = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == L'*') {
            star = p++;
            nameAtStar = n;
        } else if (p < pattern.size() && (pattern[p] == L'?' || foldCase(pattern[p]) == foldCase(name[n]))) {
            ++p;
            ++n;
        } else if (star != std::wstring_view::npos) {
            p = star + 1;
            n = ++nameAtStar;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == L'*') {
        ++p;
    }
    return p == pattern.size();
}

} // namespace Qx::Host
