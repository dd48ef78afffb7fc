#include "host/effects/spirv/FetchWidening.h"

#include "host/effects/spirv/SpirvModule.h"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace Qx::Host::Effects {
namespace {

using namespace Spirv;

constexpr std::uint32_t widestBytes = 16;
constexpr std::uint32_t smallestBytes = 8;
constexpr std::uint32_t wordBytes = 4;

/// A sum of whole numbers times constants, and a constant.
struct Sum
{
    std::map<Id, std::int64_t> factors;
    std::int64_t offset = 0;
};

/// What the instructions of a function compute in whole numbers.
class Sums
{
public:
    void addConstant(Id id, std::int32_t value) { sums_[id] = {{}, value}; }

    void visit(const Instruction& instruction)
    {
        if (instruction.op() == spv::OpCopyObject) {
            if (const auto found = sums_.find(instruction[3]); found != sums_.end()) {
                sums_[instruction[2]] = found->second;
            }
            return;
        }
        if (const std::optional<Sum> sum = combined(instruction); sum && isModest(*sum)) {
            sums_[instruction[2]] = *sum;
        }
    }

    Sum of(Id id) const
    {
        const auto found = sums_.find(id);
        return found != sums_.end() ? found->second : Sum{{{id, 1}}, 0};
    }

private:
    std::optional<Sum> combined(const Instruction& instruction) const
    {
        switch (instruction.op()) {
        case spv::OpIAdd:
            return added(of(instruction[3]), of(instruction[4]), 1);
        case spv::OpISub:
            return added(of(instruction[3]), of(instruction[4]), -1);
        case spv::OpIMul:
            if (const auto by = constantOf(instruction[4])) {
                return times(of(instruction[3]), *by);
            }
            if (const auto by = constantOf(instruction[3])) {
                return times(of(instruction[4]), *by);
            }
            return std::nullopt;
        case spv::OpShiftLeftLogical:
            if (const auto by = constantOf(instruction[4]); by && *by >= 0 && *by < 16) {
                return times(of(instruction[3]), std::int64_t{1} << *by);
            }
            return std::nullopt;
        default:
            return std::nullopt;
        }
    }

    static Sum added(Sum left, const Sum& right, std::int64_t sign)
    {
        for (const auto& [id, factor] : right.factors) {
            left.factors[id] += sign * factor;
        }
        std::erase_if(left.factors, [](const auto& term) { return term.second == 0; });
        left.offset += sign * right.offset;
        return left;
    }

    static Sum times(Sum sum, std::int64_t by)
    {
        for (auto& [id, factor] : sum.factors) {
            factor *= by;
        }
        sum.offset *= by;
        return by == 0 ? Sum{} : sum;
    }

    std::optional<std::int64_t> constantOf(Id id) const
    {
        const auto found = sums_.find(id);
        return found != sums_.end() && found->second.factors.empty() ? std::optional(found->second.offset)
                                                                     : std::nullopt;
    }

    /// Small enough for whoever goes on with it.
    static bool isModest(const Sum& sum)
    {
        constexpr std::size_t mostTerms = 4;
        constexpr std::int64_t most = 1 << 24;
        const auto small = [](std::int64_t value) { return value > -most && value < most; };
        return sum.factors.size() <= mostTerms && small(sum.offset) &&
               std::all_of(sum.factors.begin(), sum.factors.end(),
                           [&](const auto& term) { return small(term.second); });
    }

    std::unordered_map<Id, Sum> sums_;
};

class Widener
{
public:
    Widener(Words& spirv, std::uint32_t texelBytes)
        : spirv_(spirv), texelBytes_(texelBytes), nextId_(spirv[boundWord])
    {
    }

