#include "host/effects/Remainders.h"

#include <cstddef>

#include <glslang/SPIRV/spirv.hpp>

namespace Qx::Host::Effects {
namespace {

constexpr std::size_t boundAt = 3; // of ids, in the module's header
constexpr std::size_t header = 5;
constexpr std::uint32_t words = 5; // opcode, type, result, two operands

void addBinary(std::vector<std::uint32_t>& to, spv::Op op, std::uint32_t type, std::uint32_t result,
               std::uint32_t left, std::uint32_t right)
{
    to.insert(to.end(),
              {words << spv::WordCountShift | static_cast<std::uint32_t>(op), type, result, left, right});
}

} // namespace

void useRemaindersOfHlsl(std::vector<std::uint32_t>& spirv)
{
    std::vector<std::uint32_t> changed;
    changed.reserve(spirv.size());
    changed.assign(spirv.begin(), spirv.begin() + header);
    for (std::size_t at = header; at < spirv.size();) {
        const std::size_t count = spirv[at] >> spv::WordCountShift;
        const auto op = static_cast<spv::Op>(spirv[at] & spv::OpCodeMask);
        if (op == spv::OpSMod) {
            const std::uint32_t type = spirv[at + 1];
            const std::uint32_t quotient = changed[boundAt]++;
            const std::uint32_t product = changed[boundAt]++;
            addBinary(changed, spv::OpSDiv, type, quotient, spirv[at + 3], spirv[at + 4]);
            addBinary(changed, spv::OpIMul, type, product, quotient, spirv[at + 4]);
            addBinary(changed, spv::OpISub, type, spirv[at + 2], spirv[at + 3], product);
        } else if (op == spv::OpFMod) {
            addBinary(changed, spv::OpFRem, spirv[at + 1], spirv[at + 2], spirv[at + 3], spirv[at + 4]);
        } else {
            changed.insert(changed.end(), spirv.begin() + static_cast<std::ptrdiff_t>(at),
                           spirv.begin() + static_cast<std::ptrdiff_t>(at + count));
        }
        at += count;
    }
    spirv = std::move(changed);
}

} // namespace Qx::Host::Effects
