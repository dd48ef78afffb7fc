#pragma once

#include "fonts/GPUFontCache.h"
#include "platform/Surface.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/pipeline/burnin/BurnInText.h"
#include "tools/qxhost/pipeline/options/BurnInOptions.h"

#include <filesystem>
#include <optional>

namespace Qx::Program {

/// Writes a text into every frame, white on a translucent black box. One thread.
class BurnIn
{
public:
    /// Throws Failure (usage, effect) for a text that makes no sense and a font that cannot be had. `remarks`
    /// takes what is worth knowing, a line each. Needs the host.
    BurnIn(const BurnInOptions& options, const std::filesystem::path& clip, const Media::StreamInfo& info,
           std::vector<std::string>& remarks);

    /// Draws into the picture's GPU image. `frame` is the number in the clip, from 0; `range` says which
    /// codes are black and white. Throws Failure (device) when it was not drawn.
    void draw(const Image::Surface& picture, std::int64_t frame, Media::Range range);

    /// What is worth knowing about what was drawn, a line; empty when all was well.
    std::string remark() const;

private:
    using Text = LightweightString<wchar_t>;

    void obtainFont(int size);
    void fitInto(XY<int> picture, const Text& text);
    RectangleOf<int> boxOf(XY<int> picture, const Text& text);
    bool drawBox(const Qx::Ptr<iGPUImage>& target, const RectangleOf<int>& box, const NormalisedRGB& black);

    const BurnInOptions options_;
    const BurnInText text_;
    const std::string clip_;
    TimeCode timeCode_;
    int size_ = 0;
    Qx::Ptr<GPUFontCache::Result> font_;
    Qx::Ptr<iGPUImage> dot_; ///< a texel to draw boxes with
    XY<int> widest_{0, 0};   ///< text so far: the box never shrinks, so that it does not twitch
    bool fitted_ = false;
    bool cut_ = false; ///< a text reached beyond its picture
};

} // namespace Qx::Program
