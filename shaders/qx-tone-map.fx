// Pictures of high dynamic range or wide gamut become pictures of BT.709, for a display of 100 cd/m2 (ITU-R
// BT.1886, gamma 2.4).
//
// The codes are taken to light in cd/m2 with the primaries of BT.2020, made darker by the chosen method, and
// taken to the primaries of BT.709. Colours beyond these are clipped there (ITU-R BT.2407, 2.2). Techniques:
//
//   BT2390   ITU-R BT.2390-10, 5.4.1, on luminance; the ratio of red, green and blue is kept. Parts that are
//            dark enough keep their light.
//   BT2446A  ITU-R BT.2446-1, method A, on gamma-coded luma. The whole picture is mapped, and bright colours
//            lose some of their saturation.
//   Gamut    no tone mapping: for pictures of BT.2020 without high dynamic range.
//
// Full range RGB is expected. Alpha is passed on.

#include "Include/Light.fxh"

texture Input < string Label = "Picture"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };

int transfer <
    string Label = "Transfer characteristic: 0 gamma 2.4, 1 PQ, 2 HLG";
    string Choices = "Gamma 2.4;PQ;HLG";
    int Min = 0; int Max = 2;
> = 1;
int primaries <
    string Label = "Primaries: 0 BT.709, 1 BT.2020, 2 P3 with the white of D65";
    string Choices = "BT.709;BT.2020;P3 with the white of D65";
    int Min = 0; int Max = 2;
> = 1;
float peak <
    string Label = "Luminance of the brightest colour in cd/m2; HLG is shown at this peak";
    float Min = 100.0; float Max = 10000.0; float Step = 1.0;
> = 1000.0;

#define TARGET_PEAK 100.0

// From the chromaticities of the primaries (BT.709-6, table 1; BT.2020-2, table 3; SMPTE EG 432-1) and of D65,
// x = 0.3127 and y = 0.3290.
static const float3x3 bt2020OfBt709 = {
    0.62740390, 0.32928304, 0.04331307,
    0.06909729, 0.91954040, 0.01136232,
    0.01639144, 0.08801331, 0.89559525
};
static const float3x3 bt2020OfP3 = {
    0.75383303, 0.19859737, 0.04756960,
    0.04574385, 0.94177722, 0.01247893,
    -0.00121034, 0.01760172, 0.98360862
};
static const float3x3 bt709OfBt2020 = {
    1.66049100, -0.58764114, -0.07284986,
    -0.12455047, 1.13289990, -0.00834942,
    -0.01815076, -0.10057890, 1.11872966
};
static const float3 luminanceOfBt2020 = { 0.2627, 0.6780, 0.0593 };

// ITU-R BT.2100-2, table 4.
#define PQ_M1 (2610.0 / 16384.0)
#define PQ_M2 (2523.0 / 4096.0 * 128.0)
#define PQ_C1 (3424.0 / 4096.0)
#define PQ_C2 (2413.0 / 4096.0 * 32.0)
#define PQ_C3 (2392.0 / 4096.0 * 32.0)

float3 lightOfPq(float3 code)
{
    float3 p = pow(saturate(code), 1.0 / PQ_M2);
    return 10000.0 * pow(max(p - PQ_C1, 0.0) / (PQ_C2 - PQ_C3 * p), 1.0 / PQ_M1);
}

float pqOfLight(float light)
{
    float p = pow(saturate(light / 10000.0), PQ_M1);
    return pow((PQ_C1 + PQ_C2 * p) / (1.0 + PQ_C3 * p), PQ_M2);
}

// ITU-R BT.2100-2, table 5: the inverse of the camera's curve, and the display's share (OOTF).
#define HLG_A 0.17883277
#define HLG_B 0.28466892
#define HLG_C 0.55991073

float3 lightOfHlg(float3 code)
{
    float3 c = saturate(code);
    float3 scene = c <= 0.5 ? c * c / 3.0 : (exp((c - HLG_C) / HLG_A) + HLG_B) / 12.0;
    float gamma = 1.2 + 0.42 * log10(peak / 1000.0);
    return peak * pow(max(dot(luminanceOfBt2020, scene), 0.000001), gamma - 1.0) * scene;
}

