#pragma once

#include "host/gpu/effects/EffectProgram.h"
#include "host/gpu/effects/TechniqueDrawing.h"
#include "platform/GraphicPrimitives.h"
#include "platform/ShaderEffect.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host::Vulkan {

/// Components of all elements of a parameter.
std::size_t componentCount(const CompiledEffect::Parameter& parameter);

/// Fills in what the host says of a draw: the parameters with a semantic, CompiledEffect::SystemUniforms and
/// CompiledEffect::TextureUniforms.
void fillUniforms(const Draw& draw);

/// The current parameter values and the current technique of an effect, shared by the effect object and its
/// parameter objects. Thread-safe, so that concurrent callers at worst mix their values.
class EffectState
{
public:
    explicit EffectState(std::shared_ptr<EffectProgram> program);

    EffectProgram& program() const { return *program_; }
    const CompiledEffect& effect() const { return program_->effect(); }

    /// Returns false if the effect has no technique of that name.
    bool setTechnique(std::string_view name);

    /// Return false if the host fills the parameter, or if `count` is not the parameter's.
    bool setValues(const CompiledEffect::Parameter& parameter, const float* values, std::size_t count);
    bool setAll(const CompiledEffect::Parameter& parameter, float value);

    std::size_t uniformBytes() const { return uniforms_.size(); }

    /// Copies the uniform buffer's contents to `uniforms`, which is uniformBytes() long. Returns the index of
    /// the current technique.
    std::size_t snapshot(std::span<std::byte> uniforms) const;

    /// Returns true the first time for each text: a failure of every frame is logged once.
    bool isNews(const std::string& text);

    /// Keeps what is to be said of draws that succeed. Returns true the first time for each text.
    bool note(const std::string& text);
    std::vector<std::string> notes() const;

private:
    template <class ValueOf>
    bool set(const CompiledEffect::Parameter& parameter, ValueOf valueOf);

    const std::shared_ptr<EffectProgram> program_;
    mutable std::mutex mutex_;
    std::vector<std::byte> uniforms_;
    std::size_t technique_ = 0;
    std::set<std::string> told_;
    std::vector<std::string> notes_; ///< each once
};

} // namespace Qx::Host::Vulkan
