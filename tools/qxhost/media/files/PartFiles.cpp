#include "tools/qxhost/media/files/PartFiles.h"

#include <array>
#include <atomic>
#include <climits>
#include <cstring>
#include <ctime>
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

// A guard counts itself before it looks at `removing`, and removeAll() sets that before it looks at
// the count: one of the two sees the other.
std::atomic<int> guards{0};
std::atomic<bool> removing{false};

bool take(Slot& slot, State expected)
{
    return slot.state.compare_exchange_strong(expected, State::Changing);
}

} // namespace

Guard::Guard() noexcept
{
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
    ++guards;
    if (removing) {
        --guards;
        while (true) {
            ::pause();
        }
    }
}

Guard::~Guard()
{
    --guards;
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

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
    const Guard guard;
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
    removing = true;
    constexpr int mostMilliseconds = 1000; // a disk may hang
    for (int waited = 0; guards > 0 && waited < mostMilliseconds; ++waited) {
        const timespec millisecond{0, 1000000};
        ::nanosleep(&millisecond, nullptr);
    }
    for (const Slot& slot : slots) {
        if (slot.state == State::Set) {
            ::unlink(slot.path.data());
        }
    }
}

} // namespace Qx::Media::PartFiles
