// Codes and the light that they stand for.
#ifndef QX_LIGHT_FXH
#define QX_LIGHT_FXH

// ITU-R BT.1886, annex 1: a display with a black of 0 has the light V^2.4.
#define DISPLAY_GAMMA 2.4

float3 lightOf(float3 colour)
{
    return pow(max(colour, 0.0), DISPLAY_GAMMA);
}

float3 colourOf(float3 light)
{
    return pow(max(light, 0.0), 1.0 / DISPLAY_GAMMA);
}

#endif
