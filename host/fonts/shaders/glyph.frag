#version 450

// A glyph of a page, over what is on the layer. The page's texels are premultiplied; the second result says
// how much of the first one replaces what is there.

layout(constant_id = 0) const bool rotated = false;

layout(set = 0, binding = 1) uniform sampler2D page;

layout(push_constant) uniform Parameters
{
    vec4 colour;
    vec2 layerSize;
};

layout(location = 0) flat in ivec2 toPage;
layout(location = 1) flat in int coloured;

layout(location = 0, index = 0) out vec4 result;
layout(location = 0, index = 1) out vec4 coverage;

void main()
{
    const vec4 texel = texelFetch(page, ivec2(floor(gl_FragCoord.xy)) + toPage, 0);
    const vec3 own = texel.a > 0.0 ? texel.rgb / texel.a : vec3(0.0);
    const vec4 opaque = vec4(coloured != 0 ? own : colour.rgb, 1.0);
    result = rotated ? opaque.argb : opaque;
    coverage = vec4(texel.a);
}
