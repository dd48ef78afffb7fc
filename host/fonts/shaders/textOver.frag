#version 450

// The layer of a line of text over a copy of what is in the target.

layout(constant_id = 0) const bool rotated = false;
layout(constant_id = 1) const bool ofFloats = false; // the target's numbers are not clipped

layout(set = 0, binding = 0) uniform sampler2D layer; // premultiplied
layout(set = 0, binding = 1) uniform sampler2D under;

layout(push_constant) uniform Parameters
{
    vec4 largest; // codes of the target
    ivec2 corner; // pixel of the target where the layer begins
    float opacity;
    int premultiplied;
};

layout(location = 0) out vec4 result;

void main()
{
    const ivec2 at = ivec2(floor(gl_FragCoord.xy)) - corner;
    const vec4 text = texelFetch(layer, at, 0) * opacity;
    const vec4 below = texelFetch(under, at, 0);
    vec4 mixed = below;
    if (text.a > 0.0) {
        const float alpha = text.a + below.a * (1.0 - text.a);
        mixed = premultiplied != 0
                    ? text + below * (1.0 - text.a)
                    : vec4((text.rgb + below.rgb * below.a * (1.0 - text.a)) / alpha, alpha);
        if (!ofFloats) {
            mixed = floor(clamp(mixed, 0.0, 1.0) * largest + 0.5) / largest;
        }
    }
    result = rotated ? mixed.argb : mixed;
}
