// Position, scale and rotation about an anchor. What the picture leaves bare shows the background.
//
// The anchor stays where it is but for `position`; the picture is scaled about it, then rotated. Texels are
// interpolated bilinearly in 32-bit floats (a device's filter is coarser), from the codes as they are; a
// reduced picture is the mean of up to 8 x 8 such samples. Straight alpha; a background with an alpha of 0
// leaves the rest transparent. Edges of the picture are smooth. Pixels are taken for square. Position 0,
// scale 1 and rotation 0 change nothing; shifts by whole pixels keep every code.

#include "Include/StraightAlpha.fxh"
#include "Include/Turn.fxh"

texture Input < string Label = "Picture"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };

float2 inputSize : TEXTURESIZE < string Texture = "Input"; >;

float2 position <
    string Label = "Position: to the right and down, in pixels";
    float Min = -16384.0; float Max = 16384.0; float Step = 1.0;
> = float2(0.0, 0.0);
float2 scale <
    string Label = "Scale, across and down; below 0 it mirrors";
    float Min = -100.0; float Max = 100.0; float Step = 0.01;
> = float2(0.75, 0.75);
float rotation <
    string Label = "Rotation, clockwise in degrees"; string Widget = "angle";
    float Min = -360.0; float Max = 360.0; float Step = 0.1;
> = 8.0;
float2 anchor <
    string Label = "Anchor, (0, 0) the picture's top left corner, (1, 1) its bottom right one";
    float Min = -1.0; float Max = 2.0; float Step = 0.01;
> = float2(0.5, 0.5);
float4 background <
    string Label = "Background, with its alpha"; string Widget = "colour";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = float4(0.0, 0.0, 0.0, 1.0);

#define MOST_SAMPLES 8

// A texel, premultiplied; beyond the picture the background.
float4 texelAt(int2 texel)
{
    int2 last = int2(inputSize) - 1;
    int2 inside = clamp(texel, 0, last);
    float4 picture = premultiplied(tex2Dfetch(InputSampler, inside));
    return all(inside == texel) ? picture : premultiplied(background);
}

// The picture at a place between texels, whose centres are at (0.5, 0.5), (1.5, 0.5), ...
float4 pictureAt(float2 place)
{
    float2 corner = floor(place - 0.5);
    float2 part = place - 0.5 - corner;
    int2 texel = int2(clamp(corner, -2.0, inputSize + 1.0));
    return lerp(lerp(texelAt(texel), texelAt(texel + int2(1, 0)), part.x),
                lerp(texelAt(texel + int2(0, 1)), texelAt(texel + int2(1, 1)), part.x), part.y);
}

float4 transformed(int2 pixel : VPOS) : COLOR
{
    float2 factor = float2(abs(scale.x) < 0.0001 ? 0.0001 : scale.x, abs(scale.y) < 0.0001 ? 0.0001 : scale.y);
    float2 turn = turnOf(rotation);
    float2 moved = float2(pixel) + 0.5 - position;
    float2 arm = moved - anchor * inputSize;
    float2 turned = float2(turn.x * arm.x + turn.y * arm.y, turn.x * arm.y - turn.y * arm.x);

    // A pixel's samples are spread over it in the directions of the picture's rows and columns.
    int2 samples = clamp(int2(ceil(1.0 / abs(factor) - 0.001)), 1, MOST_SAMPLES);
    float4 sum = float4(0.0, 0.0, 0.0, 0.0);
    for (int y = 0; y < samples.y; ++y)
    {
        for (int x = 0; x < samples.x; ++x)
        {
            float2 part = (float2(x, y) + 0.5) / float2(samples) - 0.5;
            // The difference is exactly 0 where nothing is turned or scaled, so that no rounding shifts texels.
            sum += pictureAt(moved + ((turned + part) / factor - arm));
        }
    }
    bool moves = any(position != 0.0) || any(scale != 1.0) || rotation != 0.0;
    return moves ? straight(sum / float(samples.x * samples.y)) : tex2Dfetch(InputSampler, pixel);
}

technique Transform
{
    pass P0 { PixelShader = compile ps_3_0 transformed(); }
}
