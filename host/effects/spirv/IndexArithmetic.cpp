#include "host/effects/spirv/AffineValues.h"
#include "host/effects/spirv/Passes.h"

#include <bit>
#include <limits>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace Qx::Host::Effects {
namespace {

using namespace Spirv;

constexpr std::int64_t mostColumns = 1 << 16;

/// What a number can be.
struct Range
{
    std::int64_t least = 0;
    std::int64_t most = 0;
};

Affine constantValue(std::int64_t value)
{
    return {{}, value};
}

/// base * factor + offset; the factor is not 0.
Affine linear(Id base, std::int64_t factor, std::int64_t offset)
{
    return {{{base, factor}}, offset};
}

bool isPowerOfTwo(std::int64_t value)
{
    return value > 0 && std::has_single_bit(static_cast<std::uint64_t>(value));
}

int log2Of(std::int64_t powerOfTwo)
{
    return std::countr_zero(static_cast<std::uint64_t>(powerOfTwo));
}

class Simplifier
{
public:
    explicit Simplifier(Words& spirv) : spirv_(spirv), writer_(spirv) {}

    bool run()
    {
        const bool whole = forEach(spirv_, [this](const Instruction& instruction) {
            inFunctions_ = inFunctions_ || instruction.op() == spv::OpFunction;
            if (!inFunctions_) {
                declare(instruction);
            }
            if (!inFunctions_ || !rewrite(instruction)) {
                writer_.copy(instruction);
            }
        });
        if (!whole || !changed_) {
            return false;
        }
        spirv_ = writer_.take();
        return true;
    }

private:
    void declare(const Instruction& i)
    {
        if (i.op() == spv::OpDecorate && i[2] == spv::DecorationBuiltIn && i[3] == spv::BuiltInFragCoord) {
            position_ = i[1];
        } else if (i.op() == spv::OpTypeInt && i[2] == 32 && i[3] == 1) {
            intType_ = i[1];
        } else if (i.op() == spv::OpTypeInt && i[2] == 32) {
            unsignedType_ = i[1];
        } else if (i.op() == spv::OpConstant && (i[1] == intType_ || i[1] == unsignedType_)) {
            values_.set(i[2], constantValue(static_cast<std::int32_t>(i[3])));
            if (i[1] == intType_) {
                writer_.reuseConstant(intType_, i[3], i[2]);
            }
        }
    }

    /// True when something else stands for the instruction.
    bool rewrite(const Instruction& i)
    {
        switch (i.op()) {
        case spv::OpAccessChain:
            if (i[3] == position_ && i.size() == 5 && values_.constantOf(i[4]) == 0) {
                columnPointers_.insert(i[2]);
            }
            return false;
        case spv::OpLoad:
            if (i[3] == position_) {
                positions_.insert(i[2]);
            } else if (columnPointers_.count(i[3]) != 0) {
                columns_.insert(i[2]);
            }
            return false;
        case spv::OpCompositeExtract:
            if (positions_.count(i[3]) != 0 && i.size() == 5 && i[4] == 0) {
                columns_.insert(i[2]);
            }
            return false;
        case spv::OpConvertFToS:
            if (i[1] == intType_ && columns_.count(i[3]) != 0) {
                addBase(i[2], {0, mostColumns});
            }
            return false;
        case spv::OpIAdd:
        case spv::OpISub:
        case spv::OpIMul:
        case spv::OpShiftLeftLogical:
        case spv::OpShiftRightArithmetic:
        case spv::OpBitwiseAnd:
            return i[1] == intType_ && rewriteArithmetic(i);
        case spv::OpSGreaterThan:
        case spv::OpSGreaterThanEqual:
        case spv::OpSLessThan:
        case spv::OpSLessThanEqual:
            return rewriteComparison(i);
        default:
            return false;
        }
    }

    void addBase(Id id, const Range& range)
    {
        values_.set(id, linear(id, 1, 0));
        ranges_[id] = range;
    }

    bool rewriteArithmetic(const Instruction& i)
    {
        const Affine* const left = values_.find(i[3]);
        const Affine* const right = values_.find(i[4]);
        if (left == nullptr || right == nullptr || (left->isConstant() && right->isConstant())) {
            return false;
        }
        const std::optional<Affine> result = resultOf(i.op(), *left, *right);
        if (!result || result->factors.size() > 1 || !isSmall(*result)) {
            return false;
        }
        values_.set(i[2], *result);
        emitValue(i[2], *result);
        changed_ = true;
        return true;
    }

    /// A comparison with a constant becomes one of the base, or the result that it has for all values of the
    /// base.
    bool rewriteComparison(const Instruction& i)
    {
        const Affine* const value = values_.find(i[3]);
        const std::optional<std::int64_t> limit = values_.constantOf(i[4]);
        if (value == nullptr || value->isConstant() || !limit) {
            return false;
        }
        const auto& [base, factor] = *value->factors.begin();
        if (factor < 0) {
            return false;
        }
        // value > limit, or its contrary
        const bool greater = i.op() == spv::OpSGreaterThan || i.op() == spv::OpSGreaterThanEqual;
        const bool orEqual = i.op() == spv::OpSGreaterThanEqual || i.op() == spv::OpSLessThan;
        const std::int64_t above = floorOfRatio(*limit - (orEqual ? 1 : 0) - value->offset, factor);
        const Range& range = ranges_.at(base);
        if (above < range.least || above >= range.most) {
            const bool isAbove = above < range.least;
            writer_.write(spv::OpCopyObject, {i[1], i[2], truth(i[1], isAbove == greater)});
        } else {
            writer_.write(greater ? spv::OpSGreaterThan : spv::OpSLessThanEqual,
                          {i[1], i[2], base, constant(above)});
        }
        changed_ = true;
        return true;
    }

