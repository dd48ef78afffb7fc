#include "tools/qxhost/pipeline/input/PairsToPicture.h"

#include "QxFxResources/GPUColourConverter.h"
#include "QxFxResources/Manager.h"
#include "image/TechniqueApplication.h"
#include "platform/CriticalSection.h"
#include "platform/Text.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/device/Drawing.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/WideEffect.h"

#include <algorithm>
#include <string>

namespace Qx::Program {

namespace {

/// Tells the decoding techniques, while it lives, how codes stand for levels.
class FormOfCodes
{
public:
    FormOfCodes(const Media::FramePacker::CodeForm& form, unsigned sampleBits,
                const LightweightString<wchar_t>& effect)
        : lock_(FxResources::Manager::instance().gpuLock()), effect_(Image::getShader(effect))
    {
        const int unused = std::max(static_cast<int>(sampleBits) - form.bits, 0);
        set(static_cast<float>(1 << unused), form.halfChroma ? 2.0F : 1.0F);
    }
    ~FormOfCodes() { set(1.0F, 1.0F); }
    FormOfCodes(const FormOfCodes&) = delete;
    FormOfCodes& operator=(const FormOfCodes&) = delete;

private:
    void set(float codeStep, float chromaGain)
    {
        if (effect_) {
            effect_->setFloat("pSourceCodeStep", codeStep);
            effect_->setFloat("pSourceChromaGain", chromaGain);
        }
    }

    CriticalSectionScope lock_;
    Qx::Ptr<iShaderEffect> effect_;
};

/// A new picture of the codes' size, drawn by that effect, which is told the form of the codes.
template <class Draw>
Image::Surface drawnBy(const LightweightString<char>& effect, const Image::Surface& codes,
                       const Media::FramePacker::CodeForm& form, unsigned sampleBits,
                       iGPUImage::eFormat format, const Draw& draw)
{
    Image::Surface picture = codes.createDestARGBGPUSurface(format);
    if (!picture.getGPUSurface()) {
        failOnDevice(codes);
    }
    const Drawing drawing = tryDrawing([&] {
        const FormOfCodes told(form, sampleBits, fromUTF8(effect));
        return draw(picture);
    });
    if (drawing == Drawing::refused) {
        throw Failure(ExitCode::effect, std::string(effect.c_str()) +
                                            ": cannot be used for this conversion; is it installed whole? "
                                            "'qxhost effects list' shows where effects come from");
    }
    if (drawing == Drawing::notRecorded) {
        failOnDevice(codes);
    }
    return picture;
}

} // namespace

Image::Surface toPicture(const Image::Surface& pairs, const Media::FramePacker::CodeForm& form,
                         Media::Matrix matrix, iGPUImage::eFormat format, Image::GamutScaling outputRange,
                         Image::Filter filter)
{
    const bool isWide = matrix == Media::Matrix::bt2020;
    return drawnBy(isWide ? wideEffect : "ColourConvert.fx", pairs, form, pairs.getBitsPerComponent(), format,
                   [&](Image::Surface& picture) {
                       return isWide ? decodeWide(pairs, picture, outputRange, filter)
                                     : Image::ColourConversion::convertYCrCb422ToRGB(pairs, picture,
                                                                                     outputRange, filter);
                   });
}

Image::Surface fullChromaToPicture(const Image::Surface& frame, const Media::FramePacker::CodeForm& form,
                                   const Media::FramePacker::Target& source, iGPUImage::eFormat format,
                                   Image::GamutScaling outputRange)
{
    return drawnBy(fullChromaEffect, frame, form, static_cast<unsigned>(source.depth), format,
                   [&](Image::Surface& picture) {
                       return decodeFullChroma(frame, picture, source.matrix, source.range, outputRange);
                   });
}

} // namespace Qx::Program
