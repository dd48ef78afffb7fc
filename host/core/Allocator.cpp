#include "host/core/CoreServices.h"
#include "host/core/Immortal.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace Qx::Host {

namespace {

class MallocAllocator final : public iAllocator
{
public:
    void* allocate(std::size_t bytes, std::size_t alignment) override
    {
        if (alignment == 0 || (alignment & (alignment - 1)) != 0) {
            return nullptr;
        }
        bytes = std::max<std::size_t>(bytes, 1); // malloc(0) may return null, which means failure here
        if (alignment <= alignof(std::max_align_t)) {
            return std::malloc(bytes);
        }
        void* block = nullptr;
        return posix_memalign(&block, alignment, bytes) == 0 ? block : nullptr;
    }

    void deallocate(void* block) override { std::free(block); }
};

} // namespace

iAllocator& coreAllocator()
{
    return immortal<MallocAllocator>();
}

} // namespace Qx::Host
