// Colour wheels: lift for shadows, gamma for midtones, gain for highlights, each a wheel and a level.
//
// A wheel's point is a place on a vectorscope of BT.709: across Cb, up Cr, (0, 0) the centre. It moves the
// three colours apart and keeps luma. Lift moves black and keeps white; gain moves white and keeps black;
// gamma bends the range between. Works on the codes as they are; alpha is passed on. Points in the centre,
// lift 0, gamma 1, gain 1 and saturation 1 change nothing.

#include "Include/Standards.fxh"

texture Input < string Label = "Picture"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };

float2 liftWheel <
    string Wheel = "lift";
    string Label = "Lift wheel, across and up";
    float Min = -1.0; float Max = 1.0; float Step = 0.005;
> = float2(0.12, -0.08);
float lift <
    string Label = "Lift"; string Wheel = "lift";
    float Min = -1.0; float Max = 1.0; float Step = 0.01;
> = 0.0;
float2 gammaWheel <
    string Wheel = "gamma";
    string Label = "Gamma wheel, across and up";
    float Min = -1.0; float Max = 1.0; float Step = 0.005;
> = float2(0.0, 0.0);
float gamma <
    string Label = "Gamma"; string Wheel = "gamma";
    float Min = 0.1; float Max = 4.0; float Step = 0.01;
> = 1.0;
float2 gainWheel <
    string Wheel = "gain";
    string Label = "Gain wheel, across and up";
    float Min = -1.0; float Max = 1.0; float Step = 0.005;
> = float2(-0.2, 0.12);
float gain <
    string Label = "Gain"; string Wheel = "gain";
    float Min = 0.0; float Max = 4.0; float Step = 0.01;
> = 1.0;
float saturation < string Label = "Saturation"; float Min = 0.0; float Max = 4.0; float Step = 0.01; > = 1.0;

static const float3 luma = float3(KR_BT709, 1.0 - KR_BT709 - KB_BT709, KB_BT709);

// What a wheel's point adds to the colours: chroma without luma. The rim of the wheel is half of the
// largest chroma there is.
float3 push(float2 wheel)
{
    float blue = wheel.x * (0.5 - 0.5 * KB_BT709);
    float red = wheel.y * (0.5 - 0.5 * KR_BT709);
    return float3(red, -(KR_BT709 * red + KB_BT709 * blue) / luma.y, blue);
}

// pow(x, 1) may differ from x, hence the special case.
float bent(float value, float by)
{
    return by == 1.0 ? value : sign(value) * pow(max(abs(value), 1.0e-20), 1.0 / max(by, 0.01));
}

float4 graded(float2 uv : TEXCOORD0) : COLOR
{
    float4 picture = tex2D(InputSampler, uv);
    float3 value = picture.rgb + (lift + push(liftWheel)) * (1.0 - picture.rgb);
    value *= gain * (1.0 + push(gainWheel));
    float3 by = gamma * (1.0 + push(gammaWheel));
    value = float3(bent(value.r, by.r), bent(value.g, by.g), bent(value.b, by.b));
    return float4(value + (saturation - 1.0) * (value - dot(value, luma)), picture.a);
}

technique ColourWheels
{
    pass P0 { PixelShader = compile ps_3_0 graded(); }
}
