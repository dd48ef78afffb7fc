#include "host/effects/spirv/Passes.h"

#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace Qx::Host::Effects {
namespace {

using namespace Spirv;

/// Not an id.
constexpr Id none = 0;

class ArraySharer
{
public:
    explicit ArraySharer(Words& spirv) : spirv_(spirv), writer_(spirv) {}

    bool run()
    {
        if (!forEach(spirv_, [this](const Instruction& instruction) { collect(instruction); })) {
            return false;
        }
        std::erase_if(contents_, [this](const auto& local) {
            return local.second == none || changed_.contains(local.first);
        });
        if (contents_.empty()) {
            return false;
        }
        forEach(spirv_, [this](const Instruction& instruction) { rewrite(instruction); });
        spirv_ = writer_.take();
        return true;
    }

private:
    void collect(const Instruction& i)
    {
        switch (i.op()) {
        case spv::OpTypeArray:
            arrays_.insert(i[1]);
            break;
        case spv::OpTypePointer:
            pointees_[i[1]] = i[3];
            break;
        case spv::OpConstantComposite:
            constants_.insert(i[2]);
            break;
        case spv::OpFunction:
            function_ = i[2];
            break;
        case spv::OpVariable:
            if (i[3] == spv::StorageClassFunction && i.size() == 4 && arrays_.contains(pointees_[i[1]])) {
                contents_[i[2]] = none;
                functions_[i[2]] = function_;
            }
            break;
        case spv::OpAccessChain:
            if (const auto base = chains_.find(i[3]); base != chains_.end()) {
                chains_[i[2]] = base->second;
            } else if (contents_.contains(i[3])) {
                chains_[i[2]] = i[3];
            }
            break;
        case spv::OpLoad:
            break;
        case spv::OpStore:
            collectStore(i);
            break;
        default:
            for (const std::uint32_t word : i.words.subspan(1)) {
                markChanged(word);
            }
            break;
        }
    }

    void collectStore(const Instruction& i)
    {
        const auto local = contents_.find(i[1]);
        if (local == contents_.end() || !constants_.contains(i[2]) ||
            (local->second != none && local->second != i[2])) {
            markChanged(i[1]);
        } else {
            local->second = i[2];
        }
        markChanged(i[2]);
    }

    void markChanged(Id id)
    {
        const auto chain = chains_.find(id);
        changed_.insert(chain != chains_.end() ? chain->second : id);
    }

    void rewrite(const Instruction& i)
    {
        const auto local = contents_.find(i.op() == spv::OpVariable ? i[2] : i[1]);
        if (i.op() == spv::OpVariable && local != contents_.end()) {
            const auto [place, isNew] =
                shared_.emplace(std::pair(functions_.at(local->first), local->second), i[2]);
            if (isNew) {
                writer_.write(spv::OpVariable, {i[1], i[2], spv::StorageClassFunction, local->second});
            }
            standIns_[i[2]] = place->second;
        } else if (i.op() == spv::OpStore && local != contents_.end()) {
            return; // its initial value
        } else if (const auto base = standIns_.find(i[3]);
                   (i.op() == spv::OpAccessChain || i.op() == spv::OpLoad) && base != standIns_.end()) {
            Words words(i.words.begin(), i.words.end());
            words[3] = base->second;
            writer_.copy({words});
        } else {
            writer_.copy(i);
        }
    }

    Words& spirv_;
    ModuleWriter writer_;
    std::unordered_set<Id> arrays_; ///< types
    std::unordered_map<Id, Id> pointees_;
    std::unordered_set<Id> constants_;
    Id function_ = none;
    std::map<Id, Id> contents_;              ///< what is stored to a variable, or none
    std::unordered_map<Id, Id> functions_;   ///< of the variables
    std::unordered_map<Id, Id> chains_;      ///< the variable, by the pointer
    std::unordered_set<Id> changed_;         ///< variables that are used otherwise, and other ids
    std::map<std::pair<Id, Id>, Id> shared_; ///< the one variable of a function for a constant
    std::unordered_map<Id, Id> standIns_;
};

} // namespace

bool shareConstantArrays(Words& spirv)
{
    return spirv.size() >= headerWords && ArraySharer(spirv).run();
}

} // namespace Qx::Host::Effects
