#include "host/effects/spirv/AffineValues.h"

namespace Qx::Host::Effects::Spirv {
namespace {

Affine sum(Affine left, const Affine& right, std::int64_t sign)
{
    for (const auto& [id, factor] : right.factors) {
        left.factors[id] += sign * factor;
    }
    std::erase_if(left.factors, [](const auto& term) { return term.second == 0; });
    left.offset += sign * right.offset;
    return left;
}

Affine product(Affine value, std::int64_t by)
{
    if (by == 0) {
        return {};
    }
    for (auto& [id, factor] : value.factors) {
        factor *= by;
    }
    value.offset *= by;
    return value;
}

} // namespace

bool isShift(std::int64_t count)
{
    return count >= 0 && count < 31;
}

std::optional<Affine> combined(spv::Op op, const Affine& left, const Affine& right)
{
    switch (op) {
    case spv::OpIAdd:
        return sum(left, right, 1);
    case spv::OpISub:
        return sum(left, right, -1);
    case spv::OpIMul:
        if (right.isConstant()) {
            return product(left, right.offset);
        }
        return left.isConstant() ? std::optional(product(right, left.offset)) : std::nullopt;
    case spv::OpShiftLeftLogical:
        return right.isConstant() && isShift(right.offset)
                   ? std::optional(product(left, std::int64_t{1} << right.offset))
                   : std::nullopt;
    default:
        return std::nullopt;
    }
}

} // namespace Qx::Host::Effects::Spirv
