#include "host/effects/spirv/Passes.h"

#include <vector>

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

void keepArithmeticAsWritten(Spirv::Words& spirv)
{
    if (spirv.size() < Spirv::headerWords) {
        return;
    }
    std::vector<Spirv::Id> results;
    Spirv::forEach(spirv, [&results](const Spirv::Instruction& instruction) {
        if (isFloatArithmetic(instruction.op())) {
            results.push_back(instruction[2]);
        }
    });
    Spirv::ModuleWriter writer(spirv);
    bool decorated = false;
    const bool whole = Spirv::forEach(spirv, [&](const Spirv::Instruction& instruction) {
        if (!decorated && Spirv::isType(instruction.op())) {
            for (const Spirv::Id result : results) {
                writer.write(spv::OpDecorate, {result, spv::DecorationNoContraction});
            }
            decorated = true;
        }
        writer.copy(instruction);
    });
    if (whole) {
        spirv = writer.take();
    }
}

} // namespace Qx::Host::Effects
