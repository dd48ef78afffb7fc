#include "tools/qxhost/pipeline/frames/FrameProcessor.h"

#include "QxFxResources/GPUColourConverter.h"
#include "host/surfaces/RowGeometry.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/burnin/BurnIn.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/effects/EffectTextures.h"
#include "tools/qxhost/pipeline/input/FrameUpload.h"
#include "tools/qxhost/pipeline/input/PairsToPicture.h"
#include "tools/qxhost/pipeline/output/FrameDelivery.h"

#include <algorithm>
#include <fmt/format.h>
#include <tuple>
#include <utility>

namespace Qx::Program {

namespace {

using Image::Surface;
using Lock = std::lock_guard<std::mutex>;

/// Held by whoever draws or compiles: parameters of the conversions' effects are the process's.
std::mutex& drawingLock()
{
    static std::mutex lock;
    return lock;
}

void refuseForm(const FrameForm& form)
{
    const unsigned most = 16384;
    if (form.width < 1 || form.height < 1 || form.width > most || form.height > most) {
        throw Failure(ExitCode::usage, fmt::format("a frame has {} x {} pixels: expected 1 x 1 to {} x {}",
                                                   form.width, form.height, most, most));
    }
}

/// Whether codes pass through, since nothing is drawn.
bool keepsCodes(const FrameSteps& steps, const FrameForm& from, const FrameForm& to)
{
    const bool isSameColour = from.matrix == to.matrix && from.range == to.range;
    return from.format.isYCrCb() && to.format.isYCrCb() && isSameColour && steps.effects.empty() &&
           steps.text.text.empty();
}

/// The range of the pictures between.
Media::Range rangeOfPictures(const FrameForm& from, const FrameForm& to)
{
    if (from.format.isYCrCb()) {
        return to.format.isYCrCb() ? Media::Range::full : to.range;
    }
    if (!to.format.isYCrCb() && to.range != from.range) {
        throw Failure(ExitCode::usage, "RGB keeps its range: give the result the range of the frame");
    }
    return from.range;
}

Image::GamutScaling scalingOf(Media::Range range)
{
    return range == Media::Range::video ? Image::GamutScaling::Video : Image::GamutScaling::Unscaled;
}

iGPUImage::eFormat pictureFormat(const FrameForm& from, const FrameForm& to)
{
    return from.format.isDeep() || to.format.isDeep() ? iGPUImage::eARGB16 : iGPUImage::eARGB8;
}

Media::FramePacker::Target targetOf(const FrameForm& form, int bits)
{
    return {.depth = form.format.isDeep() ? Media::Depth::bits16 : Media::Depth::bits8,
            .range = form.range,
            .matrix = form.matrix,
            .bits = bits};
}

/// The bits of the levels that codes are brought to on their way; 0: all of their samples.
int levelBits(const FrameForm& form)
{
    const bool isDeepFull = form.format.isDeep() && form.range == Media::Range::full;
    return form.format.isYCrCb() && isDeepFull ? static_cast<int>(form.format.bits) : 0;
}

FrameUpload uploadOf(const FrameForm& form, int bits)
{
    return FrameUpload(describeFrame(form.format, form.width, form.height), targetOf(form, bits),
                       static_cast<int>(form.format.bits));
}

} // namespace

class PicturesOfCaller final : public iTextureFile
{
public:
    void give(const Surface& picture) { picture_ = picture; }
    Qx::Ptr<iGPUResource> at(const Host::FrameFacts&) override { return picture_.getGPUSurface(); }

private:
    Surface picture_;
};

std::shared_ptr<PicturesOfCaller> picturesOfCaller()
{
    return std::make_shared<PicturesOfCaller>();
}

std::shared_ptr<iTextureFile> asTexture(const std::shared_ptr<PicturesOfCaller>& pictures)
{
    return pictures;
}

/// Host images that wait for their next frame, of the last few forms.
class FrameProcessor::HostImages
{
public:
    Qx::Ptr<iHostImage> take(const FrameForm& form)
    {
        {
            const Lock lock(mutex_);
            const auto found = std::find_if(free_.begin(), free_.end(),
                                            [&](const auto& each) { return each.first == keyOf(form); });
            if (found != free_.end()) {
                Qx::Ptr<iHostImage> image = std::move(found->second);
                free_.erase(found);
                return image;
            }
        }
        Qx::Ptr<iHostImage> image = uploadOf(form, 0).makeHostImage();
        if (!image) {
            failOnDevice(static_cast<int>(form.width), static_cast<int>(form.height));
        }
        return image;
    }

    void giveBack(const FrameForm& form, Qx::Ptr<iHostImage> image)
    {
        constexpr std::size_t most = 8;
        const Lock lock(mutex_);
        if (free_.size() == most) {
            free_.erase(free_.begin());
        }
        free_.emplace_back(keyOf(form), std::move(image));
    }

private:
    using Key = std::tuple<Image::Format, unsigned, unsigned, unsigned>;

    static Key keyOf(const FrameForm& form)
    {
        return {form.format.info->format, form.format.bits, form.width, form.height};
    }

