// Sums of code times coefficient that round to the correct code.
//
// A float has a significand of 24 bits. A 16-bit code uses 16 of them, and the rounding error of a
// coefficient is multiplied by up to 65535. Sums are therefore counted in units of 1/64 of a code, and a
// coefficient has two parts. The upper part is an integer number of units: its products with codes, and their
// sums, are exact. The lower part is the remainder: its products are small and lose almost nothing. Both
// parts are computed at compile time, from constants.
#ifndef QX_PRECISE_FXH
#define QX_PRECISE_FXH

#define UNITS 64.0
#define UPPER(c) floor((c) * UNITS + 0.5)
#define LOWER(c) ((c) * UNITS - UPPER(c))
#define SPLIT(c) float2(UPPER(c), LOWER(c))

// The conversion of codes of one depth and range to another.
struct Rescale
{
    // Codes of the target per unit of the source, to the nearest power of two: up * down.
    float up;   // at least 1
    float down; // at most 1

    float excess; // the true ratio is up * down * (1 + excess)
    float halfCode; // half a code of the target, in units
};

// Returns the number of codes per code of 8 bits: 2^(n-8).
float stepOf(float maxCode)
{
    return (maxCode + 1.0) * (1.0 / 256.0);
}

// Returns 1 / stepOf without a division, whose result may be inexact.
float inverseStepOf(float maxCode)
{
    return maxCode > 1023.5 ? 1.0 / 256.0 : (maxCode > 255.5 ? 0.25 : 1.0);
}

// The range constants assume 256 steps where a full range has 256 - 1 / 2^(n-8); `excess` corrects this: full
// range to 2^n codes divides by 1 - 2^-n, the reverse multiplies by it. `sourceStep` is the distance of the
// source's codes: 2^(16-n) for n bits in the upper ones of 16, else 1.
Rescale rescale(float sourceMax, float sourceStep, bool sourceFull, float targetMax, bool targetFull)
{
    float sourcePart = sourceFull ? sourceStep / (sourceMax + 1.0) : 0.0;
    float targetPart = targetFull ? 1.0 / (targetMax + 1.0) : 0.0;

    Rescale r;
    float scale = stepOf(targetMax) * inverseStepOf(sourceMax) * (1.0 / UNITS);
    r.up = max(scale, 1.0);
    r.down = min(scale, 1.0);
    r.halfCode = 0.5 * UNITS * stepOf(sourceMax) * inverseStepOf(targetMax);
    r.excess = (sourcePart - targetPart) / (1.0 - sourcePart);
    return r;
}

// Returns the lower part of a coefficient including `excess`, so that no sum has to apply it.
float withExcess(float2 parts, Rescale r)
{
    return parts.y + (parts.x + parts.y) * r.excess;
}

float3 withExcess(float3 upper, float3 lower, Rescale r)
{
    return lower + (upper + lower) * r.excess;
}

// Converts units to a code with a fraction, which is to be truncated: half a code has been added. `upper` is
// an integer, so only whole units of `lower` are added to it.
float component(float upper, float lower, Rescale r)
{
    return (upper * r.up + floor(lower * r.up)) * r.down;
}

#endif
