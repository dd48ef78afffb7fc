#pragma once

#include "fonts/GPUFontCache.h"
#include "platform/Surface.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/pipeline/burnin/BurnInText.h"
#include "tools/qxhost/pipeline/options/BurnInOptions.h"
#include "tools/qxhost/pipeline/options/DateTime.h"

#include <filesystem>
#include <optional>

namespace Qx::Program {

/// What a text can say of the clip it is drawn into.
struct BurnInClip
{
    const std::filesystem::path& file;
    const Media::StreamInfo& info;
    DateTime begin;
};

/// Writes a text into every frame, white on a translucent black box. One thread.
class BurnIn
{
public:
    /// Throws Failure (usage, effect) if the text is invalid or the font is not available. Appends notes for
    /// the user to `remarks`, a line each. Needs the host.
    BurnIn(const BurnInOptions& options, const BurnInClip& clip, std::vector<std::string>& remarks);

    /// Makes the text and its box what they are after these frames were drawn, from `first` up to `end`, in
    /// pictures of that size. To be called first.
    void passOver(std::int64_t first, std::int64_t end, XY<int> picture);

    /// Draws into the picture's GPU image. `frame` is the number in the clip, from 0; `range` says which
    /// codes are black and white. Throws Failure (device) if it is not drawn.
    void draw(const Image::Surface& picture, std::int64_t frame, Media::Range range);

    /// A note for the user on what was drawn, one line; empty if there is none.
    std::string remark() const;

private:
    using Text = LightweightString<wchar_t>;

    void obtainFont(int size);
    Text textOf(std::int64_t frame) const;
    void widenFor(const Text& text);
    void fitInto(XY<int> picture, const Text& text);
    RectangleOf<int> boxOf(XY<int> picture, const Text& text);
    bool drawBox(const Qx::Ptr<iGPUImage>& target, const RectangleOf<int>& box, const NormalisedRGB& black);

    const BurnInOptions options_;
    const BurnInText text_;
    const BurnInText::Clip clip_;
    int size_ = 0;
    Qx::Ptr<GPUFontCache::Result> font_;
    Qx::Ptr<iGPUImage> dot_; ///< a texel to draw boxes with
    XY<int> widest_{0, 0};   ///< text so far: the box never shrinks, so that it does not flicker
    bool fitted_ = false;
    bool cut_ = false; ///< a text reached beyond its picture
};

} // namespace Qx::Program
