#include "tests/fuzz/Targets.h"

#include <cstdio>
#include <cstdlib>

// QX_FUZZ_TARGET is one of the functions of Targets.h.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        Qx::Fuzz::QX_FUZZ_TARGET({data, size});
    } catch (const Qx::Fuzz::Find& find) {
        std::fprintf(stderr, "%s\n", find.what());
        std::abort();
    }
    return 0;
}
