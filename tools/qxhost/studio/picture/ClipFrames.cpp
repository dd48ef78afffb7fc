#include "tools/qxhost/studio/picture/ClipFrames.h"

#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/media/filter/FilterGraph.h"
#include "tools/qxhost/pipeline/input/FrameRange.h"
#include "tools/qxhost/pipeline/input/Rotation.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <utility>

namespace Qx::Program::Studio {

namespace {

/// Frames up to which it is quicker to decode on than to begin at a key frame.
constexpr std::int64_t nearEnough = 24;

/// Frames before one that is stepped back to which are decoded with it.
constexpr std::int64_t runUp = 8;

/// How many decoded frames fit into the memory that is meant for them.
std::size_t framesKept(const Media::StreamInfo& info)
{
    constexpr std::size_t budget = std::size_t{384} << 20U;
    constexpr std::size_t fewest = 4;
    constexpr std::size_t most = 250;
    const std::size_t floats = info.hasFloats ? sizeof(float) : 0; // beside codes
    const std::size_t sample = (info.bitsPerComponent > 8 ? 2 : 1) + floats;
    const std::size_t bytes =
        static_cast<std::size_t>(info.width) * static_cast<std::size_t>(info.height) * 4 * sample;
    return std::clamp(budget / std::max<std::size_t>(bytes, 1), fewest, most);
}

std::string clipKind(const Media::StreamInfo& info)
{
    return fmt::format("{}x{}, {}, {}, {}/{} frames/s", info.width, info.height, info.pixelFormat,
                       nameOf(info.colour.matrix), info.frameRate.num, info.frameRate.den);
}

/// Memory and effects are prepared for the clip as it was.
void requireSameKind(const Media::StreamInfo& before, const Media::StreamInfo& now,
                     const std::filesystem::path& file)
{
    const bool isSame = clipKind(before) == clipKind(now) && before.timeBase == now.timeBase &&
                        before.firstPts == now.firstPts && before.colour.range == now.colour.range &&
                        before.fieldOrder == now.fieldOrder && before.hasAlpha == now.hasAlpha;
    if (!isSame) {
        throw Failure(ExitCode::input,
                      fmt::format("{}: is another clip than when the studio was started ({}; it was {}); "
                                  "start it again to see this one",
                                  file.string(), clipKind(now), clipKind(before)));
    }
}

} // namespace

ClipFrames::ClipFrames(const std::filesystem::path& file, bool rotates, std::string filters)
    : files_(file), filters_(std::move(filters))
{
    options_.input = file;
    options_.rotates = rotates;
    options_.sequence.startNumber = files_.firstNumber(); // also when that picture is gone
    packing_ = opened(0);
    reader_ = packing_;
    colour_ = chooseColour(options_, info());
    mostKept_ = framesKept(info());
    begin();
}

/// Takes the end from what the reader says. Pictures of a sequence that are gone are not its end.
void ClipFrames::begin()
{
    const Media::StreamInfo& info = reader_->info();
    end_ = info.isStill             ? std::optional<std::int64_t>(1)
           : files_.isSequence()    ? std::optional(files_.count())
           : info.frameCountIsExact ? std::optional(info.frameCount)
                                    : std::nullopt;
}

bool ClipFrames::forgetIfChanged()
{
    if (!files_.look()) {
        return false;
    }
    forgetFrames();
    try {
        reader_ = opened(0);
        begin();
    } catch (const Failure&) {
        next_ = std::numeric_limits<std::int64_t>::max(); // at() opens it again, and says why it cannot
    }
    return true;
}

/// The reader is not gone on with: at() opens the clip again.
void ClipFrames::refuse(const std::string& text)
{
    next_ = std::numeric_limits<std::int64_t>::max();
    throw Failure(ExitCode::input, text);
}

void ClipFrames::requireFile(std::int64_t index)
{
    if (files_.isLost(index)) {
        refuse(files_.losses());
    }
}

/// Throws if the picture of a sequence that comes next is damaged and was not when the clip was opened.
/// `isWhole`: the reader has given it. It leaves out those that cannot be decoded.
void ClipFrames::requirePicture(bool isWhole)
{
    if (files_.isSequence() && !isWhole && next_ < files_.count() && files_.isOther(next_)) {
        refuse(fmt::format("{}: is damaged or cut short; write it again, and the studio goes on",
                           files_.fileOf(next_).string()));
    }
}

/// Throws if the clip ends here for the reason that it is not as it was.
void ClipFrames::requireEnd()
{
    if (files_.isSequence()) {
        requireFile(next_);
        requirePicture(false);
        if (!files_.losses().empty()) {
            refuse(files_.losses());
        }
    } else if (next_ < unfiltered_.frameCount && files_.isOther(0) && !reader_->problems().empty()) {
        refuse(reader_->problems().back() + "; put the whole file back, and the studio goes on");
    }
}

std::optional<std::int64_t> ClipFrames::count() const
{
    const std::int64_t said = reader_->info().frameCount;
    return end_ ? end_ : said > 0 ? std::optional(said) : std::nullopt;
}

std::vector<std::string> ClipFrames::problems() const
{
    return reader_->problems();
}

ClipFrames::Found ClipFrames::found(const Media::Frame& frame, std::int64_t index) const
{
    const std::int64_t pts = frame.time().pts;
    return {frame, index, frameNumber(info(), pts, index),
            static_cast<double>(pts - info().firstPts) * info().timeBase.toDouble()};
}

void ClipFrames::keep(std::int64_t index, Media::Frame frame)
{
    if (kept_.contains(index)) {
        return;
    }
    if (kept_.size() >= mostKept_) {
        kept_.erase(order_.front());
        order_.pop_front();
    }
    kept_.emplace(index, std::move(frame));
    order_.push_back(index);
}

void ClipFrames::forgetFrames()
{
    kept_.clear();
    order_.clear();
}

/// A reader that gives that frame next, or the end.
std::shared_ptr<iFrameInput> ClipFrames::opened(std::int64_t index)
{
    if (packing_ && !files_.isSequence()) {
        requireFile(index); // at the start the reader says what is wrong: no studio goes on then
    }
    std::shared_ptr<iFrameInput> reader = openFrameInput(options_, false);
    if (packing_) {
        requireSameKind(unfiltered_, reader->info(), file());
    } else {
        unfiltered_ = reader->info();
    }
    const std::int64_t next = index > 0 ? reader->skipTo({.frame = index, .pts = {}}).frame : 0;
    const std::string rotation = options_.rotates
                                     ? rotationOf(reader->info(), file().string(),
                                                  {.oddTurns = "leave it out", .fields = "leave it out"})
                                     : std::string();
    if (const std::string graph = Media::joinGraphs(rotation, filters_); !graph.empty()) {
        static_cast<void>(reader->filter(graph, filters_.empty() ? "--rotate" : "the proxy", {}));
    }
    next_ = next;
    return reader;
}

/// Returns false if the clip ends before.
bool ClipFrames::decodeTo(std::int64_t index)
{
    Media::Frame frame;
    while (next_ <= index) {
        const iFrameInput::Next next = reader_->next(frame);
        if (next == iFrameInput::Next::failed) {
            throw Failure(ExitCode::input, reader_->failure());
        }
        if (next == iFrameInput::Next::end) {
            requireEnd();
            end_ = next_;
            return false;
        }
        requirePicture(!frame.damaged() && frame.time().pts - info().firstPts <= next_);
        keep(next_++, std::move(frame));
    }
    return true;
}

ClipFrames::Found ClipFrames::at(std::int64_t index)
{
    index = std::max<std::int64_t>(index, 0);
    if (end_ && *end_ > 0) {
        index = std::min(index, *end_ - 1);
    }
    const std::int64_t step = index - std::exchange(last_, index);
    const auto known = kept_.find(index);
    if (known != kept_.end()) {
        order_.splice(order_.end(), order_, std::find(order_.begin(), order_.end(), index));
        return found(known->second, index);
    }
    if (files_.isSequence()) {
        requireFile(index);
    }
    if (index < next_ || index - next_ > nearEnough) {
        const bool isBackward = step < 0 && -step <= nearEnough;
        reader_ = opened(isBackward ? std::max<std::int64_t>(index - runUp, 0) : index);
    }
    if (!decodeTo(index)) {
        if (!end_ || *end_ == 0) {
            throw Failure(ExitCode::input, fmt::format("{}: has no frame {}", file().string(), index));
        }
        if (*end_ - 1 == index) {
            throw Failure(ExitCode::input,
                          fmt::format("{}: frame {} cannot be decoded", file().string(), index));
        }
        return at(*end_ - 1);
    }
    const auto decoded = kept_.find(index);
    if (decoded == kept_.end()) {
        throw Failure(ExitCode::input, fmt::format("{}: frame {} cannot be decoded", file().string(), index));
    }
    return found(decoded->second, index);
}

} // namespace Qx::Program::Studio
