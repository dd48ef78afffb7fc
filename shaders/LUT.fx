// Applies a colour look-up table with tetrahedral interpolation. The table is a three-dimensional image with
// red along its first axis. The caller that binds it also sets the colours of its first and last entries;
// colours outside are clamped. Alpha is passed on.
//
// The weights are computed here in 32-bit floats: device filters have only 256 steps between two entries.

texture Input;
texture LUT;

sampler InputSampler = sampler_state
{
    Texture = <Input>;
    MinFilter = Point;
    MagFilter = Point;
    AddressU = Clamp;
    AddressV = Clamp;
};

sampler3D TableSampler = sampler_state
{
    Texture = <LUT>;
};

float amount < string Label = "Amount"; float Min = 0.0; float Max = 1.0; float Step = 0.01; > = 1.0;

// The colours of the table's first and last entries: red, green, blue.
float3 domainMin = { 0.0, 0.0, 0.0 };
float3 domainMax = { 1.0, 1.0, 1.0 };

float2 tableSize : TEXTURESIZE < string Texture = "LUT"; >;
float targetMax : TARGETMAXCODE;

float3 entry(int3 at)
{
    return tex3Dfetch(TableSampler, at).rgb;
}

// The cell around the colour is divided into six tetrahedra along its diagonal from dark to bright. Sorting
// the fractions selects the tetrahedron: the path from the dark corner to the bright one follows the axis of
// the largest fraction first and that of the smallest last.
float3 lookUp(float3 colour)
{
    float last = tableSize.x - 1.0;
    float3 place = clamp((colour - domainMin) / (domainMax - domainMin), 0.0, 1.0) * last;
    float3 low = min(floor(place), last - 1.0);
    float3 f = place - low;

    int3 first = f.r >= f.g && f.r >= f.b ? int3(1, 0, 0) : (f.g >= f.b ? int3(0, 1, 0) : int3(0, 0, 1));
    int3 third = f.b <= f.r && f.b <= f.g ? int3(0, 0, 1) : (f.g <= f.r ? int3(0, 1, 0) : int3(1, 0, 0));
    float largest = max(f.r, max(f.g, f.b));
    float smallest = min(f.r, min(f.g, f.b));
    float middle = max(min(f.r, f.g), min(max(f.r, f.g), f.b));

    int3 corner = int3(low);
    return entry(corner) * (1.0 - largest) + entry(corner + first) * (largest - middle) +
           entry(corner + int3(1, 1, 1) - third) * (middle - smallest) +
           entry(corner + int3(1, 1, 1)) * smallest;
}

// Rounds to the nearest code, independently of the device. A floating-point target takes the value itself.
float3 rounded(float3 colour)
{
    return targetMax > 1.5 ? floor(clamp(colour, 0.0, 1.0) * targetMax + 0.5) / targetMax : colour;
}

float4 look(float2 uv : TEXCOORD0) : COLOR0
{
    float4 pixel = tex2D(InputSampler, uv);
    float3 changed = lookUp(pixel.rgb);
    float3 mixed = amount == 1.0 ? changed : pixel.rgb + amount * (changed - pixel.rgb);
    return float4(rounded(mixed), pixel.a);
}

technique LUT
{
    pass P0
    {
        PixelShader = compile ps_3_0 look();
    }
}
