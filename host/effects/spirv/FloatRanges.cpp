#include "host/effects/spirv/FloatRanges.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <initializer_list>

#include <spirv/unified1/GLSL.std.450.h>

namespace Qx::Host::Effects::Spirv {
namespace {

constexpr double largestSide = 65536; ///< of a target
constexpr double wholeUpTo = 1 << 24; ///< floats of 32 bits hold all whole numbers so far

Range around(std::initializer_list<double> ends, bool isWhole)
{
    const auto [least, most] = std::minmax(ends);
    if (std::isnan(least) || std::isnan(most)) {
        return {};
    }
    return {least, most, isWhole};
}

/// The ends as floats of 32 bits, rounded away from each other.
Range rounded(Range range)
{
    const auto outward = [](double end, double direction) {
        const auto near = static_cast<float>(end);
        return near == end ? end : static_cast<double>(std::nextafter(near, static_cast<float>(direction)));
    };
    constexpr double infinity = std::numeric_limits<double>::infinity();
    range.isWhole = range.isWhole && range.isWithin(-wholeUpTo, wholeUpTo);
    return {outward(range.least, -infinity), outward(range.most, infinity), range.isWhole};
}

Range product(const Range& a, const Range& b)
{
    return rounded(around({a.least * b.least, a.least * b.most, a.most * b.least, a.most * b.most},
                          a.isWhole && b.isWhole));
}

Range lesser(const Range& a, const Range& b)
{
    return {std::min(a.least, b.least), std::min(a.most, b.most), a.isWhole && b.isWhole};
}

Range greater(const Range& a, const Range& b)
{
    return {std::max(a.least, b.least), std::max(a.most, b.most), a.isWhole && b.isWhole};
}

} // namespace

Range FloatRanges::of(Id id) const
{
    const auto found = ranges_.find(id);
    return found != ranges_.end() ? found->second : Range();
}

void FloatRanges::visit(const Instruction& instruction)
{
    visitDeclaration(instruction);
    if (const std::optional<Range> range = resultOf(instruction)) {
        ranges_[instruction[2]] = *range;
        if (wholeTypes_.contains(instruction[1])) {
            wholeNumbers_.insert(instruction[2]);
        }
    }
}

void FloatRanges::visitDeclaration(const Instruction& instruction)
{
    switch (instruction.op()) {
    case spv::OpExtInstImport:
        functions_ = instruction[1]; // a shader has one
        break;
    case spv::OpDecorate:
        if (instruction[2] == spv::DecorationBuiltIn && instruction[3] == spv::BuiltInFragCoord) {
            places_.insert(instruction[1]);
        }
        break;
    case spv::OpTypeFloat:
        if (instruction[2] == 32) {
            floatTypes_.insert(instruction[1]);
        }
        break;
    case spv::OpTypeInt:
        wholeTypes_.insert(instruction[1]);
        break;
    case spv::OpTypeVector:
        if (wholeTypes_.contains(instruction[2])) {
            wholeTypes_.insert(instruction[1]);
        }
        break;
    case spv::OpAccessChain:
        if (places_.contains(instruction[3])) {
            places_.insert(instruction[2]);
        }
        break;
    default:
        break;
    }
}

std::optional<Range> FloatRanges::hull(const Instruction& instruction, std::size_t first,
                                       std::size_t end) const
{
    Range all = of(instruction[first]);
    for (std::size_t i = first + 1; i < end; ++i) {
        const Range one = of(instruction[i]);
        all = {std::min(all.least, one.least), std::max(all.most, one.most), all.isWhole && one.isWhole};
    }
    return all;
}

std::optional<Range> FloatRanges::resultOf(const Instruction& instruction) const
{
    const auto operand = [&](std::size_t i) { return of(instruction[i]); };
    switch (instruction.op()) {
    case spv::OpConstant:
        if (floatTypes_.contains(instruction[1])) {
            const double value = std::bit_cast<float>(instruction[3]);
            return around({value}, value == std::trunc(value));
        }
        return around({static_cast<double>(instruction[3])}, true); // as an unsigned number
    case spv::OpLoad:
        return places_.contains(instruction[3]) ? std::optional(Range{0.0, largestSide, false})
                                                : std::nullopt;
    case spv::OpConstantComposite:
    case spv::OpCompositeConstruct:
        return hull(instruction, 3, instruction.size());
    case spv::OpVectorShuffle:
    case spv::OpCompositeInsert:
        return hull(instruction, 3, 5);
    case spv::OpCompositeExtract:
    case spv::OpCopyObject:
        return operand(3);
    case spv::OpSelect:
        return hull(instruction, 4, 6);
    case spv::OpFNegate:
        return Range{-operand(3).most, -operand(3).least, operand(3).isWhole};
    case spv::OpFAdd:
        return rounded(around({operand(3).least + operand(4).least, operand(3).most + operand(4).most},
                              operand(3).isWhole && operand(4).isWhole));
    case spv::OpFSub:
        return rounded(around({operand(3).least - operand(4).most, operand(3).most - operand(4).least},
                              operand(3).isWhole && operand(4).isWhole));
    case spv::OpFMul:
    case spv::OpVectorTimesScalar:
        return product(operand(3), operand(4));
    case spv::OpExtInst:
        return instruction[3] == functions_ ? resultOfFunction(instruction) : std::nullopt;
    default:
        return resultOfWholeNumbers(instruction);
    }
}

/// Ranges of whole numbers are those of unsigned ones.
std::optional<Range> FloatRanges::resultOfWholeNumbers(const Instruction& instruction) const
{
    constexpr double largestUnsigned = std::numeric_limits<std::uint32_t>::max();
    constexpr double largestSigned = std::numeric_limits<std::int32_t>::max();
    const auto operand = [&](std::size_t i) { return of(instruction[i]); };
    switch (instruction.op()) {
    case spv::OpBitwiseAnd: {
        const double most = std::min(operand(3).most, operand(4).most);
        return std::isfinite(most) ? std::optional(Range{0.0, most, true}) : std::nullopt;
    }
    case spv::OpShiftRightLogical: {
        const Range count = operand(4);
        if (count.least != count.most || !count.isWithin(0.0, 31.0)) {
            return std::nullopt;
        }
        constexpr std::uint32_t all = 0xFFFFFFFF;
        return Range{0.0, static_cast<double>(all >> static_cast<unsigned>(count.least)), true};
    }
    case spv::OpIAdd: {
        const Range sum{operand(3).least + operand(4).least, operand(3).most + operand(4).most, true};
        return sum.isWithin(0.0, largestUnsigned) ? std::optional(sum) : std::nullopt;
    }
    case spv::OpIMul: {
        const Range numbers{operand(3).least * operand(4).least, operand(3).most * operand(4).most, true};
        return operand(3).least >= 0.0 && operand(4).least >= 0.0 && numbers.isWithin(0.0, largestUnsigned)
                   ? std::optional(numbers)
                   : std::nullopt;
    }
    case spv::OpConvertFToS:
    case spv::OpConvertFToU: {
        const Range number{std::trunc(operand(3).least), std::trunc(operand(3).most), true};
        return number.isWithin(0.0, largestUnsigned) ? std::optional(number) : std::nullopt;
    }
    case spv::OpBitcast:
        return wholeNumbers_.contains(instruction[3]) ? std::optional(operand(3)) : std::nullopt;
    case spv::OpConvertUToF:
        return rounded(
            lesser(greater(operand(3), {0.0, 0.0, true}), {largestUnsigned, largestUnsigned, true}));
    case spv::OpConvertSToF:
        return operand(3).isWithin(0.0, largestSigned)
                   ? rounded(operand(3))
                   : Range{-largestSigned - 1.0, largestSigned + 1.0, true};
    default:
        return std::nullopt;
    }
}

std::optional<Range> FloatRanges::resultOfFunction(const Instruction& instruction) const
{
    const auto operand = [&](std::size_t i) { return of(instruction[5 + i]); };
    const Range value = operand(0);
    switch (instruction[4]) {
    case GLSLstd450Floor:
        return Range{std::floor(value.least), std::floor(value.most), true};
    case GLSLstd450Ceil:
        return Range{std::ceil(value.least), std::ceil(value.most), true};
    case GLSLstd450Trunc:
        return Range{std::trunc(value.least), std::trunc(value.most), true};
    case GLSLstd450Round:
    case GLSLstd450RoundEven:
        return Range{std::floor(value.least), std::ceil(value.most), true};
    case GLSLstd450FAbs:
        return Range{0.0, std::max(std::abs(value.least), std::abs(value.most)), value.isWhole};
    case GLSLstd450Fract:
        return Range{0.0, 1.0, false};
    case GLSLstd450FMin:
    case GLSLstd450NMin:
        return lesser(value, operand(1));
    case GLSLstd450FMax:
    case GLSLstd450NMax:
        return greater(value, operand(1));
    case GLSLstd450FClamp:
    case GLSLstd450NClamp:
        return lesser(greater(value, operand(1)), operand(2));
    default:
        return std::nullopt;
    }
}

} // namespace Qx::Host::Effects::Spirv
