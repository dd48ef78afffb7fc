#include "tests/host/native/GuardedBytes.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <sys/mman.h>
#include <unistd.h>

namespace Qx::Host::Tests {

GuardedBytes::GuardedBytes(std::span<const std::byte> bytes, At at) : size_(bytes.size())
{
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t inside = (size_ + page - 1) / page * page;
    mapped_ = inside + 2 * page;
    memory_ = ::mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory_ == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "mmap");
    }
    auto* const begin = static_cast<std::byte*>(memory_) + page;
    if (inside > 0 && ::mprotect(begin, inside, PROT_READ | PROT_WRITE) != 0) {
        throw std::system_error(errno, std::generic_category(), "mprotect");
    }
    data_ = at == At::Begin ? begin : begin + (inside - size_);
    std::copy(bytes.begin(), bytes.end(), data_);
}

GuardedBytes::~GuardedBytes()
{
    ::munmap(memory_, mapped_);
}

} // namespace Qx::Host::Tests
