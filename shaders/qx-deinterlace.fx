// Deinterlacing within a frame: one field is kept, the lines of the other are made anew.
//
// Bob: a missing line is the mean of the lines above and below. EdgeDirected: the mean is taken along the
// direction, up to two pixels aside, in which both lines differ least; straight up and down where several
// do. Blend: both fields stay, each line mixed with its neighbours, 1 : 2 : 1.
//
// Means are computed of whole codes, halves rounded up. So the lines of the kept field are unchanged to the
// code, and a picture that does not move and rises evenly from line to line is unchanged by every
// technique, but for the first and last line: a missing one there copies its only neighbour. Alpha is
// treated like a colour. `fieldOrder` says which field is earlier; `secondField` keeps the later one.

texture Input < string Label = "Picture"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };

float2 inputSize : TEXTURESIZE < string Texture = "Input"; >;
float inputMax : TEXTUREMAXCODE < string Texture = "Input"; >;
float targetMax : TARGETMAXCODE;

int fieldOrder <
    string Label = "Field order, 0 top field first, 1 bottom field first";
    string Choices = "Top field first;Bottom field first";
    int Min = 0; int Max = 1;
> = 0;
bool secondField < string Label = "Keep the second field"; > = false;

float4 codesAt(int x, int y)
{
    int2 last = int2(inputSize) - 1;
    return tex2Dcodes(InputSampler, int2(clamp(x, 0, last.x), clamp(y, 0, last.y)));
}

// Whether the line is one of the field that is kept. The top field has the lines 0, 2, ...
bool isKept(int y)
{
    return (y & 1) == ((fieldOrder + (secondField ? 1 : 0)) & 1);
}

// The line above a missing one, or below: the other one beyond the picture's edge.
int above(int y)
{
    return y > 0 ? y - 1 : y + 1;
}

int below(int y)
{
    return y + 1 < int(inputSize.y) ? y + 1 : y - 1;
}

float4 mean(float4 one, float4 other)
{
    return floor((one + other + 1.0) * 0.5);
}

// Codes of the source as codes of the target.
float4 result(float4 codes)
{
    return codes * (targetMax / inputMax) + 0.5;
}

float4 bob(int2 pixel : VPOS) : COLORCODE
{
    float4 own = codesAt(pixel.x, pixel.y);
    float4 made = mean(codesAt(pixel.x, above(pixel.y)), codesAt(pixel.x, below(pixel.y)));
    return result(isKept(pixel.y) ? own : made);
}

float4 blend(int2 pixel : VPOS) : COLORCODE
{
    float4 sum = codesAt(pixel.x, above(pixel.y)) + codesAt(pixel.x, below(pixel.y));
    return result(floor((sum + 2.0 * codesAt(pixel.x, pixel.y) + 2.0) * 0.25));
}

float4 edgeDirected(int2 pixel : VPOS) : COLORCODE
{
    int top = above(pixel.y);
    int bottom = below(pixel.y);
    float4 made = float4(0.0, 0.0, 0.0, 0.0);
    float least = 1.0e9;
    // Straight first, so that it wins among equals.
    for (int i = 0; i < 5; ++i)
    {
        int aside = (i & 1) == 1 ? (i + 1) / 2 : -i / 2;
        float4 upper = codesAt(pixel.x + aside, top);
        float4 lower = codesAt(pixel.x - aside, bottom);
        float difference = dot(abs(upper.rgb - lower.rgb), float3(1.0, 1.0, 1.0));
        bool isInside = pixel.x >= abs(aside) && pixel.x + abs(aside) < int(inputSize.x);
        bool better = isInside && difference < least;
        made = better ? mean(upper, lower) : made;
        least = better ? difference : least;
    }
    return result(isKept(pixel.y) ? codesAt(pixel.x, pixel.y) : made);
}

technique Bob
{
    pass P0 { PixelShader = compile ps_3_0 bob(); }
}

technique Blend
{
    pass P0 { PixelShader = compile ps_3_0 blend(); }
}

technique EdgeDirected
{
    pass P0 { PixelShader = compile ps_3_0 edgeDirected(); }
}
