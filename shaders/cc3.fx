// Three-way colour correction: lift for shadows, gamma for midtones, gain for highlights, and saturation.
// Lift, gamma and gain each have a master and one control per channel, which combine: lifts add, gammas and
// gains multiply. The defaults change no code, including those below black and above white of video-range
// pictures. Alpha is passed on.

#include "Include/Standards.fxh"

texture Input;

sampler InputSampler = sampler_state
{
    Texture = <Input>;
    MinFilter = Point;
    MagFilter = Point;
    AddressU = Clamp;
    AddressV = Clamp;
};

float lift <
    string Label = "Lift"; string Wheel = "lift";
    float Min = -1.0; float Max = 1.0; float Step = 0.01;
> = 0.0;
float liftRed <
    string Label = "Lift red"; string Wheel = "lift";
    float Min = -1.0; float Max = 1.0; float Step = 0.01;
> = 0.0;
float liftGreen <
    string Label = "Lift green"; string Wheel = "lift";
    float Min = -1.0; float Max = 1.0; float Step = 0.01;
> = 0.0;
float liftBlue <
    string Label = "Lift blue"; string Wheel = "lift";
    float Min = -1.0; float Max = 1.0; float Step = 0.01;
> = 0.0;

float gamma <
    string Label = "Gamma"; string Wheel = "gamma";
    float Min = 0.1; float Max = 4.0; float Step = 0.01;
> = 1.0;
float gammaRed <
    string Label = "Gamma red"; string Wheel = "gamma";
    float Min = 0.1; float Max = 4.0; float Step = 0.01;
> = 1.0;
float gammaGreen <
    string Label = "Gamma green"; string Wheel = "gamma";
    float Min = 0.1; float Max = 4.0; float Step = 0.01;
> = 1.0;
float gammaBlue <
    string Label = "Gamma blue"; string Wheel = "gamma";
    float Min = 0.1; float Max = 4.0; float Step = 0.01;
> = 1.0;

float gain <
    string Label = "Gain"; string Wheel = "gain";
    float Min = 0.0; float Max = 4.0; float Step = 0.01;
> = 1.0;
float gainRed <
    string Label = "Gain red"; string Wheel = "gain";
    float Min = 0.0; float Max = 4.0; float Step = 0.01;
> = 1.0;
float gainGreen <
    string Label = "Gain green"; string Wheel = "gain";
    float Min = 0.0; float Max = 4.0; float Step = 0.01;
> = 1.0;
float gainBlue <
    string Label = "Gain blue"; string Wheel = "gain";
    float Min = 0.0; float Max = 4.0; float Step = 0.01;
> = 1.0;

float saturation < string Label = "Saturation"; float Min = 0.0; float Max = 4.0; float Step = 0.01; > = 1.0;

// Lift moves black and keeps white; gain moves white and keeps black; gamma bends the range between. Below 0
// the curve is mirrored. pow(x, 1) may differ from x, hence the special case.
float grade(float value, float liftBy, float gammaBy, float gainBy)
{
    float v = (value + liftBy * (1.0 - value)) * gainBy;
    float bent = sign(v) * pow(max(abs(v), 1.0e-20), 1.0 / max(gammaBy, 0.01));
    return gammaBy == 1.0 ? v : bent;
}

float4 threeWay(float2 uv : TEXCOORD0) : COLOR0
{
    float4 pixel = tex2D(InputSampler, uv);
    float3 graded = float3(grade(pixel.r, lift + liftRed, gamma * gammaRed, gain * gainRed),
                           grade(pixel.g, lift + liftGreen, gamma * gammaGreen, gain * gainGreen),
                           grade(pixel.b, lift + liftBlue, gamma * gammaBlue, gain * gainBlue));
    float luma = dot(graded, float3(KR_BT709, 1.0 - KR_BT709 - KB_BT709, KB_BT709));
    return float4(graded + (saturation - 1.0) * (graded - luma), pixel.a);
}

technique ThreeWay
{
    pass P0
    {
        PixelShader = compile ps_3_0 threeWay();
    }
}