    std::map<std::uint32_t, std::uint32_t> run()
    {
        if (!forEach(spirv_, [this](const Instruction& instruction) { collect(instruction); }) ||
            intType_ == 0 || wordType_ == 0) {
            return {};
        }
        std::erase_if(texelsAtOnce_, [](const auto& buffer) { return buffer.second < 2; });
        if (texelsAtOnce_.empty()) {
            return {};
        }
        if (boolType_ == 0) {
            boolType_ = nextId_++;
            write(constants_, spv::OpTypeBool, {boolType_});
        }
        bool inFunction = false;
        Words head(spirv_.begin(), spirv_.begin() + headerWords);
        forEach(spirv_, [&](const Instruction& instruction) {
            inFunction = inFunction || instruction.op() == spv::OpFunction;
            const std::uint32_t texels = instruction.op() == spv::OpImageFetch ? readBy(instruction) : 0;
            if (texels != 0) {
                replace(instruction, texels);
            } else {
                write(inFunction ? body_ : head, instruction);
            }
        });
        spirv_ = std::move(head);
        spirv_.insert(spirv_.end(), constants_.begin(), constants_.end());
        spirv_.insert(spirv_.end(), body_.begin(), body_.end());
        spirv_[boundWord] = nextId_;
        std::map<std::uint32_t, std::uint32_t> widths;
        for (const auto& [variable, texels] : texelsAtOnce_) {
            widths[bindings_[variable]] = texels * texelBytes_;
        }
        return widths;
    }

private:
    void collect(const Instruction& instruction)
    {
        switch (instruction.op()) {
        case spv::OpDecorate:
            if (instruction[2] == spv::DecorationBinding) {
                bindings_[instruction[1]] = instruction[3];
            }
            break;
        case spv::OpTypeInt:
            if (instruction[2] == 32) {
                (instruction[3] == 1 ? intType_ : wordType_) = instruction[1];
            }
            break;
        case spv::OpTypeBool:
            boolType_ = instruction[1];
            break;
        case spv::OpTypeImage:
            if (instruction[3] == spv::DimBuffer) {
                bufferTypes_.insert(instruction[1]);
            }
            break;
        case spv::OpConstant:
            if (instruction[1] == intType_ || instruction[1] == wordType_) {
                sums_.addConstant(instruction[2], static_cast<std::int32_t>(instruction[3]));
            }
            break;
        case spv::OpLoad:
            if (bufferTypes_.count(instruction[1]) != 0 && bindings_.count(instruction[3]) != 0) {
                loaded_[instruction[2]] = instruction[3];
                texelsAtOnce_.emplace(instruction[3], widestBytes / texelBytes_);
            }
            break;
        case spv::OpImageFetch:
            if (const auto image = loaded_.find(instruction[3]); image != loaded_.end()) {
                std::uint32_t& texels = texelsAtOnce_[image->second];
                texels = std::min(texels, commonStep(sums_.of(instruction[4])));
            }
            break;
        default:
            if (instruction.size() > 2 && instruction[1] == intType_ && intType_ != 0) {
                sums_.visit(instruction);
            }
            break;
        }
    }

    /// How many texels can be read at once with one of them picked: the largest power of two, as far as it is
    /// of use, that all terms are multiples of. Two even of the smallest, one of which is picked as it comes:
    /// devices that gather such texels one by one do not gather larger ones so.
    std::uint32_t commonStep(const Sum& sum) const
    {
        std::uint64_t bits = widestBytes / texelBytes_;
        for (const auto& [id, factor] : sum.factors) {
            bits |= static_cast<std::uint64_t>(factor);
        }
        return std::max(1U << std::countr_zero(bits), smallestBytes / texelBytes_);
    }

    /// How many texels it is to read at once; 0 when it stays as it is.
    std::uint32_t readBy(const Instruction& fetch) const
    {
        const auto image = loaded_.find(fetch[3]);
        const auto texels = image != loaded_.end() ? texelsAtOnce_.find(image->second) : texelsAtOnce_.end();
        return texels != texelsAtOnce_.end() ? texels->second : 0;
    }

