#pragma once

#include "host/native/NativeCode.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <llvm-c/Core.h>

namespace Qx::Host::Native {

class ParsedShader;

/// A shader to be written as functions of an LLVM module.
struct Source
{
    LLVMContextRef context;
    LLVMModuleRef module;
    const ParsedShader& shader;
    std::span<const Texels> texels; ///< not more than a frame has buffers
    std::uint32_t targetBits;
    std::span<const std::byte> likely; ///< as many as every frame's uniforms are
    std::uint32_t likelyWidth;
};

// Each throws a Refusal, whose message is a phrase that begins with the shader as "it", for what cannot be
// translated.

/// Adds "draws": i32(frame). It says whether "draw" draws what the shader does with the frame's uniforms: 1
/// or 0. It reads nothing else of the frame.
void writeDraws(const Source& source);

/// Adds "border": void(frame, row, first texel, end). It computes texels anywhere, four at a time.
void writeBorder(const Source& source);

/// Adds "draw": void(frame, first row, end row). Where reads and comparisons go as they do in the middle of a
/// picture, it computes as many texels at a time as the options say; the rest is left to "border".
///
/// Returns after how many texels what depends on the column alone repeats itself, if the options' period is
/// 1: different numbers, ascending.
std::vector<std::uint32_t> writeDraw(const Source& source, const Options& options);

} // namespace Qx::Host::Native
