#pragma once

#include "host/effects/framework/EffectSyntax.h"
#include "host/effects/framework/Problems.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

/// Whether a pass may set this state. None has an effect, since a pass fills one rectangle of one target, so
/// their values are not checked. Ignores case.
bool isRenderState(std::string_view name);

/// The same for states with a number, such as "ColorOp[0]", of fixed functions and of textures.
bool isNumberedState(std::string_view name);

/// " (did you mean X?)" for a word that is similar to a state; else empty.
std::string likelyRenderState(std::string_view name);

/// The states of one sampler_state block.
class SamplerStates
{
public:
    /// Throws CompileError for an unknown state or value; adds a warning for a value that is ignored.
    void set(const Token& name, const std::vector<Token>& value, Problems& problems);

    void apply(EffectSyntax::Sampler& sampler, Problems& problems) const;

private:
    bool setLevels(const Token& name, const std::vector<Token>& value, Problems& problems);

    std::optional<CompiledEffect::Filter> minFilter_;
    std::optional<CompiledEffect::Filter> magFilter_;
    std::optional<CompiledEffect::Mip> mip_;
    EffectSyntax::LevelRange levels_;
    std::optional<CompiledEffect::Address> addressU_;
    std::optional<CompiledEffect::Address> addressV_;
};

} // namespace Qx::Host::Effects
