#include "host/effects/spirv/IndexArithmetic.h"

#include "host/effects/spirv/SpirvModule.h"

#include <bit>
#include <cstddef>
#include <initializer_list>
#include <limits>
#include <map>
#include <optional>
#include <span>
#include <unordered_map>
#include <unordered_set>

namespace Qx::Host::Effects {
namespace {

using namespace Spirv;

constexpr std::int64_t mostColumns = 1 << 16;

/// base * factor + offset.
struct Linear
{
    Id base = 0; ///< 0: no base, the offset alone
    std::int64_t factor = 0;
    std::int64_t offset = 0;
};

/// What a base can be.
struct Range
{
    std::int64_t least = 0;
    std::int64_t most = 0;
};

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
    explicit Simplifier(std::vector<std::uint32_t>& spirv) : spirv_(spirv), nextId_(spirv[boundWord]) {}

    bool run()
    {
        body_.reserve(spirv_.size());
        std::size_t firstFunction = 0;
        for (std::size_t at = headerWords; at < spirv_.size();) {
            const std::size_t count = spirv_[at] >> spv::WordCountShift;
            if (count == 0 || count > spirv_.size() - at) {
                return false;
            }
            const std::span<const std::uint32_t> words(spirv_.data() + at, count);
            const auto op = static_cast<spv::Op>(words[0] & spv::OpCodeMask);
            if (op == spv::OpFunction && firstFunction == 0) {
                firstFunction = at;
            }
            if (firstFunction == 0) {
                declare(op, words);
            } else if (!rewrite(op, words)) {
                body_.insert(body_.end(), words.begin(), words.end());
            }
            at += count;
        }
        if (!changed_) {
            return false;
        }
        spirv_.resize(firstFunction);
        spirv_.insert(spirv_.end(), declarations_.begin(), declarations_.end());
        spirv_.insert(spirv_.end(), body_.begin(), body_.end());
        spirv_[boundWord] = nextId_;
        return true;
    }

private:
    void declare(spv::Op op, std::span<const std::uint32_t> words)
    {
        if (op == spv::OpDecorate && words[2] == spv::DecorationBuiltIn &&
            words[3] == spv::BuiltInFragCoord) {
            position_ = words[1];
        } else if (op == spv::OpTypeInt && words[2] == 32 && words[3] == 1) {
            intType_ = words[1];
        } else if (op == spv::OpTypeInt && words[2] == 32) {
            unsignedType_ = words[1];
        } else if (op == spv::OpConstant && (words[1] == intType_ || words[1] == unsignedType_)) {
            const auto value = static_cast<std::int32_t>(words[3]);
            values_[words[2]] = {0, 0, value};
            if (words[1] == intType_) {
                constants_.emplace(value, words[2]);
            }
        }
    }

    /// True when something else stands for the instruction.
    bool rewrite(spv::Op op, std::span<const std::uint32_t> words)
    {
        switch (op) {
        case spv::OpAccessChain:
            if (words[3] == position_ && words.size() == 5 && constantOf(words[4]) == 0) {
                columnPointers_.insert(words[2]);
            }
            return false;
        case spv::OpLoad:
            if (words[3] == position_) {
                positions_.insert(words[2]);
            } else if (columnPointers_.count(words[3]) != 0) {
                columns_.insert(words[2]);
            }
            return false;
        case spv::OpCompositeExtract:
            if (positions_.count(words[3]) != 0 && words.size() == 5 && words[4] == 0) {
                columns_.insert(words[2]);
            }
            return false;
        case spv::OpConvertFToS:
            if (words[1] == intType_ && columns_.count(words[3]) != 0) {
                values_[words[2]] = {words[2], 1, 0};
                ranges_[words[2]] = {0, mostColumns};
            }
            return false;
        case spv::OpIAdd:
        case spv::OpISub:
        case spv::OpIMul:
        case spv::OpShiftLeftLogical:
        case spv::OpShiftRightArithmetic:
        case spv::OpBitwiseAnd:
            return words[1] == intType_ && rewriteArithmetic(op, words);
        case spv::OpSGreaterThan:
        case spv::OpSGreaterThanEqual:
        case spv::OpSLessThan:
        case spv::OpSLessThanEqual:
            return rewriteComparison(op, words);
        default:
            return false;
        }
    }

