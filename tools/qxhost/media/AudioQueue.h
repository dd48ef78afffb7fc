#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct AVCodecParameters;
struct AVPacket;

namespace Qx::Media {

/// Undecoded audio on its way from a reader to a writer. Safe for one producer and one consumer thread. The
/// writer drains it whenever it writes, so its length is bounded by how far the reader runs ahead.
class AudioQueue
{
public:
    struct Track
    {
        std::shared_ptr<const AVCodecParameters> parameters;
        int timeBaseNum = 1;
        int timeBaseDen = 1;
        /// Three letters (ISO 639-2), or empty.
        std::string language;
    };

    /// A packet; its stream_index is the track's index here and its times are in the track's time base.
    using Packet = std::shared_ptr<AVPacket>;

    explicit AudioQueue(std::vector<Track> tracks) : tracks_(std::move(tracks)) {}

    const std::vector<Track>& tracks() const { return tracks_; }

    void push(Packet packet)
    {
        const std::lock_guard lock(mutex_);
        packets_.push_back(std::move(packet));
    }

    /// Null if the queue is empty.
    Packet pop()
    {
        const std::lock_guard lock(mutex_);
        if (packets_.empty()) {
            return nullptr;
        }
        Packet packet = std::move(packets_.front());
        packets_.pop_front();
        return packet;
    }

    /// Removes the packets that `isPast` is true of, called with the packet and its track.
    template <class Test>
    void remove(Test isPast)
    {
        const std::lock_guard lock(mutex_);
        std::erase_if(packets_, isPast);
    }

private:
    const std::vector<Track> tracks_;
    std::mutex mutex_;
    std::deque<Packet> packets_;
};

} // namespace Qx::Media
