#version 450

// A level of a texture: each texel is the average of four texels of the level above, or of two or one where that
// is a single row or column. The last row or column of an odd number is left out.
//
// The sum is of codes, so that the average is rounded as every device rounds it: halves up. Half floats are rounded
// here to those that are nearest, halves to even.

layout(set = 0, binding = 0) uniform sampler2D image; // the level above

layout(push_constant) uniform Parameters
{
    vec4 largest; // codes of the components in memory; 0 for half floats
    ivec2 last;   // column and row of the level above
};

layout(location = 0) out vec4 result;

vec4 codes(ivec2 at)
{
    const vec4 value = texelFetch(image, min(at, last), 0);
    return largest.x > 0.0 ? floor(value * largest + 0.5) : value;
}

vec4 nearestHalf(vec4 value)
{
    const uvec4 bits = floatBitsToUint(value);
    const vec4 usual = uintBitsToFloat((bits + 0xFFFu + ((bits >> 13u) & 1u)) & ~0x1FFFu);
    const vec4 small = roundEven(value * 16777216.0) / 16777216.0; // multiples of 2^-24
    return mix(usual, small, lessThan(abs(value), vec4(6.103515625e-05)));
}

void main()
{
    const ivec2 at = ivec2(gl_FragCoord.xy) * 2;
    precise const vec4 sum = (codes(at) + codes(at + ivec2(1, 0))) + (codes(at + ivec2(0, 1)) + codes(at + ivec2(1, 1)));
    result = largest.x > 0.0 ? floor(sum * 0.25 + 0.5) / largest : nearestHalf(sum * 0.25);
}
