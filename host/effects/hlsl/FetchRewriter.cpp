#include "host/effects/hlsl/FetchRewriter.h"

#include "host/effects/spirv/SpirvModule.h"

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

class Rewriter
{
public:
    Rewriter(std::vector<std::uint32_t>& spirv, const std::vector<std::string_view>& functions)
        : spirv_(spirv), nextId_(spirv[boundWord])
    {
        for (const std::string_view function : functions) {
            decorated_.push_back(std::string(function) + "(");
        }
    }

    bool run()
    {
        output_.assign(spirv_.begin(), spirv_.begin() + headerWords);
        if (!forEach(spirv_, [this](const Instruction& instruction) { visit(instruction); })) {
            return false;
        }
        output_[boundWord] = nextId_;
        spirv_ = std::move(output_);
        return good_;
    }

private:
    void visit(const Instruction& instruction)
    {
        switch (instruction.op()) {
        case spv::OpName:
            if (const std::string name = readString(instruction, 2);
                std::any_of(decorated_.begin(), decorated_.end(), [&](const std::string& fetch) {
                    return name.compare(0, fetch.size(), fetch) == 0;
                })) {
                fetchFunctions_.insert(instruction[1]);
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
        Spirv::write(output_, instruction);
    }

    void enterFunction(const Instruction& function)
    {
        if (!intZero_ && intType_ != 0 && !fetchFunctions_.empty()) {
            // Constants stand before the first function; the level needs one.
            intZero_ = nextId_++;
            emit(spv::OpConstant, {intType_, *intZero_, 0});
        }
        inside_ = fetchFunctions_.count(function[2]) != 0;
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
        std::uint32_t coordinates = texel;
        if (const auto pointee = pointees_.find(type); pointee != pointees_.end()) {
            coordinates = nextId_++;
            emit(spv::OpLoad, {pointee->second, coordinates, texel});
        }
        const std::uint32_t plainImage = nextId_++;
        emit(spv::OpImage, {image->second, plainImage, sample[3]});
        emit(spv::OpImageFetch,
             {sample[1], sample[2], plainImage, coordinates, spv::ImageOperandsLodMask, *intZero_});
    }

    void emit(spv::Op op, std::initializer_list<std::uint32_t> operands)
    {
        const auto words = static_cast<std::uint32_t>(operands.size() + 1);
        output_.push_back(words << spv::WordCountShift | static_cast<std::uint32_t>(op));
        output_.insert(output_.end(), operands);
    }

    struct Parameter
    {
        std::uint32_t type;
        std::uint32_t id;
    };

    std::vector<std::uint32_t>& spirv_;
    std::vector<std::uint32_t> output_;
    std::vector<std::string> decorated_; ///< the functions as the front end names them: "name("
    std::uint32_t nextId_;
    std::unordered_set<std::uint32_t> fetchFunctions_;
    std::unordered_map<std::uint32_t, std::uint32_t> imageTypes_; ///< of sampled image types
    std::unordered_map<std::uint32_t, std::uint32_t> pointees_;
    std::unordered_map<std::uint32_t, std::uint32_t> loadedTypes_;
    std::vector<Parameter> parameters_; ///< of the function at hand
    std::uint32_t intType_ = 0;
    std::optional<std::uint32_t> intZero_;
    bool inside_ = false;
    bool good_ = true;
};

} // namespace

bool rewriteFetches(std::vector<std::uint32_t>& spirv, const std::vector<std::string_view>& functions)
{
    return spirv.size() > headerWords && Rewriter(spirv, functions).run();
}

} // namespace Qx::Host::Effects
