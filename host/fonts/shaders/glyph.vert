#version 450

// A rectangle for each glyph: two triangles over its pixels of the layer.

struct Glyph
{
    ivec4 area;   // on the layer: left, top, width, height
    ivec4 source; // on the page: left, top; whether it has colours of its own
};

layout(set = 0, binding = 0) uniform Glyphs
{
    Glyph glyphs[512];
};

layout(push_constant) uniform Parameters
{
    vec4 colour;
    vec2 layerSize;
};

layout(location = 0) flat out ivec2 toPage; // from a pixel of the layer to its texel of the page
layout(location = 1) flat out int coloured;

void main()
{
    const Glyph glyph = glyphs[gl_InstanceIndex];
    const ivec2 corners[6] = ivec2[](ivec2(0, 0), ivec2(1, 0), ivec2(0, 1), ivec2(0, 1), ivec2(1, 0), ivec2(1, 1));
    const vec2 pixel = vec2(glyph.area.xy + corners[gl_VertexIndex] * glyph.area.zw);
    toPage = glyph.source.xy - glyph.area.xy;
    coloured = glyph.source.z;
    gl_Position = vec4(pixel / layerSize * 2.0 - 1.0, 0.0, 1.0);
}
