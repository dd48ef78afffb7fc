#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/Supplies.h"
#include "platform/Surface.h"
#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/pipeline/effects/EffectChain.h"
#include "tools/qxhost/pipeline/formats/PixelFormat.h"
#include "tools/qxhost/pipeline/options/BurnInOptions.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Qx::Program {

/// A frame in the memory of another program.
struct FrameForm
{
    PixelFormat format;
    unsigned width = 0; ///< pixels
    unsigned height = 0;
    Media::Range range = Media::Range::full; ///< of its codes
    Media::Matrix matrix = Media::Matrix::bt709;
};

/// What happens to every frame, in this order.
struct FrameSteps
{
    /// Effects and LUTs. A texture that is to get pictures from the caller has the iTextureFile of
    /// picturesOfCaller().
    std::vector<EffectRequest> effects;
    BurnInOptions text{};                             ///< empty: none
    std::string clip;                                 ///< for the text's {clip}
    std::string timeCode;                             ///< of frame 0; empty: 00:00:00:00
    Media::Rational rate;                             ///< frames a second; num 0: unknown
    Image::Filter filter = Image::Filter::CatmullRom; ///< of chroma
};

/// A parameter of the n-th effect.
struct EffectSetting
{
    std::size_t effect = 0;
    ParameterSetting value;
};

/// Pictures that the caller gives with each frame.
class PicturesOfCaller;
std::shared_ptr<PicturesOfCaller> picturesOfCaller();
std::shared_ptr<iTextureFile> asTexture(const std::shared_ptr<PicturesOfCaller>& pictures);

/// Takes single frames from the memory of another program through conversions, effects, LUTs and text, and
/// back, with the results of "qxhost convert". Needs a HostSession.
///
/// Thread-safe. The device draws for one thread at a time, of all processors; frames are copied to and from
/// its memory without waiting for others. Effects that look back see the frames in the order in which they
/// come.
class FrameProcessor
{
public:
    /// Writes a frame's rows to rows, rows + pitch, ...: planes follow each other at the first one's pitch.
    using Fill = std::function<void(void* rows, std::ptrdiff_t pitch)>;
    /// Reads them.
    using Take = std::function<void(const void* rows, std::ptrdiff_t pitch)>;

    /// A frame that comes in, and where its picture goes.
    struct Input
    {
        FrameForm form;
        Fill fill;
        PicturesOfCaller* texture = nullptr; ///< null: it is the picture that is drawn over
    };

    /// Compiles the effects and reads the LUTs. Throws Failure (effect, usage, device).
    explicit FrameProcessor(const FrameSteps& steps);
    ~FrameProcessor();
    FrameProcessor(const FrameProcessor&) = delete;
    FrameProcessor& operator=(const FrameProcessor&) = delete;

    /// What a user should know, a line each.
    const std::vector<std::string>& warnings() const { return warnings_; }

    /// The effects, for what they ask for.
    const EffectChain& effects() const { return *effects_; }

    /// What the n-th effect was compiled to.
    const Host::CompiledEffect& compiled(std::size_t n) const { return effects_->compiled(n); }

    /// Sets a parameter for the frames that follow. Throws Failure (effect) if the effect has none like it.
    void set(const EffectSetting& setting);

    /// The frame that `inputs` has exactly one of, of the same size, in the form `to`; YCbCr that is made of
    /// RGB has video range, whatever the form says. `settings` change parameters, for
    /// this frame and later ones. Throws Failure (device, effect, usage).
    void process(const std::vector<Input>& inputs, const FrameForm& to, const Take& take,
                 const Host::FrameFacts& facts, const std::vector<EffectSetting>& settings = {});

private:
    class HostImages;

    Image::Surface picture(const Input& input, const Qx::Ptr<iHostImage>& image, const FrameForm& to) const;
    Image::Surface draw(const std::vector<Input>& inputs, const std::vector<Qx::Ptr<iHostImage>>& images,
                        const FrameForm& to, const Host::FrameFacts& facts);
    void drawText(const Image::Surface& picture, std::int64_t number, Media::Range range);

    const FrameSteps steps_;
    std::vector<std::string> warnings_;
    std::unique_ptr<EffectChain> effects_;
    std::unique_ptr<class BurnIn> text_;
    std::unique_ptr<HostImages> images_;
};

} // namespace Qx::Program
