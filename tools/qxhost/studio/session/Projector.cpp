#include "tools/qxhost/studio/session/Projector.h"

#include "tools/qxhost/console/Failure.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <utility>

namespace Qx::Program::Studio {

namespace {

using Clock = std::chrono::steady_clock;

/// Frames that are drawn though they are not shown, so that effects that draw over their own results miss
/// none while it plays slowly.
constexpr std::int64_t mostCaughtUp = 8;

double millisecondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

/// How many frames are between the last one, drawn with the same look, and this; -1 if it does not follow.
std::int64_t framesMissed(const Projector::Wish& wish, const std::optional<Projector::Wish>& last)
{
    return last && wish.frame > last->frame && wish.version == last->version ? wish.frame - last->frame - 1
                                                                             : -1;
}

} // namespace

Projector::Projector(const std::filesystem::path& clip, bool rotates)
    : clip_(clip, rotates), scene_(clip_), chain_(input())
{
}

std::optional<std::int64_t> Projector::count() const
{
    const std::optional<std::int64_t> whole = clip_.count();
    const std::optional<std::int64_t> small = proxy_ ? proxy_->clip.count() : whole;
    return whole && small ? std::min(*whole, *small) : whole;
}

std::unique_ptr<Projector::Proxy> Projector::madeProxy(const PictureSize& size) const
{
    // zimg takes no odd sides where chroma has fewer samples.
    const bool isOdd = clip_.info().width % 2 != 0 || clip_.info().height % 2 != 0;
    try {
        return std::make_unique<Proxy>(clip_,
                                       fmt::format("{}zscale=w={}:h={}:f=bilinear",
                                                   isOdd ? "crop=iw-mod(iw\\,2):ih-mod(ih\\,2):0:0," : "",
                                                   size.width, size.height));
    } catch (const Failure& failure) {
        if (failure.code() != ExitCode::usage) {
            throw;
        }
    }
    // It takes neither grey nor alpha of 12 bits. These keep their format, so that no colour is converted.
    return std::make_unique<Proxy>(clip_,
                                   fmt::format("scale=w={}:h={}:flags=bilinear", size.width, size.height));
}

void Projector::setProxy(const std::optional<PictureSize>& size)
{
    std::unique_ptr<Proxy> made = size ? madeProxy(*size) : nullptr;
    proxy_ = std::move(made);
    clip_.forgetFrames();
    last_.reset();
}

bool Projector::forgetIfChanged()
{
    const bool isSmallChanged = proxy_ && proxy_->clip.forgetIfChanged();
    const bool isChanged = clip_.forgetIfChanged() || isSmallChanged;
    if (isChanged) {
        last_.reset();
    }
    return isChanged;
}

ClipFrames::Found Projector::frameAt(std::int64_t index)
{
    return proxy_ ? proxy_->clip.at(index) : clip_.at(index);
}

Image::Surface Projector::pictureOf(const ClipFrames::Found& found)
{
    return proxy_ ? proxy_->scene.picture(found) : scene_.picture(found);
}

Host::FrameFacts Projector::factsOf(const ClipFrames::Found& found) const
{
    const Media::Rational rate = clip_.info().frameRate;
    return {.seconds = found.seconds,
            .frameSeconds = rate.num > 0 ? 1 / rate.toDouble() : 0,
            .number = found.number};
}

/// Draws the frames before that the look reads.
void Projector::runUp(const Wish& wish, const std::optional<Wish>& last, const Look& look)
{
    const bool isRecursive = chain_.isRecursive(look);
    const std::int64_t before = chain_.framesBefore(look);
    if (!isRecursive && before == 0) {
        return;
    }
    const std::int64_t missed = framesMissed(wish, last);
    std::int64_t first = wish.frame - missed;
    if (missed < 0 || missed > (isRecursive ? mostCaughtUp : 0)) {
        chain_.forgetFrames();
        first = std::max<std::int64_t>(wish.frame - before, 0);
        since_ = first;
    }
    for (std::int64_t i = first; i < wish.frame; ++i) {
        const ClipFrames::Found found = frameAt(i);
        chain_.draw(look, pictureOf(found), factsOf(found), false);
    }
}

void Projector::show(const Wish& wish, const Look& look)
{
    const bool isSamePicture = last_ && last_->frame == wish.frame;
    times_ = {};
    if (isSamePicture && last_->version == wish.version) {
        return;
    }
    const std::optional<Wish> last = std::exchange(last_, std::nullopt); // until everything has succeeded
    runUp(wish, last, look);
    const Clock::time_point begin = Clock::now();
    if (!isSamePicture) {
        shown_ = frameAt(wish.frame);
        times_.decode = millisecondsSince(begin);
        before_ = pictureOf(shown_);
    }
    after_ = chain_.draw(look, before_, factsOf(shown_), wish.measures);
    times_.draw = millisecondsSince(begin) - times_.decode;
    last_ = wish;
}

Image::Surface Projector::sample(ChainDrawing& chain, const Look& look, const PictureSize& size)
{
    return chain.draw(look, Scene::shrunk(before_, size), factsOf(shown_), false);
}

} // namespace Qx::Program::Studio
