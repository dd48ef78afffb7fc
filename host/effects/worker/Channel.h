#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace Qx::Host::Worker {

/// The frames between the host and its worker process.
enum class FrameType : std::uint32_t
{
    Hello = 1, ///< host to worker, first: version, device, limits
    Ready,     ///< worker to host: version, and the reason if it cannot work. Sent twice: at the start, to
               ///< identify itself, and when it is ready for work
    Compile,   ///< host to worker: one effect
    Step,      ///< worker to host: the step that it begins
    Inputs,    ///< worker to host: an archive with only the files that the effect was read from
    Result,    ///< worker to host: the archive of the result; the last frame of a request
};

struct Frame
{
    FrameType type{};
    std::vector<std::byte> payload;
};

/// One end of a stream socket that carries frames: 12 bytes (a mark, the type, the payload's length; numbers
/// little-endian) and the payload. Neither end trusts the other: receive() returns a valid frame or an error.
/// One thread at a time may read, and one may write.
class Channel
{
public:
    /// Called every few milliseconds while waiting for the other end; returns false to give up. Empty: waits
    /// forever.
    using Patience = std::function<bool()>;

    enum class Answer
    {
        Frame,
        Closed,    ///< the other end has closed the connection
        Malformed, ///< the bytes are no frame, or the frame is too long
        GaveUp,    ///< `patience` returned false
    };

    /// Owns the descriptor.
    explicit Channel(int descriptor) : descriptor_(descriptor) {}
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /// Returns false if the other end has closed the connection or `patience` returned false.
    bool send(FrameType type, std::span<const std::byte> payload, const Patience& patience = {});

    /// Allocates memory for bytes that have arrived, not for the length that a frame announces.
    Answer receive(Frame& frame, std::size_t mostBytes, const Patience& patience = {});

    /// Closes the connection; a call that waits on the channel returns. Thread-safe.
    void hangUp();

    /// Whether the other end has closed the connection or sent something.
    bool stirs() const;

private:
    Answer readAll(std::span<std::byte> bytes, const Patience& patience);
    bool waitFor(short events, const Patience& patience) const;

    const int descriptor_;
};

} // namespace Qx::Host::Worker
