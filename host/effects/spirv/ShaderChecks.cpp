#include "host/effects/spirv/ShaderChecks.h"

#include "host/effects/spirv/Tools.h"

#include <algorithm>
#include <map>

namespace Qx::Host::Effects {

bool validate(const Spirv::Words& spirv, std::string& problem)
{
    spvtools::SpirvTools tools(targetEnvironment);
    tools.SetMessageConsumer(collectInto(problem));
    return tools.Validate(spirv);
}

bool needsOnlyCore(const Spirv::Words& spirv, std::string& problem)
{
    return Spirv::forEach(
               spirv,
               [&problem](const Spirv::Instruction& instruction) {
                   const std::uint32_t capability = instruction[1];
                   if (instruction.op() == spv::OpCapability && capability != spv::CapabilityShader &&
                       capability != spv::CapabilityMatrix && capability != spv::CapabilityImageQuery &&
                       capability != spv::CapabilityDerivativeControl &&
                       capability != spv::CapabilitySampledBuffer) {
                       problem = "it needs a capability that not every device has (" +
                                 std::to_string(capability) + ")";
                   }
               }) &&
           problem.empty();
}

bool minglesPixels(const Spirv::Words& spirv)
{
    bool mingles = false;
    Spirv::forEach(spirv, [&mingles](const Spirv::Instruction& instruction) {
        const spv::Op op = instruction.op();
        mingles = mingles || op == spv::OpKill || op == spv::OpTerminateInvocation ||
                  op == spv::OpDemoteToHelperInvocation || (op >= spv::OpDPdx && op <= spv::OpFwidthCoarse);
    });
    return mingles;
}

std::vector<std::uint32_t> samplerBindings(const Spirv::Words& spirv)
{
    std::map<std::uint32_t, std::uint32_t> bindings;
    std::vector<std::uint32_t> read;
    Spirv::forEach(spirv, [&](const Spirv::Instruction& instruction) {
        if (instruction.op() == spv::OpDecorate && instruction[2] == spv::DecorationBinding) {
            bindings[instruction[1]] = instruction[3];
        } else if (instruction.op() == spv::OpVariable &&
                   instruction[3] == spv::StorageClassUniformConstant) {
            read.push_back(bindings[instruction[2]]);
        }
    });
    std::sort(read.begin(), read.end());
    return read;
}

} // namespace Qx::Host::Effects
