// Y Cb Cr of every pixel to RGB. A texel holds a pixel: .a = alpha, .r = Y, .g = Cb, .b = Cr.
#ifndef QX_DECODE444_FXH
#define QX_DECODE444_FXH

#include "Decode422.fxh"

float4 decode444(int2 pixel : VPOS, uniform int matrixId, uniform bool sourceFull, uniform bool targetFull)
    : COLORCODE
{
    float4 own = tex2Dcodes(SourceSampler, pixel);

    Rescale r = rescale(inputMax, pSourceCodeStep, sourceFull, targetMax, targetFull);
    DecodeMatrix m = decodeMatrix(matrixId, sourceFull, targetFull);
    m.y.y = withExcess(m.y, r);
    m.rCr.y = withExcess(m.rCr, r);
    m.gCb.y = withExcess(m.gCb, r);
    m.gCr.y = withExcess(m.gCr, r);
    m.bCb.y = withExcess(m.bCb, r);

    float sourceStep = stepOf(inputMax);
    float targetBlack = targetFull ? 0.0 : VIDEO_BLACK * sourceStep * UNITS;
    float2 luma = (sourceFull ? 0.0 : -VIDEO_BLACK * sourceStep) * m.y + float2(targetBlack, r.halfCode);

    float y = own.r;
    float2 c = own.gb - CHROMA_ZERO * sourceStep; // before it is multiplied: the products stay exact
    float3 upper = m.y.x * y + luma.x + float3(m.rCr.x * c.y, m.gCb.x * c.x + m.gCr.x * c.y, m.bCb.x * c.x);
    float3 lower = m.y.y * y + luma.y + float3(m.rCr.y * c.y, m.gCb.y * c.x + m.gCr.y * c.y, m.bCb.y * c.x);
    // Opacity is of full range at every depth.
    float alpha = inputMax == targetMax ? own.a : floor(own.a * (targetMax / inputMax) + 0.5);
    return float4(component(upper.r, lower.r, r), component(upper.g, lower.g, r), component(upper.b, lower.b, r),
                  alpha);
}

#endif
