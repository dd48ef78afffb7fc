#include "tests/effects/ShaderInterpreter.h"

#include "host/effects/spirv/SpirvModule.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>

#include <spirv/unified1/GLSL.std.450.h>

namespace Qx::Host::Tests {
namespace {

using Effects::Spirv::Id;
using Effects::Spirv::Instruction;

using Value = std::vector<std::uint32_t>; ///< the bits of each component

struct Pointer
{
    Id variable = 0;
    Id type = 0;              ///< of the pointee
    std::uint32_t offset = 0; ///< in bytes
};

float asFloat(std::uint32_t bits)
{
    return std::bit_cast<float>(bits);
}

std::uint32_t bitsOf(float value)
{
    return std::bit_cast<std::uint32_t>(value);
}

std::int32_t asInt(std::uint32_t bits)
{
    return static_cast<std::int32_t>(bits);
}

class Interpreter
{
public:
    Interpreter(const std::vector<std::uint32_t>& spirv, const FragmentInputs& inputs)
        : spirv_(spirv), inputs_(inputs)
    {
        const bool whole = Effects::Spirv::forEach(spirv_, [this](const Instruction& i) { declare(i); });
        if (!whole || functions_ != 1) {
            throw std::runtime_error("not a module of one function");
        }
    }

    std::array<std::uint32_t, 4> run()
    {
        constexpr std::size_t mostSteps = 1U << 20U;
        std::size_t steps = 0;
        for (at_ = 0; !done_ && at_ < body_.size();) {
            if (++steps > mostSteps) {
                throw std::runtime_error("the shader does not end");
            }
            const Instruction instruction = body_[at_++];
            step(instruction);
        }
        return output_;
    }

private:
    void declare(const Instruction& i)
    {
        switch (i.op()) {
        case spv::OpDecorate:
            decorations_[{i[1], i[2]}] = i[3];
            return;
        case spv::OpMemberDecorate:
            if (i[3] == spv::DecorationOffset) {
                offsets_[{i[1], i[2]}] = i[4];
            }
            return;
        case spv::OpExtInstImport:
            return;
        case spv::OpConstant:
            values_[i[2]] = {i[3]};
            return;
        case spv::OpConstantTrue:
            values_[i[2]] = {1};
            return;
        case spv::OpConstantFalse:
            values_[i[2]] = {0};
            return;
        case spv::OpConstantComposite:
        case spv::OpConstantNull:
        case spv::OpUndef:
            if (functions_ == 0) {
                compute(i);
                return;
            }
            break;
        case spv::OpVariable:
            pointers_[i[2]] = {i[2], types_.at(i[1])[3], 0};
            classes_[i[2]] = i[3];
            if (i.size() > 4) {
                initial_[i[2]] = values_.at(i[4]);
            }
            return;
        case spv::OpFunction:
            ++functions_;
            return;
        case spv::OpLabel:
            labels_[i[1]] = body_.size();
            break;
        default:
            if (Effects::Spirv::isType(i.op())) {
                types_.emplace(i[1], i);
                return;
            }
            break;
        }
        if (functions_ != 0) {
            body_.push_back(i);
        }
    }

    void step(const Instruction& i)
    {
        switch (i.op()) {
        case spv::OpLabel:
            before_ = block_;
            block_ = i[1];
            return;
        case spv::OpSelectionMerge:
        case spv::OpLoopMerge:
            return;
        case spv::OpBranch:
            at_ = labels_.at(i[1]);
            return;
        case spv::OpBranchConditional:
            at_ = labels_.at(values_.at(i[1])[0] != 0 ? i[2] : i[3]);
            return;
        case spv::OpReturn:
            done_ = true;
            return;
        case spv::OpStore: {
            const Value& value = values_.at(i[2]);
            const Pointer& to = pointers_.at(i[1]);
            if (classes_.at(to.variable) != spv::StorageClassOutput) {
                throw std::runtime_error("the shader stores to a variable");
            }
            std::copy(value.begin(), value.end(), output_.begin() + to.offset / 4);
            return;
        }
        case spv::OpPhi:
            phi(i);
            return;
        default:
            compute(i);
            return;
        }
    }

    /// The phis of a block are evaluated together.
    void phi(const Instruction& first)
    {
        std::vector<std::pair<Id, Value>> taken;
        for (Instruction i = first;; i = body_[at_++]) {
            for (std::size_t k = 3; k < i.size(); k += 2) {
                if (i[k + 1] == before_) {
                    taken.emplace_back(i[2], values_.at(i[k]));
                }
            }
            if (body_[at_].op() != spv::OpPhi) {
                break;
            }
        }
        for (auto& [id, value] : taken) {
            values_[id] = std::move(value);
        }
    }

    std::size_t componentsOf(Id type) const
    {
        const Instruction& i = types_.at(type);
        return i.op() == spv::OpTypeVector ? i[3] : 1;
    }

