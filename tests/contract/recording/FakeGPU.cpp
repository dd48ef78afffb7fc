#include "tests/contract/recording/FakeGPU.h"

#include "platform/GraphicPrimitives.h"
#include "tests/contract/recording/RecordingHost.h"

#include <utility>

namespace Qx::Test {

namespace {

class FakeParameter final : public iShaderParam
{
public:
    FakeParameter(Qx::Ptr<FakeEffect> effect, std::string name)
        : effect_(std::move(effect)), name_(std::move(name))
    {
    }

    bool setValue(float value) override
    {
        effect_->setFloatValue(name_, value);
        return host().call("setValue", effect_->name() + ", " + name_ + ", " + number(value));
    }

    bool setValues(const float*, std::size_t) override { return host().call("setValues", name_); }
    std::size_t getComponentCount() const override { return 1; }

private:
    Qx::Ptr<FakeEffect> effect_;
    std::string name_;
};

std::string nameOf(const iGPUResource* resource)
{
    if (resource == nullptr) {
        return "null";
    }
    const auto* image = dynamic_cast<const FakeGPUImage*>(resource);
    return image != nullptr ? image->name() : "unknown";
}

std::string numbersOf(const NormalisedRGB& c)
{
    return "(" + number(c.red) + " " + number(c.green) + " " + number(c.blue) + " " + number(c.alpha) + ")";
}

std::string numbersOf(const RectangleOf<int>& r)
{
    return "(" + std::to_string(r.x0) + " " + std::to_string(r.y0) + " " + std::to_string(r.x1) + " " +
           std::to_string(r.y1) + ")";
}

std::string numbersOf(const RectangleOf<float>& r)
{
    return "(" + number(r.x0) + " " + number(r.y0) + " " + number(r.x1) + " " + number(r.y1) + ")";
}

/// Writes every field of a drawing to the journal.
class FakeRenderer final : public iGraphicPrimitivesRenderer
{
public:
    explicit FakeRenderer(std::string target) : target_(std::move(target)) {}
    ~FakeRenderer() override { host().released("renderer of " + target_); }

    bool draw(const RectDescription& d, int layer) override
    {
        return host().call("drawRect", target_ + numbersOf(d.area) + ", colours " + numbersOf(d.colour) +
                                           " " + numbersOf(d.colour2) + ", border " +
                                           std::to_string(d.border) + ", layer " + std::to_string(layer));
    }

    bool draw(const ImageDescription& d, int layer) override
    {
        return host().call("drawImage", target_ + numbersOf(d.destination) + ", " + nameOf(d.image.get()) +
                                            numbersOf(d.source) + ", blend " + std::to_string(d.blend) +
                                            ", weight " + number(d.weight) + ", layer " +
                                            std::to_string(layer));
    }

    bool draw(const ImageDescriptionEx& d, int layer) override
    {
        const auto* effect = dynamic_cast<const FakeEffect*>(d.effect.get());
        return host().call("drawImageEx", target_ + numbersOf(d.destination) + ", " + nameOf(d.image.get()) +
                                              numbersOf(d.source) + ", effect " +
                                              (effect != nullptr ? effect->name() : "none") + ", blend " +
                                              std::to_string(d.blend) + ", mode " + std::to_string(d.mode) +
                                              ", further " + std::to_string(d.furtherImages.size()) +
                                              ", layer " + std::to_string(layer));
    }

private:
    const std::string target_;
};

} // namespace

FakeGPUImage::~FakeGPUImage()
{
    host().released(name_);
}

Qx::Ptr<iGraphicPrimitivesRenderer> FakeGPUImage::getPrimitivesRenderer(int layer)
{
    if (!host().call("getPrimitivesRenderer", name_ + ", " + std::to_string(layer))) {
        return {};
    }
    return Qx::makePtr<FakeRenderer>(name_);
}

FakeHostImage::~FakeHostImage()
{
    host().released("host image");
}

std::size_t FakeHostImage::getPitch() const
{
    return static_cast<std::size_t>(size_.x) * (format_ == iGPUImage::eARGB16 ? 8 : 4);
}

void* FakeHostImage::map(eAccess access)
{
    if (!host().call("map", access == Read ? "Read" : "Write")) {
        return nullptr;
    }
    bytes_.resize(getPitch() * static_cast<std::size_t>(size_.y));
    return bytes_.data();
}

FakeGPUImage3D::~FakeGPUImage3D()
{
    host().released(name_);
}

FakeFont::~FakeFont()
{
    host().released(name_);
}

FakeComputeContext::~FakeComputeContext()
{
    host().released("compute context");
}

FakeEffect::~FakeEffect()
{
    host().released(name_);
}

std::vector<FakeEffect::Drawing> FakeEffect::drawings() const
{
    const std::lock_guard guard(lock_);
    return drawings_;
}

bool FakeEffect::setTechnique(const LightweightString<char>& name)
{
    const std::string wanted = text(name);
    if (!host().call("setTechnique", name_ + ", " + wanted)) {
        return false;
    }
    if (techniques_ && !techniques_->contains(wanted)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    technique_ = wanted;
    return true;
}

Qx::Vector<LightweightString<char>> FakeEffect::getTechniqueNames() const
{
    host().call("getTechniqueNames", name_);
    Qx::Vector<LightweightString<char>> names;
    for (const std::string& name : techniques_.value_or(std::set<std::string>())) {
        names.emplace_back(name.c_str());
    }
    return names;
}

Qx::Ptr<iShaderParam> FakeEffect::getParam(const char* name)
{
    if (!host().call("getParam", name_ + ", " + name) || !parameters_.contains(name)) {
        return {};
    }
    return Qx::makePtr<FakeParameter>(Qx::Ptr<FakeEffect>(this), name);
}

bool FakeEffect::render(Qx::Ptr<iGPUImage> target, const Qx::Vector<Source>& sources)
{
    Drawing drawing;
    drawing.target = target.get();
    std::string inputs;
    for (const Source& source : sources) {
        const auto& r = source.texCoords;
        drawing.inputs.push_back({text(source.name), source.resource.get(), r});
        inputs += ", " + text(source.name) + "=" + nameOf(source.resource.get()) + "(" + number(r[0]) + " " +
                  number(r[1]) + " " + number(r[2]) + " " + number(r[3]) + ")";
    }
    {
        const std::lock_guard guard(lock_);
        drawing.technique = technique_;
        drawing.floats = floats_;
        drawings_.push_back(std::move(drawing));
    }
    return host().call("render", name_ + ", " + nameOf(target.get()) + inputs);
}

void FakeEffect::setFloatValue(const std::string& parameter, float value)
{
    const std::lock_guard guard(lock_);
    floats_[parameter] = value;
}

void RecordingTaskLog::setStep(const LightweightString<wchar_t>& step, int level)
{
    host().call("setStep", inQuotes(text(step)) + ", " + std::to_string(level));
}

void RecordingTaskLog::setProgress(const LightweightString<wchar_t>& progress, double fraction)
{
    host().call("setProgress", inQuotes(text(progress)) + ", " + number(fraction));
}

} // namespace Qx::Test
