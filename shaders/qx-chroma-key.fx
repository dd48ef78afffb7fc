// Chroma key: the colour of a screen becomes transparent, and its light on the foreground is taken back.
//
// Works on the colour differences of BT.709 (Cb, Cr) of the codes as they are. How much of the screen's
// chroma a colour has is its part along the direction of the screen's, 1 for the screen and 0 for greys;
// what lies across that direction, a different hue, counts against it. The key follows from this part:
// opaque below `foreground`, transparent above `clear`. Spill suppression takes the part out of what is
// kept, and keeps luma. Straight alpha. Colours without any of the screen's are unchanged.

#include "Include/OtherPicture.fxh"
#include "Include/Standards.fxh"
#include "Include/StraightAlpha.fxh"

texture Input < string Label = "Picture"; >;
texture Background < string Label = "Picture behind the foreground"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };
sampler BackgroundSampler = sampler_state { Texture = <Background>; MinFilter = Linear; MagFilter = Linear; };

float2 backgroundSize : TEXTURESIZE < string Texture = "Background"; >;
float2 targetSize : TARGETSIZE;

float3 screen <
    string Label = "Colour of the screen";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = float3(0.1, 0.7, 0.2);
float foreground <
    string Label = "Foreground: opaque up to this part of the screen's colour";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = 0.15;
float clear <
    string Label = "Clear: transparent from this part on";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = 0.6;
float selectivity <
    string Label = "Selectivity: how much another hue counts against the key";
    float Min = 0.0; float Max = 4.0; float Step = 0.01;
> = 1.0;
float spill <
    string Label = "Spill suppression";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = 1.0;
float4 background <
    string Label = "Background, with its alpha";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = float4(0.5, 0.5, 0.5, 1.0);

#define KG_BT709 (1.0 - KR_BT709 - KB_BT709)

float2 chromaOf(float3 colour)
{
    float luma = dot(colour, float3(KR_BT709, KG_BT709, KB_BT709));
    return float2((colour.b - luma) / (2.0 - 2.0 * KB_BT709), (colour.r - luma) / (2.0 - 2.0 * KR_BT709));
}

// The colour of a luma of 0 with that chroma.
float3 colourOfChroma(float2 chroma)
{
    float blue = chroma.x * (2.0 - 2.0 * KB_BT709);
    float red = chroma.y * (2.0 - 2.0 * KR_BT709);
    return float3(red, -(KR_BT709 * red + KB_BT709 * blue) / KG_BT709, blue);
}

// The foreground without spill, and its alpha.
float4 keyed(float2 uv)
{
    float4 picture = tex2D(InputSampler, uv);
    float2 chroma = chromaOf(picture.rgb);
    float2 direction = chromaOf(screen);
    float strength = max(dot(direction, direction), 0.000001);
    float along = dot(chroma, direction) / strength;
    float across = abs(chroma.x * direction.y - chroma.y * direction.x) / strength;
    float part = max(along - selectivity * across, 0.0);
    float key = saturate((part - foreground) / max(clear - foreground, 0.0001));
    return float4(picture.rgb - colourOfChroma(direction) * (part * spill), picture.a * (1.0 - key));
}

// The foreground over what is behind it.
float4 over(float4 behind, float4 cut)
{
    return mixed(behind, float4(cut.rgb, 1.0), cut.a);
}

float4 overColour(float2 uv : TEXCOORD0) : COLOR
{
    return over(background, keyed(uv));
}

float4 overPicture(float2 uv : TEXCOORD0, int2 pixel : VPOS) : COLOR
{
    return over(fitted(BackgroundSampler, backgroundSize, targetSize, pixel, uv), keyed(uv));
}

float4 matte(float2 uv : TEXCOORD0) : COLOR
{
    float alpha = keyed(uv).a;
    return float4(alpha, alpha, alpha, 1.0);
}

technique Key
{
    pass P0 { PixelShader = compile ps_3_0 overColour(); }
}

technique OverPicture
{
    pass P0 { PixelShader = compile ps_3_0 overPicture(); }
}

technique Matte
{
    pass P0 { PixelShader = compile ps_3_0 matte(); }
}