// Light in cd/m2, with the primaries of BT.2020.
float3 lightOfPicture(float3 code)
{
    float3 light = transfer == 1 ? lightOfPq(code) : transfer == 2 ? lightOfHlg(code) : TARGET_PEAK * lightOf(code);
    return primaries == 0 ? mul(bt2020OfBt709, light) : primaries == 2 ? mul(bt2020OfP3, light) : light;
}

float3 pictureOfLight(float3 light)
{
    return colourOf(saturate(mul(bt709OfBt2020, light / TARGET_PEAK)));
}

// Of a luminance, in PQ: straight up to the knee, a Hermite spline from there to the target's peak.
float darkerInPq(float luminance)
{
    float most = pqOfLight(max(peak, TARGET_PEAK));
    float target = pqOfLight(TARGET_PEAK) / most;
    float knee = 1.5 * target - 0.5;
    float e = min(pqOfLight(luminance) / most, 1.0);
    float t = (e - knee) / max(1.0 - knee, 0.000001);
    float t2 = t * t;
    float t3 = t2 * t;
    float spline = (2.0 * t3 - 3.0 * t2 + 1.0) * knee + (t3 - 2.0 * t2 + t) * (1.0 - knee) +
                   (3.0 * t2 - 2.0 * t3) * target;
    float mapped = (e < knee ? e : spline) * most;
    return lightOfPq(mapped.xxx).x;
}

float3 mappedBy2390(float3 light)
{
    float luminance = max(dot(luminanceOfBt2020, light), 0.0);
    return luminance > 0.0 ? light * (darkerInPq(luminance) / luminance) : light;
}

float3 mappedBy2446A(float3 light)
{
    float3 code = pow(saturate(light / peak), 1.0 / 2.4);
    float luma = dot(luminanceOfBt2020, code);
    float rhoSource = 1.0 + 32.0 * pow(peak / 10000.0, 1.0 / 2.4);
    float rhoTarget = 1.0 + 32.0 * pow(TARGET_PEAK / 10000.0, 1.0 / 2.4);
    float perceived = log(1.0 + (rhoSource - 1.0) * luma) / log(rhoSource);
    float bent = perceived <= 0.7399
                     ? 1.0770 * perceived
                     : (perceived < 0.9909 ? (-1.1510 * perceived + 2.7811) * perceived - 0.6302
                                           : 0.5 * perceived + 0.5);
    float mapped = (pow(rhoTarget, bent) - 1.0) / (rhoTarget - 1.0);
    float share = luma > 0.0 ? mapped / (1.1 * luma) : 0.0;
    float cb = share * (code.b - luma) / 1.8814;
    float cr = share * (code.r - luma) / 1.4746;
    float y = mapped - max(0.1 * cr, 0.0);
    float red = y + 1.4746 * cr;
    float blue = y + 1.8814 * cb;
    float green = y - (0.2627 * 1.4746 / 0.6780) * cr - (0.0593 * 1.8814 / 0.6780) * cb;
    return TARGET_PEAK * lightOf(float3(red, green, blue));
}

float4 bt2390(float2 uv : TEXCOORD0) : COLOR
{
    float4 picture = tex2D(InputSampler, uv);
    return float4(pictureOfLight(mappedBy2390(lightOfPicture(picture.rgb))), picture.a);
}

float4 bt2446a(float2 uv : TEXCOORD0) : COLOR
{
    float4 picture = tex2D(InputSampler, uv);
    return float4(pictureOfLight(mappedBy2446A(lightOfPicture(picture.rgb))), picture.a);
}

float4 gamut(float2 uv : TEXCOORD0) : COLOR
{
    float4 picture = tex2D(InputSampler, uv);
    return float4(pictureOfLight(lightOfPicture(picture.rgb)), picture.a);
}

technique BT2390
{
    pass P0 { PixelShader = compile ps_3_0 bt2390(); }
}

technique BT2446A
{
    pass P0 { PixelShader = compile ps_3_0 bt2446a(); }
}

technique Gamut
{
    pass P0 { PixelShader = compile ps_3_0 gamut(); }
}
