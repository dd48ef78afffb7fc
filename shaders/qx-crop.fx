// Crop with soft edges. The cropped area shows the background.
//
// Edges lie between pixels: with left = 100 pixel 99 is background and pixel 100 the picture. A soft edge
// begins there with the background and lies inside, in the codes as they are. Straight alpha; a background
// with an alpha of 0 makes the cropped area transparent. Without a crop and softness nothing changes.

#include "Include/StraightAlpha.fxh"

texture Input < string Label = "Picture"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };

float2 targetSize : TARGETSIZE;

float left <
    string Label = "Left, in pixels";
    float Min = 0.0; float Max = 16384.0; float Step = 1.0;
> = 24.0;
float right <
    string Label = "Right, in pixels";
    float Min = 0.0; float Max = 16384.0; float Step = 1.0;
> = 24.0;
float top < string Label = "Top, in pixels"; float Min = 0.0; float Max = 16384.0; float Step = 1.0; > = 16.0;
float bottom <
    string Label = "Bottom, in pixels";
    float Min = 0.0; float Max = 16384.0; float Step = 1.0;
> = 16.0;
float softness <
    string Label = "Width of the soft edge, in pixels";
    float Min = 0.0; float Max = 1000.0; float Step = 1.0;
> = 0.0;
float4 background <
    string Label = "Background, with its alpha"; string Widget = "colour";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = float4(0.0, 0.0, 0.0, 1.0);

// How much of the picture is seen that far inside an edge. An uncropped side has no edge.
float shown(float inside, float cropped)
{
    float soft = saturate(inside / max(softness, 0.0001));
    return cropped > 0.0 ? soft : 1.0;
}

float4 cropped(float2 uv : TEXCOORD0, int2 pixel : VPOS) : COLOR
{
    float2 place = float2(pixel) + 0.5;
    float across = shown(place.x - left, left) * shown(targetSize.x - right - place.x, right);
    float down = shown(place.y - top, top) * shown(targetSize.y - bottom - place.y, bottom);
    return mixed(background, tex2D(InputSampler, uv), across * down);
}

technique Crop
{
    pass P0 { PixelShader = compile ps_3_0 cropped(); }
}
