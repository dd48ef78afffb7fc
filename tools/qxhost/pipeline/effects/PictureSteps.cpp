#include "tools/qxhost/pipeline/effects/PictureSteps.h"

#include "image/SurfaceUtilities.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/device/Drawing.h"
#include "tools/qxhost/pipeline/device/HostSession.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <limits>

namespace Qx::Program {

namespace {

using Image::Raster;
using Image::Surface;

Surface wrap(const Qx::Ptr<iGPUImage>& image, const Surface& madeFrom)
{
    Surface result = Image::makeWrapper(image);
    result.setDescriptions(madeFrom.getDescriptions());
    result.setPolarity(Image::Polarity::Progressive);
    return result;
}

/// Lines 0, 2, 4, ... (upper) or 1, 3, 5, ... of the picture.
Surface fieldOf(const Surface& picture, bool upper)
{
    const Qx::Ptr<iGPUImage> frame = picture.getGPUSurface();
    const XY<int> size = frame->getSize();
    const Qx::Ptr<iGPUImage> field = OS().gpu().createGPUImage({size.x, size.y / 2}, frame->getFormat());
    const Drawing drawing = tryDrawing([&] {
        // At an even destination line, the lower field's raster reads the source from its first line, the
        // upper field's from its second.
        Image::interlaceCopy(frame, field, {0, 0}, upper ? Raster::LowerField : Raster::UpperField, false);
        return true;
    });
    if (drawing != Drawing::recorded) {
        failOnDevice(picture);
    }
    return wrap(field, picture);
}

struct Step
{
    const Surface& picture;
    const Media::FrameTime& time;
    const TakePicture& take;

    void operator()(std::monostate) const { take(picture, time); }

    void operator()(const SeparateFields& fields) const
    {
        const Media::FieldOrder order = fields.order.value_or(time.fieldOrder);
        const bool upperFirst = order != Media::FieldOrder::bottomFirst;
        // The time base is half as long, so a field's duration is the frame's number.
        Media::FrameTime at{time.pts * 2, time.duration, Media::FieldOrder::progressive};
        take(fieldOf(picture, upperFirst), at);
        at.pts += std::max<std::int64_t>(time.duration, 1);
        take(fieldOf(picture, !upperFirst), at);
    }

    void operator()(const ShrinkPicture& target) const
    {
        const Qx::Ptr<iGPUImage> image = picture.getGPUSurface();
        const XY<int> size{static_cast<int>(target.width), static_cast<int>(target.height)};
        const Qx::Ptr<iGPUImage> small = Image::shrink(image, size, image->getFormat());
        if (!small || !(small->getSize() == size)) {
            failOnDevice(picture);
        }
        take(wrap(small, picture), time);
    }
};

/// Width over height of the picture as displayed.
double displayAspect(const Media::StreamInfo& info)
{
    const double pixel = info.sampleAspect.num > 0 ? info.sampleAspect.toDouble() : 1.0;
    return pixel * info.width / info.height;
}

int rounded(double value)
{
    return std::max(1, static_cast<int>(std::lround(value)));
}

/// The largest picture with square pixels and the display aspect that fits the requested size, never wider or
/// higher than the source.
XY<int> fittingSize(const Media::StreamInfo& info, const ShrinkPicture& target)
{
    const double aspect = displayAspect(info);
    const double widest = std::min<double>(target.width, info.width);
    const double highest = std::min<double>(target.height, info.height);
    const double width = std::min(widest, highest * aspect);
    return {rounded(width), std::min(rounded(width / aspect), static_cast<int>(highest))};
}

Media::StreamInfo shrunk(const ShrinkPicture& target, Media::StreamInfo info)
{
    if (target.stretch) {
        if (static_cast<int>(target.width) > info.width || static_cast<int>(target.height) > info.height) {
            throw Failure(ExitCode::usage,
                          fmt::format("--size {}x{}: the picture has {}x{}, and thumbnails are not larger; "
                                      "choose a smaller size, or leave out --stretch",
                                      target.width, target.height, info.width, info.height));
        }
        info.sampleAspect = {};
        info.width = static_cast<int>(target.width);
        info.height = static_cast<int>(target.height);
        return info;
    }
    const XY<int> size = fittingSize(info, target);
    info.width = size.x;
    info.height = size.y;
    info.sampleAspect = {};
    return info;
}

Media::StreamInfo inFields(const ConvertOptions& options, Media::StreamInfo info)
{
    if (info.height < 2) {
        throw Failure(ExitCode::input, options.inputName() + ": has one line, and fields need two");
    }
    constexpr int largest = std::numeric_limits<int>::max() / 2;
    if (info.timeBase.den > largest || info.frameRate.num > largest || info.sampleAspect.den > largest) {
        throw Failure(ExitCode::input, options.inputName() + ": its times are too fine to be halved");
    }
    info.height /= 2;
    info.frameRate.num *= 2;
    info.frameCount *= 2;
    info.timeBase.den *= 2;
    info.sampleAspect = info.sampleAspect.num > 0
                            ? Media::Rational{info.sampleAspect.num, info.sampleAspect.den * 2}
                            : Media::Rational{1, 2};
    info.fieldOrder = Media::FieldOrder::progressive;
    return info;
}

} // namespace

void runStep(const PictureStep& step, const Surface& picture, const Media::FrameTime& time,
             const TakePicture& take)
{
    std::visit(Step{picture, time, take}, step);
}

Media::StreamInfo afterStep(const ConvertOptions& options, const Media::StreamInfo& info)
{
    if (const auto* target = std::get_if<ShrinkPicture>(&options.step)) {
        return shrunk(*target, info);
    }
    return std::holds_alternative<SeparateFields>(options.step) ? inFields(options, info) : info;
}

int picturesEach(const PictureStep& step)
{
    return std::holds_alternative<SeparateFields>(step) ? 2 : 1;
}

} // namespace Qx::Program
