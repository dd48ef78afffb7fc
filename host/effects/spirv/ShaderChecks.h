#pragma once

#include "host/effects/spirv/SpirvModule.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Qx::Host::Effects {

/// Whether the shader is valid for Vulkan 1.1; `problem` says what is wrong.
bool validate(const Spirv::Words& spirv, std::string& problem);

/// Whether every device has the capabilities that the shader needs; `problem` names one that not all have.
bool needsOnlyCore(const Spirv::Words& spirv, std::string& problem);

/// Whether every call gives the function samplers of the kind that it takes. The HLSL compiler does not look,
/// and the optimizer does not survive others. To be asked first of a new module.
bool samplersFitCalls(const Spirv::Words& spirv);

/// Whether a sampler is chosen while the shader runs, which no device need be able to do.
bool choosesSamplers(const Spirv::Words& spirv);

/// Whether the shader discards pixels or compares neighbours: it then cannot draw several texels at once.
bool minglesPixels(const Spirv::Words& spirv);

/// Numbers of the shader's specialization constants.
std::vector<std::uint32_t> specializationConstants(const Spirv::Words& spirv);

/// Bindings of the samplers and buffers of texels that the shader reads, ascending.
std::vector<std::uint32_t> samplerBindings(const Spirv::Words& spirv);

} // namespace Qx::Host::Effects