    void replace(const Instruction& fetch, std::uint32_t texels)
    {
        const Sum sum = sums_.of(fetch[4]);
        const int shift = std::countr_zero(texels);
        const bool isAligned = std::all_of(sum.factors.begin(), sum.factors.end(),
                                           [&](const auto& term) { return term.second % texels == 0; });
        const Id index = isAligned ? emitSum(sum, shift)
                                   : emit(spv::OpShiftRightArithmetic, intType_, {fetch[4], number(shift)});
        const Id wide = emit(spv::OpImageFetch, fetch[1], {fetch[3], index});
        const auto part = static_cast<std::uint32_t>(sum.offset & (texels - 1));
        std::array<Id, 2> words{}; // of the texel; texels of two are always aligned
        for (std::uint32_t i = 0; i < texelBytes_ / wordBytes; ++i) {
            const std::uint32_t place = part * texelBytes_ / wordBytes + i;
            words[i] = isAligned ? emit(spv::OpCompositeExtract, wordType_, {wide, place})
                                 : emitPicked(wide, fetch[4]);
        }
        std::array<Id, 4> components{};
        for (std::uint32_t i = 0; i < components.size(); ++i) {
            const std::uint32_t bits = texelBytes_ * 2; // of a component
            const std::uint32_t place = i * bits;
            components[i] = emitBits(words[place / 32], place % 32, bits);
        }
        write(body_, spv::OpCompositeConstruct,
              {fetch[1], fetch[2], components[0], components[1], components[2], components[3]});
    }

    /// Of a texel of two words, the one that a number asks for by its lowest bit.
    Id emitPicked(Id wide, Id index)
    {
        const Id lowest = emit(spv::OpBitwiseAnd, intType_, {index, number(1)});
        const Id isSecond = emit(spv::OpINotEqual, boolType_, {lowest, number(0)});
        const Id first = emit(spv::OpCompositeExtract, wordType_, {wide, 0});
        const Id second = emit(spv::OpCompositeExtract, wordType_, {wide, 1});
        return emit(spv::OpSelect, wordType_, {isSecond, second, first});
    }

    /// `count` bits of a word, from `first` on.
    Id emitBits(Id word, std::uint32_t first, std::uint32_t count)
    {
        if (first != 0) {
            word = emit(spv::OpShiftRightLogical, wordType_, {word, constant(wordType_, first)});
        }
        if (first + count < 32) {
            word = emit(spv::OpBitwiseAnd, wordType_, {word, constant(wordType_, (1U << count) - 1U)});
        }
        return word;
    }

    /// The sum over 2^shift, rounded down.
    Id emitSum(const Sum& sum, int shift)
    {
        Id total = 0;
        const auto add = [&](Id term) {
            total = total == 0 ? term : emit(spv::OpIAdd, intType_, {total, term});
        };
        for (const auto& [id, factor] : sum.factors) {
            const std::int64_t rest = factor >> shift;
            add(rest == 1 ? id : emit(spv::OpIMul, intType_, {id, number(rest)}));
        }
        if (const std::int64_t rest = sum.offset >> shift; rest != 0 || total == 0) {
            add(number(rest));
        }
        return total;
    }

    Id number(std::int64_t value) { return constant(intType_, static_cast<std::uint32_t>(value)); }

    Id constant(Id type, std::uint32_t value)
    {
        const auto [place, isNew] = known_.emplace(std::pair(type, value), nextId_);
        if (isNew) {
            write(constants_, spv::OpConstant, {type, nextId_++, value});
        }
        return place->second;
    }

    Id emit(spv::Op op, Id type, std::initializer_list<std::uint32_t> operands)
    {
        const auto words = static_cast<std::uint32_t>(operands.size() + 3);
        body_.insert(body_.end(),
                     {words << spv::WordCountShift | static_cast<std::uint32_t>(op), type, nextId_});
        body_.insert(body_.end(), operands);
        return nextId_++;
    }

    Words& spirv_;
    const std::uint32_t texelBytes_;
    Words constants_; ///< and a type, to stand before the functions
    Words body_;
    Id nextId_;
    Id intType_ = 0;
    Id wordType_ = 0;
    Id boolType_ = 0;
    Sums sums_;
    std::unordered_map<Id, std::uint32_t> bindings_;
    std::unordered_set<Id> bufferTypes_;
    std::unordered_map<Id, Id> loaded_;        ///< variable of each loaded image
    std::map<Id, std::uint32_t> texelsAtOnce_; ///< by variable
    std::map<std::pair<Id, std::uint32_t>, Id> known_;
};

} // namespace

std::map<std::uint32_t, std::uint32_t> widenFetches(std::vector<std::uint32_t>& spirv,
                                                    std::uint32_t texelBytes)
{
    return spirv.size() > headerWords ? Widener(spirv, texelBytes).run()
                                      : std::map<std::uint32_t, std::uint32_t>();
}

} // namespace Qx::Host::Effects
