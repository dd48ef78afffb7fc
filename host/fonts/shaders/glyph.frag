#version 450

// A glyph of a page, over what is on the layer. Both are premultiplied.

layout(set = 0, binding = 1) uniform sampler2D page;

layout(push_constant) uniform Parameters
{
    vec4 colour;
    vec2 layerSize;
};

layout(location = 0) flat in ivec2 toPage;
layout(location = 1) flat in int coloured;

layout(location = 0) out vec4 result;

void main()
{
    const vec4 texel = texelFetch(page, ivec2(floor(gl_FragCoord.xy)) + toPage, 0);
    result = coloured != 0 ? texel : vec4(colour.rgb, 1.0) * texel.a;
}
