#pragma once

#include <cstdio>

namespace Qx {

/// Reports a failed assertion on standard output; execution goes on. `position` is a fixed text, part of the
/// contract, and not the compiler's idea of a line.
inline void assertionFailed(const char* condition, const char* position)
{
    std::printf("assertion failed %s at %s\n", condition, position);
}

inline void assertThat(bool holds, const char* condition, const char* position)
{
    if (!holds) {
        assertionFailed(condition, position);
    }
}

} // namespace Qx