    bool rewriteArithmetic(spv::Op op, std::span<const std::uint32_t> words)
    {
        const std::optional<Linear> left = valueOf(words[3]);
        const std::optional<Linear> right = valueOf(words[4]);
        if (!left || !right || (left->base == 0 && right->base == 0)) {
            return false;
        }
        const std::optional<Linear> result = combine(op, *left, *right);
        if (!result || !isSmall(*result)) {
            return false;
        }
        values_[words[2]] = *result;
        emitValue(words[2], *result);
        changed_ = true;
        return true;
    }

    /// A comparison with a constant becomes one of the base, or what it comes to for all that the base can
    /// be.
    bool rewriteComparison(spv::Op op, std::span<const std::uint32_t> words)
    {
        const std::optional<Linear> value = valueOf(words[3]);
        const std::optional<std::int64_t> limit = constantOf(words[4]);
        if (!value || value->base == 0 || value->factor <= 0 || !limit) {
            return false;
        }
        // value > limit, or its contrary
        const bool greater = op == spv::OpSGreaterThan || op == spv::OpSGreaterThanEqual;
        const bool orEqual = op == spv::OpSGreaterThanEqual || op == spv::OpSLessThan;
        const std::int64_t above = floorOfRatio(*limit - (orEqual ? 1 : 0) - value->offset, value->factor);
        const Range& range = ranges_.at(value->base);
        if (above < range.least || above >= range.most) {
            const bool isAbove = above < range.least;
            write(body_, spv::OpCopyObject, {words[1], words[2], truth(words[1], isAbove == greater)});
        } else {
            write(body_, greater ? spv::OpSGreaterThan : spv::OpSLessThanEqual,
                  {words[1], words[2], value->base, constant(above)});
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
            id = nextId_++;
            write(declarations_, value ? spv::OpConstantTrue : spv::OpConstantFalse, {boolType, id});
        }
        return id;
    }

    std::optional<Linear> combine(spv::Op op, const Linear& left, const Linear& right)
    {
        switch (op) {
        case spv::OpIAdd:
            return sum(left, right, 1);
        case spv::OpISub:
            return sum(left, right, -1);
        case spv::OpIMul:
            return right.base == 0  ? product(left, right.offset)
                   : left.base == 0 ? product(right, left.offset)
                                    : std::nullopt;
        case spv::OpShiftLeftLogical:
            return right.base == 0 && isShift(right.offset) ? product(left, std::int64_t{1} << right.offset)
                                                            : std::nullopt;
        case spv::OpShiftRightArithmetic:
            return right.base == 0 && isShift(right.offset) ? shifted(left, static_cast<int>(right.offset))
                                                            : std::nullopt;
        default:
            return right.base == 0  ? masked(left, right.offset)
                   : left.base == 0 ? masked(right, left.offset)
                                    : std::nullopt;
        }
    }

    static bool isShift(std::int64_t count) { return count >= 0 && count < 31; }

    static std::optional<Linear> sum(const Linear& left, const Linear& right, std::int64_t sign)
    {
        if (left.base != 0 && right.base != 0 && left.base != right.base) {
            return std::nullopt;
        }
        return Linear{left.base != 0 ? left.base : right.base, left.factor + sign * right.factor,
                      left.offset + sign * right.offset};
    }

    static std::optional<Linear> product(const Linear& value, std::int64_t by)
    {
        return Linear{value.base, value.factor * by, value.offset * by};
    }

    /// Rounds down, as the instruction does. Of a factor 2^a with a below the count, the column's own lowest
    /// bits go too.
    std::optional<Linear> shifted(const Linear& value, int count)
    {
        const std::int64_t step = std::int64_t{1} << count;
        if (value.factor % step == 0) {
            return Linear{value.base, value.factor / step, value.offset >> count};
        }
        if (!isPowerOfTwo(value.factor)) {
            return std::nullopt;
        }
        const int own = log2Of(value.factor);
        const std::int64_t added = value.offset >> own;
        const int rest = count - own;
        const Range& range = ranges_.at(value.base);
        const Range moved{(range.least + added) >> rest, (range.most + added) >> rest};
        return Linear{
            emit(spv::OpShiftRightArithmetic, emitLinear({value.base, 1, added}), constant(rest), moved), 1,
            0};
    }

