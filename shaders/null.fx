// Copies and rearrangements of an image: components change their places and keep their values.
//
// Techniques are named after the order of components in memory that they read and write, as their callers
// spell it; README.md describes each one. Texels are read by integer position, so the padding of a row is
// never used. When the depth changes, RGB keeps its fraction of the largest code, and YCrCb is scaled by
// powers of two; VideoRange and FullRangeYUYV do the opposite.

texture Input;

sampler SourceSampler = sampler_state
{
    Texture = <Input>;
    MinFilter = Point;
    MagFilter = Point;
    AddressU = Clamp;
    AddressV = Clamp;
};

float2 inputSize : TEXTURESIZE < string Texture = "Input"; >;
float inputMax : TEXTUREMAXCODE < string Texture = "Input"; >;
float2 targetSize : TARGETSIZE;
float targetMax : TARGETMAXCODE;

// The size of the picture, set by the caller.
float _Width = 0.0;
float _Height = 0.0;

// The largest codes of the depths that FullRangeYUYV converts between, set by the caller.
float _FromMax = 255.0;
float _ToMax = 255.0;

#include "Include/Components.fxh"
#include "Include/TenBit.fxh"

// Technique application binds the picture twice, the second time with a shifted rectangle; drawing an image
// through an effect binds it once. An unbound input, such as the third one, has the rectangle (0, 0, 1, 1).
bool isSurface(float2 second, float2 unbound)
{
    return second.x != unbound.x;
}

// The rectangle of a surface spans its rows including padding. A shift to the right is one pixel of the
// picture, which proves that the picture's width is _Width.
float4 copy(float2 uv : TEXCOORD0, float2 second : TEXCOORD1, float2 unbound : TEXCOORD2) : COLORCODE
{
    bool knowsWidth = isSurface(second, unbound) && abs((second.x - uv.x) * _Width - 1.0) < 0.1;
    float columns = knowsWidth ? min(_Width, inputSize.x) : inputSize.x;
    float4 c = nearestComponentsAt(int2(floor(uv * float2(columns, inputSize.y))));
    return texelOf(sharesAtTargetDepth(c));
}

// ---- A texel for a texel ----

#define AS_IT_IS 0
#define FLIPPED 1
#define LAST_TO_FRONT 2
#define FIRST_TO_BACK 3
#define COLOURS_REVERSED 4

float4 reorderColours(int2 pos : VPOS, uniform int order) : COLORCODE
{
    float4 c = componentsAt(order == FLIPPED ? int2(pos.x, int(_Height) - 1 - pos.y) : pos);
    c = order == LAST_TO_FRONT ? c.wxyz : c;
    c = order == FIRST_TO_BACK ? c.yzwx : c;
    c = order == COLOURS_REVERSED ? c.xwzy : c;
    return texelOf(sharesAtTargetDepth(c));
}

#define PAIRS_SWAPPED 0
#define CHROMA_SWAPPED 1

float4 reorderVideo(int2 pos : VPOS, uniform int order) : COLORCODE
{
    float4 c = componentsAt(pos);
    return texelOf(atTargetDepth(order == PAIRS_SWAPPED ? c.yxwz : c.xwzy));
}

float4 copyVideo(int2 pos : VPOS) : COLORCODE
{
    return texelOf(atTargetDepth(componentsAt(pos)));
}

// RGB of video range, and its alpha, which has no range.
float4 copyVideoRange(int2 pos : VPOS) : COLORCODE
{
    float4 c = componentsAt(pos);
    return texelOf(float4(sharesAtTargetDepth(c).x, atTargetDepth(c).yzw));
}

// YCrCb of full range keeps its fraction of the largest code, Cb and Cr on both sides of their zero. Codes
// fill the upper bits of their components. Integers, since floats do not hold the products.
float4 copyFullRange(int2 pos : VPOS) : COLORCODE
{
    int from = int(_FromMax);
    int to = int(_ToMax);
    int fromZero = (from + 1) / 2;
    int toZero = (to + 1) / 2;
    int4 c = int4(componentsAt(pos)) / ((int(inputMax) + 1) / (from + 1));
    int4 scaled = int4(0, toZero, 0, toZero) * from + (c - int4(0, fromZero, 0, fromZero)) * to + from / 2;
    int4 codes = min(max(scaled, int4(0, 0, 0, 0)) / from, int4(to, to, to, to));
    return texelOf(float4(codes * ((int(targetMax) + 1) / (to + 1))));
}

