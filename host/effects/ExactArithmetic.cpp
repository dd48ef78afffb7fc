#include "host/effects/ExactArithmetic.h"

#include <cstddef>

#include <glslang/SPIRV/spirv.hpp>

namespace Qx::Host::Effects {
namespace {

bool isFloatArithmetic(spv::Op op)
{
    switch (op) {
    case spv::OpFAdd:
    case spv::OpFSub:
    case spv::OpFMul:
    case spv::OpFDiv:
    case spv::OpFRem:
    case spv::OpFMod:
    case spv::OpFNegate:
    case spv::OpVectorTimesScalar:
    case spv::OpMatrixTimesScalar:
    case spv::OpVectorTimesMatrix:
    case spv::OpMatrixTimesVector:
    case spv::OpMatrixTimesMatrix:
    case spv::OpOuterProduct:
    case spv::OpDot:
        return true;
    default:
        return false;
    }
}

/// Types come directly behind the decorations.
bool endsDecorations(spv::Op op)
{
    return op >= spv::OpTypeVoid && op <= spv::OpTypeForwardPointer;
}

} // namespace

void keepArithmeticAsWritten(std::vector<std::uint32_t>& spirv)
{
    constexpr std::size_t header = 5;
    std::size_t place = 0;
    std::vector<std::uint32_t> decorations;
    for (std::size_t at = header; at < spirv.size(); at += spirv[at] >> spv::WordCountShift) {
        const auto op = static_cast<spv::Op>(spirv[at] & spv::OpCodeMask);
        if (place == 0 && endsDecorations(op)) {
            place = at;
        }
        if (isFloatArithmetic(op)) {
            constexpr std::uint32_t words = 3;
            decorations.insert(decorations.end(), {words << spv::WordCountShift | spv::OpDecorate,
                                                   spirv[at + 2], spv::DecorationNoContraction});
        }
    }
    spirv.insert(spirv.begin() + static_cast<std::ptrdiff_t>(place), decorations.begin(), decorations.end());
}

} // namespace Qx::Host::Effects
