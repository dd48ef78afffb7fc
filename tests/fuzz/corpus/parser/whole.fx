texture Input < string Label = "A"; int N = 1; >;
texture2D Second : FG;
sampler S = sampler_state { Texture = <Input>; MinFilter = Linear; MagFilter = Linear; AddressU = Wrap; AddressV = Mirror; };
sampler2D S2 = sampler_state { Texture = (Second); BorderColor = 0; };
float gain < string Label = "Gain"; float Min = 0; float Max = 2.5; > = 1.0;
float4 tint = { 1, 0.5f, 0x10, 1e-3 };
float4x4 m = float4x4(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1);
half3 table[3] = { { 1, 2, 3 }, 4, 5, 6, 7, 8, 9 };
float2 size : TEXTURESIZE < string Texture = "Input"; >;
float most : TEXTUREMAXCODE < string Texture = "Second"; >;
float2 target : TARGETSIZE; float code : TARGETMAXCODE;
bool on = true, off = false; int3 i = (int3)2.7, j;
static const float pi = 3.14159, tau = pi * 2;
static const float weights[] = { 0.25, 0.5, 0.25 };
const float twice = tau * 2 > 1 ? max(1, 2) : -1;
typedef vector<float, 3> colour;
string note = "text" " more";
struct In { float2 uv : TEXCOORD0; float4 other : TEXCOORD1; float2 at : VPOS; };
struct Out { float4 c : COLOR0; };
float4 helper(uniform sampler s, float2 uv, inout float x, const in float y) { x += y; return tex2D(s, uv) * table[1].xyzx; }
Out f(In input, uniform float a, uniform sampler2D s, uniform bool b = true)
{
    Out o; float k = 0;
    [unroll] for (int n = 0; n < 3; ++n) { if (n > 1) k += weights[n]; else k *= 2; }
    o.c = helper(s, input.uv, k, a) + m._m00 + (b ? 1 : twice);
    return o;
}
void g(float2 uv : TEXCOORD0, out float4 c : COLOR) { c = tex2Dfetch(S2, int2(uv * size)); }
technique T < string Label = "T"; > { pass P0 < int x = 1; > { PixelShader = compile ps_3_0 f(gain, S, on); AlphaBlendEnable = false; } pass { VertexShader = NULL; PixelShader = compile ps_2_0 g(); } }
technique U { pass P { pixelshader = compile PS_2_A f(1.5 * gain, S2); CullMode = None; ColorWriteEnable[1] = 7; } }
