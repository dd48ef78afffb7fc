#pragma once

#include "host/effects/spirv/SpirvModule.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

/// A shader on its way through the passes.
struct ShaderModule
{
    Spirv::Words words;

    /// Bits of a component that the shader reads, 8 or 16, if it draws packed texels; 0 if it draws single
    /// ones.
    std::uint32_t packedSourceBits = 0;

    std::map<std::uint32_t, std::uint32_t> widened; ///< results of widenFetches
    std::vector<std::uint32_t> rows;                ///< results of passUniformsAsInputs
};

/// Runs every pass that the shader needs, in the order of the declarations below. Passes.cpp has the table of
/// them, which is the one place to add a pass. Returns false, with the problem, if one of them fails; the
/// module then is of no use.
bool runPasses(ShaderModule& shader, std::string& problem);

// The passes, in the order in which they run. Each takes a module from the HLSL front end or from the pass
// before it. A module that is cut off is left as it is.
//
// 1. For all shaders, before the optimizer.

/// Gives every remainder of signed or floating-point numbers the sign of the dividend, as HLSL's % has it;
/// the HLSL front end writes those of GLSL, with the sign of the divisor. Remainders of whole numbers are
/// written out, since OpSRem is undefined for negative ones (Vulkan 1.1, "Precision and Operation of SPIR-V
/// Instructions"). Must not change unsigned remainders. Returns false if the module is cut off.
bool useRemaindersOfHlsl(Spirv::Words& spirv);

/// Marks every floating-point operation NoContraction (SPIR-V 1.3, 3.20): neither the optimizer nor a driver
/// may then merge or reorder them, and a conversion rounds alike on every device. Must run before the
/// optimizer, which keeps the marks. Must not change any instruction.
void keepArithmeticAsWritten(Spirv::Words& spirv);

/// Names of the functions `float4 qxfx_tex2Dfetch(sampler2D s, int2 texel)` and its counterpart for three
/// dimensions, which the HLSL text declares with a body of one tex2Dlod or tex3Dlod.
inline constexpr std::string_view fetchFunctions[] = {"qxfx_tex2Dfetch", "qxfx_tex3Dfetch"};

/// Replaces the sampling in each of `fetchFunctions` by an OpImageFetch of level 0 at the integer
/// coordinates: HLSL with combined samplers cannot express that. Must run before functions are inlined and
/// names are stripped. Must not change sampling elsewhere. Returns false if such a function is not as
/// expected.
bool rewriteFetches(Spirv::Words& spirv);

/// SPIRV-Tools' legalization and performance passes. Strips names.
bool optimize(Spirv::Words& spirv, std::string& problem);

/// Reads an array that is a copy of one in the uniform buffer, element by element, there, if a computed
/// number picks from it: an array that is a function's argument is such a copy. Mesa 22.3's software device
/// keeps memory for each draw of a shader with several of them. Must not change an array of which any element
/// is stored to from elsewhere. Returns false if there was nothing to do. tidyUp drops the copies.
bool readCopiedArraysInPlace(Spirv::Words& spirv);

/// Keeps each constant array from which a computed number picks in one variable of a function, which is
/// filled once: the front end fills one for each place that picks, there, even within a loop, and drivers
/// compile all of those stores. Must not change an array that anything else is stored to. Returns false if
/// there was nothing to do.
bool shareConstantArrays(Spirv::Words& spirv);

// 2. For shaders that draw packed texels, after the optimizer. After a pass that leaves work, tidyUp runs.

/// Rewrites what the shader computes from its fragment's column in whole numbers: sums, products, shifts and
/// masks with constants become `number * constant + constant` wherever possible. Calls of one function for
/// neighbouring pixels then compute what they share in the same way, and what depends only on a pixel's place
/// among its neighbours becomes a constant. Must not change any result, for columns below 2^16. Returns false
/// if there was nothing to do.
bool simplifyColumnArithmetic(Spirv::Words& spirv);

/// Reads neighbouring texels of a buffer together: as one texel of 8 bytes, R32G32_UINT, or of 16,
/// R32G32B32A32_UINT. A buffer is read in this way if each index into it is a sum of multiples and a
/// constant, so that the part of the wider texel is known. `texelBytes`, 4 or 8, is the size of the texels
/// that the shader reads at first, of four components each; those of 4 become texels of 8 in any case. Must
/// not change any value that is read, except where an index leaves 32 bits on its way. tidyUp merges the
/// fetches of one texel.
///
/// Returns the new bytes of a texel for each binding that is read otherwise now.
std::map<std::uint32_t, std::uint32_t> widenFetches(Spirv::Words& spirv, std::uint32_t texelBytes);

/// Declares the texel buffers that the shader reads with the image format Unknown. The HLSL front end
/// declares Rgba32ui for every Buffer<uint4>, and reading a view of another format then is undefined
/// (Vulkan 1.3, "Instruction/Sampler/Image View Validation"); Unknown reads any view and needs no feature of
/// the device. Must not change images that the shader writes.
void leaveBufferFormatsOpen(Spirv::Words& spirv);

/// Turns what the shader reads at fixed places of its uniform buffer into inputs that are the same for every
/// fragment: some devices read a buffer anew for each. The buffer's 16-byte rows become inputs of four floats
/// each, at the locations from 0 on. Must not move whole numbers, matrices, what the shader picks by an
/// index, or more than `most` rows: they stay in the buffer.
///
/// Returns the row of each location.
std::vector<std::uint32_t> passUniformsAsInputs(Spirv::Words& spirv, std::size_t most);

// 3. For the shaders of a device on which they are slow, when it gets them.

/// Replaces conversions of floats of 32 bits to whole numbers, vectors included, by additions: the lowest
/// bits of 2^23 + n are n. Where what the shader computes may be larger than that, its upper and lower halves
/// are converted apart. Must not change a result that SPIR-V defines, that is of a number within the range of
/// the whole numbers. Leaves a module that has floats of other sizes as it is.
Spirv::Words convertByAdding(const Spirv::Words& spirv);

/// Not a pass of its own: propagates numbers that have become constant, or equal, through a shader that has
/// been optimized before, in a small part of the optimizer's time.
bool tidyUp(Spirv::Words& spirv, std::string& problem);

} // namespace Qx::Host::Effects
