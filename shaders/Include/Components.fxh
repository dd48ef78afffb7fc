// Components of an image by their places in memory, as codes: integers up to the largest code of the depth.
//
// A texel has four components c0 c1 c2 c3, which shaders see as .a .r .g .b. Rows with fewer than four
// components per pixel are stored consecutively in such texels and are addressed by component here.
//
// The including effect provides SourceSampler and the values that the host sets: inputSize, inputMax,
// targetMax.
#ifndef QX_COMPONENTS_FXH
#define QX_COMPONENTS_FXH

#include "Precise.fxh"

// Divides a non-negative integer, rounding down. Faster than integer division, and exact for image sizes: the
// quotient is never within 0.5 / divisor of a wrong one.
int quotient(int dividend, int divisor)
{
    return int(floor((float(dividend) + 0.5) * (1.0 / float(divisor))));
}

// Returns c0 c1 c2 c3 of a texel of the source. Undefined outside the image.
float4 componentsAt(int2 at)
{
    return tex2Dcodes(SourceSampler, at).argb;
}

// As componentsAt(); outside the image, those of the nearest texel.
float4 nearestComponentsAt(int2 at)
{
    return componentsAt(clamp(at, int2(0, 0), int2(inputSize) - int2(1, 1)));
}

// Returns the codes for a texel with these components.
float4 texelOf(float4 components)
{
    return components.gbar;
}

// Returns component `index` of a row.
float componentAt(int index, int row)
{
    float4 c = componentsAt(int2(index >> 2, row));
    int place = index & 3;
    return place < 2 ? (place == 0 ? c.x : c.y) : (place == 2 ? c.z : c.w);
}

// Returns three components of two consecutive groups of four, starting at `phase`, 0 to 3.
float3 threeOf(float4 first, float4 second, int phase)
{
    return phase < 2 ? (phase == 0 ? first.xyz : first.yzw)
                     : (phase == 2 ? float3(first.zw, second.x) : float3(first.w, second.xy));
}

// Returns four components of two consecutive groups of three, starting at `phase`, 0 to 2.
float4 fourOf(float3 first, float3 second, int phase)
{
    return phase == 0 ? float4(first, second.x)
                      : (phase == 1 ? float4(first.yz, second.xy) : float4(first.z, second));
}

// Converts components to the target's depth as fractions of the largest code. The result is to be truncated.
float4 sharesAtTargetDepth(float4 components)
{
    return inputMax == targetMax ? components : components * (targetMax / inputMax) + 0.5;
}

// Converts components to the target's depth by powers of two, as video does: a code of 8 bits is 2^(n-8) of n
// bits. The result is to be truncated.
float4 atTargetDepth(float4 components)
{
    return inputMax == targetMax ? components
                                 : components * (stepOf(targetMax) * inverseStepOf(inputMax)) + 0.5;
}

#endif
