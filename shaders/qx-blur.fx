// Gaussian blur, in two passes: across into a texture of 16 bits, then down.
//
// The mean is taken of the codes as they are, not of light, as editors do: dark and bright sides of an edge
// spread alike. With straight alpha, what is transparent does not spread its colour. A radius of 0 changes
// nothing.

#include "Include/Gaussian.fxh"

texture Input < string Label = "Picture"; >;
texture Across < string Format = "A16B16G16R16"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };
sampler AcrossSampler = sampler_state { Texture = <Across>; };

float2 inputSize : TEXTURESIZE < string Texture = "Input"; >;

float radius <
    string Label = "Radius, the standard deviation in pixels";
    float Min = 0.0; float Max = 100.0; float Step = 0.1;
> = 6.0;

// Premultiplied, for the second pass.
float4 across(int2 pixel : VPOS) : COLOR
{
    return gaussian(InputSampler, pixel, int2(inputSize) - 1, int2(1, 0), radius, true);
}

float4 down(int2 pixel : VPOS, uniform sampler from, uniform bool fromStraight) : COLOR
{
    float4 blurred = straight(gaussian(from, pixel, int2(inputSize) - 1, int2(0, 1), radius, fromStraight));
    return radius > 0.0 ? blurred : tex2Dfetch(InputSampler, pixel);
}

float4 acrossAlone(int2 pixel : VPOS) : COLOR
{
    return radius > 0.0 ? straight(across(pixel)) : tex2Dfetch(InputSampler, pixel);
}

technique Blur
{
    pass Across < string Target = "Across"; > { PixelShader = compile ps_3_0 across(); }
    pass Down { PixelShader = compile ps_3_0 down(AcrossSampler, false); }
}

technique Horizontal
{
    pass P0 { PixelShader = compile ps_3_0 acrossAlone(); }
}

technique Vertical
{
    pass P0 { PixelShader = compile ps_3_0 down(InputSampler, true); }
}
