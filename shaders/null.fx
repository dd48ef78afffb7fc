// Copies and plain rearrangements of an image.

texture Input;

sampler InputSampler = sampler_state
{
    Texture = <Input>;
    MinFilter = Point;
    MagFilter = Point;
    AddressU = Clamp;
    AddressV = Clamp;
};

// The size of the image, as the caller counts it.
float _Width = 0.0;
float _Height = 0.0;

float4 copy(float2 uv : TEXCOORD0) : COLOR0
{
    return tex2D(InputSampler, uv);
}

technique Null
{
    pass P0
    {
        PixelShader = compile ps_3_0 copy();
    }
}