// B G R A pictures are drawn through this technique; surfaces that it is applied to are video.
float4 reverseOrder(int2 pos : VPOS, float2 second : TEXCOORD1, float2 unbound : TEXCOORD2) : COLORCODE
{
    float4 c = componentsAt(pos).wzyx;
    return texelOf(isSurface(second, unbound) ? atTargetDepth(c) : sharesAtTargetDepth(c));
}

// Returns the codes for red, green and blue, opaque.
float4 opaque(float3 colours)
{
    return float4(sharesAtTargetDepth(float4(colours, 0.0)).rgb, targetMax);
}

// ---- Three components a pixel ----

float4 fromThree(int2 pos : VPOS, uniform bool redFirst, uniform bool flipped) : COLORCODE
{
    int first = pos.x * 3;
    int row = flipped ? int(_Height) - 1 - pos.y : pos.y;
    int texel = first >> 2;
    float3 c = threeOf(componentsAt(int2(texel, row)), componentsAt(int2(texel + 1, row)), first & 3);
    return opaque(redFirst ? c : c.zyx);
}

// Returns red, green and blue of a pixel of the source; 0 beyond the picture.
float3 coloursAt(int x, int y)
{
    return x < int(_Width) ? componentsAt(int2(x, y)).yzw : float3(0.0, 0.0, 0.0);
}

// The target's texels hold a row's components consecutively.
float4 toThree(int2 pos : VPOS, uniform bool redFirst) : COLORCODE
{
    int y = pos.y;
    int first = pos.x * 4;
    int pixel = quotient(first, 3);
    float3 one = coloursAt(pixel, y);
    float3 two = coloursAt(pixel + 1, y);
    return texelOf(sharesAtTargetDepth(
        fourOf(redFirst ? one : one.zyx, redFirst ? two : two.zyx, first - pixel * 3)));
}

// ---- Planes ----

float4 fromPlanes(int2 pos : VPOS) : COLORCODE
{
    int rows = int(_Height);
    return opaque(float3(componentAt(pos.x, pos.y), componentAt(pos.x, pos.y + rows),
                         componentAt(pos.x, pos.y + 2 * rows)));
}

float4 toPlanes(int2 pos : VPOS) : COLORCODE
{
    int rows = int(_Height);
    int plane = pos.y / rows;
    int y = pos.y - plane * rows;
    int x = pos.x * 4;
    float3 one = coloursAt(x, y);
    float3 two = coloursAt(x + 1, y);
    float3 three = coloursAt(x + 2, y);
    float3 four = coloursAt(x + 3, y);
    return texelOf(sharesAtTargetDepth(plane == 0   ? float4(one.r, two.r, three.r, four.r)
                                       : plane == 1 ? float4(one.g, two.g, three.g, four.g)
                                                    : float4(one.b, two.b, three.b, four.b)));
}

// Planes of Y, then of Cr and Cb with half as many lines, which two lines of the picture share.
float4 fromYV12(int2 pos : VPOS) : COLORCODE
{
    int pair = pos.x;
    int y = pos.y;
    int rows = int(_Height);
    int cr = rows + (y >> 1);
    int cb = cr + ((rows + 1) >> 1);
    return texelOf(atTargetDepth(float4(componentAt(pair * 2, y), componentAt(pair, cb),
                                        componentAt(pair * 2 + 1, y), componentAt(pair, cr))));
}

// Returns the chroma of a pair of pixels in two lines: the mean, halves rounded up. The last of an odd number
// of lines has no partner.
float sharedChroma(int pair, int row, int rows, bool cr)
{
    float4 upper = componentsAt(int2(pair, row));
    float4 lower = componentsAt(int2(pair, min(row + 1, rows - 1)));
    float4 mean = floor((upper + lower + 1.0) * 0.5);
    return cr ? mean.w : mean.y;
}

