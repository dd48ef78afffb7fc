#include "tests/hosts/check/Faults.h"
#include "tests/hosts/check/WrappedGPU.h"

#include <platform/Text.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Qx::HostTests {

namespace {

/// A host image that says another pitch.
class PaddedImage final : public iHostImage
{
public:
    explicit PaddedImage(Ptr<iHostImage> image) : image_(std::move(image)) {}
    XY<int> getSize() const override { return image_->getSize(); }
    iGPUImage::eFormat getFormat() const override { return image_->getFormat(); }
    std::size_t getPitch() const override { return (image_->getPitch() + 255) / 256 * 256; }
    void* map(eAccess access) override { return image_->map(access); }
    Ptr<iHostImage> inner() const { return image_; }

private:
    Ptr<iHostImage> image_;
};

struct RowsArePadded final : WrappedGPU
{
    Ptr<iHostImage> createHostImage(XY<int> size, iGPUImage::eFormat format) override
    {
        const Ptr<iHostImage> image = WrappedGPU::createHostImage(size, format);
        return image && size.x == 17 ? Ptr<iHostImage>(makePtr<PaddedImage>(image)) : image;
    }
    Ptr<iGPUImage> uploadImage(Ptr<iHostImage> image, int options) override
    {
        const auto padded = dynamicCast<PaddedImage>(image);
        return WrappedGPU::uploadImage(padded ? padded->inner() : image, options);
    }
    Ptr<iHostImage> downloadImage(Ptr<iGPUImage> image) override { return WrappedGPU::downloadImage(image); }
};

struct RoundsSizesUp final : WrappedGPU
{
    Ptr<iGPUImage> createGPUImage(XY<int> size, iGPUImage::eFormat format) override
    {
        return WrappedGPU::createGPUImage({(size.x + 3) / 4 * 4, size.y}, format);
    }
};

struct MakesSomethingAnyway final : WrappedGPU
{
    Ptr<iGPUImage> createGPUImage(XY<int> size, iGPUImage::eFormat format) override
    {
        const XY<int> possible{std::clamp(size.x, 1, 4096), std::clamp(size.y, 1, 4096)};
        return WrappedGPU::createGPUImage(possible, format);
    }
};

/// Each mapping is a copy.
class MovingImage final : public iHostImage
{
public:
    explicit MovingImage(Ptr<iHostImage> image) : image_(std::move(image)) {}
    XY<int> getSize() const override { return image_->getSize(); }
    iGPUImage::eFormat getFormat() const override { return image_->getFormat(); }
    std::size_t getPitch() const override { return image_->getPitch(); }
    void* map(eAccess access) override
    {
        if (access == Write) {
            return image_->map(access);
        }
        const std::size_t bytes = getPitch() * static_cast<std::size_t>(getSize().y);
        copies_.push_back(std::make_unique<char[]>(bytes));
        std::memcpy(copies_.back().get(), image_->map(Read), bytes);
        return copies_.back().get();
    }
    Ptr<iHostImage> inner() const { return image_; }

private:
    Ptr<iHostImage> image_;
    std::vector<std::unique_ptr<char[]>> copies_;
};

struct MappingsMove final : WrappedGPU
{
    Ptr<iHostImage> createHostImage(XY<int> size, iGPUImage::eFormat format) override
    {
        const Ptr<iHostImage> image = WrappedGPU::createHostImage(size, format);
        return image && size == XY<int>{5, 3} ? Ptr<iHostImage>(makePtr<MovingImage>(image)) : image;
    }
    Ptr<iGPUImage> uploadImage(Ptr<iHostImage> image, int options) override
    {
        const auto moving = dynamicCast<MovingImage>(image);
        return WrappedGPU::uploadImage(moving ? moving->inner() : image, options);
    }
};

struct SwapsBytesOf16Bits final : WrappedGPU
{
    Ptr<iHostImage> downloadImage(Ptr<iGPUImage> image) override
    {
        const Ptr<iHostImage> result = WrappedGPU::downloadImage(image);
        const bool isWide = result && result->getFormat() == iGPUImage::eARGB16 && result->getSize().x == 3;
        if (auto* const bytes = isWide ? static_cast<char*>(result->map(iHostImage::Write)) : nullptr) {
            for (std::size_t i = 0; i < result->getPitch() * static_cast<std::size_t>(result->getSize().y);
                 i += 2) {
                std::swap(bytes[i], bytes[i + 1]);
            }
        }
        return result;
    }
};

/// Nothing is read until it is needed: the memory may have changed by then.
class LazyUpload final : public iGPUImage
{
public:
    explicit LazyUpload(Ptr<iHostImage> image) : image_(std::move(image)) {}
    XY<int> getSize() const override { return image_->getSize(); }
    eFormat getFormat() const override { return image_->getFormat(); }
    unsigned getBitsPerTexel() const override { return getFormat() == eARGB16 ? 64 : 32; }
    Ptr<iGraphicPrimitivesRenderer> getPrimitivesRenderer(int) override { return {}; }
    Ptr<iHostImage> image() const { return image_; }

private:
    Ptr<iHostImage> image_;
};

struct UploadsLater final : WrappedGPU
{
    Ptr<iGPUImage> uploadImage(Ptr<iHostImage> image, int options) override
    {
        return image->getSize().x == 512 ? Ptr<iGPUImage>(makePtr<LazyUpload>(image))
                                         : WrappedGPU::uploadImage(image, options);
    }
    Ptr<iHostImage> downloadImage(Ptr<iGPUImage> image) override
    {
        const auto lazy = dynamicCast<LazyUpload>(image);
        return WrappedGPU::downloadImage(lazy ? WrappedGPU::uploadImage(lazy->image(), 0) : image);
    }
};

/// The same memory for every download of an image of 4 x 4.
struct SharesDownloads final : WrappedGPU
{
    Ptr<iHostImage> downloadImage(Ptr<iGPUImage> image) override
    {
        const Ptr<iHostImage> result = WrappedGPU::downloadImage(image);
        if (result && result->getSize() == XY<int>{4, 4}) {
            const Ptr<iHostImage> first = std::exchange(first_, result);
            return first ? first : result;
        }
        return result;
    }
    Ptr<iGPUImage> uploadImage(Ptr<iHostImage> image, int options) override
    {
        if (first_) { // what the next upload has shows in what was downloaded before
            std::memcpy(first_->map(iHostImage::Write), image->map(iHostImage::Read), image->getPitch());
        }
        return WrappedGPU::uploadImage(image, options);
    }

private:
    Ptr<iHostImage> first_;
};

struct AnyEffectForTheEmptyPath final : WrappedGPU
{
    Ptr<iShaderEffect> loadEffectFile(const LightweightString<wchar_t>& path,
                                      const Definitions& definitions) override
    {
        return WrappedGPU::loadEffectFile(path.empty() ? getShadersDir() + L"null.fx" : path, definitions);
    }
};

struct SaysNothing final : WrappedGPU
{
    EffectCompileResult compileEffectFile(const LightweightString<wchar_t>& path,
                                          const Definitions& definitions) override
    {
        const bool missing = !std::filesystem::exists(toUTF8(path).c_str());
        EffectCompileResult result = WrappedGPU::compileEffectFile(path, definitions);
        return missing ? EffectCompileResult{} : result;
    }
};

struct ForgetsDefinitions final : WrappedGPU
{
    EffectCompileResult compileEffectFile(const LightweightString<wchar_t>& path, const Definitions&) override
    {
        return WrappedGPU::compileEffectFile(path, {});
    }
};

/// An effect of which a fault replaces a function.
class WrappedEffect : public iShaderEffect
{
public:
    explicit WrappedEffect(Ptr<iShaderEffect> effect) : effect_(std::move(effect)) {}
    bool setTechnique(const LightweightString<char>& name) override { return effect_->setTechnique(name); }
    Vector<LightweightString<char>> getTechniqueNames() const override
    {
        return effect_->getTechniqueNames();
    }
    Ptr<iShaderParam> getParam(const char* name) override { return effect_->getParam(name); }
    bool render(Ptr<iGPUImage> target, const Vector<Source>& sources) override
    {
        return effect_->render(target, sources);
    }

protected:
    Ptr<iShaderEffect> effect_;
};

template <class Effect>
struct GPUWithEffect final : WrappedGPU
{
    EffectCompileResult compileEffectFile(const LightweightString<wchar_t>& path,
                                          const Definitions& definitions) override
    {
        EffectCompileResult result = WrappedGPU::compileEffectFile(path, definitions);
        if (result.effect) {
            result.effect = makePtr<Effect>(result.effect);
        }
        return result;
    }
};

struct SortsTechniques final : WrappedEffect
{
    using WrappedEffect::WrappedEffect;
    Vector<LightweightString<char>> getTechniqueNames() const override
    {
        auto names = WrappedEffect::getTechniqueNames();
        std::sort(names.begin(), names.end());
        return names;
    }
};

struct IgnoresCaseOfTechniques final : WrappedEffect
{
    using WrappedEffect::WrappedEffect;
    bool setTechnique(const LightweightString<char>& name) override
    {
        for (const LightweightString<char>& known : getTechniqueNames()) {
            if (known.equalsIgnoringCase(name)) {
                return WrappedEffect::setTechnique(known);
            }
        }
        return false;
    }
};

struct BeginsWithTheLast final : WrappedEffect
{
    explicit BeginsWithTheLast(Ptr<iShaderEffect> effect) : WrappedEffect(std::move(effect))
    {
        const auto names = getTechniqueNames();
        isFirst_ = true;
    }
    bool setTechnique(const LightweightString<char>& name) override
    {
        isFirst_ = false;
        return WrappedEffect::setTechnique(name);
    }
    Ptr<iShaderParam> getParam(const char* name) override
    {
        isFirst_ = false;
        return WrappedEffect::getParam(name);
    }
    bool render(Ptr<iGPUImage> target, const Vector<Source>& sources) override
    {
        if (isFirst_ && target && !sources.empty() && sources[0].name == "Input") {
            WrappedEffect::setTechnique("Shade");
        }
        return WrappedEffect::render(target, sources);
    }

private:
    bool isFirst_ = false;
};

/// A parameter of which a fault replaces a function.
class WrappedParam : public iShaderParam
{
public:
    explicit WrappedParam(Ptr<iShaderParam> param) : param_(std::move(param)) {}
    bool setValue(float value) override { return param_->setValue(value); }
    bool setValues(const float* values, std::size_t count) override
    {
        return param_->setValues(values, count);
    }
    std::size_t getComponentCount() const override { return param_->getComponentCount(); }

protected:
    Ptr<iShaderParam> param_;
};

template <class Param>
struct EffectWithParam final : WrappedEffect
{
    using WrappedEffect::WrappedEffect;
    Ptr<iShaderParam> getParam(const char* name) override
    {
        const Ptr<iShaderParam> param = WrappedEffect::getParam(name);
        return param ? Ptr<iShaderParam>(makePtr<Param>(param)) : param;
    }
};

struct TakesAnyCount final : WrappedParam
{
    using WrappedParam::WrappedParam;
    bool setValues(const float* values, std::size_t count) override
    {
        return count != getComponentCount() || WrappedParam::setValues(values, count);
    }
};

struct TakesNothing final : WrappedParam
{
    using WrappedParam::WrappedParam;
    bool setValue(float value) override
    {
        return param_->getComponentCount() == 1 || param_->setValue(value);
    }
};

struct TakesOneComponent final : WrappedParam
{
    using WrappedParam::WrappedParam;
    bool setValue(float value) override
    {
        std::vector<float> values(getComponentCount(), 1.0F);
        if (values.empty()) {
            return WrappedParam::setValue(value);
        }
        values[0] = value;
        return setValues(values.data(), values.size());
    }
};

struct TakesNumbersForTextures final : WrappedParam
{
    using WrappedParam::WrappedParam;
    bool setValue(float value) override { return WrappedParam::setValue(value) || true; }
};

struct ForgetsParameters final : WrappedEffect
{
    using WrappedEffect::WrappedEffect;
    bool setTechnique(const LightweightString<char>& name) override
    {
        setFloat("factor", 1.0F);
        return WrappedEffect::setTechnique(name);
    }
};

/// A texel of the input for each texel of the target.
struct KeepsTheSizeOfPictures final : WrappedEffect
{
    using WrappedEffect::WrappedEffect;
    bool render(Ptr<iGPUImage> target, const Vector<Source>& sources) override
    {
        Vector<Source> stretched = sources;
        for (Source& source : stretched) {
            if (const auto input = dynamicCast<iGPUImage>(source.resource); input && target) {
                source.texCoords[2] *=
                    static_cast<float>(target->getSize().x) / static_cast<float>(input->getSize().x);
            }
        }
        return WrappedEffect::render(target, stretched);
    }
};

struct DrawsWithoutTarget final : WrappedEffect
{
    using WrappedEffect::WrappedEffect;
    bool render(Ptr<iGPUImage> target, const Vector<Source>& sources) override
    {
        return !target || WrappedEffect::render(target, sources);
    }
};

struct DrawsWithoutTextures final : WrappedEffect
{
    using WrappedEffect::WrappedEffect;
    bool render(Ptr<iGPUImage> target, const Vector<Source>& sources) override
    {
        const bool drawn = WrappedEffect::render(target, sources);
        return drawn || static_cast<bool>(target);
    }
};

struct IgnoresRectangles final : WrappedEffect
{
    using WrappedEffect::WrappedEffect;
    bool render(Ptr<iGPUImage> target, const Vector<Source>& sources) override
    {
        Vector<Source> whole = sources;
        for (Source& source : whole) {
            source.texCoords = {0.0F, 0.0F, 1.0F, 1.0F};
        }
        return WrappedEffect::render(target, whole);
    }
};

struct HasTablesOfOne final : WrappedGPU
{
    Ptr<iHostImage3D> createHostImage3D(int size) override
    {
        return WrappedGPU::createHostImage3D(std::max(size, 2));
    }
};

struct UploadsNothing final : WrappedGPU
{
    Ptr<iGPUImage3D> upload3DImage(Ptr<iHostImage3D> image) override
    {
        return WrappedGPU::upload3DImage(image ? image : createHostImage3D(2));
    }
};

/// Copies the entries into a table of its own and forgets the rest.
struct ForgetsTheDomain final : WrappedGPU
{
    Ptr<iGPUImage3D> upload3DImage(Ptr<iHostImage3D> image) override
    {
        if (!image) {
            return {};
        }
        const int size = image->getSize();
        const Ptr<iHostImage3D> copy = createHostImage3D(size);
        std::copy_n(std::as_const(*image).getData(), size * size * size * 4, copy->getData());
        return WrappedGPU::upload3DImage(copy);
    }
};

struct MakesAnyFont final : WrappedGPU
{
    Ptr<iFont> createFont(const LightweightString<wchar_t>& typeface, int size, int style) override
    {
        return WrappedGPU::createFont(typeface, size <= 0 ? 12 : size, style);
    }
};

/// A font of which a fault replaces a function.
class WrappedFont : public iFont
{
public:
    explicit WrappedFont(Ptr<iFont> font) : font_(std::move(font)) {}
    XY<int> measure(const LightweightString<wchar_t>& text) override { return font_->measure(text); }
    bool draw(Ptr<iGPUImage> target, const LightweightString<wchar_t>& text, XY<int> position,
              const NormalisedRGB& colour, eAlpha alpha) override
    {
        return font_->draw(target, text, position, colour, alpha);
    }

protected:
    Ptr<iFont> font_;
};

template <class Font>
struct GPUWithFont final : WrappedGPU
{
    Ptr<iFont> createFont(const LightweightString<wchar_t>& typeface, int size, int style) override
    {
        const Ptr<iFont> font = WrappedGPU::createFont(typeface, size, style);
        return font ? Ptr<iFont>(makePtr<Font>(font)) : font;
    }
};

struct MeasuresGlyphs final : WrappedFont
{
    using WrappedFont::WrappedFont;
    XY<int> measure(const LightweightString<wchar_t>& text) override
    {
        XY<int> size = WrappedFont::measure(text);
        size.y -= text == L"x" ? 5 : 0; // it has no ascender
        return size;
    }
};

struct DrawsInWhite final : WrappedFont
{
    using WrappedFont::WrappedFont;
    bool draw(Ptr<iGPUImage> target, const LightweightString<wchar_t>& text, XY<int> position,
              const NormalisedRGB& colour, eAlpha alpha) override
    {
        const bool isRed = colour.red == 1.0F && colour.green == 0.0F;
        return WrappedFont::draw(target, text, position, isRed ? NormalisedRGB{1, 1, 1, 1} : colour, alpha);
    }
};

struct DrawsAnyColour final : WrappedFont
{
    using WrappedFont::WrappedFont;
    bool draw(Ptr<iGPUImage> target, const LightweightString<wchar_t>& text, XY<int> position,
              const NormalisedRGB& colour, eAlpha alpha) override
    {
        return WrappedFont::draw(target, text, position, colour, alpha) || static_cast<bool>(target);
    }
};

/// A compute context where the host says that there is none, or the other way round.
struct HasNoComputeContext final : WrappedGPU
{
    Ptr<iGPUComputeContext> createComputeContext(int) override { return {}; }
};

std::unique_ptr<Services> deniesItsComputeContext(HostUnderTest& host)
{
    host.without.insert(Feature::ComputeContexts);
    return std::make_unique<Services>();
}

} // namespace

