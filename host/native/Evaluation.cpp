#include "host/native/Evaluation.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include <spirv/unified1/GLSL.std.450.h>

namespace Qx::Host::Native {
namespace {

using Operands = std::array<std::uint32_t, 3>;

float floatOf(std::uint32_t bits)
{
    return std::bit_cast<float>(bits);
}

std::uint32_t bitsOf(float value)
{
    return std::bit_cast<std::uint32_t>(value);
}

std::int32_t signedOf(std::uint32_t bits)
{
    return static_cast<std::int32_t>(bits);
}

std::uint32_t truth(bool value)
{
    return value ? 1U : 0U;
}

std::optional<std::uint32_t> wholeOf(float value)
{
    if (!(value > -2147483648.0F && value < 2147483648.0F)) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(value));
}

std::optional<std::uint32_t> ofFunction(std::uint32_t function, const Operands& o)
{
    const float a = floatOf(o[0]);
    const float b = floatOf(o[1]);
    const float c = floatOf(o[2]);
    switch (function) {
    case GLSLstd450Floor:
        return bitsOf(std::floor(a));
    case GLSLstd450Ceil:
        return bitsOf(std::ceil(a));
    case GLSLstd450Trunc:
        return bitsOf(std::trunc(a));
    case GLSLstd450Round:
    case GLSLstd450RoundEven:
        return bitsOf(std::nearbyint(a));
    case GLSLstd450Fract:
        return bitsOf(a - std::floor(a));
    case GLSLstd450FAbs:
        return bitsOf(std::abs(a));
    case GLSLstd450FSign:
        return bitsOf(a == 0 ? 0.0F : a < 0 ? -1.0F : 1.0F);
    case GLSLstd450SSign:
        return static_cast<std::uint32_t>(std::clamp(signedOf(o[0]), -1, 1));
    case GLSLstd450FMin:
    case GLSLstd450NMin:
        return bitsOf(a < b ? a : b);
    case GLSLstd450FMax:
    case GLSLstd450NMax:
        return bitsOf(a > b ? a : b);
    case GLSLstd450FClamp:
    case GLSLstd450NClamp: {
        const float low = a > b ? a : b;
        return bitsOf(low < c ? low : c);
    }
    case GLSLstd450SMin:
        return signedOf(o[0]) < signedOf(o[1]) ? o[0] : o[1];
    case GLSLstd450SMax:
        return signedOf(o[0]) > signedOf(o[1]) ? o[0] : o[1];
    case GLSLstd450SClamp:
        return static_cast<std::uint32_t>(std::min(std::max(signedOf(o[0]), signedOf(o[1])), signedOf(o[2])));
    case GLSLstd450UClamp:
        return std::min(std::max(o[0], o[1]), o[2]);
    case GLSLstd450SAbs:
        return signedOf(o[0]) < 0 ? 0U - o[0] : o[0];
    case GLSLstd450Sqrt:
        return bitsOf(std::sqrt(a));
    case GLSLstd450Step:
        return bitsOf(b >= a ? 1.0F : 0.0F);
    case GLSLstd450UMin:
        return std::min(o[0], o[1]);
    case GLSLstd450UMax:
        return std::max(o[0], o[1]);
    default:
        return std::nullopt;
    }
}

/// Of a division by 0 nothing, and neither of one that leaves 32 bits.
std::optional<std::uint32_t> quotientOf(spv::Op op, std::uint32_t a, std::uint32_t b)
{
    if (b == 0 || b == 0xFFFFFFFF) {
        return std::nullopt;
    }
    switch (op) {
    case spv::OpSDiv:
        return static_cast<std::uint32_t>(signedOf(a) / signedOf(b));
    case spv::OpSRem:
        return static_cast<std::uint32_t>(signedOf(a) % signedOf(b));
    case spv::OpUDiv:
        return a / b;
    default: // OpUMod
        return a % b;
    }
}

std::optional<std::uint32_t> ofFloats(spv::Op op, const Operands& o)
{
    const float a = floatOf(o[0]);
    const float b = floatOf(o[1]);
    switch (op) {
    case spv::OpFNegate:
        return bitsOf(-a);
    case spv::OpFAdd:
        return bitsOf(a + b);
    case spv::OpFSub:
        return bitsOf(a - b);
    case spv::OpFMul:
    case spv::OpVectorTimesScalar:
        return bitsOf(a * b);
    case spv::OpFDiv:
        return bitsOf(a / b);
    case spv::OpConvertFToS:
    case spv::OpConvertFToU:
        return wholeOf(a);
    case spv::OpConvertSToF:
        return bitsOf(static_cast<float>(signedOf(o[0])));
    case spv::OpConvertUToF:
        return bitsOf(static_cast<float>(o[0]));
    case spv::OpFOrdEqual:
        return truth(a == b);
    case spv::OpFUnordNotEqual:
        return truth(a != b);
    case spv::OpFOrdNotEqual:
        return truth(a < b || a > b);
    case spv::OpFUnordEqual:
        return truth(!(a < b || a > b));
    case spv::OpFOrdLessThan:
        return truth(a < b);
    case spv::OpFOrdGreaterThan:
        return truth(a > b);
    case spv::OpFOrdLessThanEqual:
        return truth(a <= b);
    case spv::OpFOrdGreaterThanEqual:
        return truth(a >= b);
    case spv::OpFUnordLessThan:
        return truth(!(a >= b));
    case spv::OpFUnordGreaterThan:
        return truth(!(a <= b));
    case spv::OpFUnordLessThanEqual:
        return truth(!(a > b));
    case spv::OpFUnordGreaterThanEqual:
        return truth(!(a < b));
    default:
        return std::nullopt;
    }
}

} // namespace

