#include "host/gpu/effects/Prewarm.h"

#include <algorithm>
#include <cstring>

namespace Qx::Host::Vulkan {

namespace {

/// Drivers generate other code for sides that are powers of two, which a picture's seldom are.
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

Prewarm::Prewarm(std::shared_ptr<EffectProgram> program)
    : program_(std::move(program)), effect_(Qx::makePtr<ShaderEffect>(program_, false))
{
}

bool Prewarm::prepare(iGPUImage::eFormat format, iGPUImage::eFormat sourceFormat)
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

bool Prewarm::hasForm(std::size_t technique, Form form) const
{
    const auto& faster = program_->technique(technique).stages.front().faster;
    return std::any_of(faster.begin(), faster.end(), [form](const auto& drawing) {
        return form == Form::Part || (form == Form::MixedDepths && drawing->mixesDepths());
    });
}

Qx::Vector<iShaderEffect::Source> Prewarm::sourcesOf(std::size_t technique)
{
    const CompiledEffect& effect = program_->effect();
    Qx::Vector<iShaderEffect::Source> sources;
    for (const StageProgram& stage : program_->technique(technique).stages) {
        for (std::size_t p = 0; p < stage.usual->passCount(); ++p) {
            const ShaderProgram& pass = stage.usual->program(p);
            for (std::size_t i = 0; i < pass.bindings.size(); ++i) {
                const bool isTable = pass.dimensions[i] == 3;
                if (isTable && !table_) {
                    table_ = blackTable(program_->context());
                }
                const std::string& name = effect.textures[effect.samplers[pass.bindings[i]].texture].name;
                sources.emplace_back(name.c_str(), isTable ? Qx::Ptr<iGPUResource>(table_)
                                                           : Qx::Ptr<iGPUResource>(picture_));
            }
        }
    }
    return sources;
}

bool Prewarm::draw(std::size_t technique, iGPUImage::eFormat format, Form form)
{
    Context& context = program_->context();
    const Operation operation(context);
    const iGPUImage::eFormat sourceFormat =
        form != Form::MixedDepths ? format : formats[format == formats[0] ? 1 : 0];
    if (!operation || !prepare(format, sourceFormat)) {
        return false;
    }
    const RectangleOf<float> area{0.0F, 0.0F, static_cast<float>(form == Form::Part ? 1 : targetSize.x),
                                  static_cast<float>(targetSize.y)};
    return effect_->setTechnique(program_->effect().techniques.at(technique).name.c_str()) &&
           effect_->draw(*target_, area, sourcesOf(technique)) &&
           context.recorder().wait(target_->picture().texture()->lastUse);
}

void Prewarm::drawAll()
{
    for (const iGPUImage::eFormat format : formats) {
        for (std::size_t i = 0; i < program_->effect().techniques.size(); ++i) {
            if (!draw(i, format) || (hasForm(i, Form::MixedDepths) && !draw(i, format, Form::MixedDepths))) {
                return;
            }
        }
    }
}

} // namespace Qx::Host::Vulkan
