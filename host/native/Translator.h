#pragma once

#include "host/native/NativeCode.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <llvm-c/Core.h>

namespace Qx::Host::Native {

/// A shader to be written as functions of an LLVM module.
struct Source
{
    LLVMContextRef context;
    LLVMModuleRef module;
    const std::vector<std::uint32_t>& spirv;
    std::span<const Texels> texels;
    std::uint32_t targetBits;
    std::span<const std::byte> likely;
    std::uint32_t likelyWidth;
};

/// Adds "border": void(frame, row, first texel, end). It computes texels anywhere, four at a time.
void writeBorder(const Source& source);

/// Adds "draw": void(frame, first row, end row). Where reads and comparisons go as they do in the middle of a
/// picture, it computes as many texels at a time as the options say; the rest is left to "border".
void writeDraw(const Source& source, const Options& options);

} // namespace Qx::Host::Native
