#include "host/effects/spirv/Passes.h"

namespace Qx::Host::Effects {

void leaveBufferFormatsOpen(Spirv::Words& spirv)
{
    constexpr std::size_t dimension = 3; // words of OpTypeImage
    constexpr std::size_t sampled = 7;
    constexpr std::size_t format = 8;
    constexpr std::uint32_t readOnly = 1;
    std::vector<std::size_t> formats;
    const bool whole = Spirv::forEach(spirv, [&](const Spirv::Instruction& instruction) {
        if (instruction.op() == spv::OpTypeImage && instruction.size() > format &&
            instruction[dimension] == spv::DimBuffer && instruction[sampled] == readOnly) {
            formats.push_back(static_cast<std::size_t>(&instruction.words[format] - spirv.data()));
        }
    });
    if (whole) {
        for (const std::size_t place : formats) {
            spirv[place] = spv::ImageFormatUnknown;
        }
    }
}

} // namespace Qx::Host::Effects
