#pragma once

#include "host/effects/spirv/SpirvModule.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace Qx::Host::Effects::Spirv {

/// Where a vertex shader places the corners of a rectangle, found by running its probe: a fragment shader
/// with one function, whose input is a float4 (two numbers of a corner's position, two of its texture
/// coordinates) and whose output at location 0 is the position of that corner.
struct CornerTrial
{
    enum class End : std::uint8_t
    {
        Known,   ///< the places are what a device computes, but for rounding
        Unknown, ///< it reads a texture, leaves out the pixel, or is no such module
        Endless  ///< it was stopped after so many instructions as were allowed
    };
    static constexpr std::size_t mostSteps = 1U << 20U; ///< instructions, of one corner

    End end = End::Unknown;
    bool readsParameters = false; ///< other bytes of the uniform buffer may make other places
    unsigned unwritten =
        0; ///< the components, by their bits, that have no value at some corner, whatever is set
    unsigned unwrittenInBranches = 0;             ///< the same, if the uniform buffer has certain bytes
    std::array<std::array<float, 4>, 4> places{}; ///< top left, top right, bottom left, bottom right
};

/// `uniforms` are the bytes of the uniform buffer; what lies beyond them is unknown. `steps` are the
/// instructions that are allowed for a corner. Throws nothing but std::bad_alloc: a module that is damaged is
/// Unknown.
CornerTrial tryCorners(const Words& probe, std::span<const std::byte> uniforms,
                       std::size_t steps = CornerTrial::mostSteps);

/// What the author is to be told of the places, as the end of a sentence that begins with the vertex shader:
/// "gives no finite position". Empty if something may be drawn. `corners` is 4, or 3 for a triangle that is
/// continued; `inPixels` if positions may be in pixels instead.
const char* complaintOf(const CornerTrial& trial, std::size_t corners, bool inPixels);

} // namespace Qx::Host::Effects::Spirv
