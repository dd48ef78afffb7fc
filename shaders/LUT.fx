// Applies a colour look-up table. Alpha is passed on. A colour is looked up in 32-bit floats here: device
// filters have only 256 steps between two entries.
//
// Technique LUT: one table with tetrahedral interpolation, a three-dimensional image with red along its first
// axis. The caller that binds it also sets the colours of its first and last entries; colours outside are
// clamped.
//
// Technique Steps: any sequence of curves, matrices, tables and inverted tables, all in one three-dimensional
// image. Its first layer says what they are: the texel (0, 0) is the number of steps; row 1 + i is step i,
// beginning with its kind, the first layer of its entries, how many there are (of a table along an edge),
// and an option. The further texels of the row are:
//   kind 0, curves: (low, roots), (scale): see place(). Point n is the n-th texel of the layers, row by row.
//     Option: the middle channel keeps its share of the distance between the others.
//   kind 1, a matrix: its rows, each with what is added last.
//   kind 2, a table: the colours of its first and last entries. Option: trilinear.
//   kind 3, an inverted table: the first layers of the buckets and of the cells, and how many buckets there are
//     in each channel. A bucket, red running fastest, is the first of its cells and their number; a cell is the
//     place of its dark corner.

// The other techniques draw the same image faster. Their names are the kinds of its steps, which have no option.

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

float3 entryFrom(int3 at, int3 offset)
{
    return tex3Dfetch(TableSampler, at, offset).rgb;
}

// A cell is divided into six tetrahedra along its diagonal from dark to bright. Sorting the fractions selects
// the tetrahedron: the path from the dark corner to the bright one follows the axis of the largest fraction
// first and that of the smallest last.
int3 firstAxis(float3 f)
{
    return f.r >= f.g && f.r >= f.b ? int3(1, 0, 0) : (f.g >= f.b ? int3(0, 1, 0) : int3(0, 0, 1));
}

int3 lastAxis(float3 f)
{
    return f.b <= f.r && f.b <= f.g ? int3(0, 0, 1) : (f.g <= f.r ? int3(0, 1, 0) : int3(1, 0, 0));
}

// `last` is the last entry's place along an axis, `layer` where the first is in the image.
float3 inTetrahedra(float3 place, float last, int layer)
{
    float3 low = min(floor(place), last - 1.0);
    float3 f = place - low;

    float largest = max(f.r, max(f.g, f.b));
    float smallest = min(f.r, min(f.g, f.b));
    float middle = max(min(f.r, f.g), min(max(f.r, f.g), f.b));

    int3 corner = int3(low) + int3(0, 0, layer);
    return entry(corner) * (1.0 - largest) + entryFrom(corner, firstAxis(f)) * (largest - middle) +
           entryFrom(corner, int3(1, 1, 1) - lastAxis(f)) * (middle - smallest) +
           entryFrom(corner, int3(1, 1, 1)) * smallest;
}

float3 lookUp(float3 colour)
{
    float last = tableSize.x - 1.0;
    return inTetrahedra(clamp((colour - domainMin) * (last / (domainMax - domainMin)), 0.0, last), last, 0);
}

float3 inCubes(float3 place, float last, int layer)
{
    float3 low = min(floor(place), last - 1.0);
    float3 f = place - low;
    int3 corner = int3(low) + int3(0, 0, layer);
    float3 dark = lerp(lerp(entry(corner), entry(corner + int3(1, 0, 0)), f.r),
                       lerp(entry(corner + int3(0, 1, 0)), entry(corner + int3(1, 1, 0)), f.r), f.g);
    float3 bright = lerp(lerp(entry(corner + int3(0, 0, 1)), entry(corner + int3(1, 0, 1)), f.r),
                         lerp(entry(corner + int3(0, 1, 1)), entry(corner + int3(1, 1, 1)), f.r), f.g);
    return lerp(dark, bright, f.b);
}

// A texel of the first layer.
float4 described(int x, int y)
{
    return tex3Dfetch(TableSampler, int3(x, y, 0));
}

// The n-th texel of the layers that begin at `layer`. The halves keep the quotients clear of rounding.
int3 inLayers(float n, int layer)
{
    float edge = tableSize.x;
    float row = floor((n + 0.5) / edge);
    float z = floor((row + 0.5) / edge);
    return int3(int(n - row * edge), int(row - z * edge), layer + int(z));
}

