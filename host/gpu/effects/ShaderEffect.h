#pragma once

#include "host/gpu/effects/EffectState.h"
#include "host/gpu/images/Images.h"

#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host::Vulkan {

/// A parameter that holds numbers. One that the host fills by its semantic refuses values.
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
    /// `tells`: what is doubtful about the pictures and values of a draw goes to the log, and to notes().
    explicit ShaderEffect(std::shared_ptr<EffectProgram> program, bool tells = true);

    bool setTechnique(const LightweightString<char>& name) override;
    Qx::Vector<LightweightString<char>> getTechniqueNames() const override;
    Qx::Ptr<iShaderParam> getParam(const char* name) override;
    bool render(Qx::Ptr<iGPUImage> target, const Qx::Vector<Source>& sources) override;

    /// Draws the current technique over a rectangle of the target, given in pixels.
    bool draw(GPUImage& target, const RectangleOf<float>& area, const Qx::Vector<Source>& sources);

    const CompiledEffect& compiled() const { return state_->effect(); }

    /// What is to be said of draws that succeeded.
    std::vector<std::string> notes() const { return state_->notes(); }

private:
    bool fail(const std::string& reason);

    const std::shared_ptr<EffectState> state_;
    const bool tells_;
    std::vector<Qx::Ptr<iShaderParam>> parameters_; ///< in the file's order
};

} // namespace Qx::Host::Vulkan
