#include "host/effects/spirv/FloatRanges.h"
#include "host/effects/spirv/Passes.h"

#include <array>
#include <bit>
#include <unordered_map>

#include <spirv/unified1/GLSL.std.450.h>

namespace Qx::Host::Effects {
namespace {

using namespace Spirv;

// Floats of 32 bits from 2^23 to 2^24 are the whole numbers: the lowest bits of 2^23 + n are those of n.
constexpr float above = 1 << 23;        ///< for n from 0 to 2^23
constexpr float around = 3 * (1 << 22); ///< for n from -2^22 to 2^22
constexpr int wordBits = 16;

class Converter
{
public:
    explicit Converter(const Words& spirv) : spirv_(spirv), writer_(spirv) {}

    Words run()
    {
        if (!forEach(spirv_, [this](const Instruction& instruction) { collect(instruction); }) ||
            conversions_ == 0 || floatType_ == 0 || hasOtherFloats_) {
            return spirv_;
        }
        forEach(spirv_, [this](const Instruction& instruction) {
            if (instruction.op() == spv::OpMemoryModel && functions_ == 0) {
                importFunctions();
            }
            ranges_.visit(instruction);
            if (isConversion(instruction) && componentsOf(instruction[1]) != 0) {
                convert(instruction);
            } else {
                writer_.copy(instruction);
            }
        });
        return writer_.take();
    }

private:
    static bool isConversion(const Instruction& instruction)
    {
        return instruction.op() == spv::OpConvertFToS || instruction.op() == spv::OpConvertFToU;
    }

    void collect(const Instruction& instruction)
    {
        switch (instruction.op()) {
        case spv::OpExtInstImport:
            functions_ = instruction[1];
            break;
        case spv::OpTypeFloat:
            if (instruction[2] == 32) {
                floatType_ = instruction[1];
            } else {
                hasOtherFloats_ = true;
            }
            break;
        case spv::OpTypeInt:
            if (instruction[2] == 32) {
                components_[instruction[1]] = 1;
                scalars_[instruction[1]] = instruction[1];
            }
            break;
        case spv::OpTypeVector:
            if (components_.contains(instruction[2]) && instruction[3] >= 2 && instruction[3] <= 4) {
                components_[instruction[1]] = instruction[3];
                scalars_[instruction[1]] = instruction[2];
            }
            break;
        case spv::OpConvertFToS:
        case spv::OpConvertFToU:
            ++conversions_;
            break;
        default:
            break;
        }
    }

    std::uint32_t componentsOf(Id type) const
    {
        const auto found = components_.find(type);
        return found != components_.end() ? found->second : 0;
    }

    void importFunctions()
    {
        functions_ = writer_.newId();
        constexpr std::array<char, 16> name{"GLSL.std.450"};
        const auto words = std::bit_cast<std::array<std::uint32_t, 4>>(name);
        writer_.write(spv::OpExtInstImport, {functions_, words[0], words[1], words[2], words[3]});
    }

    void convert(const Instruction& conversion)
    {
        const Id type = conversion[1];
        const std::uint32_t count = componentsOf(type);
        const Range range = ranges_.of(conversion[3]);
        if (count == 1) {
            writer_.write(spv::OpCopyObject, {type, conversion[2], converted(conversion[3], range, type)});
            return;
        }
        std::array<Id, 4> parts{};
        for (std::uint32_t i = 0; i < count; ++i) {
            const Id part = writer_.emit(spv::OpCompositeExtract, floatType_, {conversion[3], i});
            parts.at(i) = converted(part, range, scalars_.at(type));
        }
        switch (count) {
        case 2:
            writer_.write(spv::OpCompositeConstruct, {type, conversion[2], parts[0], parts[1]});
            break;
        case 3:
            writer_.write(spv::OpCompositeConstruct, {type, conversion[2], parts[0], parts[1], parts[2]});
            break;
        default:
            writer_.write(spv::OpCompositeConstruct,
                          {type, conversion[2], parts[0], parts[1], parts[2], parts[3]});
            break;
        }
    }

    /// The whole number of a float, rounded towards 0.
    Id converted(Id value, const Range& range, Id type)
    {
        const Id whole = range.isWhole ? value : function(GLSLstd450Trunc, value);
        if (range.isWithin(0.0, above)) {
            return lowBits(whole, above, type);
        }
        if (range.isWithin(-around / 3.0F, around / 3.0F)) {
            return lowBits(whole, around, type);
        }
        // In two parts of 16 bits: whole = high * 2^16 + low, and nothing is rounded.
        constexpr float word = 1 << wordBits;
        const Id high =
            function(GLSLstd450Floor, writer_.emit(spv::OpFMul, floatType_, {whole, number(1.0F / word)}));
        const Id rest = writer_.emit(spv::OpFMul, floatType_, {high, number(word)});
        const Id low = writer_.emit(spv::OpFSub, floatType_, {whole, rest});
        const Id shifted = writer_.emit(spv::OpShiftLeftLogical, type,
                                        {lowBits(high, around, type), writer_.constant(type, wordBits)});
        return writer_.emit(spv::OpBitwiseOr, type, {shifted, lowBits(low, above, type)});
    }

    Id lowBits(Id whole, float of, Id type)
    {
        const Id sum = writer_.emit(spv::OpFAdd, floatType_, {whole, number(of)});
        const Id bits = writer_.emit(spv::OpBitcast, type, {sum});
        return writer_.emit(spv::OpISub, type, {bits, writer_.constant(type, bitsOf(of))});
    }

    Id function(std::uint32_t which, Id value)
    {
        return writer_.emit(spv::OpExtInst, floatType_, {functions_, which, value});
    }

    Id number(float value) { return writer_.constant(floatType_, bitsOf(value)); }

    const Words& spirv_;
    ModuleWriter writer_;
    FloatRanges ranges_;
    std::unordered_map<Id, std::uint32_t> components_; ///< of types of whole numbers of 32 bits
    std::unordered_map<Id, Id> scalars_;               ///< the types of their components
    Id floatType_ = 0;
    Id functions_ = 0; ///< GLSL.std.450
    std::size_t conversions_ = 0;
    bool hasOtherFloats_ = false;
};

} // namespace

Words convertByAdding(const Words& spirv)
{
    return spirv.size() > headerWords ? Converter(spirv).run() : spirv;
}

} // namespace Qx::Host::Effects
