// White balance: what is grey in the light of the scene becomes grey.
//
// The light of the scene is given by its colour temperature and its tint, a distance in the chromaticity
// diagram of CIE 1960. Up to 4000 kelvins it is that of a glowing body (the Planckian locus), from 5000 on it
// lies as far beside as daylight does: 6504 kelvins are D65, the white of BT.709. Colours are adapted to D65 as
// the eye adapts, with Bradford's cone responses. That is computed in light, not in codes, since lamps and
// sensors add light: the colours are taken to the light of a display of gamma 2.4 (ITU-R BT.1886), and back.
// The luminance of a white surface is kept; alpha is passed on. 6504 kelvins without a tint change nothing.

#include "Include/Light.fxh"

texture Input < string Label = "Picture"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };

float temperature <
    string Label = "Colour temperature of the scene's light in kelvins";
    float Min = 2000.0; float Max = 15000.0; float Step = 10.0;
> = 5000.0;
float tint <
    string Label = "Tint of the scene's light in thousandths of Duv, above 0 greener";
    float Min = -50.0; float Max = 50.0; float Step = 0.5;
> = 0.0;

#define UNCHANGED 6504.0
#define D65 float2(0.19783001, 0.31221333) // x = 0.3127, y = 0.3290

// Cone responses of the primaries of BT.709 (white D65): Bradford's matrix times the primaries' XYZ.
static const float3x3 conesOfLight = {
    0.42265804, 0.49135664, 0.02736450,
    0.05569080, 0.96155621, 0.02318937,
    0.02137924, 0.08764392, 0.98074343
};
static const float3x3 lightOfCones = {
    2.53844797, -1.29348257, -0.04024325,
    -0.14600037, 1.11662241, -0.02232852,
    -0.04228838, -0.07159007, 1.02250731
};
static const float3x3 bradford = {
    0.8951, 0.2664, -0.1614,
    -0.7502, 1.7135, 0.0367,
    0.0389, -0.0685, 1.0296
};

// The Planckian locus in u and v of CIE 1960, by M. Krystek's rational functions (1985), from 1000 to 15000
// K.
float2 locus(float kelvins)
{
    float t = kelvins * 0.001;
    return float2((0.860117757 + t * (0.154118254 + t * 0.128641212)) /
                      (1.0 + t * (0.842420235 + t * 0.708145163)),
                  (0.317398726 + t * (0.0422806245 + t * 0.0420481691)) /
                      (1.0 - t * (0.0289741816 - t * 0.161456053)));
}

// Cone responses of a white surface in that light, of a luminance of 1.
float3 conesOfWhite(float kelvins, float duv)
{
    float2 along = normalize(locus(kelvins * 0.99) - locus(kelvins * 1.01));
    float2 daylight = D65 - locus(UNCHANGED);
    float2 place = locus(kelvins) + daylight * saturate((kelvins - 4000.0) / 1000.0) +
                   duv * float2(-along.y, along.x);
    float3 xyz = float3(1.5 * place.x, place.y, 2.0 - 0.5 * place.x - 5.0 * place.y) / place.y;
    return mul(bradford, xyz);
}

float4 balanced(float2 uv : TEXCOORD0) : COLOR
{
    float4 picture = tex2D(InputSampler, uv);
    float3 gains = conesOfWhite(UNCHANGED, 0.0) / conesOfWhite(temperature, tint * 0.001);
    float3 light = mul(lightOfCones, mul(conesOfLight, lightOf(picture.rgb)) * gains);
    bool neutral = temperature == UNCHANGED && tint == 0.0;
    return neutral ? picture : float4(colourOf(light), picture.a);
}

technique WhiteBalance
{
    pass P0 { PixelShader = compile ps_3_0 balanced(); }
}
