#version 450

// An image stretched to a rectangle. A pixel is the average of the source over the pixel's own footprint, or
// over one texel where the image is enlarged, which is bilinear interpolation.
//
// Variants: UNFILTERED takes the one texel that a pixel's centre falls on. BLEND gives, as a second result, how
// much of the first one replaces what is in the target.

layout(constant_id = 0) const bool rotated = false;

layout(set = 0, binding = 0) uniform sampler2D image;

layout(push_constant) uniform Parameters
{
    vec4 mapping;    // source = mapping.xy + pixel * mapping.zw, in texels
    ivec4 readable;  // first and last column and row that may be read: x0, y0, x1, y1
    float weight;
    int byAlpha;
};

layout(location = 0, index = 0) out vec4 result;
#ifdef BLEND
layout(location = 0, index = 1) out vec4 coverage;
#endif

vec4 fetch(ivec2 at)
{
    return texelFetch(image, clamp(at, readable.xy, readable.zw), 0);
}

#ifndef UNFILTERED
// More taps than this on an axis are thinned out.
const int mostTaps = 64;

vec4 averaged(vec2 centre)
{
    const vec2 width = max(abs(mapping.zw), vec2(1.0));
    const vec2 low = centre - width * 0.5;
    const vec2 high = centre + width * 0.5;
    const ivec2 first = ivec2(floor(low));
    const ivec2 last = max(ivec2(ceil(high)) - 1, first);
    const ivec2 stride = (last - first) / mostTaps + 1;
    vec4 sum = vec4(0.0);
    float total = 0.0;
    for (int y = first.y; y <= last.y; y += stride.y) {
        const float rowShare = min(high.y, float(y + 1)) - max(low.y, float(y));
        for (int x = first.x; x <= last.x; x += stride.x) {
            const float share = rowShare * (min(high.x, float(x + 1)) - max(low.x, float(x)));
            sum += fetch(ivec2(x, y)) * share;
            total += share;
        }
    }
    return sum / total;
}
#endif

void main()
{
    const vec2 centre = mapping.xy + gl_FragCoord.xy * mapping.zw;
#ifdef UNFILTERED
    const vec4 texel = fetch(ivec2(floor(centre)));
#else
    const vec4 texel = averaged(centre);
#endif
#ifdef BLEND
    const vec4 colour = byAlpha != 0 ? vec4(texel.rgb, 1.0) : texel;
    coverage = vec4(byAlpha != 0 ? weight * texel.a : weight);
#else
    const vec4 colour = texel;
#endif
    result = rotated ? colour.argb : colour;
}
