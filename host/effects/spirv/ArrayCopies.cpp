#include "host/effects/spirv/Passes.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <unordered_map>
#include <utility>

namespace Qx::Host::Effects {
namespace {

using namespace Spirv;

/// An array in the uniform buffer: the buffer's variable, then the constant indices that lead to the array.
using UniformArray = Words;

/// One element of such an array.
struct Element
{
    UniformArray array;
    std::uint32_t index = 0;

    bool operator==(const Element&) const = default;
};

/// A variable of a function that is an array.
struct Local
{
    std::uint32_t length = 0;
    std::map<std::uint32_t, std::optional<Element>> stored; ///< what each element holds, if that is known
    bool isUsedOtherwise = false;
};

class CopyReader
{
public:
    explicit CopyReader(Words& spirv) : spirv_(spirv), writer_(spirv) {}

    bool run()
    {
        if (!forEach(spirv_, [this](const Instruction& instruction) { collect(instruction); })) {
            return false;
        }
        std::erase_if(locals_, [](const auto& local) { return !original(local.second); });
        if (locals_.empty()) {
            return false;
        }
        forEach(spirv_, [this](const Instruction& instruction) {
            if (!replaceChain(instruction)) {
                writer_.copy(instruction);
            }
        });
        spirv_ = writer_.take();
        return true;
    }

private:
    void collect(const Instruction& i)
    {
        switch (i.op()) {
        case spv::OpTypeArray:
            lengths_[i[1]] = constants_[i[3]];
            break;
        case spv::OpTypePointer:
            pointees_[i[1]] = i[3];
            uniformPointers_.emplace(i[2] == spv::StorageClassUniform ? i[3] : 0, i[1]);
            break;
        case spv::OpConstant:
            constants_[i[2]] = i[3];
            break;
        case spv::OpVariable:
            collectVariable(i);
            break;
        case spv::OpAccessChain:
            collectChain(i);
            break;
        case spv::OpLoad:
            if (const auto place = places_.find(i[3]); place != places_.end()) {
                loaded_[i[2]] = place->second;
            }
            break;
        case spv::OpCompositeExtract:
            if (const auto whole = loaded_.find(i[3]); whole != loaded_.end() && i.size() == 5) {
                elements_[i[2]] = {whole->second, i[4]};
            }
            break;
        case spv::OpCompositeConstruct:
            if (i.size() > 3) {
                constructed_[i[2]].assign(i.words.begin() + 3, i.words.end());
            }
            break;
        case spv::OpStore:
            collectStore(i);
            break;
        case spv::OpFunctionCall:
        case spv::OpCopyMemory:
        case spv::OpCopyObject:
        case spv::OpPhi:
        case spv::OpSelect:
        case spv::OpInBoundsAccessChain:
            for (const std::uint32_t word : i.words.subspan(1)) {
                markUsed(word);
            }
            break;
        default:
            break;
        }
    }

    void collectVariable(const Instruction& i)
    {
        if (i[3] == spv::StorageClassUniform) {
            places_[i[2]] = {i[2]};
        } else if (const auto length = lengths_.find(pointees_[i[1]]);
                   i[3] == spv::StorageClassFunction && length != lengths_.end() && i.size() == 4) {
            locals_[i[2]].length = length->second;
        }
    }

    void collectChain(const Instruction& i)
    {
        const std::span<const std::uint32_t> indices = i.words.subspan(std::min<std::size_t>(i.size(), 4));
        if (const auto base = places_.find(i[3]); base != places_.end()) {
            if (std::ranges::all_of(indices, [this](Id index) { return constants_.contains(index); })) {
                UniformArray place = base->second;
                place.insert(place.end(), indices.begin(), indices.end());
                places_[i[2]] = std::move(place);
            }
        } else if (locals_.contains(i[3]) && !indices.empty()) {
            chains_[i[2]] = {i[3], indices.size() == 1 ? indices[0] : 0};
        } else {
            markUsed(i[3]);
        }
    }

