#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <llvm-c/Core.h>

namespace Qx::Host::Native {

/// Values by the number of an item, which is what a lane computes: some neighbouring texels of a row.
using Table = std::shared_ptr<const std::vector<std::uint32_t>>;

/// One number of a value: the same for all items of a row, or one for each lane.
struct Component
{
    LLVMValueRef value = nullptr;
    bool varies = false;                     ///< from lane to lane
    bool isOfUniforms = false;               ///< it depends on uniforms and constants alone
    std::optional<std::uint32_t> constant{}; ///< its bits
    std::optional<std::uint32_t> sample{};   ///< its bits in the middle of a usual frame
    Table table{};                           ///< if it depends on the item alone
    /// Of a whole number that varies: it is base + slope * item, if the slope is not 0. Of a float: the same,
    /// and `base` is a whole number too.
    std::int64_t slope = 0;
    LLVMValueRef base = nullptr;

    /// A truth that depends on uniforms alone: if it holds, native code does not know the value. Null if it
    /// always does.
    LLVMValueRef isUnknown = nullptr;
    std::shared_ptr<const std::string> why{}; ///< it is not known
};

using Value = std::vector<Component>;

} // namespace Qx::Host::Native
