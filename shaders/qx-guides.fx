// Guides for the safe areas of television pictures, drawn over the picture.
//
// SMPTE ST 2046-1: the safe action area is 93 % and the safe title area 90 % of the picture's width and
// height, about its centre (EBU R 95 says the same: 3.5 % and 5 % from each edge). The older SMPTE RP 218
// has 90 % and 80 %: set them for archives. A margin is rounded to whole pixels, a half up, the first line
// lies just inside it: with 1920 x 1080 the action guide begins in column 67 and row 38, the title guide in
// column 96 and row 54. An opacity of 0 changes nothing.

#include "Include/StraightAlpha.fxh"

texture Input < string Label = "Picture"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };

float2 targetSize : TARGETSIZE;

float action <
    string Label = "Safe action area, in per cent";
    float Min = 10.0; float Max = 100.0; float Step = 0.5;
> = 93.0;
float title <
    string Label = "Safe title area, in per cent";
    float Min = 10.0; float Max = 100.0; float Step = 0.5;
> = 90.0;
bool centre < string Label = "Mark the centre"; > = true;
int thickness < string Label = "Thickness of the lines, in pixels"; int Min = 1; int Max = 16; > = 2;
float3 actionColour <
    string Label = "Colour of the safe action area";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = float3(1.0, 0.8, 0.0);
float3 titleColour <
    string Label = "Colour of the safe title area and the centre";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = float3(1.0, 1.0, 1.0);
float opacity < string Label = "Opacity"; float Min = 0.0; float Max = 1.0; float Step = 0.01; > = 0.8;

// Whether the pixel lies on the edge of the area. The distances to both edges of a direction are alike, so
// the nearer one decides.
bool isOnEdge(int2 pixel, float percent)
{
    int2 size = int2(targetSize);
    int2 margin = (int2(targetSize * (100.0 - percent)) + 100) / 200;
    int2 inside = min(pixel, size - 1 - pixel) - margin;
    int nearest = min(inside.x, inside.y);
    return nearest >= 0 && nearest < thickness;
}

// A cross whose arms are a twentieth of the picture's height. With even sizes and an odd thickness it is
// half a pixel off the centre, to the left and up.
bool isOnCross(int2 pixel)
{
    int2 size = int2(targetSize);
    int2 first = (size - thickness) / 2;
    int2 from = pixel - first;
    int arm = size.y / 20;
    bool across = from.y >= 0 && from.y < thickness && from.x >= -arm && from.x < thickness + arm;
    bool down = from.x >= 0 && from.x < thickness && from.y >= -arm && from.y < thickness + arm;
    return across || down;
}

float4 guides(float2 uv : TEXCOORD0, int2 pixel : VPOS) : COLOR
{
    float4 picture = tex2D(InputSampler, uv);
    bool onTitle = isOnEdge(pixel, title) || (centre && isOnCross(pixel));
    bool onAction = isOnEdge(pixel, action);
    float3 colour = onTitle ? titleColour : actionColour;
    return mixed(picture, float4(colour, 1.0), onTitle || onAction ? opacity : 0.0);
}

technique Guides
{
    pass P0 { PixelShader = compile ps_3_0 guides(); }
}
