// Vignette: the picture darkens toward its corners.
//
// The codes are multiplied, which multiplies the light by a power of the same factor and keeps hues.
// Distances from the centre are counted so that a corner has 1. Alpha is passed on. An amount of 0 changes
// nothing.

texture Input < string Label = "Picture"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };

float2 targetSize : TARGETSIZE;

float amount <
    string Label = "Amount, 1 is black";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = 0.7;
float size <
    string Label = "Distance from the centre of half the darkening, 1 is a corner";
    float Min = 0.0; float Max = 1.5; float Step = 0.01;
> = 0.75;
float softness <
    string Label = "Width of the transition, 1 is from centre to corner";
    float Min = 0.0; float Max = 2.0; float Step = 0.01;
> = 0.7;
float roundness <
    string Label = "Roundness, 0 an ellipse in the picture's shape, 1 a circle";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = 0.0;

float4 vignette(float2 uv : TEXCOORD0) : COLOR
{
    float4 picture = tex2D(InputSampler, uv);
    float2 shape = lerp(float2(1.0, 1.0), targetSize / targetSize.y, roundness);
    float away = length((uv - 0.5) * 2.0 * shape) / length(shape);
    float width = max(softness, 0.0001);
    float darkened = smoothstep(size - 0.5 * width, size + 0.5 * width, away);
    return float4(picture.rgb * (1.0 - amount * darkened), picture.a);
}

technique Vignette
{
    pass P0 { PixelShader = compile ps_3_0 vignette(); }
}