    void compute(const Instruction& i)
    {
        switch (i.op()) {
        case spv::OpAccessChain:
            pointers_[i[2]] = follow(i);
            return;
        case spv::OpLoad:
            if (types_.at(i[1]).op() == spv::OpTypeImage) {
                images_[i[2]] = decorations_.at({i[3], spv::DecorationBinding});
            } else {
                values_[i[2]] = load(pointers_.at(i[3]));
            }
            return;
        case spv::OpImageFetch:
            values_[i[2]] = fetch(inputs_.buffers.at(images_.at(i[3])), asInt(values_.at(i[4])[0]));
            return;
        case spv::OpConstantNull:
        case spv::OpUndef:
            values_[i[2]] = Value(componentsOf(i[1]));
            return;
        case spv::OpConstantComposite:
        case spv::OpCompositeConstruct: {
            Value value;
            for (std::size_t k = 3; k < i.size(); ++k) {
                const Value& part = values_.at(i[k]);
                value.insert(value.end(), part.begin(), part.end());
            }
            values_[i[2]] = value;
            return;
        }
        case spv::OpCompositeExtract:
            values_[i[2]] = {values_.at(i[3]).at(i[4])};
            return;
        case spv::OpVectorShuffle: {
            Value both = values_.at(i[3]);
            const Value& second = values_.at(i[4]);
            both.insert(both.end(), second.begin(), second.end());
            Value value;
            for (std::size_t k = 5; k < i.size(); ++k) {
                value.push_back(both.at(i[k]));
            }
            values_[i[2]] = value;
            return;
        }
        default:
            computeEach(i);
            return;
        }
    }

    void computeEach(const Instruction& i)
    {
        const bool extended = i.op() == spv::OpExtInst;
        std::vector<const Value*> operands;
        for (std::size_t k = extended ? 5 : 3; k < i.size(); ++k) {
            operands.push_back(&values_.at(i[k]));
        }
        Value value(componentsOf(i[1]));
        for (std::size_t c = 0; c < value.size(); ++c) {
            const auto of = [&](std::size_t k) {
                return operands.at(k)->at(std::min(c, operands[k]->size() - 1));
            };
            value[c] = extended ? extendedResult(i[4], of) : result(i.op(), of);
        }
        values_[i[2]] = value;
    }

    template <class Operand>
    static std::uint32_t result(spv::Op op, Operand&& of)
    {
        switch (op) {
        case spv::OpCopyObject:
        case spv::OpBitcast:
            return of(0);
        case spv::OpIAdd:
            return of(0) + of(1);
        case spv::OpISub:
            return of(0) - of(1);
        case spv::OpIMul:
            return of(0) * of(1);
        case spv::OpSDiv:
            return static_cast<std::uint32_t>(asInt(of(0)) / asInt(of(1)));
        case spv::OpShiftLeftLogical:
            return of(0) << of(1);
        case spv::OpShiftRightLogical:
            return of(0) >> of(1);
        case spv::OpShiftRightArithmetic:
            return static_cast<std::uint32_t>(asInt(of(0)) >> of(1));
        case spv::OpBitwiseAnd:
        case spv::OpLogicalAnd:
            return of(0) & of(1);
        case spv::OpBitwiseOr:
        case spv::OpLogicalOr:
            return of(0) | of(1);
        case spv::OpLogicalNot:
            return 1U - of(0);
        case spv::OpSelect:
            return of(0) != 0 ? of(1) : of(2);
        case spv::OpIEqual:
            return of(0) == of(1) ? 1 : 0;
        case spv::OpINotEqual:
            return of(0) != of(1) ? 1 : 0;
        case spv::OpSGreaterThan:
            return asInt(of(0)) > asInt(of(1)) ? 1 : 0;
        case spv::OpSGreaterThanEqual:
            return asInt(of(0)) >= asInt(of(1)) ? 1 : 0;
        case spv::OpSLessThan:
            return asInt(of(0)) < asInt(of(1)) ? 1 : 0;
        case spv::OpSLessThanEqual:
            return asInt(of(0)) <= asInt(of(1)) ? 1 : 0;
        case spv::OpFOrdLessThan:
            return asFloat(of(0)) < asFloat(of(1)) ? 1 : 0;
        case spv::OpConvertFToS:
            return static_cast<std::uint32_t>(static_cast<std::int32_t>(asFloat(of(0))));
        case spv::OpConvertFToU:
            return static_cast<std::uint32_t>(asFloat(of(0)));
        case spv::OpConvertSToF:
            return bitsOf(static_cast<float>(asInt(of(0))));
        case spv::OpFAdd:
            return bitsOf(asFloat(of(0)) + asFloat(of(1)));
        case spv::OpFSub:
            return bitsOf(asFloat(of(0)) - asFloat(of(1)));
        case spv::OpFMul:
        case spv::OpVectorTimesScalar:
            return bitsOf(asFloat(of(0)) * asFloat(of(1)));
        default:
            throw std::runtime_error("instruction " + std::to_string(op) + " is not known");
        }
    }

