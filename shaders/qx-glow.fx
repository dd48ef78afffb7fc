// Glow: the light of bright areas spreads over their surroundings.
//
// Computed in light, not in codes, because glow is light that a lens scatters: the colours are taken to the
// light of a display of gamma 2.4 (ITU-R BT.1886), and back. The spreading light is blurred at half the
// picture's size, in half floats. What is transparent does not glow; alpha is passed on. An amount of 0
// changes nothing, and neither does the effect where no light arrives.

#include "Include/Gaussian.fxh"
#include "Include/Light.fxh"

texture Input < string Label = "Picture"; >;
texture Bright < float2 ViewportRatio = { 0.5, 0.5 }; string Format = "A16B16G16R16F"; >;
texture Across < float2 ViewportRatio = { 0.5, 0.5 }; string Format = "A16B16G16R16F"; >;
texture Spread < float2 ViewportRatio = { 0.5, 0.5 }; string Format = "A16B16G16R16F"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };
sampler BrightSampler = sampler_state { Texture = <Bright>; };
sampler AcrossSampler = sampler_state { Texture = <Across>; };
sampler SpreadSampler = sampler_state { Texture = <Spread>; MinFilter = Linear; MagFilter = Linear; };

float2 inputSize : TEXTURESIZE < string Texture = "Input"; >;
float2 spreadSize : TEXTURESIZE < string Texture = "Spread"; >;

float amount < string Label = "Amount"; float Min = 0.0; float Max = 4.0; float Step = 0.01; > = 1.0;
float radius <
    string Label = "Radius, the standard deviation in pixels";
    float Min = 0.0; float Max = 100.0; float Step = 0.1;
> = 12.0;
float threshold <
    string Label = "Threshold: what is darker does not glow";
    float Min = 0.0; float Max = 0.99; float Step = 0.01;
> = 0.6;
float3 tint <
    string Label = "Colour of the glow";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = float3(1.0, 1.0, 1.0);

// The light of a texel that glows: none at the threshold, all of it at white.
float3 glowing(int2 texel)
{
    float4 picture = tex2Dfetch(InputSampler, clamp(texel, 0, int2(inputSize) - 1));
    float brightest = max(picture.r, max(picture.g, picture.b));
    return lightOf(picture.rgb) * (picture.a * saturate((brightest - threshold) / (1.0 - threshold)));
}

float4 bright(int2 pixel : VPOS) : COLOR
{
    int2 texel = pixel * 2;
    return float4((glowing(texel) + glowing(texel + int2(1, 0)) + glowing(texel + int2(0, 1)) +
                   glowing(texel + int2(1, 1))) * 0.25, 1.0);
}

float4 spread(int2 pixel : VPOS, uniform sampler from, uniform int2 direction) : COLOR
{
    return gaussian(from, pixel, int2(spreadSize) - 1, direction, radius * 0.5, false);
}

float4 glow(int2 pixel : VPOS) : COLOR
{
    float4 picture = tex2Dfetch(InputSampler, pixel);
    float2 place = (float2(pixel) + 0.5) * 0.5 / spreadSize;
    float3 light = lightOf(picture.rgb);
    float3 added = tex2D(SpreadSampler, place).rgb * tint * amount;
    return float4(picture.rgb + (colourOf(light + added) - colourOf(light)), picture.a);
}

#define ACROSS int2(1, 0)
#define DOWN int2(0, 1)

technique Glow
{
    pass Bright < string Target = "Bright"; > { PixelShader = compile ps_3_0 bright(); }
    pass Across < string Target = "Across"; > { PixelShader = compile ps_3_0 spread(BrightSampler, ACROSS); }
    pass Down < string Target = "Spread"; > { PixelShader = compile ps_3_0 spread(AcrossSampler, DOWN); }
    pass Glow { PixelShader = compile ps_3_0 glow(); }
}
