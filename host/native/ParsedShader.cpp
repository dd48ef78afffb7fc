#include "host/native/ParsedShader.h"

#include <spirv-tools/libspirv.h>

namespace Qx::Host::Native {
namespace {

constexpr std::size_t mostNumbers = 4096;       // of one value
constexpr std::size_t mostInstructions = 20000; // the largest shipped shader has some 1200

/// The value of `key`.
template <class Map>
const typename Map::mapped_type& found(const Map& map, const typename Map::key_type& key, const char* what)
{
    const auto place = map.find(key);
    if (place == map.end()) {
        refuse("the shader's number " + std::to_string(key) + " is not " + what);
    }
    return place->second;
}

} // namespace

void refuse(const std::string& why)
{
    throw Refusal(why);
}

std::string nameOf(spv::Op op)
{
    return std::string("Op") + spvOpcodeString(static_cast<std::uint32_t>(op));
}

ParsedShader::ParsedShader(const std::vector<std::uint32_t>& spirv)
{
    if (!Effects::Spirv::forEach(spirv, [this](const Instruction& i) { declare(i); }) || !inFunction_) {
        refuse("it is cut off");
    }
    if (body_.size() > mostInstructions) {
        refuse("it has more than " + std::to_string(mostInstructions) + " instructions");
    }
}

void ParsedShader::declare(const Instruction& i)
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
    case spv::OpConstant:
        numbers_[i[2]] = i[3];
        constants_.push_back(i);
        return;
    case spv::OpConstantTrue:
    case spv::OpConstantFalse:
    case spv::OpConstantComposite:
    case spv::OpConstantNull:
        constants_.push_back(i);
        return;
    case spv::OpUndef:
        (inFunction_ ? body_ : constants_).push_back(i);
        return;
    case spv::OpVariable:
        declareVariable(i);
        return;
    case spv::OpFunction:
        if (inFunction_) {
            refuse("it has several functions");
        }
        inFunction_ = true;
        return;
    case spv::OpFunctionEnd:
        return;
    default:
        if (Effects::Spirv::isType(i.op())) {
            types_.emplace(i[1], i);
        } else if (inFunction_) {
            body_.push_back(i);
        }
        return;
    }
}

void ParsedShader::declareVariable(const Instruction& i)
{
    const auto storage = static_cast<spv::StorageClass>(i[3]);
    variables_[i[2]] = {type(i[1])[3], storage, i[4]};
    if (storage == spv::StorageClassFunction || storage == spv::StorageClassPrivate) {
        locals_.push_back(i[2]);
    }
}

const Instruction& ParsedShader::type(Id type) const
{
    return found(types_, type, "a type");
}

ParsedShader::Kind ParsedShader::kindOf(Id scalarOrVector) const
{
    const Instruction& i = type(scalarOrVector);
    switch (i.op()) {
    case spv::OpTypeVector:
        return kindOf(i[2]);
    case spv::OpTypeBool:
        return Kind::Truth;
    case spv::OpTypeFloat:
    case spv::OpTypeInt:
        if (i[2] != 32) {
            refuse("it has numbers of " + std::to_string(i[2]) + " bits");
        }
        return i.op() == spv::OpTypeFloat ? Kind::Float : Kind::Whole;
    default:
        refuse("it computes with " + nameOf(i.op()));
    }
}

std::size_t ParsedShader::lengthOf(const Instruction& array) const
{
    return found(numbers_, array[3], "the length of an array");
}

std::size_t ParsedShader::partsOf(Id id) const
{
    const Instruction& i = type(id);
    switch (i.op()) {
    case spv::OpTypeVector:
    case spv::OpTypeMatrix:
        return i[3];
    case spv::OpTypeArray:
        return lengthOf(i);
    case spv::OpTypeStruct:
        return i.size() - 2;
    default:
        return 0;
    }
}

std::size_t ParsedShader::sizeOf(Id id) const
{
    const Instruction& i = type(id);
    std::size_t size = 0;
    switch (i.op()) {
    case spv::OpTypeVector:
    case spv::OpTypeMatrix:
    case spv::OpTypeArray:
        size = sizeOf(i[2]);
        size = partsOf(id) > mostNumbers ? mostNumbers + 1 : size * partsOf(id);
        break;
    case spv::OpTypeStruct:
        for (std::size_t k = 2; k < i.size() && size <= mostNumbers; ++k) {
            size += sizeOf(i[k]);
        }
        break;
    default:
        kindOf(id);
        return 1;
    }
    if (size > mostNumbers) {
        refuse("it has a value of more than " + std::to_string(mostNumbers) + " numbers");
    }
    return size;
}

std::size_t ParsedShader::placeOf(Id id, std::uint32_t index) const
{
    switch (type(id).op()) {
    case spv::OpTypeVector:
        return sizeof(float) * index;
    case spv::OpTypeArray:
        return std::size_t{decoration(id, spv::DecorationArrayStride).value_or(0)} * index;
    case spv::OpTypeStruct: {
        const auto offset = offsets_.find({id, index});
        return offset != offsets_.end() ? offset->second : 0;
    }
    default:
        return 0; // of matrices, which are not read from buffers
    }
}

bool ParsedShader::hasMatrix(Id id) const
{
    const Instruction& i = type(id);
    bool has = i.op() == spv::OpTypeMatrix || (i.op() == spv::OpTypeArray && hasMatrix(i[2]));
    for (std::size_t k = 2; k < i.size() && i.op() == spv::OpTypeStruct; ++k) {
        has = has || hasMatrix(i[k]);
    }
    return has;
}

ParsedShader::Part ParsedShader::part(Id id, std::uint32_t index) const
{
    const Instruction& i = type(id);
    if (index >= partsOf(id)) {
        refuse("it takes part " + std::to_string(index) + " of " + nameOf(i.op()) + " with " +
               std::to_string(partsOf(id)));
    }
    if (i.op() != spv::OpTypeStruct) {
        return {i[2], sizeOf(i[2]) * index, placeOf(id, index)};
    }
    std::size_t number = 0;
    for (std::uint32_t k = 0; k < index; ++k) {
        number += sizeOf(i[2 + k]);
    }
    return {i[2 + index], number, placeOf(id, index)};
}

void ParsedShader::forEachNumber(Id id, const Visit& visit, std::size_t place) const
{
    sizeOf(id); // refuses too large ones
    const std::size_t parts = partsOf(id);
    if (parts == 0 && type(id).op() != spv::OpTypeStruct) {
        visit(kindOf(id), place);
    }
    for (std::uint32_t k = 0; k < parts; ++k) {
        const Part one = part(id, k);
        forEachNumber(one.type, visit, place + one.place);
    }
}

const ParsedShader::Variable& ParsedShader::variable(Id id) const
{
    return found(variables_, id, "a variable");
}

std::optional<std::uint32_t> ParsedShader::decoration(Id id, spv::Decoration decoration) const
{
    const auto place = decorations_.find({id, decoration});
    return place != decorations_.end() ? std::optional(place->second) : std::nullopt;
}

} // namespace Qx::Host::Native
