// What instructions load and store: the position, uniforms, variables of the function, texels and the result.

#include "host/native/Instructions.h"

#include <algorithm>
#include <bit>

namespace Qx::Host::Native {
namespace {

constexpr std::size_t mostPicked = 16; // of an array's numbers by selecting; of more, from memory

} // namespace

Instructions::Pointer Instructions::pointerTo(Id id) const
{
    const auto known = pointers_.find(id);
    if (known != pointers_.end()) {
        return known->second;
    }
    return {id, shader_.variable(id).type};
}

Instructions::Pointer Instructions::followed(const Instruction& i)
{
    Pointer pointer = pointerTo(i[3]);
    const bool isLocal = locals_.contains(pointer.variable);
    for (std::size_t k = 4; k < i.size(); ++k) {
        if (!isLocal && shader_.type(pointer.type).op() == spv::OpTypeMatrix) {
            refuse("it reads a matrix of its uniforms");
        }
        const Component index = number(i[k]);
        if (index.constant) {
            const ParsedShader::Part part = shader_.part(pointer.type, *index.constant);
            pointer.place += isLocal ? part.number : part.place;
            pointer.type = part.type;
            continue;
        }
        const std::size_t count = shader_.partsOf(pointer.type);
        if (pointer.index || !shader_.hasLikeParts(pointer.type) || count == 0) {
            refuse("it computes several places in one variable");
        }
        const ParsedShader::Part next = shader_.part(pointer.type, count > 1 ? 1 : 0);
        pointer.index = clamped(index, count);
        pointer.stride = isLocal ? next.number : next.place;
        pointer.count = count;
        pointer.type = next.type;
    }
    return pointer;
}

/// What is outside is undefined, and must not be read.
Component Instructions::clamped(const Component& index, std::size_t count)
{
    const Component last = emit_.constant(static_cast<std::uint32_t>(count - 1), emit_.i32);
    const Component most = emit_.chosen(spv::OpSLessThan, index, last);
    return emit_.chosen(spv::OpSGreaterThan, most, emit_.constant(0U, emit_.i32));
}

void Instructions::loadFrom(const Instruction& i)
{
    const Instruction& type = shader_.type(i[1]);
    if (type.op() == spv::OpTypeImage && type[3] == spv::DimBuffer) {
        images_[i[2]] = shader_.decoration(i[3], spv::DecorationBinding).value_or(0);
        return;
    }
    if (type.op() == spv::OpTypeImage || type.op() == spv::OpTypeSampledImage ||
        type.op() == spv::OpTypeSampler) {
        return; // what reads it is unknown
    }
    values_[i[2]] = loaded(pointerTo(i[3]));
}

Value Instructions::loaded(const Pointer& from)
{
    switch (shader_.variable(from.variable).storage) {
    case spv::StorageClassInput:
        return position(from);
    case spv::StorageClassUniform:
        return ofUniforms(from);
    case spv::StorageClassFunction:
    case spv::StorageClassPrivate:
        return ofLocal(from);
    default:
        refuse("it loads from storage class " + std::to_string(shader_.variable(from.variable).storage));
    }
}

Value Instructions::position(const Pointer& from)
{
    if (shader_.decoration(from.variable, spv::DecorationBuiltIn) != spv::BuiltInFragCoord || from.index) {
        refuse("it has an input that is not the fragment's place");
    }
    const Component half = emit_.constant(0.5F);
    Component x;
    if (emit_.purpose == Emitter::Purpose::Question) {
        x.value = half.value; // asked for no place, and not known
    } else {
        const Component column = emit_.line(emit_.number(emit_.place), emit_.period);
        x = emit_.binary(LLVMFAdd, emit_.cast(LLVMSIToFP, column, emit_.float32), half);
    }
    if (emit_.purpose == Emitter::Purpose::Middle) {
        std::vector<std::uint32_t> table(emit_.tableSize());
        for (std::uint32_t n = 0; n < table.size(); ++n) {
            const auto column = static_cast<float>(n * emit_.period + emit_.place);
            table[n] = std::bit_cast<std::uint32_t>(column + 0.5F);
        }
        x = emit_.fromTable(std::move(table), emit_.float32, [&](std::uint32_t) { return x; });
    }
    Component y;
    y.value =
        LLVMBuildFAdd(emit_.rows, LLVMBuildUIToFP(emit_.rows, emit_.row, emit_.float32, ""), half.value, "");
    y.sample = std::bit_cast<std::uint32_t>(100.5F);
    const Value all{x, y, emit_.constant(0.0F), emit_.constant(1.0F)};
    const std::size_t first = from.place / sizeof(float);
    const std::size_t count = shader_.sizeOf(from.type);
    if (first + count > all.size()) {
        refuse("it reads more of the fragment's place than there is");
    }
    return {all.begin() + static_cast<std::ptrdiff_t>(first),
            all.begin() + static_cast<std::ptrdiff_t>(first + count)};
}

Value Instructions::ofUniforms(const Pointer& from)
{
    if (shader_.decoration(from.variable, spv::DecorationBinding) != 0U) {
        refuse("it reads another buffer than that of its uniforms");
    }
    if (shader_.hasMatrix(from.type)) {
        refuse("it reads a matrix of its uniforms");
    }
    Value value;
    shader_.forEachNumber(
        from.type,
        [&](ParsedShader::Kind kind, std::size_t place) {
            LLVMTypeRef type = emit_.typeOf(kind);
            value.push_back(from.index ? memory_.uniform(place, from.stride, from.count, *from.index, type)
                                       : memory_.uniform(place, type));
        },
        from.place);
    return value;
}

Value Instructions::ofLocal(const Pointer& from)
{
    const Value& all = locals_[from.variable];
    Value value;
    for (std::size_t c = 0; c < shader_.sizeOf(from.type); ++c) {
        if (!from.index) {
            value.push_back(all.at(from.place + c));
            continue;
        }
        Value choice;
        std::vector<std::uint32_t> constants;
        for (std::size_t k = 0; k < from.count; ++k) {
            choice.push_back(all.at(from.place + k * from.stride + c));
            if (choice.back().constant) {
                constants.push_back(*choice.back().constant);
            }
        }
        value.push_back(constants.size() == from.count && from.count > mostPicked
                            ? memory_.constantOf(constants, *from.index, Emitter::elementOf(choice[0]))
                            : picked(emit_, choice, *from.index));
    }
    return value;
}

void Instructions::store(const Instruction& i, const std::optional<Component>& mask)
{
    const Pointer to = pointerTo(i[1]);
    const Value what = value(i[2]);
    const spv::StorageClass storage = shader_.variable(to.variable).storage;
    if (locals_.contains(to.variable)) {
        storeToLocal(to, what, mask);
        return;
    }
    const std::size_t first = to.place / sizeof(float);
    if (storage != spv::StorageClassOutput || to.index || first + what.size() > output_.size()) {
        refuse("it stores to something else than its result");
    }
    for (std::size_t c = 0; c < what.size(); ++c) {
        Component& out = output_.at(first + c);
        out = mask && out.value != nullptr ? emit_.select(*mask, what[c], out) : what[c];
    }
}

void Instructions::storeToLocal(const Pointer& to, const Value& value, const std::optional<Component>& mask)
{
    Value& all = locals_[to.variable];
    for (std::size_t k = 0; k < (to.index ? to.count : 1); ++k) {
        std::optional<Component> isHere = mask;
        if (to.index) {
            const Component place = emit_.constant(static_cast<std::uint32_t>(k), emit_.i32);
            const Component same = emit_.compare(*Comparison::of(spv::OpIEqual), *to.index, place);
            isHere = mask ? emit_.both(*mask, same) : same;
        }
        for (std::size_t c = 0; c < value.size(); ++c) {
            Component& old = all.at(to.place + k * to.stride + c);
            old = isHere ? emit_.select(*isHere, value[c], old) : value[c];
        }
    }
}

void Instructions::fetch(const Instruction& i)
{
    const auto image = images_.find(i[3]);
    const std::size_t buffer = image != images_.end() ? image->second - std::size_t{1} : 0;
    if (image == images_.end() || image->second == 0) {
        setUnknown(i);
        return;
    }
    if (buffer >= emit_.source.texels.size() || emit_.source.texels[buffer].bytes == 0) {
        refuse("it reads binding " + std::to_string(buffer + 1) + ", which has no texels");
    }
    Value texel = memory_.texel(buffer, number(i[4]));
    texel.resize(shader_.sizeOf(i[1]), emit_.constant(0U, emit_.i32));
    if (shader_.kindOf(i[1]) == ParsedShader::Kind::Float) {
        for (Component& c : texel) {
            c = emit_.bits(c, emit_.float32);
        }
    }
    values_[i[2]] = std::move(texel);
}

} // namespace Qx::Host::Native
