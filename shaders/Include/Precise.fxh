// Sums of code times coefficient that round to the right code.
//
// A float has 24 bits. A 16-bit code uses 16 of them, and what a coefficient loses in rounding is then lost
// 65535 times over. So sums are counted in units of 1/64 of a code, and a coefficient comes in two parts: the
// upper one a whole number of units, whose products with codes, and their sums, are exact; the lower one the
// remainder, whose products are small and lose next to nothing. Both parts are made while compiling, from
// constants.
#ifndef QX_PRECISE_FXH
#define QX_PRECISE_FXH

#define UNITS 64.0
#define UPPER(c) floor((c) * UNITS + 0.5)
#define LOWER(c) ((c) * UNITS - UPPER(c))
#define SPLIT(c) float2(UPPER(c), LOWER(c))

// How codes of one depth and range become codes of another.
struct Rescale
{
    // Codes of the target in a unit of the source, to the nearest power of two: up * down.
    float up;   // at least 1
    float down; // at most 1

    float excess; // what is missing from it: the true ratio is up * down * (1 + excess)
    float halfCode; // half a code of the target, in units
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
    float scale = stepOf(targetMax) * inverseStepOf(sourceMax) * (1.0 / UNITS);
    r.up = max(scale, 1.0);
    r.down = min(scale, 1.0);
    r.halfCode = 0.5 * UNITS * stepOf(sourceMax) * inverseStepOf(targetMax);
    r.excess = (sourcePart - targetPart) / (1.0 - sourcePart);
    return r;
}

// The lower part of a coefficient that has `excess` in it, so that no sum needs it any more.
float withExcess(float2 parts, Rescale r)
{
    return parts.y + (parts.x + parts.y) * r.excess;
}

float3 withExcess(float3 upper, float3 lower, Rescale r)
{
    return lower + (upper + lower) * r.excess;
}

// The code of so many units, still with a fraction, which is to be cut off: together with half a code, that
// rounds. `upper` is a whole number, so that only whole units of `lower` meet it.
float component(float upper, float lower, Rescale r)
{
    return (upper * r.up + floor(lower * r.up)) * r.down;
}

#endif
