// What is known of components that depend on the column alone.

#include "host/native/Emitter.h"
#include "host/native/Evaluation.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

namespace Qx::Host::Native {
namespace {

constexpr std::uint32_t mostColumns = 1U << 14U; // of targets; the middle of wider ones ends there
constexpr std::uint32_t longestRepetition = 32;

/// Of floats only whole ones.
std::optional<std::int64_t> wholeNumber(std::uint32_t bits, bool isFloat)
{
    if (!isFloat) {
        return static_cast<std::int32_t>(bits);
    }
    const auto value = std::bit_cast<float>(bits);
    const bool isWhole = std::abs(value) < 8388608.0F && value == std::trunc(value);
    return isWhole ? std::optional(static_cast<std::int64_t>(value)) : std::nullopt;
}

} // namespace

std::size_t Emitter::tableSize() const
{
    return mostColumns / period;
}

Component Emitter::line(LLVMValueRef base, std::int64_t slope) const
{
    Component c;
    c.varies = true;
    c.base = base;
    c.slope = slope;
    LLVMValueRef step = number(static_cast<std::uint32_t>(slope));
    LLVMValueRef first = LLVMBuildAdd(items, base, LLVMBuildMul(items, item, step, ""), "");
    std::vector<std::uint32_t> steps;
    for (std::uint32_t l = 0; l < lanes; ++l) {
        steps.push_back(l * static_cast<std::uint32_t>(slope));
    }
    c.value = LLVMBuildAdd(items, splat(first), numbers(steps), "");
    return c;
}

Component Emitter::fromTable(std::vector<std::uint32_t> table, LLVMTypeRef type,
                             const std::function<Component(std::uint32_t)>& general)
{
    if (std::all_of(table.begin(), table.end(), [&](std::uint32_t v) { return v == table[0]; })) {
        return constant(table[0], type);
    }
    const bool isFloat = type == float32;
    const std::optional<std::int64_t> first = wholeNumber(table[0], isFloat);
    const std::optional<std::int64_t> second = wholeNumber(table[1], isFloat);
    bool isLine = type != i1 && first && second && *first != *second && std::abs(*second - *first) < 1 << 16;
    for (std::size_t i = 2; i < table.size() && isLine; ++i) {
        isLine = wholeNumber(table[i], isFloat) == *first + static_cast<std::int64_t>(i) * (*second - *first);
    }
    const std::uint32_t sample =
        table[std::min<std::size_t>(source.likelyWidth / period / 2, table.size() - 1)];
    Component c;
    if (isLine) {
        c = line(number(static_cast<std::uint32_t>(*first)), *second - *first);
        if (isFloat) {
            c.value = LLVMBuildSIToFP(items, c.value, vectorOf(float32), "");
        }
    } else {
        noteRepetition(table, type);
        c = general(sample);
        if (c.constant) {
            return c;
        }
    }
    c.sample = sample;
    c.table = std::make_shared<const std::vector<std::uint32_t>>(std::move(table));
    return c;
}

void Emitter::noteRepetition(const std::vector<std::uint32_t>& table, LLVMTypeRef type)
{
    const auto repeats = [&](std::size_t after) {
        const auto step = [&](std::size_t i) -> std::optional<std::int64_t> {
            if (table[i] == table[i + after]) {
                return 0;
            }
            const std::optional<std::int64_t> from = wholeNumber(table[i], type == float32);
            const std::optional<std::int64_t> to = wholeNumber(table[i + after], type == float32);
            return type != i1 && from && to ? std::optional(*to - *from) : std::nullopt;
        };
        const std::optional<std::int64_t> first = step(0);
        for (std::size_t i = 1; i + after < table.size(); ++i) {
            if (!first || step(i) != first) {
                return false;
            }
        }
        return first.has_value();
    };
    for (std::uint32_t after = 2; after <= longestRepetition; ++after) {
        if (repeats(after)) {
            const auto next = std::lower_bound(repetitions_.begin(), repetitions_.end(), after);
            if (next == repetitions_.end() || *next != after) {
                repetitions_.insert(next, after);
            }
            return;
        }
    }
}

std::optional<Component> Emitter::supposed(const Comparison& how, const Component& a, const Component& b,
                                           std::optional<std::uint32_t> sample)
{
    const bool isLeft = a.varies;
    const Component& moving = isLeft ? a : b;
    const Component& fixed = isLeft ? b : a;
    if (purpose != Purpose::Middle || how.atLeast == 0 || !sample || fixed.varies || moving.base == nullptr ||
        moving.slope <= 0) {
        return std::nullopt;
    }
    const bool isTrue = *sample != 0;
    const bool atLeast = ((how.atLeast > 0) == isLeft) == isTrue;
    LLVMValueRef bound = nullptr;
    if (how.floats) { // up to two away from where it changes
        LLVMValueRef most = LLVMConstReal(float32, 1 << 30);
        LLVMValueRef least = LLVMConstReal(float32, -(1 << 30));
        LLVMValueRef none = atLeast ? most : least; // no item is there
        LLVMValueRef f = fixed.value;
        f = LLVMBuildSelect(rows, LLVMBuildFCmp(rows, LLVMRealORD, f, f, ""), f, none, "");
        f = LLVMBuildSelect(rows, LLVMBuildFCmp(rows, LLVMRealOLT, f, most, ""), f, most, "");
        f = LLVMBuildSelect(rows, LLVMBuildFCmp(rows, LLVMRealOGT, f, least, ""), f, least, "");
        LLVMValueRef near = LLVMBuildFPToSI(rows, f, i64, "");
        bound = LLVMBuildAdd(rows, near, wide(atLeast ? 2 : -2), "");
    } else {
        bound = LLVMBuildAdd(rows, LLVMBuildSExt(rows, fixed.value, i64, ""), wide(atLeast ? 1 : -1), "");
    }
    require(moving, atLeast, bound);
    Component c = constant(*sample, i1);
    inherit(c, {&a, &b});
    return c;
}

Component Emitter::chosen(spv::Op comparison, const Component& a, const Component& b)
{
    std::optional<std::uint32_t> sample;
    if (a.sample && b.sample) {
        const std::array<std::uint32_t, 1> word{1U << spv::WordCountShift |
                                                static_cast<std::uint32_t>(comparison)};
        sample = evaluated(Instruction{word}, {*a.sample, *b.sample, 0});
    }
    const Comparison how = *Comparison::of(comparison);
    const std::optional<Component> known = supposed(how, a, b, sample);
    return select(known ? *known : compare(how, a, b), a, b);
}

} // namespace Qx::Host::Native
