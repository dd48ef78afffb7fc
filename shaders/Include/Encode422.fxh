// RGB to packed Y Cb Y Cr. A texel of the target holds two pixels: .a = Y of the even one, .r = Cb, .g = Y of
// the odd one, .b = Cr. Cb and Cr are sited on the even pixel.
#ifndef QX_ENCODE422_FXH
#define QX_ENCODE422_FXH

#include "Standards.fxh"
#include "Precise.fxh"

// The weights of R', G' and B' in Y', Cb and Cr: upper and lower parts.
struct EncodeMatrix
{
    float3 yUpper;
    float3 yLower;
    float3 cbUpper;
    float3 cbLower;
    float3 crUpper;
    float3 crLower;
};

// Y' = Kr R' + Kg G' + Kb B', Cb = (B' - Y') / (2 (1 - Kb)), Cr = (R' - Y') / (2 (1 - Kr)) (BT.601-7, clauses
// 2.5.1 and 2.5.2; BT.709-6, clauses 3.2 and 3.3; BT.2020-2, table 4), including the scale from the source's range to the
// target's in luma and in chroma.
#define FILL_ENCODE(KR, KB, LUMA, CHROMA, PART, Y, CB, CR)                                                   \
    Y = float3(PART((LUMA) * KR), PART((LUMA) * (1.0 - KR - KB)), PART((LUMA) * KB));                        \
    CB = float3(PART((CHROMA) * -KR / (2.0 * (1.0 - KB))),                                                   \
                PART((CHROMA) * -(1.0 - KR - KB) / (2.0 * (1.0 - KB))), PART((CHROMA) * 0.5));               \
    CR = float3(PART((CHROMA) * 0.5), PART((CHROMA) * -(1.0 - KR - KB) / (2.0 * (1.0 - KR))),                \
                PART((CHROMA) * -KB / (2.0 * (1.0 - KR))));

#define FILL_ENCODE_FOR_MATRIX(LUMA, CHROMA)                                                                 \
    if (matrixId == BT601)                                                                                   \
    {                                                                                                        \
        FILL_ENCODE(KR_BT601, KB_BT601, LUMA, CHROMA, UPPER, m.yUpper, m.cbUpper, m.crUpper)                 \
        FILL_ENCODE(KR_BT601, KB_BT601, LUMA, CHROMA, LOWER, m.yLower, m.cbLower, m.crLower)                 \
    }                                                                                                        \
    else if (matrixId == BT2020)                                                                             \
    {                                                                                                        \
        FILL_ENCODE(KR_BT2020, KB_BT2020, LUMA, CHROMA, UPPER, m.yUpper, m.cbUpper, m.crUpper)               \
        FILL_ENCODE(KR_BT2020, KB_BT2020, LUMA, CHROMA, LOWER, m.yLower, m.cbLower, m.crLower)               \
    }                                                                                                        \
    else                                                                                                     \
    {                                                                                                        \
        FILL_ENCODE(KR_BT709, KB_BT709, LUMA, CHROMA, UPPER, m.yUpper, m.cbUpper, m.crUpper)                 \
        FILL_ENCODE(KR_BT709, KB_BT709, LUMA, CHROMA, LOWER, m.yLower, m.cbLower, m.crLower)                 \
    }

EncodeMatrix encodeMatrix(int matrixId, bool sourceFull, bool targetFull)
{
    EncodeMatrix m;
    if (sourceFull)
    {
        if (targetFull)
        {
            FILL_ENCODE_FOR_MATRIX(1.0, 1.0)
        }
        else
        {
            FILL_ENCODE_FOR_MATRIX(VIDEO_LUMA_CODES / 256.0, VIDEO_CHROMA_CODES / 256.0)
        }
    }
    else
    {
        if (targetFull)
        {
            FILL_ENCODE_FOR_MATRIX(256.0 / VIDEO_LUMA_CODES, 256.0 / VIDEO_LUMA_CODES)
        }
        else
        {
            FILL_ENCODE_FOR_MATRIX(1.0, VIDEO_CHROMA_CODES / VIDEO_LUMA_CODES)
        }
    }
    return m;
}

// Returns the codes of a pixel. Undefined outside the picture.
float3 pixelAt(int x, int y)
{
    return tex2Dcodes(SourceSampler, int2(x, y)).rgb;
}

