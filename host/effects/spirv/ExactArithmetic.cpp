#include "host/effects/spirv/ExactArithmetic.h"

#include "host/effects/spirv/SpirvModule.h"

#include <cstddef>

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

} // namespace

void keepArithmeticAsWritten(std::vector<std::uint32_t>& spirv)
{
    Spirv::Words decorations;
    std::size_t place = 0;
    Spirv::forEach(spirv, [&](const Spirv::Instruction& instruction) {
        if (place == 0 && Spirv::isType(instruction.op())) {
            place = static_cast<std::size_t>(instruction.words.data() - spirv.data());
        }
        if (isFloatArithmetic(instruction.op())) {
            Spirv::write(decorations, spv::OpDecorate, {instruction[2], spv::DecorationNoContraction});
        }
    });
    spirv.insert(spirv.begin() + static_cast<std::ptrdiff_t>(place), decorations.begin(), decorations.end());
}

} // namespace Qx::Host::Effects
