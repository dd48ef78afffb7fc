// Curves: a master curve for all colours, then one each for red, green and blue.
//
// A curve goes through five points, whose values at 0, 1/4, 1/2, 3/4 and 1 of the range are given. Between
// them it is a cubic that rises where the points rise and never overshoots them (Fritsch and Butland's
// tangents). Works on the codes as they are; alpha is passed on. Points on a line change nothing.

texture Input < string Label = "Picture"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };

#define STRAIGHT { 0.0, 0.25, 0.5, 0.75, 1.0 }

float master[5] <
    string Label = "Master curve at 0, 1/4, 1/2, 3/4, 1";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = { 0.0, 0.18, 0.5, 0.82, 1.0 };
float red[5] <
    string Label = "Red at 0, 1/4, 1/2, 3/4, 1";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = STRAIGHT;
float green[5] <
    string Label = "Green at 0, 1/4, 1/2, 3/4, 1";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = STRAIGHT;
float blue[5] <
    string Label = "Blue at 0, 1/4, 1/2, 3/4, 1";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = STRAIGHT;

// The tangent between two slopes: their harmonic mean; 0 at a peak.
float tangent(float before, float after)
{
    return before * after > 0.0 ? 2.0 * before * after / (before + after) : 0.0;
}

// The points on both sides of the i-th quarter, and those before and after them, or the first and the last again. Chosen,
// not indexed: an array that is indexed by a computed number lies in memory, which devices draw slowly from.
float4 around(float points[5], int i)
{
    float4 first = float4(points[0], points[0], points[1], points[2]);
    float4 second = float4(points[0], points[1], points[2], points[3]);
    float4 third = float4(points[1], points[2], points[3], points[4]);
    float4 fourth = float4(points[2], points[3], points[4], points[4]);
    return i < 1 ? first : i < 2 ? second : i < 3 ? third : fourth;
}

float curve(float points[5], float value)
{
    float place = saturate(value) * 4.0;
    int i = min(int(place), 3);
    float t = place - float(i);
    float4 near = around(points, i);
    float from = near.y;
    float slope = near.z - from;
    float before = i > 0 ? from - near.x : slope;
    float after = i < 3 ? near.w - near.z : slope;
    float m = tangent(before, slope);
    float n = tangent(slope, after);
    return from + t * (m + t * (3.0 * slope - 2.0 * m - n + t * (m + n - 2.0 * slope)));
}

float4 curved(float2 uv : TEXCOORD0) : COLOR
{
    float4 picture = tex2D(InputSampler, uv);
    return float4(curve(red, curve(master, picture.r)), curve(green, curve(master, picture.g)),
                  curve(blue, curve(master, picture.b)), picture.a);
}

technique Curves
{
    pass P0 { PixelShader = compile ps_3_0 curved(); }
}