// Lanczos with three lobes, sinc(x) sinc(x / 3), stretched by two because every other sample is kept. At
// integer distances from the site it is 1 at 0, 0 at 2 and 4, and, times pi^2, 6 at 1, -4/3 at 3 and 6/25 at
// 5: no sine has to be computed.
#define PI_SQUARED 9.869604401089358
#define LANCZOS_SUM (PI_SQUARED + 2.0 * (6.0 - 4.0 / 3.0 + 6.0 / 25.0))
#define LANCZOS_1 (6.0 / LANCZOS_SUM)
#define LANCZOS_3 (-4.0 / 3.0 / LANCZOS_SUM)
#define LANCZOS_5 (6.0 / 25.0 / LANCZOS_SUM)

// Returns what Lanczos adds to the pixel at the site. The weights sum to 1, so they are applied to
// differences from that pixel. The upper parts of the sum are exact. The outermost pixels of the picture are
// repeated outwards; sites are on even columns.
void lanczosDifference(float3 even, float3 odd, int x, int y, int last, out float3 upper, out float3 lower)
{
    float3 left1 = x > 0 ? pixelAt(x - 1, y) : even;
    float3 left2 = x > 0 ? pixelAt(x - 2, y) : even;
    float3 left3 = x > 2 ? pixelAt(x - 3, y) : left2;
    float3 left4 = x > 2 ? pixelAt(x - 4, y) : left2;
    float3 left5 = x > 4 ? pixelAt(x - 5, y) : left4;
    float3 right2 = x + 1 < last ? pixelAt(x + 2, y) : odd;
    float3 right3 = x + 2 < last ? pixelAt(x + 3, y) : right2;
    float3 right4 = x + 3 < last ? pixelAt(x + 4, y) : right3;
    float3 right5 = x + 4 < last ? pixelAt(x + 5, y) : right4;

    float3 twice = 2.0 * even;
    float3 d1 = (left1 + odd) - twice;
    float3 d3 = (left3 + right3) - twice;
    float3 d5 = (left5 + right5) - twice;
    upper = UPPER(LANCZOS_1) / UNITS * d1 + UPPER(LANCZOS_3) / UNITS * d3 + UPPER(LANCZOS_5) / UNITS * d5;
    lower = LOWER(LANCZOS_1) / UNITS * d1 + LOWER(LANCZOS_3) / UNITS * d3 + LOWER(LANCZOS_5) / UNITS * d5;
}

float4 encode422(int2 pos : VPOS, uniform int matrixId, uniform bool sourceFull, uniform bool targetFull,
                 uniform int filterId) : COLORCODE
{
    int x = pos.x * 2;
    int y = pos.y;
    int last = int(inputSize.x) - 1;
    float3 even = pixelAt(x, y);
    float3 odd = x < last ? pixelAt(x + 1, y) : even;

    // The colour that chroma is computed from, in whole codes and a remainder. Black cancels: the weights of
    // Cb and of Cr each sum to 0.
    float3 site = even;
    float3 rest = float3(0.0, 0.0, 0.0);
    if (filterId == LANCZOS)
    {
        float3 upper, lower;
        lanczosDifference(even, odd, x, y, last, upper, lower);
        float3 whole = floor(upper);
        site += whole;
        rest = (upper - whole) + lower;
    }

    Rescale r = rescale(inputMax, 1.0, sourceFull, targetMax, targetFull);
    EncodeMatrix m = encodeMatrix(matrixId, sourceFull, targetFull);
    m.yLower = withExcess(m.yUpper, m.yLower, r);
    m.cbLower = withExcess(m.cbUpper, m.cbLower, r);
    m.crLower = withExcess(m.crUpper, m.crLower, r);

    // The offset of black in luma is a constant.
    float sourceStep = stepOf(inputMax);
    float sourceBlack = sourceFull ? 0.0 : VIDEO_BLACK * sourceStep;
    float targetBlack = targetFull ? 0.0 : VIDEO_BLACK * sourceStep * UNITS;
    float upperBlack = targetBlack - sourceBlack * (m.yUpper.r + m.yUpper.g + m.yUpper.b);
    float lowerBlack = r.halfCode - sourceBlack * (m.yLower.r + m.yLower.g + m.yLower.b);
    float zero = CHROMA_ZERO * sourceStep * UNITS;

    float cbLower = dot(m.cbLower, site) + dot(m.cbUpper + m.cbLower, rest) + r.halfCode;
    float crLower = dot(m.crLower, site) + dot(m.crUpper + m.crLower, rest) + r.halfCode;
    return float4(component(dot(m.cbUpper, site) + zero, cbLower, r),
                  component(dot(m.yUpper, odd) + upperBlack, dot(m.yLower, odd) + lowerBlack, r),
                  component(dot(m.crUpper, site) + zero, crLower, r),
                  component(dot(m.yUpper, even) + upperBlack, dot(m.yLower, even) + lowerBlack, r));
}

#endif
