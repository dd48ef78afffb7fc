// The Gaussian blur of a row or a column, one pass of a blur.
#ifndef QX_GAUSSIAN_FXH
#define QX_GAUSSIAN_FXH

#include "StraightAlpha.fxh"

// Returns the mean of the texels of a row, direction (1, 0), or of a column, (0, 1). A texel at distance i
// has the weight exp(-i^2 / (2 deviation^2)); beyond three deviations it is 0. The weights are divided by
// their sum, so that an even area keeps its value. Beyond the edges the picture's last texels go on. A
// deviation of 0 returns the texel itself. `fromStraight` is whether the texels are to be multiplied by
// their alpha first; the result is.
float4 gaussian(sampler from, int2 texel, int2 last, int2 direction, float deviation, bool fromStraight)
{
    int reach = int(ceil(3.0 * deviation));
    float4 own = tex2Dfetch(from, clamp(texel, 0, last));
    float4 sum = fromStraight ? premultiplied(own) : own;
    float weights = 1.0;
    for (int i = 1; i <= reach; ++i)
    {
        float ratio = float(i) / deviation;
        float weight = exp(-0.5 * ratio * ratio);
        float4 before = tex2Dfetch(from, clamp(texel - i * direction, 0, last));
        float4 after = tex2Dfetch(from, clamp(texel + i * direction, 0, last));
        sum += weight * (fromStraight ? premultiplied(before) + premultiplied(after) : before + after);
        weights += 2.0 * weight;
    }
    return sum / weights;
}

#endif
