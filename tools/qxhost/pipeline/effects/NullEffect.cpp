#include "tools/qxhost/pipeline/effects/NullEffect.h"

#include "image/TechniqueApplication.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/device/Drawing.h"
#include "tools/qxhost/pipeline/device/HostSession.h"

#include <string>

namespace Qx::Program {

void applyNullEffect(const char* technique, const Image::Surface& from, Image::Surface& to)
{
    const auto width = static_cast<int>(from.getWidth());
    const auto height = static_cast<int>(from.getHeight());
    if (!from.getGPUSurface() || !to.getGPUSurface()) {
        failOnDevice(width, height);
    }
    const Drawing drawing = tryDrawing([&] {
        return Image::applyTechnique(Image::getShader(L"null.fx"), from, to, technique,
                                     static_cast<float>(width));
    });
    if (drawing == Drawing::refused) {
        throw Failure(ExitCode::effect, std::string("null.fx: its technique ") + technique +
                                            " cannot be used; is it installed whole? 'qxhost effects list' "
                                            "shows where effects come from");
    }
    if (drawing == Drawing::notRecorded) {
        failOnDevice(width, height);
    }
}

Image::Surface atDepth(const Image::Surface& picture, iGPUImage::eFormat format, Media::Range range)
{
    const Qx::Ptr<iGPUImage> image = picture.getGPUSurface();
    if (!image || image->getFormat() == format) {
        return picture;
    }
    Image::Surface result = picture.createDestARGBGPUSurface(format);
    applyNullEffect(range == Media::Range::video ? "VideoRange" : "Null", picture, result);
    return result;
}

Image::Surface fullRangeAtDepth(const Image::Surface& pairs, int from, int to)
{
    Image::Surface result = pairs.createDestYUY2GPUSurface(to == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16);
    if (const Qx::Ptr<iShaderEffect> effect = Image::getShader(L"null.fx")) {
        effect->setFloat("_FromMax", static_cast<float>((1 << from) - 1));
        effect->setFloat("_ToMax", static_cast<float>((1 << to) - 1));
    }
    applyNullEffect("FullRangeYUYV", pairs, result);
    return result;
}

} // namespace Qx::Program
