#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace Qx::Diagnosis {

/// What the measuring process is at, in memory that it shares with the one that watches: still readable when
/// the writer hangs or is dead. Noting costs a store, so that measuring is not disturbed.
class LifeSign
{
public:
    /// The watching side: makes the memory. Throws Failure when there is none.
    LifeSign();

    /// The measuring side: that file descriptor's memory.
    explicit LifeSign(int file);
    ~LifeSign();
    LifeSign(const LifeSign&) = delete;
    LifeSign& operator=(const LifeSign&) = delete;

    int file() const { return file_; }

    /// Says what comes next; counting begins anew. One thread. `patience`: by how much longer than usual it
    /// may show no sign of life.
    void doing(std::string_view what, std::uint32_t patience = 1);

    /// Once more of the same. Any thread.
    void again() { page_->count.fetch_add(1, std::memory_order_relaxed); }

    /// Something moves. Any thread.
    void beat() { page_->beats.fetch_add(1, std::memory_order_relaxed); }

    /// Changes as long as the measuring process gets on.
    std::uint64_t pulse() const;

    std::uint32_t patience() const;

    /// "uploading a frame of 1920 x 1080 (the 37th time)"; empty when nothing was said yet.
    std::string last() const;

private:
    static constexpr std::size_t longest = 240;

    struct Page
    {
        std::atomic<std::uint64_t> beats;
        std::atomic<std::uint64_t> count;
        std::atomic<std::uint32_t> patience;
        std::atomic<std::uint32_t> current; ///< the text in force; the other one is being written
        std::array<std::array<char, longest>, 2> texts;
    };
    static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

    void map();

    int file_ = -1;
    Page* page_ = nullptr;
};

/// "1st", "2nd", "11th".
std::string ordinal(std::uint64_t number);

} // namespace Qx::Diagnosis
