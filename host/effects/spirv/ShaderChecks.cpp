#include "host/effects/spirv/ShaderChecks.h"

#include "host/effects/spirv/Tools.h"

#include <algorithm>
#include <map>
#include <set>

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

bool samplersFitCalls(const Spirv::Words& spirv)
{
    std::map<std::uint32_t, std::uint32_t> pointees; // of types of pointers to samplers
    std::map<std::uint32_t, std::uint32_t> types;    // of variables, parameters and what is loaded
    std::set<std::uint32_t> samplers;                // their types
    bool fit = true;
    Spirv::forEach(spirv, [&](const Spirv::Instruction& instruction) {
        const spv::Op op = instruction.op();
        if (op == spv::OpTypeSampledImage) {
            samplers.insert(instruction[1]);
        } else if (op == spv::OpTypePointer && samplers.count(instruction[3]) != 0) {
            pointees[instruction[1]] = instruction[3];
        } else if (op == spv::OpVariable || op == spv::OpFunctionParameter || op == spv::OpLoad) {
            types[instruction[2]] = instruction[1];
        } else if (op == spv::OpStore) { // a call stores its arguments to variables
            const auto variable = types.find(instruction[1]);
            const auto value = types.find(instruction[2]);
            const auto pointee = variable == types.end() ? pointees.end() : pointees.find(variable->second);
            fit = fit &&
                  (pointee == pointees.end() || value == types.end() || value->second == pointee->second);
        }
    });
    return fit;
}

bool choosesSamplers(const Spirv::Words& spirv)
{
    std::set<std::uint32_t> samplers; // their types
    bool chooses = false;
    Spirv::forEach(spirv, [&](const Spirv::Instruction& instruction) {
        if (instruction.op() == spv::OpTypeSampledImage) {
            samplers.insert(instruction[1]);
        } else if (instruction.op() == spv::OpSelect || instruction.op() == spv::OpPhi) {
            chooses = chooses || samplers.count(instruction[1]) != 0;
        }
    });
    return chooses;
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

std::vector<std::uint32_t> specializationConstants(const Spirv::Words& spirv)
{
    std::vector<std::uint32_t> numbers;
    Spirv::forEach(spirv, [&](const Spirv::Instruction& instruction) {
        if (instruction.op() == spv::OpDecorate && instruction[2] == spv::DecorationSpecId) {
            numbers.push_back(instruction[3]);
        }
    });
    return numbers;
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
