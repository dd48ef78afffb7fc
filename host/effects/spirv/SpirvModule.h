#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include <spirv/unified1/spirv.hpp>

namespace Qx::Host::Effects::Spirv {

using Id = std::uint32_t;
using Words = std::vector<std::uint32_t>;

inline constexpr std::size_t headerWords = 5;
inline constexpr std::size_t boundWord = 3; ///< of the header: one more than the largest id

/// The bits of a float of 32 bits, as constants hold them.
constexpr std::uint32_t bitsOf(float value)
{
    return std::bit_cast<std::uint32_t>(value);
}

constexpr std::uint32_t bitsOf(bool value)
{
    return value ? 1U : 0U;
}

/// One instruction of a module, including its first word.
struct Instruction
{
    std::span<const std::uint32_t> words;

    spv::Op op() const { return static_cast<spv::Op>(words[0] & spv::OpCodeMask); }
    std::size_t size() const { return words.size(); }

    /// 0 past the last word.
    std::uint32_t operator[](std::size_t i) const { return i < words.size() ? words[i] : 0; }
};

/// Calls `visit` with each instruction in turn. Returns false if the module is cut off.
template <class Visit>
bool forEach(const Words& module, Visit visit)
{
    for (std::size_t at = headerWords; at < module.size();) {
        const std::size_t count = module[at] >> spv::WordCountShift;
        if (count == 0 || count > module.size() - at) {
            return false;
        }
        visit(Instruction{{module.data() + at, count}});
        at += count;
    }
    return true;
}

/// Whether the instruction is one of the types, which follow the decorations directly.
inline bool isType(spv::Op op)
{
    return op >= spv::OpTypeVoid && op <= spv::OpTypeForwardPointer;
}

/// Builds a changed copy of a module: the part before the functions, added declarations, and the functions.
class ModuleWriter
{
public:
    explicit ModuleWriter(const Words& module)
        : beforeFunctions_(module.begin(), module.begin() + headerWords), nextId_(module[boundWord])
    {
        functions_.reserve(module.size());
    }

    Id newId() { return nextId_++; }

    /// Appends an instruction of the module as it is.
    void copy(const Instruction& instruction)
    {
        inFunctions_ = inFunctions_ || instruction.op() == spv::OpFunction;
        here().insert(here().end(), instruction.words.begin(), instruction.words.end());
    }

    void write(spv::Op op, std::initializer_list<std::uint32_t> operands) { append(here(), op, operands); }

    /// Appends an instruction with a new result; returns its id.
    Id emit(spv::Op op, Id type, std::initializer_list<std::uint32_t> operands)
    {
        const Id id = newId();
        const auto words = static_cast<std::uint32_t>(operands.size() + 3);
        here().insert(here().end(),
                      {words << spv::WordCountShift | static_cast<std::uint32_t>(op), type, id});
        here().insert(here().end(), operands);
        return id;
    }

    /// Adds a type, a constant or a variable before the functions.
    void declare(spv::Op op, std::initializer_list<std::uint32_t> operands)
    {
        append(declarations_, op, operands);
    }

    /// A constant of a scalar type of 32 bits, declared on first use.
    Id constant(Id type, std::uint32_t value)
    {
        const auto [place, isNew] = constants_.emplace(std::pair(type, value), nextId_);
        if (isNew) {
            declare(spv::OpConstant, {type, newId(), value});
        }
        return place->second;
    }

    /// Makes constant() return one that the module has.
    void reuseConstant(Id type, std::uint32_t value, Id id)
    {
        constants_.emplace(std::pair(type, value), id);
    }

    /// The whole module. To be called once.
    Words take()
    {
        Words module = std::move(beforeFunctions_);
        module[boundWord] = nextId_;
        module.insert(module.end(), declarations_.begin(), declarations_.end());
        module.insert(module.end(), functions_.begin(), functions_.end());
        return module;
    }

private:
    Words& here() { return inFunctions_ ? functions_ : beforeFunctions_; }

    static void append(Words& to, spv::Op op, std::initializer_list<std::uint32_t> operands)
    {
        const auto words = static_cast<std::uint32_t>(operands.size() + 1);
        to.push_back(words << spv::WordCountShift | static_cast<std::uint32_t>(op));
        to.insert(to.end(), operands);
    }

    Words beforeFunctions_;
    Words declarations_;
    Words functions_;
    std::map<std::pair<Id, std::uint32_t>, Id> constants_;
    Id nextId_;
    bool inFunctions_ = false;
};

} // namespace Qx::Host::Effects::Spirv