    std::mutex mutex_;
    std::vector<std::pair<Key, Qx::Ptr<iHostImage>>> free_;
};

FrameProcessor::FrameProcessor(const FrameSteps& steps)
    : steps_(steps), images_(std::make_unique<HostImages>())
{
    if (!steps_.text.text.empty()) {
        static_cast<void>(BurnInText(steps_.text.text)); // reports mistakes before a frame comes
    }
    const Lock lock(drawingLock());
    if (!Image::ColourConversion::isInitialised() && !Image::ColourConversion::init()) {
        static_cast<void>(obtainEffect("ColourConvert.fx")); // for its messages
        throw Failure(ExitCode::effect, "ColourConvert.fx: cannot be used; see the log (qxhost.log)");
    }
    effects_ = std::make_unique<EffectChain>(steps_.effects, std::nullopt, EffectChain::Parameters::own);
    warnings_ = effects_->warnings();
}

FrameProcessor::~FrameProcessor()
{
    const Lock lock(drawingLock());
    text_.reset();
    effects_.reset();
}

void FrameProcessor::set(const EffectSetting& setting)
{
    const Lock lock(drawingLock());
    effects_->set(setting.effect, setting.value);
}

Surface FrameProcessor::picture(const Input& input, const Qx::Ptr<iHostImage>& image,
                                const FrameForm& to) const
{
    const FrameForm& form = input.form;
    const int bits = levelBits(form);
    const iGPUImage::eFormat format = pictureFormat(form, to);
    const Surface uploaded = uploadOf(form, bits).upload(image, {}, format);
    if (!form.format.isYCrCb()) {
        return uploaded;
    }
    const int sampleBits = form.format.isDeep() ? 16 : 8;
    return toPicture(uploaded, {.bits = bits != 0 ? bits : sampleBits, .halfChroma = false}, form.matrix,
                     format, scalingOf(rangeOfPictures(form, to)), steps_.filter);
}

void FrameProcessor::drawText(const Surface& picture, std::int64_t number, Media::Range range)
{
    if (steps_.text.text.empty()) {
        return;
    }
    if (!text_) {
        Media::StreamInfo info;
        info.width = static_cast<int>(picture.getWidth());
        info.height = static_cast<int>(picture.getHeight());
        info.frameRate = steps_.rate;
        info.timeCode = steps_.timeCode;
        text_ = std::make_unique<BurnIn>(
            steps_.text, BurnInClip{std::filesystem::path(steps_.clip), info, localTime()}, warnings_);
    }
    text_->draw(picture, number, range);
}

Surface FrameProcessor::draw(const std::vector<Input>& inputs, const std::vector<Qx::Ptr<iHostImage>>& images,
                             const FrameForm& to, const Host::FrameFacts& facts)
{
    const FrameDelivery delivery(to.format, to.matrix);
    Surface drawn;
    Media::Range range = Media::Range::full;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        const FrameForm& form = inputs[i].form;
        if (keepsCodes(steps_, form, to)) {
            const int bits = static_cast<int>(to.format.bits);
            return delivery.fromPairs(uploadOf(form, bits).upload(images[i], {}, pictureFormat(form, to)));
        }
        const Surface made = picture(inputs[i], images[i], to);
        if (inputs[i].texture != nullptr) {
            inputs[i].texture->give(made);
        } else {
            drawn = made;
            range = rangeOfPictures(form, to);
        }
    }
    drawn = effects_->apply(drawn, drawn.getGPUSurface()->getFormat(), facts);
    drawText(drawn, facts.number, range);
    return delivery.fromPicture(drawn, range);
}

void FrameProcessor::process(const std::vector<Input>& inputs, const FrameForm& to, const Take& take,
                             const Host::FrameFacts& facts, const std::vector<EffectSetting>& settings)
{
    std::vector<Qx::Ptr<iHostImage>> images;
    for (const Input& input : inputs) {
        refuseForm(input.form);
        images.push_back(images_->take(input.form));
        // Waits until the device has read the frame before.
        void* const rows = images.back()->map(iHostImage::Write);
        if (rows == nullptr) {
            failOnDevice(static_cast<int>(to.width), static_cast<int>(to.height));
        }
        input.fill(rows, static_cast<std::ptrdiff_t>(images.back()->getPitch()));
    }
    Surface result;
    {
        const Lock lock(drawingLock());
        for (const EffectSetting& setting : settings) {
            effects_->set(setting.effect, setting.value);
        }
        result = draw(inputs, images, to, facts);
        for (const Input& input : inputs) {
            if (input.texture != nullptr) {
                input.texture->give({});
            }
        }
    }
    const Qx::Ptr<iHostImage> made = result.getHostImage();
    const void* const rows = made ? made->map(iHostImage::Read) : nullptr;
    if (rows == nullptr) {
        failOnDevice(static_cast<int>(to.width), static_cast<int>(to.height));
    }
    take(rows, static_cast<std::ptrdiff_t>(made->getPitch()));
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        images_->giveBack(inputs[i].form, std::move(images[i]));
    }
}

} // namespace Qx::Program
