#pragma once

#include "host/effects/framework/EffectSyntax.h"

#include <functional>
#include <string_view>

namespace Qx::Host::Effects {

/// The plain HLSL function for a texture's method of Direct3D 10, such as "tex2D" for "Sample". Empty for
/// unknown methods.
std::string_view functionOfMethod(std::string_view method, EffectSyntax::TextureKind kind);

/// Rewrites "TEXTURE.Sample(SAMPLER, ...)" to "tex2D(BOTH, ...)" in the body of a function, and the like.
/// `kindOf` gives the kind of the texture of a name, or nothing; `both` the sampler that reads the texture
/// with the states of another, or, without one, of texels alone. Throws CompileError for methods that there
/// are not.
std::vector<Token>
withoutMethods(const std::vector<Token>& body,
               const std::function<std::optional<EffectSyntax::TextureKind>(const Token&)>& kindOf,
               const std::function<Token(const Token& texture, const Token* sampler)>& both);

} // namespace Qx::Host::Effects
