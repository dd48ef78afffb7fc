// Sharpening by an unsharp mask: the difference between the picture and its Gaussian blur is added to the
// picture.
//
// Works on the codes as they are, as editors do, on each colour by itself. Differences of up to `threshold`
// are left out, so that noise stays; what exceeds it counts in part, without a step. Alpha is passed on. An
// amount of 0 changes nothing.

#include "Include/Gaussian.fxh"

texture Input < string Label = "Picture"; >;
texture Across < string Format = "A16B16G16R16"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };
sampler AcrossSampler = sampler_state { Texture = <Across>; };

float2 inputSize : TEXTURESIZE < string Texture = "Input"; >;

float amount < string Label = "Amount"; float Min = 0.0; float Max = 5.0; float Step = 0.01; > = 1.0;
float radius <
    string Label = "Radius, the standard deviation in pixels";
    float Min = 0.1; float Max = 30.0; float Step = 0.1;
> = 1.5;
float threshold <
    string Label = "Threshold, as a part of the range";
    float Min = 0.0; float Max = 0.5; float Step = 0.001;
> = 0.0;

float4 across(int2 pixel : VPOS) : COLOR
{
    return gaussian(InputSampler, pixel, int2(inputSize) - 1, int2(1, 0), radius, true);
}

float4 sharpened(int2 pixel : VPOS) : COLOR
{
    float4 picture = tex2Dfetch(InputSampler, pixel);
    float4 blurred =
        straight(gaussian(AcrossSampler, pixel, int2(inputSize) - 1, int2(0, 1), radius, false));
    float3 detail = picture.rgb - blurred.rgb;
    detail = sign(detail) * max(abs(detail) - threshold, 0.0);
    return float4(picture.rgb + amount * detail, picture.a);
}

technique Sharpen
{
    pass Across < string Target = "Across"; > { PixelShader = compile ps_3_0 across(); }
    pass Sharpen { PixelShader = compile ps_3_0 sharpened(); }
}
