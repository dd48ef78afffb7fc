#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

#include <glslang/SPIRV/spirv.hpp>

namespace Qx::Host::Effects {

/// What passes over a module of SPIR-V share.
namespace Spirv {

using Id = std::uint32_t;
using Words = std::vector<std::uint32_t>;

inline constexpr std::size_t headerWords = 5;
inline constexpr std::size_t boundWord = 3; ///< of the header: one more than the largest id

/// One instruction of a module, its first word included.
struct Instruction
{
    std::span<const std::uint32_t> words;

    spv::Op op() const { return static_cast<spv::Op>(words[0] & spv::OpCodeMask); }
    std::size_t size() const { return words.size(); }

    /// 0 behind the last word.
    std::uint32_t operator[](std::size_t i) const { return i < words.size() ? words[i] : 0; }
};

/// Calls `visit` with each instruction in turn. False when the module is cut off.
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

inline void write(Words& to, spv::Op op, std::initializer_list<std::uint32_t> operands)
{
    const auto words = static_cast<std::uint32_t>(operands.size() + 1);
    to.push_back(words << spv::WordCountShift | static_cast<std::uint32_t>(op));
    to.insert(to.end(), operands);
}

inline void write(Words& to, const Instruction& instruction)
{
    to.insert(to.end(), instruction.words.begin(), instruction.words.end());
}

/// Whether types begin with this instruction: they come directly behind the decorations.
inline bool isType(spv::Op op)
{
    return op >= spv::OpTypeVoid && op <= spv::OpTypeForwardPointer;
}

} // namespace Spirv
} // namespace Qx::Host::Effects