    static std::int64_t floorOfRatio(std::int64_t dividend, std::int64_t divisor)
    {
        return dividend >= 0 ? dividend / divisor : -((divisor - 1 - dividend) / divisor);
    }

    Id truth(Id boolType, bool value)
    {
        Id& id = value ? true_ : false_;
        if (id == 0) {
            id = writer_.newId();
            writer_.declare(value ? spv::OpConstantTrue : spv::OpConstantFalse, {boolType, id});
        }
        return id;
    }

    std::optional<Affine> resultOf(spv::Op op, const Affine& left, const Affine& right)
    {
        switch (op) {
        case spv::OpShiftRightArithmetic:
            return right.isConstant() && isShift(right.offset) ? shifted(left, static_cast<int>(right.offset))
                                                               : std::nullopt;
        case spv::OpBitwiseAnd:
            return right.isConstant()  ? masked(left, right.offset)
                   : left.isConstant() ? masked(right, left.offset)
                                       : std::nullopt;
        default:
            return combined(op, left, right);
        }
    }

    /// Rounds down, as the instruction does. If the factor is 2^a with a below the count, the lowest bits of
    /// the column itself go too.
    std::optional<Affine> shifted(const Affine& value, int count)
    {
        const auto& [base, factor] = *value.factors.begin();
        const std::int64_t step = std::int64_t{1} << count;
        if (factor % step == 0) {
            return linear(base, factor / step, value.offset >> count);
        }
        if (!isPowerOfTwo(factor)) {
            return std::nullopt;
        }
        const int own = log2Of(factor);
        const std::int64_t added = value.offset >> own;
        const int rest = count - own;
        const Range& range = ranges_.at(base);
        const Range moved{(range.least + added) >> rest, (range.most + added) >> rest};
        const Id sum = emitLinear(base, added);
        return linear(emitBase(spv::OpShiftRightArithmetic, sum, constant(rest), moved), 1, 0);
    }

    /// The lowest bits of a value.
    std::optional<Affine> masked(const Affine& value, std::int64_t mask)
    {
        if (mask <= 0 || !isPowerOfTwo(mask + 1)) {
            return std::nullopt;
        }
        const auto& [base, factor] = *value.factors.begin();
        if (factor % (mask + 1) == 0) {
            return constantValue(value.offset & mask);
        }
        if (!isPowerOfTwo(factor)) {
            return std::nullopt;
        }
        const int own = log2Of(factor);
        const Id moved = emitLinear(base, value.offset >> own);
        const std::int64_t upper = mask >> own;
        return linear(emitBase(spv::OpBitwiseAnd, moved, constant(upper), {0, upper}), factor,
                      value.offset & (factor - 1));
    }

    /// Whether no value on the way leaves 32 bits.
    bool isSmall(const Affine& value) const
    {
        constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max() / 2;
        const auto small = [](std::int64_t number) { return number >= -most && number <= most; };
        if (value.isConstant()) {
            return small(value.offset);
        }
        const auto& [base, factor] = *value.factors.begin();
        const Range& range = ranges_.at(base);
        return small(value.offset) && small(factor) && small(factor * range.least) &&
               small(factor * range.most);
    }

    Id constant(std::int64_t value) { return writer_.constant(intType_, static_cast<std::uint32_t>(value)); }

    /// A number that becomes a base of its own.
    Id emitBase(spv::Op op, Id left, Id right, const Range& range)
    {
        const Id id = writer_.emit(op, intType_, {left, right});
        addBase(id, range);
        return id;
    }

    /// base + added
    Id emitLinear(Id base, std::int64_t added)
    {
        if (added == 0) {
            return base;
        }
        const Id id = writer_.newId();
        emitValue(id, linear(base, 1, added));
        return id;
    }

    void emitValue(Id id, const Affine& value)
    {
        if (value.isConstant()) {
            writer_.write(spv::OpCopyObject, {intType_, id, constant(value.offset)});
            return;
        }
        const auto& [base, factor] = *value.factors.begin();
        Id scaled = base;
        if (factor != 1) {
            scaled = writer_.newId();
            writer_.write(spv::OpIMul, {intType_, scaled, base, constant(factor)});
        }
        if (value.offset != 0) {
            writer_.write(spv::OpIAdd, {intType_, id, scaled, constant(value.offset)});
        } else {
            writer_.write(spv::OpCopyObject, {intType_, id, scaled});
        }
    }

    Words& spirv_;
    ModuleWriter writer_;
    Id position_ = 0;
    Id intType_ = 0;
    Id unsignedType_ = 0;
    Id true_ = 0;
    Id false_ = 0;
    AffineValues values_;                  ///< constants and multiples of one base each
    std::unordered_map<Id, Range> ranges_; ///< of each base: a column, or its lower or upper bits
    std::unordered_set<Id> columnPointers_;
    std::unordered_set<Id> positions_;
    std::unordered_set<Id> columns_; ///< as floats
    bool inFunctions_ = false;
    bool changed_ = false;
};

} // namespace

bool simplifyColumnArithmetic(Words& spirv)
{
    return spirv.size() > headerWords && Simplifier(spirv).run();
}

} // namespace Qx::Host::Effects
