// Wipes to a second picture: a straight edge, a growing circle, the hand of a clock.
//
// A pixel belongs to the picture in which its centre lies. A soft edge mixes the codes as they are.
// `duration` makes it run: from `start`, in seconds of the clip.

#include "Include/Transition.fxh"
#include "Include/Turn.fxh"

float softness <
    string Label = "Width of the soft edge, 1 is the whole way";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = 0.05;
float angle <
    string Label = "Direction of the straight edge in degrees, 0 to the right, 90 down";
    string Widget = "angle";
    float Min = -360.0; float Max = 360.0; float Step = 1.0;
> = 0.0;

// The share of the second picture where the edge arrives at that part of its way.
float4 wiped(float2 uv, int2 pixel, float arrival)
{
    float reached = progress();
    float soft = saturate((reached * (1.0 + softness) - arrival) / max(softness, 0.000001));
    float share = softness > 0.0 ? soft : (arrival < reached ? 1.0 : 0.0);
    return mixedCodes(uv, pixel, reached <= 0.0 ? 0.0 : (reached >= 1.0 ? 1.0 : share));
}

float4 straightEdge(float2 uv : TEXCOORD0, int2 pixel : VPOS) : COLORCODE
{
    float2 direction = turnOf(angle);
    float2 fromCentre = float2(pixel) + 0.5 - 0.5 * targetSize;
    return wiped(uv, pixel, 0.5 + dot(fromCentre, direction) / dot(targetSize, abs(direction)));
}

float4 circle(float2 uv : TEXCOORD0, int2 pixel : VPOS) : COLORCODE
{
    float2 fromCentre = float2(pixel) + 0.5 - 0.5 * targetSize;
    return wiped(uv, pixel, length(fromCentre) / length(0.5 * targetSize));
}

// Clockwise from the top.
float4 clockHand(float2 uv : TEXCOORD0, int2 pixel : VPOS) : COLORCODE
{
    float2 fromCentre = float2(pixel) + 0.5 - 0.5 * targetSize;
    float turn = atan2(fromCentre.x, -fromCentre.y) / 6.2831853;
    return wiped(uv, pixel, turn < 0.0 ? turn + 1.0 : turn);
}

technique Wipe
{
    pass P0 { PixelShader = compile ps_3_0 straightEdge(); }
}

technique Iris
{
    pass P0 { PixelShader = compile ps_3_0 circle(); }
}

technique Clock
{
    pass P0 { PixelShader = compile ps_3_0 clockHand(); }
}
