#pragma once

#include "tools/qxhost/media/MediaTypes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Qx::Program {

/// SMPTE ST 12-1 time codes of a clip's frames.
///
/// A label counts the nominal frames of a second: 30 at 29.97. Drop-frame counting (clause 5.2.2), written
/// with ';', skips the labels of the first frames of every minute but each tenth, 2 at 29.97 and 4 at 59.94,
/// so that labels keep up with the clock. Labels wrap after 24 hours.
class TimeCode
{
public:
    /// Starts at 00:00:00:00, drop-frame where the rate has it. An unknown rate (num 0) counts as 25.
    explicit TimeCode(const Media::Rational& rate);

    /// Starts at the label of the first frame, "01:00:00:00", or "01:00:00;00" (also with '.') for
    /// drop-frame. Empty if it is not a label at this rate.
    static std::optional<TimeCode> startingAt(std::string_view label, const Media::Rational& rate);

    /// Counts fields where this counts frames: twice the rate, from the same time of day.
    TimeCode ofFields() const;

    /// The index of the frame with that label, counted from the first, within a day. Empty if it is not a
    /// label of this counting: ':' and ';' must be written as this one has them.
    std::optional<std::int64_t> frameOf(std::string_view label) const;

    /// Frames of a second by their labels.
    std::int64_t framesPerSecond() const { return perSecond_; }

    /// Whether the text is four numbers, as labels are at some rate.
    static bool isLabel(std::string_view text);

    /// The label of the frame with that index, counted from the first.
    std::string label(std::int64_t frame) const;

    bool isDropFrame() const { return dropped_ > 0; }

    /// Frames after which labels begin anew.
    std::int64_t framesPerDay() const { return 144 * framesPerTenMinutes(); }

private:
    std::int64_t framesPerMinute() const { return 60 * perSecond_ - dropped_; }
    std::int64_t framesPerTenMinutes() const { return 600 * perSecond_ - 9 * dropped_; }

    std::int64_t perSecond_ = 25;
    std::int64_t dropped_ = 0; ///< labels left out in a minute
    std::int64_t first_ = 0;   ///< number of the first frame since 00:00:00:00
};

} // namespace Qx::Program
