#pragma once

#include "tools/qxhost/media/MediaTypes.h"

#include <algorithm>
#include <vector>

namespace Qx::Media {

/// The numbers of a numbered sequence that are read: runs without gaps, of which there are several only if
/// gaps are filled.
class Sequence
{
public:
    struct Run
    {
        long first = 0;
        long last = 0;
    };

    Sequence(long first, MissingPictures missing) : missing_(missing), runs_{{first, first}} {}

    /// Ascending.
    void add(long number)
    {
        if (number > last() + 1) {
            runs_.push_back({number, number});
        } else {
            runs_.back().last = std::max(runs_.back().last, number);
        }
    }
    /// More pictures follow, which are not read.
    void endAtGap() { hasGap_ = true; }

    const std::vector<Run>& runs() const { return runs_; }
    long first() const { return runs_.front().first; }
    long last() const { return runs_.back().last; }
    bool hasGap() const { return hasGap_; }
    bool isFilled() const { return missing_ == MissingPictures::hold || missing_ == MissingPictures::black; }
    bool fillsWithBlack() const { return missing_ == MissingPictures::black; }

    /// The run with that number, or the last one before it.
    std::size_t runAt(long number) const
    {
        std::size_t run = 0;
        while (run + 1 < runs_.size() && runs_[run + 1].first <= number) {
            ++run;
        }
        return run;
    }

private:
    MissingPictures missing_;
    std::vector<Run> runs_;
    bool hasGap_ = false;
};

} // namespace Qx::Media
