// Packed Y Cb Y Cr to RGB. A texel holds two pixels: .a = Y of the even one, .r = Cb, .g = Y of the odd one,
// .b = Cr. Cb and Cr are sited on the even pixel.
#ifndef QX_DECODE422_FXH
#define QX_DECODE422_FXH

#include "Standards.fxh"
#include "Precise.fxh"

// R' = Y' + rCr Cr, G' = Y' + gCb Cb + gCr Cr, B' = Y' + bCb Cb, with Y' scaled by y; each coefficient is
// split in two.
struct DecodeMatrix
{
    float2 y;
    float2 rCr;
    float2 gCb;
    float2 gCr;
    float2 bCb;
};

// The inverse of Y' = Kr R' + Kg G' + Kb B', Cb = (B' - Y') / (2 (1 - Kb)), Cr = (R' - Y') / (2 (1 - Kr))
// (BT.601-7, clauses 2.5.1 and 2.5.2; BT.709-6, clauses 3.2 and 3.3; BT.2020-2,
// table 4), including the scale from the source's
// range to the target's in luma and in chroma.
#define FILL_DECODE(KR, KB, LUMA, CHROMA)                                                                    \
    m.y = SPLIT(LUMA);                                                                                       \
    m.rCr = SPLIT((CHROMA) * 2.0 * (1.0 - KR));                                                              \
    m.gCb = SPLIT(-(CHROMA) * 2.0 * (1.0 - KB) * KB / (1.0 - KR - KB));                                      \
    m.gCr = SPLIT(-(CHROMA) * 2.0 * (1.0 - KR) * KR / (1.0 - KR - KB));                                      \
    m.bCb = SPLIT((CHROMA) * 2.0 * (1.0 - KB));

#define FILL_DECODE_FOR_MATRIX(LUMA, CHROMA)                                                                 \
    if (matrixId == BT601)                                                                                   \
    {                                                                                                        \
        FILL_DECODE(KR_BT601, KB_BT601, LUMA, CHROMA)                                                        \
    }                                                                                                        \
    else if (matrixId == BT2020)                                                                             \
    {                                                                                                        \
        FILL_DECODE(KR_BT2020, KB_BT2020, LUMA, CHROMA)                                                      \
    }                                                                                                        \
    else                                                                                                     \
    {                                                                                                        \
        FILL_DECODE(KR_BT709, KB_BT709, LUMA, CHROMA)                                                        \
    }

DecodeMatrix decodeMatrix(int matrixId, bool sourceFull, bool targetFull)
{
    DecodeMatrix m;
    if (sourceFull)
    {
        if (targetFull)
        {
            FILL_DECODE_FOR_MATRIX(1.0, 1.0)
        }
        else
        {
            FILL_DECODE_FOR_MATRIX(VIDEO_LUMA_CODES / 256.0, VIDEO_LUMA_CODES / 256.0)
        }
    }
    else
    {
        if (targetFull)
        {
            FILL_DECODE_FOR_MATRIX(256.0 / VIDEO_LUMA_CODES, 256.0 / VIDEO_CHROMA_CODES)
        }
        else
        {
            FILL_DECODE_FOR_MATRIX(1.0, VIDEO_LUMA_CODES / VIDEO_CHROMA_CODES)
        }
    }
    return m;
}

// Returns the texel of a pair of pixels. Undefined outside the picture.
float4 pairAt(int x, int y)
{
    return tex2Dcodes(SourceSampler, int2(x, y));
}

// The filter's weights are multiplied by this to make them integers: up to 16 bits the sums are then exact.
float denominatorOf(int filterId)
{
    return filterId == MITCHELL ? 144.0 : 16.0;
}

