#include "host/effects/spirv/Passes.h"

#include <map>
#include <optional>
#include <unordered_map>

namespace Qx::Host::Effects {
namespace {

using namespace Spirv;

constexpr std::uint32_t rowBytes = 16;
constexpr std::uint32_t componentBytes = 4;

/// Where a pointer into the uniform buffer points.
struct Place
{
    std::uint32_t offset = 0;
    Id type = 0;
};

struct Array
{
    Id element = 0;
    std::uint32_t length = 0;
};

class Mover
{
public:
    Mover(Words& spirv, std::size_t most) : spirv_(spirv), most_(most), writer_(spirv) {}

    std::vector<std::uint32_t> run()
    {
        if (!forEach(spirv_, [this](const Instruction& instruction) { collect(instruction); }) ||
            inputPointer_ == 0 || rows_.empty()) {
            return {};
        }
        bool decorated = false;
        forEach(spirv_, [&](const Instruction& instruction) {
            if (isType(instruction.op()) && !decorated) {
                writeDecorations();
                decorated = true;
            }
            if (instruction.op() == spv::OpEntryPoint) {
                writeEntryPoint(instruction);
            } else if (!replaceLoad(instruction)) {
                writer_.copy(instruction);
            }
        });
        for (const Input& input : inputs_) {
            writer_.declare(spv::OpVariable, {inputPointer_, input.variable, spv::StorageClassInput});
        }
        spirv_ = writer_.take();
        std::vector<std::uint32_t> rows;
        for (const Input& input : inputs_) {
            rows.push_back(input.row);
        }
        return rows;
    }

private:
    struct Input
    {
        std::uint32_t row;
        Id variable;
    };

    void collect(const Instruction& instruction)
    {
        switch (instruction.op()) {
        case spv::OpMemberDecorate:
            if (instruction[3] == spv::DecorationOffset) {
                memberOffsets_[{instruction[1], instruction[2]}] = instruction[4];
            }
            break;
        case spv::OpDecorate:
            if (instruction[2] == spv::DecorationArrayStride) {
                strides_[instruction[1]] = instruction[3];
            }
            break;
        case spv::OpTypeFloat:
            floatType_ = instruction[2] == 32 ? instruction[1] : floatType_;
            break;
        case spv::OpTypeVector:
            if (instruction[2] == floatType_) {
                components_[instruction[1]] = instruction[3];
                vectorType_ = instruction[3] == 4 ? instruction[1] : vectorType_;
            }
            break;
        case spv::OpTypeStruct:
            for (std::size_t i = 2; i < instruction.size(); ++i) {
                members_[instruction[1]].push_back(instruction[i]);
            }
            break;
        case spv::OpTypeArray:
            arrays_[instruction[1]] = {instruction[2], constants_[instruction[3]]};
            break;
        case spv::OpTypePointer:
            if (instruction[2] == spv::StorageClassInput && instruction[3] == vectorType_) {
                inputPointer_ = instruction[1];
            }
            pointees_[instruction[1]] = instruction[3];
            break;
        case spv::OpConstant:
            constants_[instruction[2]] = instruction[3];
            break;
        case spv::OpVariable:
            if (instruction[3] == spv::StorageClassUniform) {
                places_[instruction[2]] = {0, pointees_[instruction[1]]};
            }
            break;
        case spv::OpAccessChain:
            if (const auto base = places_.find(instruction[3]); base != places_.end()) {
                if (const std::optional<Place> place = follow(base->second, instruction)) {
                    places_[instruction[2]] = *place;
                }
            }
            break;
        case spv::OpLoad:
            if (const auto place = places_.find(instruction[3]); place != places_.end()) {
                take(instruction[2], place->second);
            }
            break;
        default:
            break;
        }
    }

