texture Input;

sampler InputSampler = sampler_state
{
    Texture = <Input>;
    MinFilter = Point;
    MagFilter = Point;
};

float4 negative(float2 uv : TEXCOORD0) : COLOR
{
    float4 colour = tex2D(InputSampler, uv);
    return float4(1.0 - colour.rgb, colour.a);
}

technique Negative
{
    pass P
    {
        PixelShader = compile ps_3_0 negative();
    }
}
