// Components of an image by their places in memory, as codes: whole numbers up to the depth's largest.
//
// A texel has four components c0 c1 c2 c3, which shaders see as .a .r .g .b. Rows whose pixels are not four
// components wide lie in such texels one component after the other, and are addressed by component here.
//
// The effect provides SourceSampler and what the host tells of the images: inputSize, inputMax, targetMax.
#ifndef QX_COMPONENTS_FXH
#define QX_COMPONENTS_FXH

#include "Precise.fxh"

// A whole number from 0 on over a divisor, rounded down. Faster than dividing whole numbers, and exact as far as
// images go: the quotient is never within 0.5 / divisor of a wrong one.
int quotient(int dividend, int divisor)
{
    return int(floor((float(dividend) + 0.5) * (1.0 / float(divisor))));
}

// c0 c1 c2 c3 of the source's texel. Beside the image there is no telling what they are.
float4 componentsAt(int2 at)
{
    return tex2Dcodes(SourceSampler, at).argb;
}

// The same; outside the image, of the nearest texel.
float4 nearestComponentsAt(int2 at)
{
    return componentsAt(clamp(at, int2(0, 0), int2(inputSize) - int2(1, 1)));
}

// The codes to return for a texel of these components.
float4 texelOf(float4 components)
{
    return components.gbar;
}

// Component number `index` of a row.
float componentAt(int index, int row)
{
    float4 c = componentsAt(int2(index >> 2, row));
    int place = index & 3;
    return place < 2 ? (place == 0 ? c.x : c.y) : (place == 2 ? c.z : c.w);
}

// What of two groups of four, one after the other, begins at `phase` 0 to 3 and is three long.
float3 threeOf(float4 first, float4 second, int phase)
{
    return phase < 2 ? (phase == 0 ? first.xyz : first.yzw)
                     : (phase == 2 ? float3(first.zw, second.x) : float3(first.w, second.xy));
}

// What of two groups of three, one after the other, begins at `phase` 0 to 2 and is four long.
float4 fourOf(float3 first, float3 second, int phase)
{
    return phase == 0 ? float4(first, second.x)
                      : (phase == 1 ? float4(first.yz, second.xy) : float4(first.z, second));
}

// The same components at the target's depth, as shares of the largest code. To be cut to whole codes.
float4 sharesAtTargetDepth(float4 components)
{
    return inputMax == targetMax ? components : components * (targetMax / inputMax) + 0.5;
}

// The same by the steps of video: a code of 8 bits is 2^(n-8) of n bits.
float4 atTargetDepth(float4 components)
{
    return inputMax == targetMax ? components
                                 : components * (stepOf(targetMax) * inverseStepOf(inputMax)) + 0.5;
}

#endif
