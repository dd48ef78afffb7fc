#version 450

// A vertical gradient.

layout(constant_id = 0) const bool rotated = false;

layout(push_constant) uniform Parameters
{
    vec4 top;
    vec4 bottom;
    float y0;          // of the rectangle, in pixels
    float perPixel;    // 1 / its height
};

layout(location = 0) out vec4 result;

void main()
{
    const vec4 colour = mix(top, bottom, clamp((gl_FragCoord.y - y0) * perPixel, 0.0, 1.0));
    result = rotated ? colour.argb : colour;
}
