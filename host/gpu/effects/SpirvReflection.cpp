#include "host/gpu/effects/SpirvReflection.h"

#include <unordered_map>

namespace Qx::Host::Vulkan {

namespace {

// SPIR-V 1.6, 3.49 Instructions: the opcodes used here.
enum Opcode : std::uint32_t
{
    opTypeImage = 25,
    opTypeSampledImage = 27,
    opTypePointer = 32,
    opVariable = 59,
    opDecorate = 71,
    opKill = 252,
    opTerminateInvocation = 4416,
    opDemoteToHelperInvocation = 5380,
};

constexpr std::uint32_t magicNumber = 0x07230203;
constexpr std::size_t headerWords = 5;
constexpr std::uint32_t decorationBinding = 33;
// 3.7 Dim; 1 is 2D.
constexpr std::uint32_t dim3D = 2;
constexpr std::uint32_t dimBuffer = 5;

using Ids = std::unordered_map<std::uint32_t, std::uint32_t>;

struct Module
{
    Ids dimensions; // of image types
    Ids pointees;   // of pointer and sampled image types
    Ids variables;  // their types
    Ids bindings;   // of variables
};

void read(std::uint32_t opcode, std::span<const std::uint32_t> words, Module& module, SpirvReflection& result)
{
    switch (opcode) {
    case opTypeImage:
        if (words.size() > 3) {
            module.dimensions[words[1]] = words[3] == dim3D ? 3 : words[3] == dimBuffer ? 1 : 2;
        }
        break;
    case opTypeSampledImage:
        if (words.size() > 2) {
            module.pointees[words[1]] = words[2];
        }
        break;
    case opTypePointer:
        if (words.size() > 3) {
            module.pointees[words[1]] = words[3];
        }
        break;
    case opVariable:
        if (words.size() > 3) {
            module.variables[words[2]] = words[1];
        }
        break;
    case opDecorate:
        if (words.size() > 3 && words[2] == decorationBinding) {
            module.bindings[words[1]] = words[3];
        }
        break;
    case opKill:
    case opTerminateInvocation:
    case opDemoteToHelperInvocation:
        result.discards = true;
        break;
    default:
        break;
    }
}

std::uint32_t dimensionsOf(const Module& module, std::uint32_t variable)
{
    const auto type = module.variables.find(variable);
    if (type == module.variables.end()) {
        return 0;
    }
    std::uint32_t id = type->second;
    for (int step = 0; step < 3; ++step) {
        if (const auto found = module.dimensions.find(id); found != module.dimensions.end()) {
            return found->second;
        }
        const auto next = module.pointees.find(id);
        if (next == module.pointees.end()) {
            return 0;
        }
        id = next->second;
    }
    return 0;
}

} // namespace

SpirvReflection reflect(std::span<const std::uint32_t> spirv)
{
    SpirvReflection result;
    if (spirv.size() < headerWords || spirv[0] != magicNumber) {
        return result;
    }
    Module module;
    for (std::size_t at = headerWords; at < spirv.size();) {
        const std::size_t count = spirv[at] >> 16U;
        if (count == 0 || count > spirv.size() - at) {
            return result;
        }
        read(spirv[at] & 0xffffU, spirv.subspan(at, count), module, result);
        at += count;
    }
    for (const auto& [variable, binding] : module.bindings) {
        if (const std::uint32_t dimensions = dimensionsOf(module, variable); dimensions != 0) {
            result.imageDimensions[binding] = dimensions;
        }
    }
    result.valid = true;
    return result;
}

} // namespace Qx::Host::Vulkan
