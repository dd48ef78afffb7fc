#pragma once

#include "host/effects/spirv/SpirvModule.h"

#include <cstdint>
#include <map>
#include <optional>
#include <unordered_map>

namespace Qx::Host::Effects::Spirv {

/// A whole number as a constant plus other numbers, each times a constant. It is exact as long as no step of
/// the computation leaves 32 bits.
struct Affine
{
    std::map<Id, std::int64_t> factors; ///< by the number that each multiplies; none is 0
    std::int64_t offset = 0;

    bool isConstant() const { return factors.empty(); }
};

/// The result of OpIAdd, OpISub, OpIMul or OpShiftLeftLogical. Nothing for other instructions, for products
/// of two variables and for shifts by a variable.
std::optional<Affine> combined(spv::Op op, const Affine& left, const Affine& right);

/// Whether a shift of a signed number by so many bits is defined and keeps its sign.
bool isShift(std::int64_t count);

/// What is known about the whole numbers of a shader.
class AffineValues
{
public:
    void set(Id id, Affine value) { values_[id] = std::move(value); }

    /// Null if nothing is known.
    const Affine* find(Id id) const
    {
        const auto found = values_.find(id);
        return found != values_.end() ? &found->second : nullptr;
    }

    std::optional<std::int64_t> constantOf(Id id) const
    {
        const Affine* const value = find(id);
        return value != nullptr && value->isConstant() ? std::optional(value->offset) : std::nullopt;
    }

private:
    std::unordered_map<Id, Affine> values_;
};

} // namespace Qx::Host::Effects::Spirv
