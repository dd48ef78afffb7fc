// A second picture, which may have another size than the first.
#ifndef QX_OTHER_PICTURE_FXH
#define QX_OTHER_PICTURE_FXH

// Returns the second picture's colour, stretched over the whole target: the very texel if the sizes are
// equal, else filtered.
float4 fitted(sampler from, float2 size, float2 target, int2 pixel, float2 uv)
{
    float4 filtered = tex2D(from, uv);
    float4 texel = tex2Dfetch(from, clamp(pixel, 0, int2(size) - 1));
    return all(size == target) ? texel : filtered;
}

#endif