    template <class Operand>
    static std::uint32_t extendedResult(std::uint32_t op, Operand&& of)
    {
        switch (op) {
        case GLSLstd450Floor:
            return bitsOf(std::floor(asFloat(of(0))));
        case GLSLstd450FAbs:
            return bitsOf(std::abs(asFloat(of(0))));
        case GLSLstd450FMin:
        case GLSLstd450NMin:
            return bitsOf(std::min(asFloat(of(0)), asFloat(of(1))));
        case GLSLstd450FMax:
        case GLSLstd450NMax:
            return bitsOf(std::max(asFloat(of(0)), asFloat(of(1))));
        case GLSLstd450Trunc:
            return bitsOf(std::trunc(asFloat(of(0))));
        case GLSLstd450RoundEven:
            return bitsOf(std::nearbyint(asFloat(of(0))));
        case GLSLstd450FClamp:
        case GLSLstd450NClamp:
            return bitsOf(std::min(std::max(asFloat(of(0)), asFloat(of(1))), asFloat(of(2))));
        case GLSLstd450SClamp:
            return static_cast<std::uint32_t>(std::min(std::max(asInt(of(0)), asInt(of(1))), asInt(of(2))));
        default:
            throw std::runtime_error("extended instruction " + std::to_string(op) + " is not known");
        }
    }

    Pointer follow(const Instruction& i) const
    {
        Pointer pointer = pointers_.at(i[3]);
        for (std::size_t k = 4; k < i.size(); ++k) {
            const std::uint32_t index = values_.at(i[k])[0];
            const Instruction& type = types_.at(pointer.type);
            if (type.op() == spv::OpTypeStruct) {
                pointer.offset += offsets_.at({pointer.type, index});
                pointer.type = type[2 + index];
            } else if (type.op() == spv::OpTypeArray) {
                const auto stride = decorations_.find({pointer.type, spv::DecorationArrayStride});
                pointer.offset += index * (stride != decorations_.end()
                                               ? stride->second
                                               : static_cast<std::uint32_t>(4 * componentsOf(type[2])));
                pointer.type = type[2];
            } else {
                pointer.offset += index * 4;
                pointer.type = type[2];
            }
        }
        return pointer;
    }

    Value load(const Pointer& pointer) const
    {
        std::array<std::uint32_t, 4> position{bitsOf(inputs_.position[0]), bitsOf(inputs_.position[1]), 0,
                                              bitsOf(1.0F)};
        std::span<const std::byte> from = std::as_bytes(std::span(position));
        if (classes_.at(pointer.variable) == spv::StorageClassUniform) {
            from = inputs_.uniforms;
        } else if (const auto initial = initial_.find(pointer.variable); initial != initial_.end()) {
            from = std::as_bytes(std::span(initial->second));
        } else if (decorations_.count({pointer.variable, spv::DecorationLocation}) != 0) {
            if (decorations_.count({pointer.variable, spv::DecorationFlat}) == 0) {
                throw std::runtime_error("an input is not flat");
            }
            const std::size_t location = decorations_.at({pointer.variable, spv::DecorationLocation});
            from = std::span(inputs_.uniforms).subspan(inputs_.rows.at(location) * std::size_t{16}, 16);
        }
        Value value(componentsOf(pointer.type));
        const std::size_t bytes = value.size() * sizeof(std::uint32_t);
        if (pointer.offset + bytes > from.size()) {
            throw std::runtime_error("the shader reads what it was not given");
        }
        std::memcpy(value.data(), from.data() + pointer.offset, bytes);
        return value;
    }

    static Value fetch(const FragmentInputs::Buffer& buffer, std::int64_t texel)
    {
        Value value(4);
        const auto texels = static_cast<std::int64_t>(buffer.bytes.size() / buffer.texelBytes);
        const std::size_t componentBytes = buffer.componentBits / 8;
        if (texel >= 0 && texel < texels) {
            const auto first = static_cast<std::size_t>(texel) * buffer.texelBytes;
            for (std::size_t c = 0; c < buffer.texelBytes / componentBytes; ++c) {
                std::memcpy(&value[c], buffer.bytes.data() + first + c * componentBytes, componentBytes);
            }
        }
        return value;
    }

    const std::vector<std::uint32_t>& spirv_;
    const FragmentInputs& inputs_;
    std::map<std::pair<Id, std::uint32_t>, std::uint32_t> decorations_;
    std::map<std::pair<Id, std::uint32_t>, std::uint32_t> offsets_;
    std::map<Id, Instruction> types_;
    std::map<Id, std::uint32_t> classes_; ///< of variables
    std::map<Id, Value> initial_;         ///< what variables hold, if they have a value from the beginning
    std::map<Id, Value> values_;
    std::map<Id, Pointer> pointers_;
    std::map<Id, std::uint32_t> images_; ///< their bindings
    std::map<Id, std::size_t> labels_;
    std::vector<Instruction> body_;
    std::size_t functions_ = 0;
    std::size_t at_ = 0;
    Id block_ = 0;
    Id before_ = 0;
    bool done_ = false;
    std::array<std::uint32_t, 4> output_{};
};

} // namespace

std::array<std::uint32_t, 4> runFragment(const std::vector<std::uint32_t>& spirv,
                                         const FragmentInputs& inputs)
{
    return Interpreter(spirv, inputs).run();
}

} // namespace Qx::Host::Tests