    void collectStore(const Instruction& i)
    {
        markUsed(i[2]);
        const auto whole = locals_.find(i[1]);
        const auto parts = constructed_.find(i[2]);
        if (const auto chain = chains_.find(i[1]); chain != chains_.end()) {
            const auto index = constants_.find(chain->second.second);
            if (index != constants_.end()) {
                store(locals_[chain->second.first], index->second, i[2]);
            } else {
                markUsed(i[1]);
            }
        } else if (whole != locals_.end() && parts != constructed_.end()) {
            for (std::uint32_t index = 0; index < parts->second.size(); ++index) {
                store(whole->second, index, parts->second[index]);
            }
        } else {
            markUsed(i[1]);
        }
    }

    void store(Local& local, std::uint32_t index, Id value) const
    {
        const std::optional<Element> element = elementOf(value);
        const auto [place, isNew] = local.stored.emplace(index, element);
        local.isUsedOtherwise |= !isNew && place->second != element;
    }

    /// The element that a value was read from, together with the others of its array or alone.
    std::optional<Element> elementOf(Id value) const
    {
        if (const auto element = elements_.find(value); element != elements_.end()) {
            return element->second;
        }
        const auto load = loaded_.find(value);
        if (load == loaded_.end() || load->second.size() < 2) {
            return {};
        }
        UniformArray array = load->second;
        const std::uint32_t index = constants_.at(array.back());
        array.pop_back();
        return Element{std::move(array), index};
    }

    void markUsed(Id id)
    {
        const auto chain = chains_.find(id);
        if (const auto local = locals_.find(chain != chains_.end() ? chain->second.first : id);
            local != locals_.end()) {
            local->second.isUsedOtherwise = true;
        }
    }

    /// The array of which the local one is a copy, element by element.
    static std::optional<UniformArray> original(const Local& local)
    {
        if (local.isUsedOtherwise || local.length == 0 || local.stored.size() != local.length) {
            return {};
        }
        const std::optional<Element>& first = local.stored.begin()->second;
        const bool isCopy = first && std::ranges::all_of(local.stored, [&](const auto& stored) {
                                return stored.first < local.length && stored.second &&
                                       *stored.second == Element{first->array, stored.first};
                            });
        return isCopy ? std::optional(first->array) : std::nullopt;
    }

    /// A chain that picks by a computed number is read from the original instead.
    bool replaceChain(const Instruction& i)
    {
        const auto local = i.op() == spv::OpAccessChain ? locals_.find(i[3]) : locals_.end();
        if (local == locals_.end() || i.size() < 5 || constants_.contains(i[4])) {
            return false;
        }
        UniformArray place = *original(local->second);
        const std::span<const std::uint32_t> indices = i.words.subspan(4);
        place.insert(place.end(), indices.begin(), indices.end());
        const auto words = static_cast<std::uint32_t>(place.size() + 3);
        Words chain{words << spv::WordCountShift | static_cast<std::uint32_t>(spv::OpAccessChain),
                    uniformPointer(pointees_[i[1]]), i[2]};
        chain.insert(chain.end(), place.begin(), place.end());
        writer_.copy({chain});
        return true;
    }

    Id uniformPointer(Id type)
    {
        const auto [pointer, isNew] = uniformPointers_.emplace(type, 0);
        if (isNew) {
            pointer->second = writer_.newId();
            writer_.declare(spv::OpTypePointer, {pointer->second, spv::StorageClassUniform, type});
        }
        return pointer->second;
    }

    Words& spirv_;
    ModuleWriter writer_;
    std::unordered_map<Id, std::uint32_t> constants_;
    std::unordered_map<Id, std::uint32_t> lengths_; ///< of arrays, by their type
    std::unordered_map<Id, Id> pointees_;
    std::map<Id, Id> uniformPointers_;                 ///< types of pointers, by what they point to
    std::unordered_map<Id, UniformArray> places_;      ///< by the pointer
    std::unordered_map<Id, UniformArray> loaded_;      ///< where values were loaded from
    std::unordered_map<Id, Element> elements_;         ///< values extracted from a loaded array
    std::unordered_map<Id, Words> constructed_;        ///< the parts of values
    std::map<Id, Local> locals_;                       ///< by the variable
    std::unordered_map<Id, std::pair<Id, Id>> chains_; ///< variable and index, by the pointer
};

} // namespace

bool readCopiedArraysInPlace(Words& spirv)
{
    return spirv.size() >= headerWords && CopyReader(spirv).run();
}

} // namespace Qx::Host::Effects
