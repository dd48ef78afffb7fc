#pragma once

#include "Qx/Ptr.h"
#include "platform/GPUImage.h"
#include "platform/Surface.h"
#include "tools/qxhost/media/rows/FramePacker.h"
#include "tools/qxhost/pipeline/effects/EffectChain.h"
#include "tools/qxhost/pipeline/input/FrameUpload.h"
#include "tools/qxhost/pipeline/output/FrameDelivery.h"
#include "tools/qxhost/studio/picture/ClipFrames.h"
#include "tools/qxhost/studio/picture/Pixels.h"

#include <memory>
#include <optional>

namespace Qx::Program::Studio {

struct PictureSize
{
    int width = 0;
    int height = 0;

    bool operator==(const PictureSize&) const = default;
};

/// A picture that has been read back, with its memory.
struct HostPixels
{
    Qx::Ptr<iHostImage> image;
    PixelView view;
};

/// Frames of a clip as pictures on the device, made as "qxhost convert" makes them, and pictures of the
/// device in host memory. For the thread that draws.
class Scene
{
public:
    /// Throws Failure (device, effect).
    explicit Scene(ClipFrames& clip);
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    /// Of the codes of pictures: video for RGB clips that say so.
    Media::Range range() const { return range_; }

    /// Bits of a component of the pictures: 8 or 16, and of their codes if they are of floats.
    int bits() const;

    /// Whether pictures are of floats, as the clip's are.
    bool isOfFloats() const { return isOfFloats_; }

    /// A picture in codes of bits(): itself, but of floats the nearest ones, which clips them.
    Image::Surface inCodes(const Image::Surface& picture) const;

    /// The frame's picture. Throws Failure (device, input).
    Image::Surface picture(const ClipFrames::Found& frame);

    /// The picture at that size, which is at most its own.
    static Image::Surface shrunk(const Image::Surface& picture, const PictureSize& size);

    /// The codes of a picture in bytes. Waits for the device.
    HostPixels bytes(const Image::Surface& picture) const;

    /// The codes of a pixel of a picture as they are: A R G B, of bits().
    std::array<unsigned, 4> codes(const Image::Surface& picture, int x, int y) const;

private:
    Media::FramePacker::Target target(const ClipFrames& clip) const;
    Image::Surface whole(const ClipFrames::Found& frame);

    ClipFrames& clip_;
    Media::Range range_;
    bool isOfFloats_;
    iGPUImage::eFormat format_; ///< of pictures
    Media::FramePacker::Target source_;
    FrameUpload upload_;
    FrameDelivery display_;
    Qx::Ptr<iHostImage> staging_;
    std::unique_ptr<EffectChain> straight_; ///< makes alpha straight; null if it is
    mutable Qx::Ptr<iGPUImage> probed_;
    mutable Qx::Ptr<iHostImage> probedCodes_;
};

} // namespace Qx::Program::Studio
