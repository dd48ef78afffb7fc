#pragma once

#include "host/gpu/effects/EffectProgram.h"
#include "host/gpu/images/Images.h"
#include "platform/GraphicPrimitives.h"
#include "platform/ShaderEffect.h"

#include <mutex>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace Qx::Host::Vulkan {

/// What an effect object and its parameter objects share: the parameters' present values and the present
/// technique. Locked within each call, so that nothing breaks when callers do not keep others out.
class EffectState
{
public:
    explicit EffectState(std::shared_ptr<EffectProgram> program);

    EffectProgram& program() const { return *program_; }
    const CompiledEffect& effect() const { return program_->effect(); }

    bool setTechnique(std::string_view name);
    bool setValues(const CompiledEffect::Parameter& parameter, const float* values, std::size_t count);
    bool setAll(const CompiledEffect::Parameter& parameter, float value);

    std::size_t uniformBytes() const { return uniforms_.size(); }

    /// The present technique's index; copies the uniform buffer's contents to `uniforms`, uniformBytes()
    /// long.
    std::size_t snapshot(std::span<std::byte> uniforms) const;

    /// True the first time for each text: what goes wrong for every frame is logged once.
    bool isNews(const std::string& text);

private:
    template <class ValueOf>
    bool set(const CompiledEffect::Parameter& parameter, ValueOf valueOf);

    const std::shared_ptr<EffectProgram> program_;
    mutable std::mutex mutex_;
    std::vector<std::byte> uniforms_;
    std::size_t technique_ = 0;
    std::set<std::string> told_;
};

/// A parameter that holds numbers. Those that the host fills by their semantic refuse values.
class NumberParameter final : public iShaderParam
{
public:
    NumberParameter(std::shared_ptr<EffectState> state, const CompiledEffect::Parameter& parameter)
        : state_(std::move(state)), parameter_(parameter)
    {
    }
    bool setValue(float value) override;
    bool setValues(const float* values, std::size_t count) override;
    std::size_t getComponentCount() const override;

private:
    const std::shared_ptr<EffectState> state_;
    const CompiledEffect::Parameter& parameter_;
};

/// A texture among the parameters: it holds no numbers.
class TextureParameter final : public iShaderParam
{
public:
    bool setValue(float) override { return false; }
    bool setValues(const float*, std::size_t) override { return false; }
    std::size_t getComponentCount() const override { return 0; }
};

class ShaderEffect final : public iShaderEffect
{
public:
    explicit ShaderEffect(std::shared_ptr<EffectProgram> program);

    bool setTechnique(const LightweightString<char>& name) override;
    Qx::Vector<LightweightString<char>> getTechniqueNames() const override;
    Qx::Ptr<iShaderParam> getParam(const char* name) override;
    bool render(Qx::Ptr<iGPUImage> target, const Qx::Vector<Source>& sources) override;

    /// Draws the present technique over a rectangle of the target, given in pixels.
    bool draw(GPUImage& target, const RectangleOf<float>& area, const Qx::Vector<Source>& sources);

    /// The effect's textures and parameters, in the file's order.
    const std::vector<CompiledEffect::Texture>& textures() const { return state_->effect().textures; }
    const std::vector<CompiledEffect::Parameter>& parameters() const { return state_->effect().parameters; }

    /// Names of the textures that a technique's passes read, each once.
    std::vector<std::string> texturesRead(std::string_view technique) const;

private:
    bool fail(const std::string& reason);

    const std::shared_ptr<EffectState> state_;
    std::vector<Qx::Ptr<iShaderParam>> parameters_; ///< in the file's order
};

} // namespace Qx::Host::Vulkan