    std::optional<Place> follow(Place place, const Instruction& chain) const
    {
        for (std::size_t i = 4; i < chain.size(); ++i) {
            const auto index = constants_.find(chain[i]);
            if (index == constants_.end()) {
                return std::nullopt;
            }
            if (const auto members = members_.find(place.type); members != members_.end()) {
                const auto offset = memberOffsets_.find({place.type, index->second});
                if (offset == memberOffsets_.end() || index->second >= members->second.size()) {
                    return std::nullopt;
                }
                place = {place.offset + offset->second, members->second[index->second]};
            } else if (const auto array = arrays_.find(place.type); array != arrays_.end()) {
                const auto stride = strides_.find(place.type);
                if (stride == strides_.end() || index->second >= array->second.length) {
                    return std::nullopt;
                }
                place = {place.offset + index->second * stride->second, array->second.element};
            } else if (index->second < componentsOf(place.type)) {
                place = {place.offset + index->second * componentBytes, floatType_};
            } else {
                return std::nullopt;
            }
        }
        return place;
    }

    std::uint32_t componentsOf(Id type) const
    {
        const auto found = components_.find(type);
        return found != components_.end() ? found->second : type == floatType_ ? 1 : 0;
    }

    void take(Id load, const Place& place)
    {
        const std::uint32_t count = componentsOf(place.type);
        const std::uint32_t row = place.offset / rowBytes;
        if (count == 0 || place.offset % rowBytes + count * componentBytes > rowBytes ||
            place.offset % componentBytes != 0) {
            return;
        }
        if (rows_.count(row) == 0) {
            if (inputs_.size() == most_) {
                return;
            }
            rows_[row] = inputs_.size();
            inputs_.push_back({row, writer_.newId()});
        }
        loads_[load] = place;
    }

    void writeDecorations()
    {
        for (std::uint32_t location = 0; location < inputs_.size(); ++location) {
            writer_.write(spv::OpDecorate, {inputs_[location].variable, spv::DecorationLocation, location});
            writer_.write(spv::OpDecorate, {inputs_[location].variable, spv::DecorationFlat});
        }
    }

    /// An entry point names the inputs.
    void writeEntryPoint(const Instruction& instruction)
    {
        Words words(instruction.words.begin(), instruction.words.end());
        for (const Input& input : inputs_) {
            words.push_back(input.variable);
        }
        words[0] = static_cast<std::uint32_t>(words.size()) << spv::WordCountShift | spv::OpEntryPoint;
        writer_.copy({words});
    }

    bool replaceLoad(const Instruction& instruction)
    {
        const auto load = instruction.op() == spv::OpLoad ? loads_.find(instruction[2]) : loads_.end();
        if (load == loads_.end()) {
            return false;
        }
        const Place& place = load->second;
        const Input& input = inputs_[rows_.at(place.offset / rowBytes)];
        const Id whole = writer_.emit(spv::OpLoad, vectorType_, {input.variable});
        const std::uint32_t first = place.offset % rowBytes / componentBytes;
        switch (componentsOf(place.type)) {
        case 1:
            writer_.write(spv::OpCompositeExtract, {place.type, instruction[2], whole, first});
            break;
        case 2:
            writer_.write(spv::OpVectorShuffle, {place.type, instruction[2], whole, whole, first, first + 1});
            break;
        case 3:
            writer_.write(spv::OpVectorShuffle,
                          {place.type, instruction[2], whole, whole, first, first + 1, first + 2});
            break;
        default:
            writer_.write(spv::OpCopyObject, {place.type, instruction[2], whole});
            break;
        }
        return true;
    }

    Words& spirv_;
    const std::size_t most_;
    ModuleWriter writer_;
    Id floatType_ = 0;
    Id vectorType_ = 0; ///< of four floats
    Id inputPointer_ = 0;
    std::map<std::pair<Id, std::uint32_t>, std::uint32_t> memberOffsets_;
    std::unordered_map<Id, std::uint32_t> strides_;
    std::unordered_map<Id, std::uint32_t> components_; ///< of vectors of floats
    std::unordered_map<Id, std::vector<Id>> members_;
    std::unordered_map<Id, Array> arrays_;
    std::unordered_map<Id, Id> pointees_;
    std::unordered_map<Id, std::uint32_t> constants_;
    std::unordered_map<Id, Place> places_;
    std::unordered_map<Id, Place> loads_; ///< that become loads of inputs
    std::map<std::uint32_t, std::size_t> rows_;
    std::vector<Input> inputs_;
};

} // namespace

std::vector<std::uint32_t> passUniformsAsInputs(Words& spirv, std::size_t most)
{
    return spirv.size() > headerWords ? Mover(spirv, most).run() : std::vector<std::uint32_t>();
}

} // namespace Qx::Host::Effects
