#include "tools/qxhost/pipeline/input/FrameRange.h"

#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/burnin/TimeCode.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

using Time = FrameRangeOptions::Time;

/// In units of the stream: to the nearest one, since files round times to it too. Units that are as long as
/// frames are not rounded to: a frame begins at or after the time.
std::int64_t unitsOf(Time time, const Media::StreamInfo& info)
{
    constexpr double unitsAFrame = 4; // at least, where times are rounded
    const double seconds = std::chrono::duration<double>(time).count();
    const double units = seconds / info.timeBase.toDouble();
    const double rate = info.frameRate.toDouble();
    const bool isFine = rate <= 0 || info.timeBase.toDouble() * rate * unitsAFrame <= 1;
    constexpr double roundingError = 1e-6;
    return std::llround(isFine ? units : std::ceil(units - roundingError));
}

/// When the frame with that number begins that frameNumber() gives, at the earliest.
std::int64_t beginOf(std::int64_t number, const Media::StreamInfo& info)
{
    constexpr double roundingError = 1e-6;
    const double unitsOfFrame = 1 / (info.frameRate.toDouble() * info.timeBase.toDouble());
    return info.firstPts +
           std::llround(std::ceil((static_cast<double>(number) - 0.5) * unitsOfFrame - roundingError));
}

/// The number of the frame with that label.
std::int64_t numberOf(const std::string& label, const char* option, const Media::StreamInfo& info,
                      const std::filesystem::path& input)
{
    const auto fail = [&](const std::string& text) -> std::int64_t {
        throw Failure(ExitCode::input, fmt::format("{} {}: {} {}", option, label, input.string(), text));
    };
    if (info.timeCode.empty()) {
        return fail("has no time code; give --start with a frame's number or a time");
    }
    const auto code = TimeCode::startingAt(info.timeCode, info.frameRate);
    if (!code || info.frameRate.num <= 0) {
        return fail("has the time code " + info.timeCode +
                    ", which is invalid at its frame rate; give --start");
    }
    const std::optional<std::int64_t> number = code->frameOf(label);
    if (!number) {
        return fail(fmt::format(
            "has no such label: it counts {} frames a second, {}", code->framesPerSecond(),
            code->isDropFrame() ? "drop-frame (written with ';')" : "non-drop (written with ':')"));
    }
    // An estimate may be off by a little; what is then missing is noticed when the frames are read.
    const std::int64_t tolerance = info.frameCountIsExact ? 0 : code->framesPerSecond();
    if (info.frameCount > 0 && *number >= info.frameCount + tolerance) {
        return fail(fmt::format("has no such frame: it runs from {} to {}", code->label(0),
                                code->label(info.frameCount - 1)));
    }
    return *number;
}

std::int64_t framesIn(std::int64_t units, const Media::StreamInfo& info)
{
    return std::llround(
        std::ceil(static_cast<double>(units) * info.timeBase.toDouble() * info.frameRate.toDouble() - 0.01));
}

} // namespace

std::int64_t frameNumber(const Media::StreamInfo& info, std::int64_t pts, std::int64_t counted)
{
    const double seconds = static_cast<double>(pts - info.firstPts) * info.timeBase.toDouble();
    return info.frameRate.num > 0 ? std::llround(seconds * info.frameRate.toDouble()) : counted;
}

bool RangeLimit::take(const Media::FrameTime& time)
{
    if (taken_ == 0 && range_.duration) {
        end_ = time.pts + *range_.duration;
    }
    if ((range_.endPts && time.pts >= *range_.endPts) || (end_ && time.pts >= *end_)) {
        return false;
    }
    ++taken_;
    reached_ = time.pts + time.duration;
    return true;
}

FrameRange frameRange(const FrameRangeOptions& options, const Media::StreamInfo& info,
                      const std::filesystem::path& input)
{
    FrameRange range;
    std::int64_t first = options.start; // as far as it is known
    if (!options.in.empty()) {
        first = numberOf(options.in, "--in", info, input);
        range.start = {.frame = first, .pts = beginOf(first, info)};
    } else if (options.startTime) {
        const std::int64_t units = unitsOf(*options.startTime, info);
        first = framesIn(units, info);
        range.start = {.frame = first, .pts = info.firstPts + units};
    } else if (options.start > 0) {
        range.start = {.frame = options.start, .pts = {}};
    }
    range.frames = options.frames;
    const std::int64_t left = info.frameCount > 0 ? std::max<std::int64_t>(info.frameCount - first, 0) : 0;
    std::int64_t wanted = options.frames;
    if (!options.out.empty()) {
        const std::int64_t last = numberOf(options.out, "--out", info, input);
        if (last < first) {
            throw Failure(ExitCode::usage, fmt::format("--out {}: is before the first frame ({})",
                                                       options.out, startText(options)));
        }
        range.endPts = beginOf(last + 1, info);
        wanted = last - first + 1;
    } else if (options.duration) {
        range.duration = unitsOf(*options.duration, info);
        wanted = framesIn(*range.duration, info);
    }
    range.expected = wanted > 0 && left > 0 ? std::min(wanted, left) : std::max(wanted, left);
    return range;
}

std::string startText(const FrameRangeOptions& options)
{
    if (!options.in.empty()) {
        return "--in " + options.in;
    }
    return options.startTime
               ? fmt::format("--start {}s", std::chrono::duration<double>(*options.startTime).count())
               : fmt::format("--start {}", options.start);
}

} // namespace Qx::Program
