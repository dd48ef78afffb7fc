// Colours times their opacity, and back. Codes of full range; opacity stays.

texture Input;

sampler SourceSampler = sampler_state
{
    Texture = <Input>;
    MinFilter = Point;
    MagFilter = Point;
    AddressU = Clamp;
    AddressV = Clamp;
};

float inputMax : TEXTUREMAXCODE < string Texture = "Input"; >;
float targetMax : TARGETMAXCODE;

// To the nearest code; codes of the source's depth at the target's.
float4 premultiplied(int2 pixel : VPOS) : COLORCODE
{
    float4 own = tex2Dcodes(SourceSampler, pixel);
    float scale = targetMax / inputMax;
    return floor(float4(own.rgb * (own.a / inputMax), own.a) * scale + 0.5);
}

// A colour without opacity stays: it is light that is added. So does the part of one that is more than its opacity
// allows, as far as codes hold it.
float4 unpremultiplied(int2 pixel : VPOS) : COLORCODE
{
    float4 own = tex2Dcodes(SourceSampler, pixel);
    float scale = targetMax / inputMax;
    float3 colour = own.a > 0.0 ? min(own.rgb * (inputMax / own.a), inputMax) : own.rgb;
    return floor(float4(colour, own.a) * scale + 0.5);
}

technique Premultiply
{
    pass P0
    {
        PixelShader = compile ps_3_0 premultiplied();
    }
}

technique Unpremultiply
{
    pass P0
    {
        PixelShader = compile ps_3_0 unpremultiplied();
    }
}
