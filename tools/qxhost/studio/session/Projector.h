#pragma once

#include "tools/qxhost/media/rows/FrameCodes.h"
#include "tools/qxhost/studio/picture/ChainDrawing.h"
#include "tools/qxhost/studio/picture/ClipFrames.h"
#include "tools/qxhost/studio/picture/Scene.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace Qx::Program::Studio {

/// The pictures of a clip before and after a look, drawn when they are asked for and what they show has
/// changed. For the thread that draws.
class Projector
{
public:
    /// `rotates` is as ClipFrames has it. Throws Failure (input, device, effect).
    Projector(const std::filesystem::path& clip, bool rotates);

    ClipFrames& clip() { return clip_; }
    const ClipFrames& clip() const { return clip_; }
    /// For reading pictures back.
    const Scene& scene() const { return proxy_ ? proxy_->scene : scene_; }

    /// Frames of the clip; empty while that is not known.
    std::optional<std::int64_t> count() const;

    /// Draws frames of that size, which is less than the clip's, from now on; of the clip's own without one.
    /// FFmpeg reduces them. Throws Failure (usage, input, device).
    void setProxy(const std::optional<PictureSize>& size);

    /// Whether the clip's file has changed; its frames are drawn anew then.
    bool forgetIfChanged();
    /// As ClipFrames has it.
    std::string losses() const { return proxy_ ? proxy_->clip.losses() : clip_.losses(); }
    ChainDrawing& chain() { return chain_; }
    const ChainDrawing& chain() const { return chain_; }
    /// What pictures consist of.
    Host::LUTInput input() const
    {
        return scene_.isOfFloats() ? Host::LUTInput::Floats : Host::LUTInput::Codes;
    }

    /// What is to be shown.
    struct Wish
    {
        std::int64_t frame = 0;
        std::uint64_t version = 0; ///< of the look and what it is compiled to
        bool measures = false;     ///< the time of each step
    };

    /// How long the last show() took, in milliseconds.
    struct Times
    {
        double decode = 0;
        double draw = 0; ///< until it is recorded; the device may go on
    };

    /// Draws what has changed since the last call. Throws Failure (input, device).
    void show(const Wish& wish, const Look& look);

    const Image::Surface& before() const { return before_; }
    const Image::Surface& after() const { return after_; }
    /// The look has changed nothing of what is shown.
    bool isUnchanged() const { return after_.getGPUSurface() == before_.getGPUSurface(); }
    /// The codes that the clip holds, at the size that is drawn; nothing if they are not YCbCr.
    std::optional<Media::FrameCodes> clipCodes() const { return Media::FrameCodes::of(shown_.frame); }
    /// Of the frame that is shown.
    std::int64_t number() const { return shown_.number; }
    std::int64_t frame() const { return shown_.index; }
    const Times& times() const { return times_; }
    /// The frame that effects which draw over their own results have been drawn from, without a gap.
    std::int64_t since() const { return since_; }

    /// The picture of the shown frame after another look, to which `chain` has been fitted, of that size.
    /// Throws Failure (device).
    Image::Surface sample(ChainDrawing& chain, const Look& look, const PictureSize& size);

private:
    /// Smaller frames of the clip.
    struct Proxy
    {
        Proxy(const ClipFrames& whole, const std::string& filters)
            : clip(whole.file(), whole.rotates(), filters), scene(clip)
        {
        }

        ClipFrames clip;
        Scene scene;
    };

    std::unique_ptr<Proxy> madeProxy(const PictureSize& size) const;
    ClipFrames::Found frameAt(std::int64_t index);
    Image::Surface pictureOf(const ClipFrames::Found& found);
    Host::FrameFacts factsOf(const ClipFrames::Found& found) const;
    void runUp(const Wish& wish, const std::optional<Wish>& last, const Look& look);

    ClipFrames clip_;
    Scene scene_;
    std::unique_ptr<Proxy> proxy_; ///< null: frames have their own size
    ChainDrawing chain_;
    ClipFrames::Found shown_;
    std::optional<Wish> last_; ///< that before_ and after_ show; empty if they show none
    std::int64_t since_ = 0;
    Image::Surface before_;
    Image::Surface after_;
    Times times_;
};

} // namespace Qx::Program::Studio
