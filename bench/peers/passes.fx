// Passes that move bytes and compute nothing: the cost of a conversion between frames of those sizes if its
// arithmetic were free. Every texel of the source is read.

texture Input;

sampler SourceSampler = sampler_state
{
    Texture = <Input>;
    MinFilter = Point;
    MagFilter = Point;
    AddressU = Clamp;
    AddressV = Clamp;
};

// One texel per texel.
float4 same(float2 pos : VPOS) : COLOR0
{
    return tex2Dfetch(SourceSampler, int2(pos));
}

// Two texels per texel of the source.
float4 spread(float2 pos : VPOS) : COLOR0
{
    return tex2Dfetch(SourceSampler, int2(int(pos.x) >> 1, int(pos.y)));
}

// One texel per two of the source.
float4 gather(float2 pos : VPOS) : COLOR0
{
    int2 at = int2(int(pos.x) << 1, int(pos.y));
    return 0.5 * (tex2Dfetch(SourceSampler, at) + tex2Dfetch(SourceSampler, at + int2(1, 0)));
}

// Texels scaled horizontally by the ratio of `targets` to `sources`.
float4 stretch(float2 pos : VPOS, uniform int sources, uniform int targets) : COLOR0
{
    return tex2Dfetch(SourceSampler, int2(int(pos.x) * sources / targets, int(pos.y)));
}

#define TECHNIQUE(NAME, CALL)                                                                                \
    technique NAME                                                                                           \
    {                                                                                                        \
        pass P0                                                                                              \
        {                                                                                                    \
            PixelShader = compile ps_3_0 CALL;                                                               \
        }                                                                                                    \
    }

TECHNIQUE(Same, same())
TECHNIQUE(Spread, spread())
TECHNIQUE(Gather, gather())
TECHNIQUE(FourToThree, stretch(4, 3))
TECHNIQUE(ThreeToFour, stretch(3, 4))
TECHNIQUE(TwoToThree, stretch(2, 3))