float4 toYV12(int2 pos : VPOS) : COLORCODE
{
    int x = pos.x;
    int y = pos.y;
    int rows = int(_Height);
    int4 place = x * 4 + int4(0, 1, 2, 3);
    float4 c;
    int width;
    if (y < rows)
    {
        c = float4(componentsAt(int2(x * 2, y)).xz, componentsAt(int2(x * 2 + 1, y)).xz);
        width = int(_Width);
    }
    else
    {
        int chromaRows = (rows + 1) >> 1;
        bool cr = y - rows < chromaRows;
        int row = (cr ? y - rows : y - rows - chromaRows) * 2;
        c = float4(sharedChroma(place.x, row, rows, cr), sharedChroma(place.y, row, rows, cr),
                   sharedChroma(place.z, row, rows, cr), sharedChroma(place.w, row, rows, cr));
        width = (int(_Width) + 1) >> 1;
    }
    c = float4(place.x < width ? c.x : 0.0, place.y < width ? c.y : 0.0, place.z < width ? c.z : 0.0,
               place.w < width ? c.w : 0.0);
    return texelOf(atTargetDepth(c));
}

// ---- Words of ten bits ----

float4 fromV210(int2 pos : VPOS) : COLORCODE
{
    return pairFromWords(pos, V210);
}

float4 toV210(int2 pos : VPOS) : COLORCODE
{
    return v210Word(pos, 0.5 * _Width);
}

// ---- Looking at an image ----

// Four pixels per texel: its components as greys.
float4 expandChannels(int2 pos : VPOS) : COLORCODE
{
    float grey = componentAt(pos.x, pos.y);
    return opaque(float3(grey, grey, grey));
}

#define TECHNIQUE(NAME, CALL)                                                                                \
    technique NAME                                                                                           \
    {                                                                                                        \
        pass P0                                                                                              \
        {                                                                                                    \
            PixelShader = compile ps_3_0 CALL;                                                               \
        }                                                                                                    \
    }

// Words are texels of 8 bits per component, whatever depth they hold.
#define TECHNIQUE_OF_WORDS(NAME, CALL)                                                                       \
    technique NAME < bool MixedDepths = true; >                                                              \
    {                                                                                                        \
        pass P0                                                                                              \
        {                                                                                                    \
            PixelShader = compile ps_3_0 CALL;                                                               \
        }                                                                                                    \
    }

TECHNIQUE(Null, copy())

TECHNIQUE(FlipVertical, reorderColours(FLIPPED))
TECHNIQUE(RotateLeft, reorderColours(LAST_TO_FRONT))
TECHNIQUE(ABGRtoARGB, reorderColours(COLOURS_REVERSED))
TECHNIQUE(ReverseComponentOrder, reverseOrder())
TECHNIQUE(BGRAtoARGB, reorderColours(AS_IT_IS))
TECHNIQUE(RGBtoARGB, fromThree(false, false))
TECHNIQUE(RGBtoARGB_FlipVertical, fromThree(false, true))
TECHNIQUE(RGB16toABGR, fromThree(false, false))
TECHNIQUE(BGRtoARGB, fromThree(true, false))
TECHNIQUE(BGRtoARGB_FlipVertical, fromThree(true, true))
TECHNIQUE(RGBPlanartoARGB, fromPlanes())

TECHNIQUE(ARGBtoRGB, toThree(true))
TECHNIQUE(ARGBtoBGR, toThree(false))
TECHNIQUE(ARGBtoBGRA, reorderColours(AS_IT_IS))
TECHNIQUE(ARGBtoRGBA, reorderColours(FIRST_TO_BACK))
TECHNIQUE(ARGBtoRGBPlanar, toPlanes())

TECHNIQUE(YUYVtoYUYV, copyVideo())
TECHNIQUE(UYVYtoYUYV, reorderVideo(PAIRS_SWAPPED))
TECHNIQUE(YVYUtoYUYV, reorderVideo(CHROMA_SWAPPED))
TECHNIQUE(YV12toYUYV, fromYV12())
TECHNIQUE_OF_WORDS(V210toYUYV, fromV210())
TECHNIQUE(YUYVtoYV12, toYV12())
TECHNIQUE_OF_WORDS(YUYVtoV210, toV210())

TECHNIQUE(VideoRange, copyVideoRange())
TECHNIQUE(FullRangeYUYV, copyFullRange())

TECHNIQUE(ChannelExpand, expandChannels())
