// Colours times their opacity, and back. Codes of full range, or floats; opacity stays.

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

// Codes of floats have no largest one, and what is between two of them counts.
float4 nearest(float4 codes)
{
    return targetMax > 65535.0 ? codes : floor(codes + 0.5);
}

// To the nearest code; codes of the source's depth at the target's.
float4 premultiplied(int2 pixel : VPOS) : COLORCODE
{
    float4 own = tex2Dcodes(SourceSampler, pixel);
    float scale = targetMax / inputMax;
    return nearest(float4(own.rgb * (own.a / inputMax), own.a) * scale);
}

// A colour without opacity stays: it is light that is added. So does the part of one that is more than its opacity
// allows, as far as codes hold it.
float4 unpremultiplied(int2 pixel : VPOS) : COLORCODE
{
    float4 own = tex2Dcodes(SourceSampler, pixel);
    float scale = targetMax / inputMax;
    float most = inputMax > 65535.0 ? 3.0e38 : inputMax;
    float3 colour = own.a > 0.0 ? min(own.rgb * (inputMax / own.a), most) : own.rgb;
    return nearest(float4(colour, own.a) * scale);
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
