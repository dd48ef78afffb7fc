#include "host/effects/spirv/AffineValues.h"
#include "host/effects/spirv/Passes.h"

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

/// Small enough for the arithmetic on it.
bool isModest(const Affine& value)
{
    constexpr std::size_t mostTerms = 4;
    constexpr std::int64_t most = 1 << 24;
    const auto small = [](std::int64_t number) { return number > -most && number < most; };
    return value.factors.size() <= mostTerms && small(value.offset) &&
           std::all_of(value.factors.begin(), value.factors.end(),
                       [&](const auto& term) { return small(term.second); });
}

class Widener
{
public:
    Widener(Words& spirv, std::uint32_t texelBytes) : spirv_(spirv), texelBytes_(texelBytes), writer_(spirv)
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
            boolType_ = writer_.newId();
            writer_.declare(spv::OpTypeBool, {boolType_});
        }
        forEach(spirv_, [&](const Instruction& instruction) {
            const std::uint32_t texels = instruction.op() == spv::OpImageFetch ? readBy(instruction) : 0;
            if (texels != 0) {
                replace(instruction, texels);
            } else {
                writer_.copy(instruction);
            }
        });
        spirv_ = writer_.take();
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
            if (instruction[3] == spv::DimBuffer && instruction[2] == wordType_) { // volumes have floats
                bufferTypes_.insert(instruction[1]);
            }
            break;
        case spv::OpConstant:
            if (instruction[1] == intType_ || instruction[1] == wordType_) {
                values_.set(instruction[2], {{}, static_cast<std::int32_t>(instruction[3])});
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
                texels = std::min(texels, commonStep(valueOf(instruction[4])));
            }
            break;
        default:
            if (instruction.size() > 2 && instruction[1] == intType_ && intType_ != 0) {
                collectArithmetic(instruction);
            }
            break;
        }
    }

    void collectArithmetic(const Instruction& instruction)
    {
        if (instruction.op() == spv::OpCopyObject) {
            if (const Affine* const value = values_.find(instruction[3])) {
                values_.set(instruction[2], *value);
            }
        } else if (const auto value =
                       combined(instruction.op(), valueOf(instruction[3]), valueOf(instruction[4]));
                   value && isModest(*value)) {
            values_.set(instruction[2], *value);
        }
    }

    Affine valueOf(Id id) const
    {
        const Affine* const value = values_.find(id);
        return value != nullptr ? *value : Affine{{{id, 1}}, 0};
    }

    /// How many texels can be read at once so that the wanted one is known: the largest useful power of two
    /// that all terms are multiples of. Two of the smallest are read even if it is not known, and one of them
    /// is selected: devices that gather such texels one by one do not gather larger ones so.
    std::uint32_t commonStep(const Affine& sum) const
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
        const Affine sum = valueOf(fetch[4]);
        const int shift = std::countr_zero(texels);
        const bool isAligned = std::all_of(sum.factors.begin(), sum.factors.end(),
                                           [&](const auto& term) { return term.second % texels == 0; });
        const Id index = isAligned
                             ? emitSum(sum, shift)
                             : writer_.emit(spv::OpShiftRightArithmetic, intType_, {fetch[4], number(shift)});
        const Id wide = writer_.emit(spv::OpImageFetch, fetch[1], {fetch[3], index});
        const auto part = static_cast<std::uint32_t>(sum.offset & (texels - 1));
        std::array<Id, 2> words{}; // of the texel; texels of two are always aligned
        for (std::uint32_t i = 0; i < texelBytes_ / wordBytes; ++i) {
            const std::uint32_t place = part * texelBytes_ / wordBytes + i;
            words[i] = isAligned ? writer_.emit(spv::OpCompositeExtract, wordType_, {wide, place})
                                 : emitPicked(wide, fetch[4]);
        }
        std::array<Id, 4> components{};
        for (std::uint32_t i = 0; i < components.size(); ++i) {
            const std::uint32_t bits = texelBytes_ * 2; // of a component
            const std::uint32_t place = i * bits;
            components[i] = emitBits(words[place / 32], place % 32, bits);
        }
        writer_.write(spv::OpCompositeConstruct,
                      {fetch[1], fetch[2], components[0], components[1], components[2], components[3]});
    }

    /// Of a texel of two words, the one that a number asks for by its lowest bit.
    Id emitPicked(Id wide, Id index)
    {
        const Id lowest = writer_.emit(spv::OpBitwiseAnd, intType_, {index, number(1)});
        const Id isSecond = writer_.emit(spv::OpINotEqual, boolType_, {lowest, number(0)});
        const Id first = writer_.emit(spv::OpCompositeExtract, wordType_, {wide, 0});
        const Id second = writer_.emit(spv::OpCompositeExtract, wordType_, {wide, 1});
        return writer_.emit(spv::OpSelect, wordType_, {isSecond, second, first});
    }

    /// `count` bits of a word, from `first` on.
    Id emitBits(Id word, std::uint32_t first, std::uint32_t count)
    {
        if (first != 0) {
            word =
                writer_.emit(spv::OpShiftRightLogical, wordType_, {word, writer_.constant(wordType_, first)});
        }
        if (first + count < 32) {
            word = writer_.emit(spv::OpBitwiseAnd, wordType_,
                                {word, writer_.constant(wordType_, (1U << count) - 1U)});
        }
        return word;
    }

    /// The sum over 2^shift, rounded down.
    Id emitSum(const Affine& sum, int shift)
    {
        Id total = 0;
        const auto add = [&](Id term) {
            total = total == 0 ? term : writer_.emit(spv::OpIAdd, intType_, {total, term});
        };
        for (const auto& [id, factor] : sum.factors) {
            const std::int64_t rest = factor >> shift;
            add(rest == 1 ? id : writer_.emit(spv::OpIMul, intType_, {id, number(rest)}));
        }
        if (const std::int64_t rest = sum.offset >> shift; rest != 0 || total == 0) {
            add(number(rest));
        }
        return total;
    }

    Id number(std::int64_t value) { return writer_.constant(intType_, static_cast<std::uint32_t>(value)); }

    Words& spirv_;
    const std::uint32_t texelBytes_;
    ModuleWriter writer_;
    Id intType_ = 0;
    Id wordType_ = 0;
    Id boolType_ = 0;
    AffineValues values_; ///< of the signed type
    std::unordered_map<Id, std::uint32_t> bindings_;
    std::unordered_set<Id> bufferTypes_;
    std::unordered_map<Id, Id> loaded_;        ///< variable of each loaded image
    std::map<Id, std::uint32_t> texelsAtOnce_; ///< by variable
};

} // namespace

std::map<std::uint32_t, std::uint32_t> widenFetches(Words& spirv, std::uint32_t texelBytes)
{
    return spirv.size() > headerWords ? Widener(spirv, texelBytes).run()
                                      : std::map<std::uint32_t, std::uint32_t>();
}

} // namespace Qx::Host::Effects
