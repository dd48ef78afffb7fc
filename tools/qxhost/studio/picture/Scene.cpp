#include "tools/qxhost/studio/picture/Scene.h"

#include "QxFxResources/GPUColourConverter.h"
#include "host/gpu/FloatImages.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/AlphaSteps.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/effects/NullEffect.h"
#include "tools/qxhost/pipeline/effects/PictureSteps.h"
#include "tools/qxhost/pipeline/effects/WideEffect.h"
#include "tools/qxhost/pipeline/input/PairsToPicture.h"
#include "tools/qxhost/pipeline/input/UploadChoice.h"

#include <cstring>

namespace Qx::Program::Studio {

namespace {

using Image::Surface;

PixelFormat bytesFormat()
{
    return {Host::findFormat(Image::ARGB), 8};
}

iGPUImage::eFormat pictureFormatOf(const Media::StreamInfo& info)
{
    return info.naturalDepth == Media::Depth::bits8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16;
}

/// Compiles what the library needs, so that a failure is told before the first frame.
void prepareColours(const ClipFrames& clip)
{
    if (holdsFullChroma(clip.info())) {
        static_cast<void>(obtainEffect(fullChromaEffect));
    } else if (!holdsRgb(clip.info()) && clip.colour().matrix == Media::Matrix::bt2020) {
        static_cast<void>(obtainEffect(wideEffect));
    }
    if (!Image::ColourConversion::isInitialised() && !Image::ColourConversion::init()) {
        static_cast<void>(obtainEffect("ColourConvert.fx")); // for its messages
        throw Failure(ExitCode::effect, "ColourConvert.fx: cannot be used; see the log (qxhost.log)");
    }
}

/// The frames of a clip whose colours are multiplied by their alpha are divided by it first.
std::unique_ptr<EffectChain> straightening(const Media::StreamInfo& info)
{
    if (!info.hasAlpha || alphaOf(info) != Media::AlphaKind::premultiplied) {
        return nullptr;
    }
    EffectRequest step;
    step.file = "Alpha.fx";
    step.technique = "Unpremultiply";
    return std::make_unique<EffectChain>(std::vector{step}, std::nullopt, EffectChain::Parameters::own);
}

} // namespace

Scene::Scene(ClipFrames& clip)
    : clip_(clip),
      range_(holdsRgb(clip.info()) ? clip.colour().range : Media::Range::full),
      isOfFloats_(clip.info().hasFloats && holdsRgb(clip.info()) && deviceDrawsFloats()),
      format_(isOfFloats_ ? Host::floatTexels : pictureFormatOf(clip.info())),
      source_(target(clip)),
      upload_(clip.packing().prepare(source_), source_, clip.packing().codeBits(source_)),
      display_(bytesFormat())
{
    prepareColours(clip);
    straight_ = straightening(clip.info());
    staging_ = isOfFloats_ ? makeFloatImage(clip.info().width, clip.info().height) : upload_.makeHostImage();
    if (!staging_) {
        failOnDevice(clip.info().width, clip.info().height);
    }
}

Scene::~Scene() = default;

Surface Scene::inCodes(const Surface& picture) const
{
    return isOfFloats_ ? atDepth(picture, iGPUImage::eARGB16, range_) : picture;
}

int Scene::bits() const
{
    return format_ == iGPUImage::eARGB8 ? 8 : 16;
}

Media::FramePacker::Target Scene::target(const ClipFrames& clip) const
{
    const Media::StreamInfo& info = clip.info();
    const Media::Depth depth = uploadDepth(info, info.naturalDepth);
    return {.depth = depth,
            .range = clip.colour().range,
            .matrix = clip.colour().matrix,
            .bits = uploadBits(info, depth, clip.colour().range),
            .followTags = true,
            .anyForm = true,
            .fullChroma = holdsFullChroma(info)};
}

Surface Scene::whole(const ClipFrames::Found& found)
{
    void* const rows = staging_->map(iHostImage::Write); // waits for the upload before
    if (rows == nullptr) {
        failOnDevice(clip_.info().width, clip_.info().height);
    }
    const auto pitch = static_cast<std::ptrdiff_t>(staging_->getPitch());
    if (isOfFloats_) {
        clip_.packing().placeFloats(found.frame, rows, pitch);
        return uploadFloats(staging_);
    }
    const Media::Status placed = clip_.packing().place(found.frame, rows, pitch);
    if (!placed) {
        throw Failure(ExitCode::input, placed.text());
    }
    const Media::FramePacker::CodeForm form = clip_.packing().formOf(found.frame);
    const Media::FrameTime& time = found.frame.time();
    const Image::GamutScaling scaling =
        range_ == Media::Range::video ? Image::GamutScaling::Video : Image::GamutScaling::Unscaled;
    if (source_.fullChroma) {
        return fullChromaToPicture(upload_.uploadAsIs(staging_, time), form, source_, format_, scaling);
    }
    const Surface uploaded = upload_.upload(staging_, time, format_);
    return upload_.isYCrCb()
               ? toPicture(uploaded, form, source_.matrix, format_, scaling, Image::Filter::CatmullRom)
               : uploaded;
}

Surface Scene::picture(const ClipFrames::Found& frame)
{
    Surface made = whole(frame);
    if (straight_) {
        made = straight_->apply(made, format_, {});
    }
    return made;
}

Surface Scene::shrunk(const Surface& picture, const PictureSize& size)
{
    if (static_cast<int>(picture.getWidth()) == size.width &&
        static_cast<int>(picture.getHeight()) == size.height) {
        return picture;
    }
    Surface result;
    runStep(ShrinkPicture{static_cast<unsigned>(size.width), static_cast<unsigned>(size.height), true},
            picture, {}, [&](const Surface& made, const Media::FrameTime&) { result = made; });
    return result;
}

HostPixels Scene::bytes(const Surface& picture) const
{
    const Qx::Ptr<iHostImage> image = display_.fromPicture(inCodes(picture), range_).getHostImage();
    const void* const rows = image ? image->map(iHostImage::Read) : nullptr;
    if (rows == nullptr) {
        failOnDevice(picture);
    }
    return {image,
            {static_cast<const std::uint8_t*>(rows), static_cast<int>(picture.getWidth()),
             static_cast<int>(picture.getHeight()), static_cast<std::ptrdiff_t>(image->getPitch())}};
}

std::array<unsigned, 4> Scene::codes(const Surface& picture, int x, int y) const
{
    if (probed_ != picture.getGPUSurface()) {
        probedCodes_ = inCodes(picture).copyToHost().getHostImage();
        probed_ = picture.getGPUSurface();
    }
    const void* const rows = probedCodes_ ? probedCodes_->map(iHostImage::Read) : nullptr;
    if (rows == nullptr) {
        failOnDevice(picture);
    }
    const auto* const row =
        static_cast<const std::uint8_t*>(rows) + static_cast<std::size_t>(y) * probedCodes_->getPitch();
    std::array<unsigned, 4> result{};
    for (std::size_t i = 0; i < result.size(); ++i) {
        const std::size_t at = static_cast<std::size_t>(x) * 4 + i;
        if (bits() == 8) {
            result[i] = row[at];
        } else {
            std::uint16_t sample = 0;
            std::memcpy(&sample, row + 2 * at, sizeof sample);
            result[i] = sample;
        }
    }
    return result;
}

} // namespace Qx::Program::Studio