std::optional<std::uint32_t> evaluated(const Effects::Spirv::Instruction& i, const Operands& o)
{
    const std::int32_t a = signedOf(o[0]);
    const std::int32_t b = signedOf(o[1]);
    const std::uint32_t shift = o[1] & 31U;
    switch (i.op()) {
    case spv::OpExtInst:
        return ofFunction(i[4], o);
    case spv::OpCopyObject:
    case spv::OpBitcast:
        return o[0];
    case spv::OpIAdd:
        return o[0] + o[1];
    case spv::OpISub:
        return o[0] - o[1];
    case spv::OpIMul:
        return o[0] * o[1];
    case spv::OpSDiv:
    case spv::OpSRem:
    case spv::OpUDiv:
    case spv::OpUMod:
        return quotientOf(i.op(), o[0], o[1]);
    case spv::OpShiftLeftLogical:
        return o[0] << shift;
    case spv::OpShiftRightLogical:
        return o[0] >> shift;
    case spv::OpShiftRightArithmetic:
        return static_cast<std::uint32_t>(a >> shift);
    case spv::OpBitwiseAnd:
    case spv::OpLogicalAnd:
        return o[0] & o[1];
    case spv::OpBitwiseOr:
    case spv::OpLogicalOr:
        return o[0] | o[1];
    case spv::OpBitwiseXor:
        return o[0] ^ o[1];
    case spv::OpLogicalNot:
        return o[0] ^ 1U;
    case spv::OpNot:
        return ~o[0];
    case spv::OpSNegate:
        return 0U - o[0];
    case spv::OpSelect:
        return o[0] != 0 ? o[1] : o[2];
    case spv::OpIEqual:
    case spv::OpLogicalEqual:
        return truth(o[0] == o[1]);
    case spv::OpINotEqual:
    case spv::OpLogicalNotEqual:
        return truth(o[0] != o[1]);
    case spv::OpUGreaterThan:
        return truth(o[0] > o[1]);
    case spv::OpUGreaterThanEqual:
        return truth(o[0] >= o[1]);
    case spv::OpULessThan:
        return truth(o[0] < o[1]);
    case spv::OpULessThanEqual:
        return truth(o[0] <= o[1]);
    case spv::OpSGreaterThan:
        return truth(a > b);
    case spv::OpSGreaterThanEqual:
        return truth(a >= b);
    case spv::OpSLessThan:
        return truth(a < b);
    case spv::OpSLessThanEqual:
        return truth(a <= b);
    default:
        return ofFloats(i.op(), o);
    }
}

} // namespace Qx::Host::Native