    /// The lowest bits of a value.
    std::optional<Linear> masked(const Linear& value, std::int64_t mask)
    {
        if (mask <= 0 || !isPowerOfTwo(mask + 1)) {
            return std::nullopt;
        }
        if (value.factor % (mask + 1) == 0) {
            return Linear{0, 0, value.offset & mask};
        }
        if (!isPowerOfTwo(value.factor)) {
            return std::nullopt;
        }
        const int own = log2Of(value.factor);
        const Id moved = emitLinear({value.base, 1, value.offset >> own});
        const std::int64_t upper = mask >> own;
        return Linear{emit(spv::OpBitwiseAnd, moved, constant(upper), {0, upper}), value.factor,
                      value.offset & (value.factor - 1)};
    }

    /// Whether no value on the way leaves 32 bits.
    bool isSmall(const Linear& value) const
    {
        constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max() / 2;
        const auto small = [](std::int64_t number) { return number >= -most && number <= most; };
        const Range base = value.base == 0 ? Range{} : ranges_.at(value.base);
        return small(value.offset) && small(value.factor) && small(value.factor * base.least) &&
               small(value.factor * base.most);
    }

    std::optional<Linear> valueOf(Id id) const
    {
        const auto found = values_.find(id);
        return found == values_.end() ? std::nullopt : std::optional(found->second);
    }

    std::optional<std::int64_t> constantOf(Id id) const
    {
        const std::optional<Linear> value = valueOf(id);
        return value && value->base == 0 ? std::optional(value->offset) : std::nullopt;
    }

    Id constant(std::int64_t value)
    {
        const auto [place, isNew] = constants_.emplace(static_cast<std::int32_t>(value), nextId_);
        if (isNew) {
            write(declarations_, spv::OpConstant, {intType_, nextId_++, static_cast<std::uint32_t>(value)});
        }
        return place->second;
    }

    /// What becomes a base of its own.
    Id emit(spv::Op op, Id left, Id right, const Range& range)
    {
        const Id id = nextId_++;
        write(body_, op, {intType_, id, left, right});
        ranges_[id] = range;
        values_[id] = {id, 1, 0};
        return id;
    }

    Id emitLinear(const Linear& value)
    {
        if (value.factor == 1 && value.offset == 0) {
            return value.base;
        }
        const Id id = nextId_++;
        emitValue(id, value);
        return id;
    }

    void emitValue(Id id, const Linear& value)
    {
        if (value.base == 0 || value.factor == 0) {
            write(body_, spv::OpCopyObject, {intType_, id, constant(value.offset)});
            return;
        }
        Id scaled = value.base;
        if (value.factor != 1) {
            scaled = nextId_++;
            write(body_, spv::OpIMul, {intType_, scaled, value.base, constant(value.factor)});
        }
        if (value.offset != 0) {
            write(body_, spv::OpIAdd, {intType_, id, scaled, constant(value.offset)});
        } else {
            write(body_, spv::OpCopyObject, {intType_, id, scaled});
        }
    }

    std::vector<std::uint32_t>& spirv_;
    std::vector<std::uint32_t> declarations_; ///< constants to stand before the functions
    std::vector<std::uint32_t> body_;
    Id nextId_;
    Id position_ = 0;
    Id intType_ = 0;
    Id unsignedType_ = 0;
    Id true_ = 0;
    Id false_ = 0;
    std::unordered_map<Id, Linear> values_;
    std::unordered_map<Id, Range> ranges_; ///< of each base
    std::map<std::int32_t, Id> constants_;
    std::unordered_set<Id> columnPointers_;
    std::unordered_set<Id> positions_;
    std::unordered_set<Id> columns_; ///< as floats
    bool changed_ = false;
};

} // namespace

bool simplifyColumnArithmetic(std::vector<std::uint32_t>& spirv)
{
    return spirv.size() > headerWords && Simplifier(spirv).run();
}

} // namespace Qx::Host::Effects