// Where a curve's input is among its points, which are at equal distances of its root. Rounding moves codes
// beside the points that are theirs: they are moved back.
float place(float x, float low, float roots, float scale, float last)
{
    float root = abs(x);
    for (float i = 0.5; i < roots; i += 1.0)
        root = sqrt(root);
    float at = clamp(((x < 0.0 ? -root : root) - low) * scale, 0.0, last);
    float nearest = floor(at + 0.5);
    return abs(at - nearest) < 1.5e-7 * last ? nearest : at;
}

// The points on both sides of a place, and how far it is from the first to the second.
float onCurve(float at, float last, int layer, uniform int channel)
{
    float low = min(floor(at), last - 1.0);
    float f = at - low;
    return entry(inLayers(low, layer))[channel] * (1.0 - f) + entry(inLayers(low + 1.0, layer))[channel] * f;
}

float middleKept(float3 inputs, float3 outputs)
{
    float extent = inputs.z - inputs.x;
    return outputs.x + (extent != 0.0 ? (inputs.y - inputs.x) / extent : 0.0) * (outputs.z - outputs.x);
}

float3 throughCurves(float3 colour, int row, int layer, float last, bool keepsHue)
{
    float4 low = described(1, row);
    float3 scale = described(2, row).rgb;
    float3 curved;
    curved.r = onCurve(place(colour.r, low.r, low.a, scale.r, last), last, layer, 0);
    curved.g = onCurve(place(colour.g, low.g, low.a, scale.g, last), last, layer, 1);
    curved.b = onCurve(place(colour.b, low.b, low.a, scale.b, last), last, layer, 2);
    if (keepsHue)
    {
        if ((colour.r > colour.g) != (colour.r > colour.b))
            curved.r = middleKept(colour.grb, curved.grb);
        else if ((colour.g > colour.b) == (colour.r > colour.b))
            curved.g = middleKept(colour.rgb, curved.rgb);
        else
            curved.b = middleKept(colour.rbg, curved.rbg);
    }
    return curved;
}

float3 throughMatrix(float3 colour, int row)
{
    float4 padded = float4(colour, 1.0);
    return float3(dot(described(1, row), padded), dot(described(2, row), padded),
                  dot(described(3, row), padded));
}

float3 throughTable(float3 colour, int row, int layer, float last, bool trilinear)
{
    float3 low = described(1, row).rgb;
    float3 at = clamp((colour - low) * (last / (described(2, row).rgb - low)), 0.0, last);
    return trilinear ? inCubes(at, last, layer) : inTetrahedra(at, last, layer);
}

// The shares of three edges that come nearest to a colour, and how far they are from it: 0 if the colour is in
// the tetrahedron of the edges, up to rounding. The shares of a flat tetrahedron may be anything, so they count
// only if they add up to the colour.
float4 inTetrahedron(float3 missing, float3 first, float3 second, float3 third)
{
    float3 across = cross(second, third);
    float volume = dot(first, across);
    if (volume == 0.0)
        return float4(0.0, 0.0, 0.0, 1e30);
    float3 f = float3(dot(missing, across), dot(missing, cross(third, first)),
                      dot(missing, cross(first, second))) / volume;
    float depth = min(min(1.0 - f.x, f.x - f.y), min(f.y - f.z, f.z));
    f.x = clamp(f.x, 0.0, 1.0);
    f.y = clamp(f.y, 0.0, f.x);
    f.z = clamp(f.z, 0.0, f.y);
    float3 rest = abs(missing - first * f.x - second * f.y - third * f.z);
    float3 sizes = abs(first) + abs(second) + abs(third);
    float off = max(rest.r, max(rest.g, rest.b));
    float rounding = 2e-6 * (1.0 + max(sizes.r, max(sizes.g, sizes.b)));
    return float4(f, depth >= -1e-6 && off <= rounding ? 0.0 : max(off, 1e-30));
}

// The first place that has the colour; else the one that is nearest to it.
float4 better(float4 best, float4 other)
{
    return other.w < best.w ? other : best;
}