// Returns Cb and Cr of a pixel: rounded to whole codes (xy), and the remainder times the denominator (zw).
//
// Cubics of Mitchell and Netravali's family ("Reconstruction Filters in Computer Graphics", SIGGRAPH 1988,
// equation 8), Catmull-Rom with B = 0, C = 1/2 and Mitchell with B = C = 1/3, at the distances that occur:
//   even pixel, k(0) and k(1):         Catmull-Rom 1, 0;           Mitchell 128/144, 8/144
//   odd pixel, k(1/2) and k(3/2):      Catmull-Rom 9/16, -1/16;    Mitchell 77/144, -5/144
//
// The outermost pairs of the picture are repeated outwards. The padding of a row is not read.
float4 chromaAt(float4 own, int2 pair, int lastPair, bool odd, int filterId)
{
    if (filterId == POINT || (filterId == CATMULL_ROM && !odd))
    {
        return float4(own.rb, 0.0, 0.0);
    }

    float2 before = pair.x > 0 ? pairAt(pair.x - 1, pair.y).rb : own.rb;
    float2 next = pair.x < lastPair ? pairAt(pair.x + 1, pair.y).rb : own.rb;
    float2 afterNext = pair.x + 1 < lastPair ? pairAt(pair.x + 2, pair.y).rb : next;

    float2 sum;
    if (filterId == CATMULL_ROM)
    {
        sum = 9.0 * (own.rb + next) - (before + afterNext);
    }
    else
    {
        sum = odd ? 77.0 * (own.rb + next) - 5.0 * (before + afterNext) : 128.0 * own.rb + 8.0 * (before + next);
    }
    float2 whole = floor(sum * (1.0 / denominatorOf(filterId)) + 0.5);
    return float4(whole, sum - whole * denominatorOf(filterId));
}

float4 decode422(int2 pixel : VPOS, uniform int matrixId, uniform bool sourceFull, uniform bool targetFull,
                 uniform int filterId) : COLORCODE
{
    int2 pair = int2(pixel.x >> 1, pixel.y);
    bool odd = (pixel.x & 1) != 0;
    int lastPair = min((int(targetSize.x) + 1) >> 1, int(inputSize.x)) - 1;

    float4 own = pairAt(pair.x, pair.y);
    float4 chroma = chromaAt(own, pair, lastPair, odd, filterId);

    Rescale r = rescale(inputMax, pSourceCodeStep, sourceFull, targetMax, targetFull);
    DecodeMatrix m = decodeMatrix(matrixId, sourceFull, targetFull);
    m.rCr *= pSourceChromaGain;
    m.gCb *= pSourceChromaGain;
    m.gCr *= pSourceChromaGain;
    m.bCb *= pSourceChromaGain;
    m.y.y = withExcess(m.y, r);
    m.rCr.y = withExcess(m.rCr, r);
    m.gCb.y = withExcess(m.gCb, r);
    m.gCr.y = withExcess(m.gCr, r);
    m.bCb.y = withExcess(m.bCb, r);

    float sourceStep = stepOf(inputMax);
    float targetBlack = targetFull ? 0.0 : VIDEO_BLACK * sourceStep * UNITS;
    float2 luma = (sourceFull ? 0.0 : -VIDEO_BLACK * sourceStep) * m.y + float2(targetBlack, r.halfCode);

    float y = odd ? own.g : own.a;
    float2 c = chroma.xy - CHROMA_ZERO * sourceStep; // before it is multiplied: the products stay exact
    float2 rest = chroma.zw;
    float3 upper = m.y.x * y + luma.x + float3(m.rCr.x * c.y, m.gCb.x * c.x + m.gCr.x * c.y, m.bCb.x * c.x);
    float3 lower = m.y.y * y + luma.y + float3(m.rCr.y * c.y, m.gCb.y * c.x + m.gCr.y * c.y, m.bCb.y * c.x);
    if (filterId != POINT)
    {
        float part = 1.0 / denominatorOf(filterId);
        lower += float3((m.rCr.x + m.rCr.y) * part * rest.y,
                        (m.gCb.x + m.gCb.y) * part * rest.x + (m.gCr.x + m.gCr.y) * part * rest.y,
                        (m.bCb.x + m.bCb.y) * part * rest.x);
    }
    return float4(component(upper.r, lower.r, r), component(upper.g, lower.g, r), component(upper.b, lower.b, r),
                  targetMax);
}

#endif
