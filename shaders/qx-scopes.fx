// Scopes over the lower part of the picture: a waveform of luma, or of red, green and blue.
//
// A pixel shader cannot collect what other pixels send, it can only look: each pixel of the scope counts
// how many pixels of its column of the picture have its level. So waveforms are exact, and take time in
// proportion to their height times the lines that are read. `lines` bounds these, evenly spread over the
// picture; from the picture's height on every pixel counts. Histograms and vectorscopes would count the
// whole picture for each pixel: they are not here.
//
// Levels are those of the codes: the lowest line is code 0, the uppermost the largest code, a code lies on
// the line that is nearest. Luma is BT.709's, rounded to a code. Lines of the scale mark 0, 25, 50, 75 and
// 100 %. The scope is opaque. A height of 0 changes nothing.

texture Input < string Label = "Picture"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };

float2 inputSize : TEXTURESIZE < string Texture = "Input"; >;
float inputMax : TEXTUREMAXCODE < string Texture = "Input"; >;

float height <
    string Label = "Height, as a part of the picture's";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = 0.4;
float gain <
    string Label = "Brightness of the trace";
    float Min = 0.1; float Max = 50.0; float Step = 0.1;
> = 2.0;
float opacity <
    string Label = "Opacity of the background";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = 0.75;
int lines < string Label = "Lines that are read, at most"; int Min = 16; int Max = 16384; > = 180;

int scopeHeight()
{
    return int(floor(inputSize.y * height + 0.5));
}

// The smallest code that lies on a line of the scope or above it. A code c lies on the line that is nearest to
// c (lines - 1) / (largest code); lines are counted from below.
int firstCodeOf(int level)
{
    int largest = int(inputMax);
    int steps = 2 * (scopeHeight() - 1);
    int first = (largest * (2 * level - 1) + steps - 1) / max(steps, 1);
    return level <= 0 ? 0 : (2 * level > steps ? largest + 1 : first);
}

// How bright luma, red, green and blue draw a point of the scope, which stands for the columns `from` to `to`
// of the picture. An even spread of levels is a quarter at a gain of 1.
float4 traces(int from, int to, int level)
{
    int first = firstCodeOf(level);
    int end = firstCodeOf(level + 1);
    int rows = int(inputSize.y);
    int count = min(lines, rows);
    float4 hits = float4(0.0, 0.0, 0.0, 0.0);
    for (int i = 0; i < count; ++i)
    {
        int y = i * rows / count;
        for (int x = from; x <= to; ++x)
        {
            int3 codes = int3(tex2Dcodes(InputSampler, int2(x, y)).rgb);
            // Luma is compared before it is divided by 10000 and rounded.
            int luma = 2126 * codes.r + 7152 * codes.g + 722 * codes.b + 5000;
            hits += float4(luma >= 10000 * first && luma < 10000 * end, codes.r >= first && codes.r < end,
                           codes.g >= first && codes.g < end, codes.b >= first && codes.b < end);
        }
    }
    float scale = gain * float(scopeHeight()) / (4.0 * float(count * (to - from + 1)));
    return min(hits * scale, 1.0);
}

bool isScale(int level)
{
    int top = scopeHeight() - 1;
    bool marked = false;
    for (int i = 0; i <= 4; ++i)
        marked = marked || level == (top * i + 2) / 4;
    return marked;
}

// The picture with the scope's colours over it.
float4 scope(float4 picture, int level, float3 trace)
{
    float3 behind = picture.rgb * (1.0 - opacity);
    float3 marked = isScale(level) ? max(behind, float3(0.3, 0.3, 0.3)) : behind;
    return float4(max(marked, trace), 1.0);
}

float4 waveform(int2 pixel : VPOS) : COLOR
{
    float4 picture = tex2Dfetch(InputSampler, pixel);
    int level = int(inputSize.y) - 1 - pixel.y;
    if (level >= scopeHeight())
        return picture;
    float trace = traces(pixel.x, pixel.x, level).x;
    return scope(picture, level, trace * float3(0.7, 1.0, 0.75));
}

float4 colours(int2 pixel : VPOS) : COLOR
{
    float4 picture = tex2Dfetch(InputSampler, pixel);
    int level = int(inputSize.y) - 1 - pixel.y;
    if (level >= scopeHeight())
        return picture;
    return scope(picture, level, traces(pixel.x, pixel.x, level).yzw);
}

// Red, green and blue side by side. A column of a third stands for three of the picture; up to two columns
// at the right stay empty.
float4 parade(int2 pixel : VPOS) : COLOR
{
    float4 picture = tex2Dfetch(InputSampler, pixel);
    int level = int(inputSize.y) - 1 - pixel.y;
    if (level >= scopeHeight())
        return picture;
    int third = int(inputSize.x) / 3;
    int which = third > 0 ? pixel.x / third : 3;
    int column = (pixel.x - which * third) * 3;
    float3 trace = float3(0.0, 0.0, 0.0);
    if (which < 3)
    {
        float4 found = traces(column, column + 2, level);
        trace = which == 0   ? found.y * float3(1.0, 0.35, 0.35)
                : which == 1 ? found.z * float3(0.35, 1.0, 0.35)
                             : found.w * float3(0.45, 0.55, 1.0);
    }
    return scope(picture, level, trace);
}

technique Waveform
{
    pass P0 { PixelShader = compile ps_3_0 waveform(); }
}

technique Parade
{
    pass P0 { PixelShader = compile ps_3_0 parade(); }
}

technique Overlay
{
    pass P0 { PixelShader = compile ps_3_0 colours(); }
}
