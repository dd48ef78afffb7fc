#include "host/effects/spirv/Passes.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace Qx::Host::Effects {
namespace {

using namespace Spirv;

std::string readString(const Instruction& instruction, std::size_t first)
{
    std::string text;
    for (std::size_t i = first; i < instruction.size(); ++i) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            const auto c = static_cast<char>(instruction[i] >> shift & 0xFFU);
            if (c == '\0') {
                return text;
            }
            text += c;
        }
    }
    return text;
}

/// The front end names a function "name(" and its parameters' types.
bool isFetchFunction(std::string_view name)
{
    return std::any_of(std::begin(fetchFunctions), std::end(fetchFunctions), [&](std::string_view function) {
        return name.starts_with(function) && name.substr(function.size()).starts_with('(');
    });
}

class Rewriter
{
public:
    explicit Rewriter(Words& spirv) : spirv_(spirv), writer_(spirv) {}

    bool run()
    {
        if (!forEach(spirv_, [this](const Instruction& instruction) { visit(instruction); })) {
            return false;
        }
        spirv_ = writer_.take();
        return good_;
    }

private:
    void visit(const Instruction& instruction)
    {
        switch (instruction.op()) {
        case spv::OpName:
            if (isFetchFunction(readString(instruction, 2))) {
                functions_.insert(instruction[1]);
            }
            break;
        case spv::OpTypeInt:
            intType_ = instruction[3] == 1 && instruction[2] == 32 ? instruction[1] : intType_;
            break;
        case spv::OpTypeSampledImage:
            imageTypes_[instruction[1]] = instruction[2];
            break;
        case spv::OpTypePointer:
            pointees_[instruction[1]] = instruction[3];
            break;
        case spv::OpConstant:
            if (instruction[1] == intType_ && instruction[3] == 0) {
                intZero_ = instruction[2];
            }
            break;
        case spv::OpFunction:
            enterFunction(instruction);
            break;
        case spv::OpFunctionParameter:
            parameters_.push_back({instruction[1], instruction[2]});
            break;
        case spv::OpLoad:
            loadedTypes_[instruction[2]] = instruction[1];
            break;
        case spv::OpImageSampleExplicitLod:
        case spv::OpImageSampleImplicitLod:
            if (inside_) {
                emitFetch(instruction);
                return;
            }
            break;
        default:
            break;
        }
        writer_.copy(instruction);
    }

    void enterFunction(const Instruction& function)
    {
        if (!intZero_ && intType_ != 0 && !functions_.empty()) {
            intZero_ = writer_.constant(intType_, 0); // the level of the fetches
        }
        inside_ = functions_.count(function[2]) != 0;
        parameters_.clear();
    }

    void emitFetch(const Instruction& sample)
    {
        const auto image = imageTypes_.find(loadedTypes_[sample[3]]);
        if (parameters_.size() != 2 || image == imageTypes_.end() || !intZero_) {
            good_ = false;
            return;
        }
        const auto [type, texel] = parameters_[1];
        Id coordinates = texel;
        if (const auto pointee = pointees_.find(type); pointee != pointees_.end()) {
            coordinates = writer_.emit(spv::OpLoad, pointee->second, {texel});
        }
        const Id plainImage = writer_.emit(spv::OpImage, image->second, {sample[3]});
        writer_.write(spv::OpImageFetch,
                      {sample[1], sample[2], plainImage, coordinates, spv::ImageOperandsLodMask, *intZero_});
    }

    struct Parameter
    {
        Id type;
        Id id;
    };

    Words& spirv_;
    ModuleWriter writer_;
    std::unordered_set<Id> functions_;
    std::unordered_map<Id, Id> imageTypes_; ///< of sampled image types
    std::unordered_map<Id, Id> pointees_;
    std::unordered_map<Id, Id> loadedTypes_;
    std::vector<Parameter> parameters_; ///< of the current function
    Id intType_ = 0;
    std::optional<Id> intZero_;
    bool inside_ = false;
    bool good_ = true;
};

} // namespace

bool rewriteFetches(Words& spirv)
{
    return spirv.size() > headerWords && Rewriter(spirv).run();
}

} // namespace Qx::Host::Effects