Faults gpuFaults()
{
    return {
        {"sizes-are-rounded-up", "Images.AreAsAskedFor", withGPU<RoundsSizesUp>},
        {"impossible-images-are-made", "Images.AreRefusedIfImpossible", withGPU<MakesSomethingAnyway>},
        {"rows-are-padded",
         "HostImages.AreAsAskedFor",
         withGPU<RowsArePadded>,
         {"HostImages.SurviveTheRoundTrip"}},
        {"mappings-move", "HostImages.StayWhereTheyAre", withGPU<MappingsMove>},
        {"bytes-are-swapped", "HostImages.SurviveTheRoundTrip", withGPU<SwapsBytesOf16Bits>},
        {"uploads-happen-later", "HostImages.WaitForUploadsIfMappedForWriting", withGPU<UploadsLater>},
        {"downloads-share-memory", "HostImages.AreCopied", withGPU<SharesDownloads>},
        {"no-compute-context", "ComputeContext.IsThereOrEmpty", withGPU<HasNoComputeContext>},
        {"a-compute-context-that-is-denied", "ComputeContext.IsThereOrEmpty", deniesItsComputeContext},
        {"the-empty-path-is-an-effect", "Effects.FailForTheEmptyPath", withGPU<AnyEffectForTheEmptyPath>},
        {"failures-without-message", "Effects.FailForMissingFiles", withGPU<SaysNothing>},
        {"definitions-are-forgotten", "Effects.HaveTheDefinitions", withGPU<ForgetsDefinitions>},
        {"techniques-are-sorted", "Effects.HaveTechniquesInFileOrder",
         withGPU<GPUWithEffect<SortsTechniques>>},
        {"techniques-ignore-case", "Effects.RefuseUnknownTechniques",
         withGPU<GPUWithEffect<IgnoresCaseOfTechniques>>},
        {"the-last-technique-is-current", "Effects.BeginWithTheFirstTechnique",
         withGPU<GPUWithEffect<BeginsWithTheLast>>},
        {"parameters-take-any-count", "Effects.HaveParameters",
         withGPU<GPUWithEffect<EffectWithParam<TakesAnyCount>>>},
        {"parameters-take-nothing",
         "Effects.TakeParameters",
         withGPU<GPUWithEffect<EffectWithParam<TakesNothing>>>,
         {"Effects.ShareParametersAmongTechniques"}},
        {"parameters-take-one-component", "Effects.SetAllComponentsToOneValue",
         withGPU<GPUWithEffect<EffectWithParam<TakesOneComponent>>>},
        {"techniques-forget-parameters", "Effects.ShareParametersAmongTechniques",
         withGPU<GPUWithEffect<ForgetsParameters>>},
        {"pictures-keep-their-size", "Effects.DrawOverTheWholeTarget",
         withGPU<GPUWithEffect<KeepsTheSizeOfPictures>>},
        {"textures-take-numbers", "Effects.TakeNoNumbersForTextures",
         withGPU<GPUWithEffect<EffectWithParam<TakesNumbersForTextures>>>},
        {"drawing-without-a-target", "Effects.NeedATarget", withGPU<GPUWithEffect<DrawsWithoutTarget>>},
        {"drawing-without-textures", "Effects.NeedTheirTextures",
         withGPU<GPUWithEffect<DrawsWithoutTextures>>},
        {"rectangles-are-ignored", "Effects.HaveACoordinateSetForEachSource",
         withGPU<GPUWithEffect<IgnoresRectangles>>},
        {"tables-of-one-entry", "Tables.AreRefusedBelowTwo", withGPU<HasTablesOfOne>},
        {"nothing-is-uploaded", "Tables.AreNotUploadedFromNothing", withGPU<UploadsNothing>},
        {"the-domain-is-forgotten", "Tables.KeepTheirDomain", withGPU<ForgetsTheDomain>},
        {"fonts-of-no-size", "Fonts.AreRefusedIfImpossible", withGPU<MakesAnyFont>},
        {"line-heights-of-glyphs", "Fonts.HaveOneLineHeight", withGPU<GPUWithFont<MeasuresGlyphs>>},
        {"text-is-white", "Fonts.Draw", withGPU<GPUWithFont<DrawsInWhite>>},
        {"colours-need-not-be-finite", "Fonts.NeedAFiniteColour", withGPU<GPUWithFont<DrawsAnyColour>>},
    };
}

} // namespace Qx::HostTests
