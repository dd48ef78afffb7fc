#version 450

// An image stretched to a rectangle. A pixel is the average of the source over the pixel's own footprint, or
// over one texel where the image is enlarged, which is bilinear interpolation.
//
// Variants: UNFILTERED takes the one texel that a pixel's centre falls on. OVER mixes the image with a copy of what
// is in the target.
//
// The result is rounded to the target's codes here, and without the last bits in which devices may differ, so that
// every device draws the same. A target of floats gets the numbers as they are.

layout(constant_id = 0) const bool rotated = false;
layout(constant_id = 1) const bool ofFloats = false;

layout(set = 0, binding = 0) uniform sampler2D image;
#ifdef OVER
layout(set = 0, binding = 1) uniform sampler2D under; // the target from `corner` on
#endif

layout(push_constant) uniform Parameters
{
    vec4 mapping;    // source = mapping.xy + pixel * mapping.zw, in texels
    ivec4 readable;  // first and last column and row that may be read: x0, y0, x1, y1
    vec4 largest;    // codes of the target
    ivec2 corner;    // pixel of the target
    float weight;
    int byAlpha;
};

layout(location = 0) out vec4 result;

// Four steps for a code of 16 bits: all codes of 8 and 16 bits are among them.
const float steps = 65535.0 * 4.0;

vec4 settled(vec4 value)
{
    precise vec4 whole = floor(value * steps + 0.5);
    return whole;
}

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

#ifdef OVER
// What the image's texel makes of the target's one. `opaque` is the alpha of an opaque texel.
vec4 mixedWith(vec4 own, vec4 below, float opaque)
{
    const vec4 colour = byAlpha != 0 ? vec4(own.rgb, opaque) : own;
    precise float coverage = byAlpha != 0 ? weight * own.a * (1.0 / opaque) : weight;
    precise vec4 mixed = below + (colour - below) * coverage;
    return mixed;
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
    if (ofFloats) {
#ifdef OVER
        const vec4 numbers = mixedWith(texel, texelFetch(under, ivec2(floor(gl_FragCoord.xy)) - corner, 0), 1.0);
#else
        const vec4 numbers = texel;
#endif
        result = rotated ? numbers.argb : numbers;
        return;
    }
    const vec4 own = settled(texel);
#ifdef OVER
    const vec4 below = settled(texelFetch(under, ivec2(floor(gl_FragCoord.xy)) - corner, 0));
    precise vec4 mixed = mixedWith(own, below, steps);
#else
    precise vec4 mixed = own;
#endif
    precise vec4 codes = floor(mixed * (1.0 / steps) * largest + 0.5);
    const vec4 rounded = codes / largest;
    result = rotated ? rounded.argb : rounded;
}
