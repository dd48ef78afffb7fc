#include "tools/qxhost/studio/session/Projector.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <utility>

namespace Qx::Program::Studio {

namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

} // namespace

Projector::Projector(const std::filesystem::path& clip) : clip_(clip), scene_(clip_) {}

std::optional<std::int64_t> Projector::count() const
{
    const std::optional<std::int64_t> whole = clip_.count();
    const std::optional<std::int64_t> small = proxy_ ? proxy_->clip.count() : whole;
    return whole && small ? std::min(*whole, *small) : whole;
}

void Projector::setProxy(const std::optional<PictureSize>& size)
{
    std::unique_ptr<Proxy> made;
    if (size) {
        // zimg takes no odd sides where chroma has fewer samples.
        const bool isOdd = clip_.info().width % 2 != 0 || clip_.info().height % 2 != 0;
        made = std::make_unique<Proxy>(clip_.file(),
                                       fmt::format("{}zscale=w={}:h={}:f=bilinear",
                                                   isOdd ? "crop=iw-mod(iw\\,2):ih-mod(ih\\,2):0:0," : "",
                                                   size->width, size->height));
    }
    proxy_ = std::move(made);
    clip_.forgetFrames();
    last_.reset();
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

/// Whether the frame follows the last one, drawn with the same look.
bool Projector::isNext(const Wish& wish) const
{
    return last_ && wish.frame == last_->frame + 1 && wish.version == last_->version;
}

/// Draws the frames before that the look reads.
void Projector::runUp(const Wish& wish, const Look& look)
{
    chain_.forgetFrames();
    const std::int64_t before = chain_.framesBefore(look);
    for (std::int64_t i = std::max<std::int64_t>(wish.frame - before, 0); i < wish.frame; ++i) {
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
    const bool looksBack = chain_.framesBefore(look) > 0 || chain_.isRecursive(look);
    const bool needsRunUp = looksBack && !isNext(wish);
    last_.reset(); // until everything has succeeded
    if (needsRunUp) {
        runUp(wish, look);
    }
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
