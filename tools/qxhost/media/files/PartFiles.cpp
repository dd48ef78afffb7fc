#include "tools/qxhost/media/files/PartFiles.h"

#include <array>
#include <atomic>
#include <climits>
#include <cstring>
#include <unistd.h>

namespace Qx::Media::PartFiles {

namespace {

enum class State
{
    Free,
    Changing,
    Set
};

// A handler may neither allocate nor lock, so it reads a fixed array.
struct Slot
{
    std::atomic<State> state{State::Free};
    std::array<char, PATH_MAX> path{};
};
static_assert(std::atomic<State>::is_always_lock_free);

constexpr std::size_t slotCount = 32;
std::array<Slot, slotCount> slots;

bool take(Slot& slot, State expected)
{
    return slot.state.compare_exchange_strong(expected, State::Changing);
}

} // namespace

void remember(const std::filesystem::path& file) noexcept
{
    const std::string& path = file.native();
    if (path.size() >= PATH_MAX) {
        return;
    }
    for (Slot& slot : slots) {
        if (take(slot, State::Free)) {
            std::memcpy(slot.path.data(), path.c_str(), path.size() + 1);
            slot.state = State::Set;
            return;
        }
    }
}

void forget(const std::filesystem::path& file) noexcept
{
    for (Slot& slot : slots) {
        if (take(slot, State::Set)) {
            const bool found = file.native() == slot.path.data();
            slot.state = found ? State::Free : State::Set;
            if (found) {
                return;
            }
        }
    }
}

void removeAll() noexcept
{
    for (const Slot& slot : slots) {
        if (slot.state == State::Set) {
            ::unlink(slot.path.data());
        }
    }
}

} // namespace Qx::Media::PartFiles
