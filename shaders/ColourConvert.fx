// Conversions between video pixel formats. Every technique reads one image, under all names that its caller
// binds, and writes each texel of the target once.
//
// Techniques are named after the ranges ("Unscaled" is full range, "Video" is 16 to 235), the matrix and the
// chroma filter. Every technique works at any depth of source and target, 8 to 16 bits.

texture gSourceImage;
// Shifted views of the same image. The techniques fetch texels by integer position and do not need them.
texture gSourceImage2 < bool Unread = true; >;
texture gSourceImage3 < bool Unread = true; >;
texture gSourceImage4 < bool Unread = true; >;
texture gSourceImage5 < bool Unread = true; >;
texture gSourceImage6 < bool Unread = true; >;
texture gIterHelp2Step < bool Unread = true; >;

sampler SourceSampler = sampler_state
{
    Texture = <gSourceImage>;
    MinFilter = Point;
    MagFilter = Point;
    AddressU = Clamp;
    AddressV = Clamp;
};

float2 inputSize : TEXTURESIZE < string Texture = "gSourceImage"; >;
float inputMax : TEXTUREMAXCODE < string Texture = "gSourceImage"; >;
float2 targetSize : TARGETSIZE;
float targetMax : TARGETMAXCODE;

// Set by callers of the 10-bit techniques. pSourceImageTotalWidthInDWORDs: for unpacking, the 32-bit words of
// a packed row; for packing, the pixel pairs of a row, including a half pair. DestImageWidth: the words of
// the packed row, which are the target's texels.
float pSourceImageTotalWidthInDWORDs = 0.0;
float DestImageWidth = 0.0;

// Set by callers that decode full range of n bits in the upper ones of 16: the distance of its codes, 2^(16-n).
float pSourceCodeStep = 1.0;
// Set by callers that decode colour differences which are halved around their zero: 2. What a filter of theirs
// has overshot then fits in the codes.
float pSourceChromaGain = 1.0;

#include "Include/Convert422.fxh"
#include "Include/TenBit.fxh"

DECODE(YCrCb422_Unscaled_BT601_To_RGB_Unscaled_Point, UNSCALED, BT601, UNSCALED, POINT)
DECODE(YCrCb422_Unscaled_BT601_To_RGB_Unscaled_CatmullRom, UNSCALED, BT601, UNSCALED, CATMULL_ROM)
DECODE(YCrCb422_Unscaled_BT601_To_RGB_Unscaled_Mitchell, UNSCALED, BT601, UNSCALED, MITCHELL)
DECODE(YCrCb422_Unscaled_BT601_To_RGB_Video_Point, UNSCALED, BT601, VIDEO, POINT)
DECODE(YCrCb422_Unscaled_BT601_To_RGB_Video_CatmullRom, UNSCALED, BT601, VIDEO, CATMULL_ROM)
DECODE(YCrCb422_Unscaled_BT601_To_RGB_Video_Mitchell, UNSCALED, BT601, VIDEO, MITCHELL)
DECODE(YCrCb422_Unscaled_BT709_To_RGB_Unscaled_Point, UNSCALED, BT709, UNSCALED, POINT)
DECODE(YCrCb422_Unscaled_BT709_To_RGB_Unscaled_CatmullRom, UNSCALED, BT709, UNSCALED, CATMULL_ROM)
DECODE(YCrCb422_Unscaled_BT709_To_RGB_Unscaled_Mitchell, UNSCALED, BT709, UNSCALED, MITCHELL)
DECODE(YCrCb422_Unscaled_BT709_To_RGB_Video_Point, UNSCALED, BT709, VIDEO, POINT)
DECODE(YCrCb422_Unscaled_BT709_To_RGB_Video_CatmullRom, UNSCALED, BT709, VIDEO, CATMULL_ROM)
DECODE(YCrCb422_Unscaled_BT709_To_RGB_Video_Mitchell, UNSCALED, BT709, VIDEO, MITCHELL)
DECODE(YCrCb422_Video_BT601_To_RGB_Unscaled_Point, VIDEO, BT601, UNSCALED, POINT)
DECODE_FROM_DEEPER(YCrCb422_Video_BT601_To_RGB_Unscaled_CatmullRom, VIDEO, BT601, UNSCALED, CATMULL_ROM)
DECODE(YCrCb422_Video_BT601_To_RGB_Unscaled_Mitchell, VIDEO, BT601, UNSCALED, MITCHELL)
DECODE(YCrCb422_Video_BT601_To_RGB_Video_Point, VIDEO, BT601, VIDEO, POINT)
DECODE_FROM_DEEPER(YCrCb422_Video_BT601_To_RGB_Video_CatmullRom, VIDEO, BT601, VIDEO, CATMULL_ROM)
DECODE(YCrCb422_Video_BT601_To_RGB_Video_Mitchell, VIDEO, BT601, VIDEO, MITCHELL)
DECODE(YCrCb422_Video_BT709_To_RGB_Unscaled_Point, VIDEO, BT709, UNSCALED, POINT)
DECODE_FROM_DEEPER(YCrCb422_Video_BT709_To_RGB_Unscaled_CatmullRom, VIDEO, BT709, UNSCALED, CATMULL_ROM)
DECODE(YCrCb422_Video_BT709_To_RGB_Unscaled_Mitchell, VIDEO, BT709, UNSCALED, MITCHELL)
DECODE(YCrCb422_Video_BT709_To_RGB_Video_Point, VIDEO, BT709, VIDEO, POINT)
DECODE_FROM_DEEPER(YCrCb422_Video_BT709_To_RGB_Video_CatmullRom, VIDEO, BT709, VIDEO, CATMULL_ROM)
DECODE(YCrCb422_Video_BT709_To_RGB_Video_Mitchell, VIDEO, BT709, VIDEO, MITCHELL)

