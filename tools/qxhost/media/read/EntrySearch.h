#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/read/SeekTarget.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

namespace Qx::Media {

/// Finds, in a stream of packets, the key frame from which to decode up to a frame. Nothing is decoded for
/// it.
///
/// It relies on three things: every packet that is not hidden shows one frame; packets before a key frame are
/// shown before it; and what is shown after a key frame needs nothing before it. A frame that is shown before
/// a key frame and stored after it, as in an open GOP, needs the key frame before that.
class EntrySearch
{
public:
    /// More than this many bytes of packets are not kept in search of the next key frame.
    static constexpr std::size_t mostBytesKept = std::size_t{256} << 20U;
    /// More than codecs store between a frame and one that is shown before it.
    static constexpr int mostReordered = 64;

    /// The key frame that was found.
    struct Entry
    {
        std::int64_t pts = 0;
        std::int64_t frame = 0; ///< its number, or that of the first frame shown after it if it is hidden
        bool isHidden = false;
    };

    /// `shown`: frames shown by the packets before the first one that is given; `latest`: the last of their
    /// times, if there are any.
    EntrySearch(const SeekTarget& target, AVRational timeBase, std::int64_t shown,
                std::optional<std::int64_t> latest)
        : target_(target), timeBase_(timeBase), shown_(shown), latest_(latest)
    {
    }

    /// Takes the next packet of the video or, with its time base, of another stream. Returns false if it
    /// needs no more: the frame is passed, or what it relies on does not hold here.
    bool addVideo(PacketPtr packet);
    bool addOther(PacketPtr packet, AVRational timeBase);

    /// To be called if there are no more packets.
    void endOfStream();

    /// Empty if there is none up to the frame: decoding then goes on with the first packet that was given.
    const std::optional<Entry>& entry() const { return entry_; }

    /// The packets from the entry on, those of other streams from what its time needs of them.
    std::deque<PacketPtr> takePackets();

private:
    struct Kept
    {
        PacketPtr packet;
        std::optional<AVRational> otherTimeBase; ///< empty: of the video
        std::int64_t order = 0;
    };

    /// A key frame, while what belongs to it is still coming.
    struct Candidate
    {
        Entry entry;
        std::int64_t order = 0;
    };

    bool isUpToTarget(const Entry& entry) const;
    bool isFarBeyondTarget();
    void enter(const Candidate& candidate);
    bool keep(Kept kept);

    SeekTarget target_;
    AVRational timeBase_;
    std::int64_t shown_;
    std::optional<std::int64_t> latest_;
    std::optional<Entry> entry_;
    std::optional<Candidate> candidate_;
    std::deque<Kept> kept_;
    std::size_t bytes_ = 0;
    std::int64_t order_ = 0;
    int beyond_ = 0; ///< packets of frames after the target
};

} // namespace Qx::Media
