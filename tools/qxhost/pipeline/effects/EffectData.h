#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/framework/Diagnostic.h"
#include "tools/qxhost/console/Json.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program {

// The effect compiler's diagnostics and results, as JSON and as text.

/// A list of { severity, file, line, column, text, ... }; fields that a message lacks are left out.
Json diagnosticsData(const std::vector<Host::Diagnostic>& diagnostics);

/// { techniques, parameters, textures, samplers }, each a list. `file` is the effect's own.
Json effectData(const Host::CompiledEffect& effect, const std::filesystem::path& file);

/// "float3", "float4x4", "float[8]".
std::string typeOf(const Host::CompiledEffect::Parameter& parameter);

/// The components of the default, rows first.
std::vector<double> defaultOf(const Host::CompiledEffect::Parameter& parameter);

/// "size of texture Input", for a parameter that the host fills; otherwise empty.
std::string filledWith(const Host::CompiledEffect::Parameter& parameter);

/// "s0"; empty if the file gives the sampler no register.
std::string registerOf(const Host::CompiledEffect::Sampler& sampler);

std::string nameOf(Host::CompiledEffect::Filter filter);
std::string nameOf(Host::CompiledEffect::Mip mip);
std::string nameOf(Host::CompiledEffect::Address address);

} // namespace Qx::Program
