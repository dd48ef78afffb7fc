#pragma once

#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/media/Result.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
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

/// Whether a name is a pattern of numbered pictures, and not that of a file.
bool isPatternOfPictures(const std::filesystem::path& file);

/// The part of a sequence that is read, from `start`, or its lowest number if that is empty. Empty if the
/// name is no pattern or no picture fits it. Fails if there is no picture with the number `start`, or for a
/// gap that is not to be.
Result<std::optional<Sequence>> sequenceOf(const std::filesystem::path& file,
                                           std::optional<std::int64_t> start, MissingPictures missing);

/// What is done about each gap, a line each.
std::vector<std::string> remarksOn(const std::filesystem::path& file, const Sequence& sequence);

} // namespace Qx::Media
