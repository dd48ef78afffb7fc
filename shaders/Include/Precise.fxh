// Sums of code times coefficient that round to the right code.
//
// A float has 24 bits. A 16-bit code uses 16 of them, and what a coefficient loses in rounding is then lost
// 65535 times over. So a coefficient comes in two parts: the upper one a multiple of 1/64, whose products
// with codes, and their sums, are exact; the lower one the remainder, whose products are small and lose
// next to nothing. Both parts are made while compiling, from constants.
#ifndef QX_PRECISE_FXH
#define QX_PRECISE_FXH

#define UPPER(c) (floor((c) * 64.0 + 0.5) / 64.0)
#define LOWER(c) ((c) - UPPER(c))
#define SPLIT(c) float2(UPPER(c), LOWER(c))

// How codes of one depth and range become codes of another.
struct Rescale
{
    float scale;  // codes of the target in a code of the source, to the nearest power of two
    float excess; // what is missing from `scale`: the true ratio is scale * (1 + excess)
};

// Codes a step of 8 bits takes at the depth of maxCode: 2^(n-8).
float stepOf(float maxCode)
{
    return (maxCode + 1.0) * (1.0 / 256.0);
}

// 1 / stepOf, which a division need not get exactly right.
float inverseStepOf(float maxCode)
{
    return maxCode > 1023.5 ? 1.0 / 256.0 : (maxCode > 255.5 ? 0.25 : 1.0);
}

// The range constants count 256 steps where a full range has 256 - 1 / 2^(n-8) of them; `excess` makes up
// for that: full range to 2^n codes divides by 1 - 2^-n, the other way round multiplies by it.
Rescale rescale(float sourceMax, bool sourceFull, float targetMax, bool targetFull)
{
    float sourcePart = sourceFull ? 1.0 / (sourceMax + 1.0) : 0.0;
    float targetPart = targetFull ? 1.0 / (targetMax + 1.0) : 0.0;

    Rescale r;
    r.scale = stepOf(targetMax) * inverseStepOf(sourceMax);
    r.excess = (sourcePart - targetPart) / (1.0 - sourcePart);
    return r;
}

// The lower part of a coefficient that has `excess` in it, so that no sum needs it any more.
float withExcess(float upper, float lower, Rescale r)
{
    return lower + (upper + lower) * r.excess;
}

float3 withExcess(float3 upper, float3 lower, Rescale r)
{
    return lower + (upper + lower) * r.excess;
}

// The code nearest to offset + scale * (upper + lower). `upper` is exact and stays so until its whole part is
// gone: only the fraction meets `lower`.
float component(float offset, float upper, float lower, Rescale r)
{
    float coarse = upper * r.scale + (offset + 0.5);
    float whole = floor(coarse);
    return whole + floor((coarse - whole) + lower * r.scale);
}

#endif
