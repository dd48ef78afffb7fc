// Images of the library hold A R G B; a swapchain shows R G B A. An effect's result is stored as a, r, g, b in this order.

texture Input;

sampler InputSampler = sampler_state
{
    Texture = <Input>;
    MinFilter = Point;
    MagFilter = Point;
};

float4 inOrder(float2 uv : TEXCOORD0) : COLOR
{
    float4 colour = tex2D(InputSampler, uv);
    return float4(colour.g, colour.b, colour.a, colour.r);
}

technique RGBA
{
    pass P
    {
        PixelShader = compile ps_3_0 inOrder();
    }
}
