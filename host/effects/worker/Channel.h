#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace Qx::Host::Worker {

/// What travels between the host and its worker process.
enum class FrameType : std::uint32_t
{
    Hello = 1, ///< host to worker, first: version, device, limits
    Ready,     ///< worker to host: version, and why it cannot work, if it cannot; twice: at once, unasked, to
               ///< say what it is, and once it has what it needs
    Compile,   ///< host to worker: one effect
    Step,      ///< worker to host: what it begins now
    Inputs,    ///< worker to host: an archive of nothing but the files that the effect was read from
    Result,    ///< worker to host: what became of the effect; the last of its frames
};

struct Frame
{
    FrameType type{};
    std::vector<std::byte> payload;
};

/// One end of a stream socket that carries frames: 12 bytes (a mark, the type, the payload's length; numbers
/// little-endian) and the payload. Neither end trusts the other: whatever arrives is a frame, or the channel
/// says that it is none. One thread at a time reads, and one writes.
class Channel
{
public:
    /// Asked every few milliseconds while the other end lets us wait; false gives up. Empty: waits for ever.
    using Patience = std::function<bool()>;

    enum class Answer
    {
        Frame,
        Closed,    ///< the other end is gone
        Malformed, ///< what it sent is no frame, or a longer one than we take
        GaveUp,    ///< we lost patience
    };

    /// Owns the descriptor.
    explicit Channel(int descriptor) : descriptor_(descriptor) {}
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /// False when the other end is gone or our patience is.
    bool send(FrameType type, std::span<const std::byte> payload, const Patience& patience = {});

    /// Memory grows with what arrives, not with what a frame announces.
    Answer receive(Frame& frame, std::size_t mostBytes, const Patience& patience = {});

    /// Wakes whoever waits on the channel, who finds it closed. Any thread.
    void hangUp();

    /// Whether the other end has hung up or sent something.
    bool stirs() const;

private:
    Answer readAll(std::span<std::byte> bytes, const Patience& patience);
    bool waitFor(short events, const Patience& patience) const;

    const int descriptor_;
};

} // namespace Qx::Host::Worker
