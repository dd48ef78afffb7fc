#include "host/effects/spirv/NumberOperations.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include <spirv/unified1/GLSL.std.450.h>

namespace Qx::Host::Effects::Spirv {
namespace {

float asFloat(std::uint32_t bits)
{
    return std::bit_cast<float>(bits);
}

std::int32_t asInt(std::uint32_t bits)
{
    return static_cast<std::int32_t>(bits);
}

std::uint32_t bitsOf(std::int64_t value)
{
    return static_cast<std::uint32_t>(value);
}

/// As devices convert: what does not fit is the nearest that does, and NaN is 0.
std::uint32_t whole(float value, double least, double most)
{
    return std::isnan(value) ? 0
                             : bitsOf(static_cast<std::int64_t>(
                                   std::clamp(std::trunc(static_cast<double>(value)), least, most)));
}

} // namespace

std::optional<std::uint32_t> resultOf(spv::Op op, const Operands& of)
{
    const auto bits = [&](std::size_t k) { return of.at(k); };
    const auto number = [&](std::size_t k) { return asFloat(of.at(k)); };
    const auto integer = [&](std::size_t k) { return std::int64_t{asInt(of.at(k))}; };
    const auto unordered = [&] { return std::isnan(number(0)) || std::isnan(number(1)); };
    constexpr std::uint32_t lastBit = 31;
    switch (op) {
    case spv::OpCopyObject:
    case spv::OpBitcast:
        return bits(0);
    case spv::OpIAdd:
        return bits(0) + bits(1);
    case spv::OpISub:
        return bits(0) - bits(1);
    case spv::OpIMul:
        return bits(0) * bits(1);
    case spv::OpSNegate:
        return 0U - bits(0);
    case spv::OpSDiv:
        return integer(1) == 0 ? 0 : bitsOf(integer(0) / integer(1));
    case spv::OpUDiv:
        return bits(1) == 0 ? 0 : bits(0) / bits(1);
    case spv::OpSRem:
        return integer(1) == 0 ? 0 : bitsOf(integer(0) % integer(1));
    case spv::OpUMod:
        return bits(1) == 0 ? 0 : bits(0) % bits(1);
    case spv::OpShiftLeftLogical:
        return bits(0) << (bits(1) & lastBit);
    case spv::OpShiftRightLogical:
        return bits(0) >> (bits(1) & lastBit);
    case spv::OpShiftRightArithmetic:
        return bitsOf(integer(0) >> (bits(1) & lastBit));
    case spv::OpBitwiseAnd:
    case spv::OpLogicalAnd:
        return bits(0) & bits(1);
    case spv::OpBitwiseOr:
    case spv::OpLogicalOr:
        return bits(0) | bits(1);
    case spv::OpBitwiseXor:
        return bits(0) ^ bits(1);
    case spv::OpNot:
        return ~bits(0);
    case spv::OpLogicalNot:
        return 1U - bits(0);
    case spv::OpLogicalEqual:
    case spv::OpIEqual:
        return bitsOf(bits(0) == bits(1));
    case spv::OpLogicalNotEqual:
    case spv::OpINotEqual:
        return bitsOf(bits(0) != bits(1));
    case spv::OpSGreaterThan:
        return bitsOf(integer(0) > integer(1));
    case spv::OpSGreaterThanEqual:
        return bitsOf(integer(0) >= integer(1));
    case spv::OpSLessThan:
        return bitsOf(integer(0) < integer(1));
    case spv::OpSLessThanEqual:
        return bitsOf(integer(0) <= integer(1));
    case spv::OpUGreaterThan:
        return bitsOf(bits(0) > bits(1));
    case spv::OpUGreaterThanEqual:
        return bitsOf(bits(0) >= bits(1));
    case spv::OpULessThan:
        return bitsOf(bits(0) < bits(1));
    case spv::OpULessThanEqual:
        return bitsOf(bits(0) <= bits(1));
    case spv::OpFOrdEqual:
        return bitsOf(number(0) == number(1));
    case spv::OpFUnordEqual:
        return bitsOf(unordered() || number(0) == number(1));
    case spv::OpFOrdNotEqual:
        return bitsOf(!unordered() && number(0) != number(1));
    case spv::OpFUnordNotEqual:
        return bitsOf(number(0) != number(1));
    case spv::OpFOrdLessThan:
        return bitsOf(number(0) < number(1));
    case spv::OpFUnordLessThan:
        return bitsOf(unordered() || number(0) < number(1));
    case spv::OpFOrdLessThanEqual:
        return bitsOf(number(0) <= number(1));
    case spv::OpFUnordLessThanEqual:
        return bitsOf(unordered() || number(0) <= number(1));
    case spv::OpFOrdGreaterThan:
        return bitsOf(number(0) > number(1));
    case spv::OpFUnordGreaterThan:
        return bitsOf(unordered() || number(0) > number(1));
    case spv::OpFOrdGreaterThanEqual:
        return bitsOf(number(0) >= number(1));
    case spv::OpFUnordGreaterThanEqual:
        return bitsOf(unordered() || number(0) >= number(1));
    case spv::OpIsNan:
        return bitsOf(static_cast<bool>(std::isnan(number(0))));
    case spv::OpIsInf:
        return bitsOf(static_cast<bool>(std::isinf(number(0))));
    case spv::OpConvertFToS:
        return whole(number(0), std::numeric_limits<std::int32_t>::min(),
                     std::numeric_limits<std::int32_t>::max());
    case spv::OpConvertFToU:
        return whole(number(0), 0, std::numeric_limits<std::uint32_t>::max());
    case spv::OpConvertSToF:
        return bitsOf(static_cast<float>(asInt(of[0])));
    case spv::OpConvertUToF:
        return bitsOf(static_cast<float>(bits(0)));
    case spv::OpFNegate:
        return bitsOf(-number(0));
    case spv::OpFAdd:
        return bitsOf(number(0) + number(1));
    case spv::OpFSub:
        return bitsOf(number(0) - number(1));
    case spv::OpFMul:
    case spv::OpVectorTimesScalar:
    case spv::OpMatrixTimesScalar:
        return bitsOf(number(0) * number(1));
    case spv::OpFDiv:
        return bitsOf(number(0) / number(1));
    case spv::OpFRem:
        return bitsOf(std::fmod(number(0), number(1)));
    case spv::OpFMod:
        return bitsOf(number(0) - number(1) * std::floor(number(0) / number(1)));
    default:
        return std::nullopt;
    }
}

std::optional<std::uint32_t> extendedResultOf(std::uint32_t op, const Operands& of)
{
    const auto x = [&] { return asFloat(of[0]); };
    const auto y = [&] { return asFloat(of[1]); };
    const auto z = [&] { return asFloat(of[2]); };
    constexpr float degrees = 57.29577951F;
    switch (op) {
    case GLSLstd450Round:
    case GLSLstd450RoundEven:
        return bitsOf(std::nearbyint(x()));
    case GLSLstd450Trunc:
        return bitsOf(std::trunc(x()));
    case GLSLstd450FAbs:
        return bitsOf(std::fabs(x()));
    case GLSLstd450SAbs:
        return bitsOf(std::abs(std::int64_t{asInt(of[0])}));
    case GLSLstd450FSign:
        return bitsOf(x() > 0.0F ? 1.0F : x() < 0.0F ? -1.0F : 0.0F);
    case GLSLstd450SSign:
        return bitsOf(std::int64_t{asInt(of[0]) > 0 ? 1 : asInt(of[0]) < 0 ? -1 : 0});
    case GLSLstd450Floor:
        return bitsOf(std::floor(x()));
    case GLSLstd450Ceil:
        return bitsOf(std::ceil(x()));
    case GLSLstd450Fract:
        return bitsOf(x() - std::floor(x()));
    case GLSLstd450Radians:
        return bitsOf(x() / degrees);
    case GLSLstd450Degrees:
        return bitsOf(x() * degrees);
    case GLSLstd450Sin:
        return bitsOf(std::sin(x()));
    case GLSLstd450Cos:
        return bitsOf(std::cos(x()));
    case GLSLstd450Tan:
        return bitsOf(std::tan(x()));
    case GLSLstd450Asin:
        return bitsOf(std::asin(x()));
    case GLSLstd450Acos:
        return bitsOf(std::acos(x()));
    case GLSLstd450Atan:
        return bitsOf(std::atan(x()));
    case GLSLstd450Sinh:
        return bitsOf(std::sinh(x()));
    case GLSLstd450Cosh:
        return bitsOf(std::cosh(x()));
    case GLSLstd450Tanh:
        return bitsOf(std::tanh(x()));
    case GLSLstd450Atan2:
        return bitsOf(std::atan2(x(), y()));
    case GLSLstd450Pow:
        return bitsOf(std::pow(x(), y()));
    case GLSLstd450Exp:
        return bitsOf(std::exp(x()));
    case GLSLstd450Log:
        return bitsOf(std::log(x()));
    case GLSLstd450Exp2:
        return bitsOf(std::exp2(x()));
    case GLSLstd450Log2:
        return bitsOf(std::log2(x()));
    case GLSLstd450Sqrt:
        return bitsOf(std::sqrt(x()));
    case GLSLstd450InverseSqrt:
        return bitsOf(1.0F / std::sqrt(x()));
    case GLSLstd450FMin:
    case GLSLstd450NMin:
        return bitsOf(std::fmin(x(), y()));
    case GLSLstd450FMax:
    case GLSLstd450NMax:
        return bitsOf(std::fmax(x(), y()));
    case GLSLstd450SMin:
        return bitsOf(std::int64_t{std::min(asInt(of[0]), asInt(of[1]))});
    case GLSLstd450SMax:
        return bitsOf(std::int64_t{std::max(asInt(of[0]), asInt(of[1]))});
    case GLSLstd450UMin:
        return std::min(of[0], of[1]);
    case GLSLstd450UMax:
        return std::max(of[0], of[1]);
    case GLSLstd450FClamp:
    case GLSLstd450NClamp:
        return bitsOf(std::fmin(std::fmax(x(), y()), z()));
    case GLSLstd450SClamp:
        return bitsOf(std::int64_t{std::min(std::max(asInt(of[0]), asInt(of[1])), asInt(of[2]))});
    case GLSLstd450FMix:
        return bitsOf(x() * (1.0F - z()) + y() * z());
    case GLSLstd450Step:
        return bitsOf(y() < x() ? 0.0F : 1.0F);
    case GLSLstd450SmoothStep: {
        const float t = std::fmin(std::fmax((z() - x()) / (y() - x()), 0.0F), 1.0F);
        return bitsOf(t * t * (3.0F - 2.0F * t));
    }
    case GLSLstd450Fma:
        return bitsOf(x() * y() + z());
    default:
        return std::nullopt;
    }
}

} // namespace Qx::Host::Effects::Spirv
