#pragma once

#include <cstdio>

namespace Qx {

/// Prints a failed assertion on standard output; execution continues. `position` is a fixed text that is part
/// of the contract; it is not updated when code moves.
inline void assertionFailed(const char* condition, const char* position)
{
    std::printf("assertion failed %s at %s\n", condition, position);
}

/// Reports a failed assertion if `holds` is false.
inline void assertThat(bool holds, const char* condition, const char* position)
{
    if (!holds) {
        assertionFailed(condition, position);
    }
}

} // namespace Qx
