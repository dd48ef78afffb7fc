// What instructions compute of each component.

#include "host/native/Instructions.h"

#include <spirv/unified1/GLSL.std.450.h>

namespace Qx::Host::Native {

Component Instructions::result(const Instruction& i, const Operands& of, std::optional<std::uint32_t> sample)
{
    if (const std::optional<Comparison> how = Comparison::of(i.op())) {
        const std::optional<Component> known = emit_.supposed(*how, *of[0], *of[1], sample);
        return known ? *known : emit_.compare(*how, *of[0], *of[1]);
    }
    if (i.op() == spv::OpExtInst) {
        return ofFunction(i, of);
    }
    const std::optional<Component> whole = ofWholes(i, of);
    return whole ? *whole : ofOthers(i, of);
}

/// What whole numbers and truths give. Nothing for other instructions.
std::optional<Component> Instructions::ofWholes(const Instruction& i, const Operands& of)
{
    switch (i.op()) {
    case spv::OpIAdd:
        return emit_.whole(LLVMAdd, *of[0], *of[1]);
    case spv::OpISub:
        return emit_.whole(LLVMSub, *of[0], *of[1]);
    case spv::OpIMul:
        return emit_.whole(LLVMMul, *of[0], *of[1]);
    case spv::OpSDiv:
        return emit_.divided(LLVMSDiv, *of[0], *of[1]);
    case spv::OpUDiv:
        return emit_.divided(LLVMUDiv, *of[0], *of[1]);
    case spv::OpSRem:
        return emit_.divided(LLVMSRem, *of[0], *of[1]);
    case spv::OpUMod:
        return emit_.divided(LLVMURem, *of[0], *of[1]);
    case spv::OpShiftLeftLogical:
        return emit_.shifted(LLVMShl, *of[0], *of[1]);
    case spv::OpShiftRightLogical:
        return emit_.shifted(LLVMLShr, *of[0], *of[1]);
    case spv::OpShiftRightArithmetic:
        return emit_.shifted(LLVMAShr, *of[0], *of[1]);
    case spv::OpBitwiseAnd:
    case spv::OpLogicalAnd:
        return emit_.binary(LLVMAnd, *of[0], *of[1]);
    case spv::OpBitwiseOr:
    case spv::OpLogicalOr:
        return emit_.binary(LLVMOr, *of[0], *of[1]);
    case spv::OpBitwiseXor:
        return emit_.binary(LLVMXor, *of[0], *of[1]);
    case spv::OpLogicalNot:
    case spv::OpNot:
        return emit_.inverse(*of[0]);
    case spv::OpSNegate:
        return emit_.unary(*of[0], LLVMBuildNeg);
    default:
        return std::nullopt;
    }
}

Component Instructions::ofOthers(const Instruction& i, const Operands& of)
{
    LLVMTypeRef type = elementOf(i[1]);
    switch (i.op()) {
    case spv::OpCopyObject:
        return *of[0];
    case spv::OpBitcast: // of a line to a whole number is the line
        return type == Emitter::elementOf(*of[0]) ? *of[0] : emit_.bits(*of[0], type);
    case spv::OpSelect:
        return emit_.select(*of[0], *of[1], *of[2]);
    case spv::OpConvertFToS:
        return emit_.cast(LLVMFPToSI, *of[0], emit_.i32);
    case spv::OpConvertFToU:
        return emit_.cast(LLVMFPToUI, *of[0], emit_.i32);
    case spv::OpConvertSToF:
        return emit_.cast(LLVMSIToFP, *of[0], emit_.float32);
    case spv::OpConvertUToF:
        return emit_.cast(LLVMUIToFP, *of[0], emit_.float32);
    case spv::OpFNegate:
        return emit_.unary(*of[0], LLVMBuildFNeg);
    case spv::OpFAdd:
        return emit_.binary(LLVMFAdd, *of[0], *of[1]);
    case spv::OpFSub:
        return emit_.binary(LLVMFSub, *of[0], *of[1]);
    case spv::OpFMul:
    case spv::OpVectorTimesScalar:
        return emit_.binary(LLVMFMul, *of[0], *of[1]);
    case spv::OpFDiv:
        return emit_.binary(LLVMFDiv, *of[0], *of[1]);
    case spv::OpIsNan:
        return emit_.compare({true, LLVMRealUNO, 0}, *of[0], *of[0]);
    default:
        return emit_.unknown(type, reasonOf(i));
    }
}

Component Instructions::ofFunction(const Instruction& i, const Operands& of)
{
    switch (i[4]) {
    case GLSLstd450Round: // drivers choose the even one of two equally near
    case GLSLstd450RoundEven:
        return emit_.call("llvm.nearbyint", *of[0]);
    case GLSLstd450Trunc:
        return emit_.call("llvm.trunc", *of[0]);
    case GLSLstd450Floor:
        return emit_.call("llvm.floor", *of[0]);
    case GLSLstd450Ceil:
        return emit_.call("llvm.ceil", *of[0]);
    case GLSLstd450Fract:
        return emit_.binary(LLVMFSub, *of[0], emit_.call("llvm.floor", *of[0]));
    case GLSLstd450Sqrt:
        return emit_.call("llvm.sqrt", *of[0]);
    case GLSLstd450FAbs:
        return emit_.call("llvm.fabs", *of[0]);
    case GLSLstd450SAbs:
        return emit_.select(
            emit_.compare(*Comparison::of(spv::OpSLessThan), *of[0], emit_.constant(0U, emit_.i32)),
            emit_.unary(*of[0], LLVMBuildNeg), *of[0]);
    case GLSLstd450FSign:
        return signOf(*of[0]);
    case GLSLstd450Step:
        return emit_.select(emit_.compare(*Comparison::of(spv::OpFOrdGreaterThanEqual), *of[1], *of[0]),
                            emit_.constant(1.0F), emit_.constant(0.0F));
    default:
        break;
    }
    const std::optional<Component> limit = ofLimits(i[4], of);
    return limit ? *limit : emit_.unknown(elementOf(i[1]), reasonOf(i));
}

/// What gives one of its operands or of two constants. Nothing for other functions.
std::optional<Component> Instructions::ofLimits(std::uint32_t function, const Operands& of)
{
    const auto clampedBy = [&](spv::Op isMore, spv::Op isLess) {
        return emit_.chosen(isLess, emit_.chosen(isMore, *of[0], *of[1]), *of[2]);
    };
    switch (function) {
    case GLSLstd450FMin:
    case GLSLstd450NMin:
        return emit_.chosen(spv::OpFOrdLessThan, *of[0], *of[1]);
    case GLSLstd450FMax:
    case GLSLstd450NMax:
        return emit_.chosen(spv::OpFOrdGreaterThan, *of[0], *of[1]);
    case GLSLstd450UMin:
        return emit_.chosen(spv::OpULessThan, *of[0], *of[1]);
    case GLSLstd450SMin:
        return emit_.chosen(spv::OpSLessThan, *of[0], *of[1]);
    case GLSLstd450UMax:
        return emit_.chosen(spv::OpUGreaterThan, *of[0], *of[1]);
    case GLSLstd450SMax:
        return emit_.chosen(spv::OpSGreaterThan, *of[0], *of[1]);
    case GLSLstd450FClamp:
    case GLSLstd450NClamp:
        return clampedBy(spv::OpFOrdGreaterThan, spv::OpFOrdLessThan);
    case GLSLstd450SClamp:
        return clampedBy(spv::OpSGreaterThan, spv::OpSLessThan);
    case GLSLstd450UClamp:
        return clampedBy(spv::OpUGreaterThan, spv::OpULessThan);
    case GLSLstd450SSign:
        return emit_.chosen(spv::OpSLessThan,
                            emit_.chosen(spv::OpSGreaterThan, *of[0], emit_.constant(0xFFFFFFFFU, emit_.i32)),
                            emit_.constant(1U, emit_.i32));
    default:
        return std::nullopt;
    }
}

Component Instructions::signOf(const Component& a) const
{
    const Component zero = emit_.constant(0.0F);
    const Component isLess = emit_.compare(*Comparison::of(spv::OpFOrdLessThan), a, zero);
    const Component isZero = emit_.compare(*Comparison::of(spv::OpFOrdEqual), a, zero);
    return emit_.select(isZero, zero, emit_.select(isLess, emit_.constant(-1.0F), emit_.constant(1.0F)));
}

} // namespace Qx::Host::Native
