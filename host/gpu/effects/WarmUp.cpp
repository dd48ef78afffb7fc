#include "host/gpu/effects/WarmUp.h"

#include <algorithm>
#include <cstring>

namespace Qx::Host::Vulkan {

namespace {

/// Drivers make other code for sides that are powers of two, which a picture's seldom are.
constexpr XY<int> pictureSize{3, 3};
constexpr XY<int> targetSize{2, 1};
constexpr int tableSize = 2;

Qx::Ptr<GPUImage> blackPicture(Context& context, iGPUImage::eFormat format)
{
    const Qx::Ptr<HostImage> host = makeHostImage(context, pictureSize, format);
    void* memory = host ? host->map(iHostImage::Write) : nullptr;
    if (memory == nullptr) {
        return {};
    }
    std::memset(memory, 0, host->getPitch() * static_cast<std::size_t>(pictureSize.y));
    return host->upload();
}

Qx::Ptr<GPUImage3D> blackTable(Context& context)
{
    const Qx::Ptr<HostImage3D> host = HostImage3D::create(tableSize);
    return host ? upload(context, *host) : Qx::Ptr<GPUImage3D>();
}

} // namespace

WarmUp::WarmUp(std::shared_ptr<EffectProgram> program)
    : program_(std::move(program)), effect_(Qx::makePtr<ShaderEffect>(program_))
{
}

bool WarmUp::prepare(iGPUImage::eFormat format, iGPUImage::eFormat sourceFormat)
{
    Context& context = program_->context();
    if (!target_ || target_->getFormat() != format) {
        target_ = makeGPUImage(context, targetSize, format);
    }
    if (!picture_ || picture_->getFormat() != sourceFormat) {
        picture_ = blackPicture(context, sourceFormat);
    }
    return target_ && picture_;
}

bool WarmUp::hasForm(std::size_t technique, Form form) const
{
    const std::vector<TechniqueProgram::Packed>& packed = program_->technique(technique).packed;
    return std::any_of(packed.begin(), packed.end(), [form](const auto& each) {
        return form == Form::ByTexel || (form == Form::Mixed && each.depths.areMixed());
    });
}

bool WarmUp::draw(std::size_t technique, iGPUImage::eFormat format, Form form)
{
    Context& context = program_->context();
    const Operation operation(context);
    const iGPUImage::eFormat sourceFormat =
        form != Form::Mixed ? format : formats[format == formats[0] ? 1 : 0];
    if (!operation || !prepare(format, sourceFormat)) {
        return false;
    }
    const CompiledEffect& effect = program_->effect();
    const CompiledEffect::Technique& chosen = effect.techniques.at(technique);
    const std::vector<PassProgram>& passes = program_->technique(technique).passes;
    Qx::Vector<iShaderEffect::Source> sources;
    for (std::size_t p = 0; p < passes.size(); ++p) {
        for (std::size_t i = 0; i < passes[p].dimensions.size(); ++i) {
            const bool isTable = passes[p].dimensions[i] == 3;
            if (isTable && !table_) {
                table_ = blackTable(context);
            }
            const std::string& name =
                effect.textures[effect.samplers[chosen.passes[p].samplers[i]].texture].name;
            sources.emplace_back(name.c_str(),
                                 isTable ? Qx::Ptr<iGPUResource>(table_) : Qx::Ptr<iGPUResource>(picture_));
        }
    }
    const RectangleOf<float> area{0.0F, 0.0F, static_cast<float>(form == Form::ByTexel ? 1 : targetSize.x),
                                  static_cast<float>(targetSize.y)};
    return effect_->setTechnique(chosen.name.c_str()) && effect_->draw(*target_, area, sources) &&
           context.recorder().wait(target_->picture().texture()->lastUse);
}

void WarmUp::drawAll()
{
    for (const iGPUImage::eFormat format : formats) {
        for (std::size_t i = 0; i < program_->effect().techniques.size(); ++i) {
            if (!draw(i, format) || (hasForm(i, Form::Mixed) && !draw(i, format, Form::Mixed))) {
                return;
            }
        }
    }
}

} // namespace Qx::Host::Vulkan
