#include "tools/qxhost/media/read/EntrySearch.h"

#include "tools/qxhost/media/read/AudioPreroll.h"

#include <algorithm>

namespace Qx::Media {

bool EntrySearch::isUpToTarget(const Entry& entry) const
{
    return target_.pts ? entry.pts <= *target_.pts : entry.frame <= target_.frame;
}

/// Whether whatever follows is shown after the target, the next key frame too.
bool EntrySearch::isFarBeyondTarget()
{
    const bool isBeyond = target_.pts ? latest_ && *latest_ > *target_.pts : shown_ > target_.frame + 1;
    beyond_ += isBeyond ? 1 : 0;
    return beyond_ > mostReordered;
}

/// Forgets what is before it.
void EntrySearch::enter(const Candidate& candidate)
{
    entry_ = candidate.entry;
    std::erase_if(kept_, [&](const Kept& kept) {
        const AVPacket& packet = *kept.packet;
        const bool isPast = kept.otherTimeBase
                                ? isPastAudio(packet, *kept.otherTimeBase, entry_->pts, timeBase_)
                                : kept.order < candidate.order;
        bytes_ -= isPast ? static_cast<std::size_t>(packet.size) : 0;
        return isPast;
    });
}

/// False if there is enough.
bool EntrySearch::keep(Kept kept)
{
    bytes_ += static_cast<std::size_t>(kept.packet->size);
    kept.order = order_++;
    kept_.push_back(std::move(kept));
    return bytes_ <= mostBytesKept;
}

bool EntrySearch::addOther(PacketPtr packet, AVRational timeBase)
{
    return keep({std::move(packet), timeBase, 0});
}

bool EntrySearch::addVideo(PacketPtr packet)
{
    const std::int64_t pts = packet->pts;
    const bool isHidden = (packet->flags & AV_PKT_FLAG_DISCARD) != 0;
    const bool isKey = (packet->flags & AV_PKT_FLAG_KEY) != 0;
    const bool isSound = pts != AV_NOPTS_VALUE && (packet->flags & AV_PKT_FLAG_CORRUPT) == 0 &&
                         !(isKey && !isHidden && latest_ && pts <= *latest_);
    if (!isSound) {
        candidate_.reset();
        keep({std::move(packet), {}, 0});
        return false;
    }
    bool isPassed = false;
    if (isKey) {
        // All that is shown before the last key frame has come by now.
        if (candidate_ && isUpToTarget(candidate_->entry)) {
            enter(*candidate_);
        }
        candidate_ = Candidate{{pts, shown_, isHidden}, order_};
        isPassed = !isUpToTarget(candidate_->entry);
    } else if (candidate_ && !isHidden && pts < candidate_->entry.pts) {
        ++candidate_->entry.frame;
    }
    if (!isHidden) {
        ++shown_;
        latest_ = std::max(latest_.value_or(pts), pts);
    }
    const bool isFar = isFarBeyondTarget();
    if (isFar) {
        endOfStream();
    }
    return keep({std::move(packet), {}, 0}) && !isPassed && !isFar;
}

void EntrySearch::endOfStream()
{
    if (candidate_ && isUpToTarget(candidate_->entry)) {
        enter(*candidate_);
    }
    candidate_.reset();
}

std::deque<PacketPtr> EntrySearch::takePackets()
{
    std::deque<PacketPtr> packets;
    for (Kept& kept : kept_) {
        packets.push_back(std::move(kept.packet));
    }
    kept_.clear();
    return packets;
}

} // namespace Qx::Media
