#include "host/native/Instructions.h"

#include "host/native/Evaluation.h"

#include <algorithm>
#include <array>
#include <utility>

#include <spirv/unified1/GLSL.std.450.h>

namespace Qx::Host::Native {
namespace {

constexpr std::size_t mostOperands = 3; // of what is computed here

} // namespace

std::string reasonOf(const Instruction& i)
{
    if (i.op() == spv::OpImageSampleExplicitLod || i.op() == spv::OpImageSampleImplicitLod) {
        return "it reads between texels, which drivers do";
    }
    if (i.op() != spv::OpExtInst) {
        return "it has the instruction " + nameOf(i.op());
    }
    switch (i[4]) {
    case GLSLstd450Pow:
        return "it has powers, which drivers approximate";
    case GLSLstd450Exp:
    case GLSLstd450Exp2:
    case GLSLstd450Log:
    case GLSLstd450Log2:
        return "it has exponentials or logarithms, which drivers approximate";
    case GLSLstd450InverseSqrt:
    case GLSLstd450Length:
    case GLSLstd450Distance:
    case GLSLstd450Normalize:
        return "it has lengths of vectors, which drivers approximate";
    case GLSLstd450FMix:
        return "it has mixtures, whose terms each driver adds in its own way";
    default:
        return i[4] >= GLSLstd450Sin && i[4] <= GLSLstd450Atan2
                   ? "it has trigonometric functions, which drivers approximate"
                   : "it has function " + std::to_string(i[4]) + " of GLSL.std.450";
    }
}

void Instructions::begin()
{
    values_.clear();
    pointers_.clear();
    images_.clear();
    locals_.clear();
    output_ = {};
    for (const Instruction& i : shader_.constants()) {
        compute(i);
    }
    for (const Id local : shader_.locals()) {
        const ParsedShader::Variable& variable = shader_.variable(local);
        locals_[local] = variable.initial != 0 ? value(variable.initial) : nullOf(variable.type);
    }
}

const Value& Instructions::value(Id id) const
{
    const auto found = values_.find(id);
    if (found == values_.end()) {
        refuse("the shader's number " + std::to_string(id) + " is no value that can be computed with");
    }
    return found->second;
}

void Instructions::setValue(const Instruction& i, Value value)
{
    types_[i[2]] = i[1];
    values_[i[2]] = std::move(value);
}

Value Instructions::nullOf(Id type) const
{
    Value value;
    shader_.forEachNumber(type, [&](ParsedShader::Kind kind, std::size_t) {
        value.push_back(emit_.constant(0U, emit_.typeOf(kind)));
    });
    return value;
}

void Instructions::setUnknown(const Instruction& i)
{
    if (i.size() < 3) {
        refuse(reasonOf(i));
    }
    const Component none = emit_.unknown(emit_.i32, reasonOf(i));
    Value value;
    shader_.forEachNumber(i[1], [&](ParsedShader::Kind kind, std::size_t) {
        Component c = none;
        c.value = LLVMConstNull(emit_.typeOf(kind));
        value.push_back(c);
    });
    values_[i[2]] = value;
}

void Instructions::compute(const Instruction& i)
{
    if (i.op() == spv::OpNop || i.op() == spv::OpLine || i.op() == spv::OpNoLine) {
        return;
    }
    if (!compose(i) && !reach(i)) {
        computeEach(i);
    }
    types_[i[2]] = i[1];
}

/// Constants, and what only arranges numbers. Returns false for other instructions.
bool Instructions::compose(const Instruction& i)
{
    switch (i.op()) {
    case spv::OpConstant:
        values_[i[2]] = {emit_.constant(i[3], elementOf(i[1]))};
        return true;
    case spv::OpConstantTrue:
    case spv::OpConstantFalse:
        values_[i[2]] = {emit_.constant(i.op() == spv::OpConstantTrue ? 1U : 0U, emit_.i1)};
        return true;
    case spv::OpConstantNull:
    case spv::OpUndef:
        values_[i[2]] = nullOf(i[1]);
        return true;
    case spv::OpConstantComposite:
    case spv::OpCompositeConstruct: {
        Value all;
        for (std::size_t k = 3; k < i.size(); ++k) {
            const Value& part = value(i[k]);
            all.insert(all.end(), part.begin(), part.end());
        }
        values_[i[2]] = all;
        return true;
    }
    case spv::OpVectorShuffle: {
        Value parts = value(i[3]);
        const Value& second = value(i[4]);
        parts.insert(parts.end(), second.begin(), second.end());
        Value taken;
        for (std::size_t k = 5; k < i.size(); ++k) {
            taken.push_back(parts.at(i[k] == 0xFFFFFFFF ? 0 : i[k]));
        }
        values_[i[2]] = taken;
        return true;
    }
    default:
        return false;
    }
}

/// Parts of values, memory and pictures. Returns false for other instructions.
bool Instructions::reach(const Instruction& i)
{
    switch (i.op()) {
    case spv::OpCompositeExtract:
    case spv::OpCompositeInsert:
        takePart(i);
        return true;
    case spv::OpVectorExtractDynamic:
        values_[i[2]] = {picked(emit_, value(i[3]), number(i[4]))};
        return true;
    case spv::OpVectorInsertDynamic:
        values_[i[2]] = inserted(value(i[3]), number(i[4]), number(i[5]));
        return true;
    case spv::OpAccessChain:
    case spv::OpInBoundsAccessChain:
        pointers_[i[2]] = followed(i);
        return true;
    case spv::OpLoad:
        loadFrom(i);
        return true;
    case spv::OpImageFetch:
        fetch(i);
        return true;
    case spv::OpSampledImage:
    case spv::OpImage:
        return true; // what reads it is unknown
    case spv::OpDot:
        values_[i[2]] = {dot(value(i[3]), value(i[4]))};
        return true;
    case spv::OpAny:
    case spv::OpAll: {
        const Value& truths = value(i[3]);
        Component together = truths.at(0);
        for (std::size_t c = 1; c < truths.size(); ++c) {
            together = emit_.binary(i.op() == spv::OpAny ? LLVMOr : LLVMAnd, together, truths[c]);
        }
        values_[i[2]] = {together};
        return true;
    }
    default:
        return false;
    }
}

Component Instructions::dot(const Value& a, const Value& b) const
{
    Component sum = emit_.binary(LLVMFMul, a.at(0), b.at(0));
    for (std::size_t c = 1; c < a.size(); ++c) {
        sum = emit_.binary(LLVMFAdd, sum, emit_.binary(LLVMFMul, a[c], b.at(c)));
    }
    return sum;
}

Component picked(const Emitter& emit, std::span<const Component> from, const Component& index)
{
    Component one = from.front();
    for (std::uint32_t k = 1; k < from.size(); ++k) {
        const Component isHere =
            emit.compare(*Comparison::of(spv::OpSGreaterThanEqual), index, emit.constant(k, emit.i32));
        one = emit.select(isHere, from[k], one);
    }
    return one;
}

Value Instructions::inserted(const Value& into, const Component& what, const Component& index) const
{
    Value value = into;
    for (std::uint32_t k = 0; k < value.size(); ++k) {
        const Component isHere =
            emit_.compare(*Comparison::of(spv::OpIEqual), index, emit_.constant(k, emit_.i32));
        value[k] = emit_.select(isHere, what, value[k]);
    }
    return value;
}

void Instructions::takePart(const Instruction& i)
{
    const bool isInsertion = i.op() == spv::OpCompositeInsert;
    const std::size_t first = isInsertion ? 5 : 4; // of the indices
    const Id from = i[first - 1];
    Value whole = value(from);
    Id type = types_[from];
    std::size_t number = 0;
    for (std::size_t k = first; k < i.size(); ++k) {
        const ParsedShader::Part part = shader_.part(type, i[k]);
        number += part.number;
        type = part.type;
    }
    const auto begin = whole.begin() + static_cast<std::ptrdiff_t>(number);
    const auto count = static_cast<std::ptrdiff_t>(shader_.sizeOf(type));
    if (!isInsertion) {
        values_[i[2]] = Value(begin, begin + count);
        return;
    }
    const Value& what = value(i[3]);
    if (what.size() != static_cast<std::size_t>(count)) {
        refuse("it inserts something else than what is there");
    }
    std::copy(what.begin(), what.end(), begin);
    values_[i[2]] = std::move(whole);
}

void Instructions::computeEach(const Instruction& i)
{
    std::vector<const Value*> operands;
    for (std::size_t k = i.op() == spv::OpExtInst ? 5 : 3; k < i.size(); ++k) {
        const auto operand = values_.find(i[k]);
        if (operand == values_.end() || operand->second.empty()) {
            setUnknown(i); // it reads something else than values
            return;
        }
        operands.push_back(&operand->second);
    }
    if (operands.empty()) {
        setUnknown(i);
        return;
    }
    Value results(shader_.sizeOf(i[1]));
    for (std::size_t c = 0; c < results.size(); ++c) {
        Operands of;
        for (const Value* operand : operands) {
            of.push_back(&operand->at(std::min(c, operand->size() - 1)));
        }
        results[c] = folded(i, of);
    }
    values_[i[2]] = std::move(results);
}

/// As much as is known is computed here.
Component Instructions::folded(const Instruction& i, const Operands& of)
{
    if (std::optional<Component> known = foldedWhole(i, of)) {
        return *known;
    }
    std::optional<std::uint32_t> sample;
    if (of.size() <= mostOperands &&
        std::all_of(of.begin(), of.end(), [](auto* c) { return c->sample.has_value(); })) {
        std::array<std::uint32_t, mostOperands> bits{};
        for (std::size_t k = 0; k < of.size(); ++k) {
            bits.at(k) = *of[k]->sample;
        }
        sample = evaluated(i, bits);
    }
    Component c = result(i, of, sample);
    if (!c.constant) {
        c.sample = c.isUnknown == nullptr ? sample : std::nullopt;
    }
    return c;
}

/// What is a constant or depends on the item alone.
std::optional<Component> Instructions::foldedWhole(const Instruction& i, const Operands& of)
{
    const bool isKnown =
        of.size() <= mostOperands &&
        std::all_of(of.begin(), of.end(), [](const Component* c) { return c->constant || c->table; });
    if (!isKnown) {
        return std::nullopt;
    }
    const bool isTable = std::any_of(of.begin(), of.end(), [](const Component* c) { return c->table; });
    std::vector<std::uint32_t> table(isTable ? emit_.tableSize() : 1);
    for (std::size_t n = 0; n < table.size(); ++n) {
        std::array<std::uint32_t, mostOperands> bits{};
        for (std::size_t k = 0; k < of.size(); ++k) {
            bits.at(k) = of[k]->constant ? *of[k]->constant : (*of[k]->table)[n];
        }
        const std::optional<std::uint32_t> result = evaluated(i, bits);
        if (!result) {
            return std::nullopt;
        }
        table[n] = *result;
    }
    LLVMTypeRef type = elementOf(i[1]);
    return isTable ? emit_.fromTable(std::move(table), type,
                                     [&](std::uint32_t sample) { return result(i, of, sample); })
                   : emit_.constant(table[0], type);
}

} // namespace Qx::Host::Native