// The place in a cell where the table comes nearest to the colour, and how far it is from it.
float4 inCell(float3 wanted, int3 corner)
{
    float3 dark = entry(corner);
    float3 r = entry(corner + int3(1, 0, 0));
    float3 g = entry(corner + int3(0, 1, 0));
    float3 b = entry(corner + int3(0, 0, 1));
    float3 rg = entry(corner + int3(1, 1, 0));
    float3 rb = entry(corner + int3(1, 0, 1));
    float3 gb = entry(corner + int3(0, 1, 1));
    float3 bright = entry(corner + int3(1, 1, 1));
    float3 missing = wanted - dark;
    float4 best = inTetrahedron(missing, r - dark, rg - r, bright - rg).xyzw;
    best = better(best, inTetrahedron(missing, g - dark, rg - g, bright - rg).yxzw);
    best = better(best, inTetrahedron(missing, g - dark, gb - g, bright - gb).zxyw);
    best = better(best, inTetrahedron(missing, b - dark, gb - b, bright - gb).zyxw);
    best = better(best, inTetrahedron(missing, b - dark, rb - b, bright - rb).yzxw);
    return better(best, inTetrahedron(missing, r - dark, rb - r, bright - rb).xzyw);
}

float3 throughInverse(float3 colour, int row, int layer, float last)
{
    float3 wanted = clamp(colour, 0.0, 1.0);
    float3 search = described(1, row).rgb;
    float3 bucket = floor(min(wanted * search.b, search.b - 1.0));
    int ranges = int(search.r + 0.5);
    int cells = int(search.g + 0.5);
    float3 range = entry(inLayers(bucket.r + search.b * (bucket.g + search.b * bucket.b), ranges));
    float4 best = float4(0.0, 0.0, 0.0, 1e30);
    for (float i = 0.0; i < range.g && best.w > 0.0; i += 1.0)
    {
        float3 cell = entry(inLayers(range.r + i, cells));
        float4 found = inCell(wanted, int3(cell + 0.5) + int3(0, 0, layer));
        if (found.w < best.w)
            best = float4(found.xyz + cell, found.w);
    }
    return best.w > 1e-3 ? float3(0.0, 0.0, 0.0) : clamp((best.xyz - 1.0) / (last - 2.0), 0.0, 1.0);
}

float3 throughSteps(float3 colour)
{
    int count = int(described(0, 0).r + 0.5);
    for (int i = 1; i <= count; ++i)
    {
        float4 head = described(0, i);
        int layer = int(head.g + 0.5);
        float last = head.b - 1.0;
        bool option = head.a > 0.5;
        if (head.r < 0.5)
            colour = throughCurves(colour, i, layer, last, option);
        else if (head.r < 1.5)
            colour = throughMatrix(colour, i);
        else if (head.r < 2.5)
            colour = throughTable(colour, i, layer, last, option);
        else
            colour = throughInverse(colour, i, layer, last);
    }
    return colour;
}

// The codes that are nearest, independently of the device: what is returned is truncated.
float4 mixed(float4 pixel, float3 changed)
{
    float3 colour = changed * amount + pixel.rgb * (1.0 - amount);
    return float4(colour, pixel.a) * targetMax + 0.5;
}

float4 look(float2 uv : TEXCOORD0) : COLORCODE
{
    float4 pixel = tex2D(InputSampler, uv);
    return mixed(pixel, lookUp(pixel.rgb));
}

float4 steps(float2 uv : TEXCOORD0) : COLORCODE
{
    float4 pixel = tex2D(InputSampler, uv);
    return mixed(pixel, throughSteps(pixel.rgb));
}

// A step whose kind is known when the shader is compiled. A device that runs both ways of a branch pays for one.
float3 throughKnown(float3 colour, int row, uniform int kind)
{
    if (kind == 1)
        return throughMatrix(colour, row);
    float4 head = described(0, row);
    int layer = int(head.g + 0.5);
    float last = head.b - 1.0;
    if (kind == 0)
        return throughCurves(colour, row, layer, last, false);
    return throughTable(colour, row, layer, last, false);
}

float4 knownSteps(float2 uv : TEXCOORD0, uniform int first, uniform int second) : COLORCODE
{
    float4 pixel = tex2D(InputSampler, uv);
    float3 changed = throughKnown(pixel.rgb, 1, first);
    if (second >= 0)
        changed = throughKnown(changed, 2, second);
    return mixed(pixel, changed);
}

technique LUT
{
    pass P0
    {
        PixelShader = compile ps_3_0 look();
    }
}

technique Steps
{
    pass P0
    {
        PixelShader = compile ps_3_0 steps();
    }
}

technique Curves
{
    pass P0
    {
        PixelShader = compile ps_3_0 knownSteps(0, -1);
    }
}

technique Matrix
{
    pass P0
    {
        PixelShader = compile ps_3_0 knownSteps(1, -1);
    }
}

technique CurvesTable
{
    pass P0
    {
        PixelShader = compile ps_3_0 knownSteps(0, 2);
    }
}