ENCODE(RGB_Unscaled_To_YCrCb422_Unscaled_BT601_Point, UNSCALED, UNSCALED, BT601, POINT)
ENCODE(RGB_Unscaled_To_YCrCb422_Unscaled_BT601_Lanczos, UNSCALED, UNSCALED, BT601, LANCZOS)
ENCODE(RGB_Unscaled_To_YCrCb422_Unscaled_BT709_Point, UNSCALED, UNSCALED, BT709, POINT)
ENCODE(RGB_Unscaled_To_YCrCb422_Unscaled_BT709_Lanczos, UNSCALED, UNSCALED, BT709, LANCZOS)
ENCODE(RGB_Unscaled_To_YCrCb422_Video_BT601_Point, UNSCALED, VIDEO, BT601, POINT)
ENCODE(RGB_Unscaled_To_YCrCb422_Video_BT601_Lanczos, UNSCALED, VIDEO, BT601, LANCZOS)
ENCODE(RGB_Unscaled_To_YCrCb422_Video_BT709_Point, UNSCALED, VIDEO, BT709, POINT)
ENCODE(RGB_Unscaled_To_YCrCb422_Video_BT709_Lanczos, UNSCALED, VIDEO, BT709, LANCZOS)
ENCODE(RGB_Video_To_YCrCb422_Unscaled_BT601_Point, VIDEO, UNSCALED, BT601, POINT)
ENCODE(RGB_Video_To_YCrCb422_Unscaled_BT601_Lanczos, VIDEO, UNSCALED, BT601, LANCZOS)
ENCODE(RGB_Video_To_YCrCb422_Unscaled_BT709_Point, VIDEO, UNSCALED, BT709, POINT)
ENCODE(RGB_Video_To_YCrCb422_Unscaled_BT709_Lanczos, VIDEO, UNSCALED, BT709, LANCZOS)
ENCODE(RGB_Video_To_YCrCb422_Video_BT601_Point, VIDEO, VIDEO, BT601, POINT)
ENCODE(RGB_Video_To_YCrCb422_Video_BT601_Lanczos, VIDEO, VIDEO, BT601, LANCZOS)
ENCODE(RGB_Video_To_YCrCb422_Video_BT709_Point, VIDEO, VIDEO, BT709, POINT)
ENCODE(RGB_Video_To_YCrCb422_Video_BT709_Lanczos, VIDEO, VIDEO, BT709, LANCZOS)

float4 unpackDvs(int2 pos : VPOS) : COLORCODE
{
    return pairFromWords(pos, DVS_UPPER_BITS);
}

float4 unpackMatrox(int2 pos : VPOS, uniform bool upperBitsOnly) : COLORCODE
{
    return pairFromMatrox(pos, int(pSourceImageTotalWidthInDWORDs), upperBitsOnly);
}

float4 packMatrox(int2 pos : VPOS) : COLORCODE
{
    return matroxWord(pos, pSourceImageTotalWidthInDWORDs);
}

technique UnpackDvs10Bit_BaseOnly < bool MixedDepths = true; >
{
    pass P0
    {
        PixelShader = compile ps_3_0 unpackDvs();
    }
}

technique UnpackMatrox10Bit < bool MixedDepths = true; >
{
    pass P0
    {
        PixelShader = compile ps_3_0 unpackMatrox(false);
    }
}

technique UnpackMatrox10Bit_BaseOnly < bool MixedDepths = true; >
{
    pass P0
    {
        PixelShader = compile ps_3_0 unpackMatrox(true);
    }
}

technique PackMatrox10Bit < bool MixedDepths = true; >
{
    pass P0
    {
        PixelShader = compile ps_3_0 packMatrox();
    }
}
