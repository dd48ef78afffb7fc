// Film grain: noise that differs from frame to frame, and is the same in each run.
//
// The noise is added to the codes as they are, in which film's density is nearly even. It comes of a hash
// of the place, the frame's number and the seed, in integers, so that every device draws the same grain.
// Alpha is passed on. An amount of 0 changes nothing.

#include "Include/Standards.fxh"

texture Input < string Label = "Picture"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };

float frame : FRAME;

float amount <
    string Label = "Amount, the standard deviation as a part of the range";
    float Min = 0.0; float Max = 0.5; float Step = 0.005;
> = 0.05;
float size <
    string Label = "Size of a grain in pixels";
    float Min = 1.0; float Max = 8.0; float Step = 0.1;
> = 1.5;
float colour <
    string Label = "Colour, 0 the same grain in red, green and blue, 1 three grains";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = 0.3;
float midtones <
    string Label = "Midtones, 0 the same grain everywhere, 1 none in black and white";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = 0.7;
int seed < string Label = "Seed"; int Min = 0; int Max = 65535; > = 0;

// A hash whose bits all depend on all bits of the number: PCG's (O'Neill, HMC-CS-2014-0905), 32 bits.
uint scrambled(uint number)
{
    uint state = number * 747796405u + 2891336453u;
    uint word = ((state >> ((state >> 28u) + 4u)) ^ state) * 277803737u;
    return (word >> 22u) ^ word;
}

// The grain at a place of its grid: the sum of four bytes, which is nearly normal, with a mean of 0 and a
// standard deviation of 1.
float grainAt(int2 place, int channel)
{
    uint picture = scrambled(uint(seed) * 4u + uint(channel)) + uint(int(frame));
    uint hash = scrambled(scrambled(scrambled(picture) + uint(place.x)) + uint(place.y));
    uint sum = (hash & 255u) + (hash >> 8u & 255u) + (hash >> 16u & 255u) + (hash >> 24u);
    return (float(sum) - 510.0) / 147.80054;
}

// Grains larger than a pixel are interpolated, with weights that keep the standard deviation.
float grain(int2 pixel, int channel)
{
    float2 place = (float2(pixel) + 0.5) / size - 0.5;
    int2 corner = int2(floor(place));
    float2 part = place - floor(place);
    float4 weights = float4((1.0 - part.x) * (1.0 - part.y), part.x * (1.0 - part.y),
                            (1.0 - part.x) * part.y, part.x * part.y);
    float4 grains = float4(grainAt(corner, channel), grainAt(corner + int2(1, 0), channel),
                           grainAt(corner + int2(0, 1), channel), grainAt(corner + int2(1, 1), channel));
    return dot(weights, grains) / length(weights);
}

float4 grained(float2 uv : TEXCOORD0, int2 pixel : VPOS) : COLOR
{
    float4 picture = tex2D(InputSampler, uv);
    float grey = grain(pixel, 0);
    float3 colours = float3(grain(pixel, 1), grain(pixel, 2), grain(pixel, 3));
    float3 noise = lerp(float3(grey, grey, grey), colours, colour) / length(float2(1.0 - colour, colour));
    float luma = dot(picture.rgb, float3(KR_BT709, 1.0 - KR_BT709 - KB_BT709, KB_BT709));
    float strength = amount * lerp(1.0, 4.0 * luma * (1.0 - luma), midtones);
    return float4(picture.rgb + strength * noise, picture.a);
}

technique Grain
{
    pass P0 { PixelShader = compile ps_3_0 grained(); }
}
