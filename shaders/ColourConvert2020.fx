// Conversions between 4:2:2 and RGB with the matrix of ITU-R BT.2020-2, table 4, for non-constant luminance:
// what ColourConvert.fx does with those of BT.601 and BT.709. Techniques have the same names.

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

// As in ColourConvert.fx.
float pSourceCodeStep = 1.0;
float pSourceChromaGain = 1.0;

#include "Include/Convert422.fxh"

DECODE(YCrCb422_Unscaled_BT2020_To_RGB_Unscaled_Point, UNSCALED, BT2020, UNSCALED, POINT)
DECODE(YCrCb422_Unscaled_BT2020_To_RGB_Unscaled_CatmullRom, UNSCALED, BT2020, UNSCALED, CATMULL_ROM)
DECODE(YCrCb422_Unscaled_BT2020_To_RGB_Unscaled_Mitchell, UNSCALED, BT2020, UNSCALED, MITCHELL)
DECODE(YCrCb422_Unscaled_BT2020_To_RGB_Video_Point, UNSCALED, BT2020, VIDEO, POINT)
DECODE(YCrCb422_Unscaled_BT2020_To_RGB_Video_CatmullRom, UNSCALED, BT2020, VIDEO, CATMULL_ROM)
DECODE(YCrCb422_Unscaled_BT2020_To_RGB_Video_Mitchell, UNSCALED, BT2020, VIDEO, MITCHELL)
DECODE(YCrCb422_Video_BT2020_To_RGB_Unscaled_Point, VIDEO, BT2020, UNSCALED, POINT)
DECODE(YCrCb422_Video_BT2020_To_RGB_Unscaled_CatmullRom, VIDEO, BT2020, UNSCALED, CATMULL_ROM)
DECODE(YCrCb422_Video_BT2020_To_RGB_Unscaled_Mitchell, VIDEO, BT2020, UNSCALED, MITCHELL)
DECODE(YCrCb422_Video_BT2020_To_RGB_Video_Point, VIDEO, BT2020, VIDEO, POINT)
DECODE(YCrCb422_Video_BT2020_To_RGB_Video_CatmullRom, VIDEO, BT2020, VIDEO, CATMULL_ROM)
DECODE(YCrCb422_Video_BT2020_To_RGB_Video_Mitchell, VIDEO, BT2020, VIDEO, MITCHELL)

ENCODE(RGB_Unscaled_To_YCrCb422_Unscaled_BT2020_Point, UNSCALED, UNSCALED, BT2020, POINT)
ENCODE(RGB_Unscaled_To_YCrCb422_Unscaled_BT2020_Lanczos, UNSCALED, UNSCALED, BT2020, LANCZOS)
ENCODE(RGB_Unscaled_To_YCrCb422_Video_BT2020_Point, UNSCALED, VIDEO, BT2020, POINT)
ENCODE(RGB_Unscaled_To_YCrCb422_Video_BT2020_Lanczos, UNSCALED, VIDEO, BT2020, LANCZOS)
ENCODE(RGB_Video_To_YCrCb422_Unscaled_BT2020_Point, VIDEO, UNSCALED, BT2020, POINT)
ENCODE(RGB_Video_To_YCrCb422_Unscaled_BT2020_Lanczos, VIDEO, UNSCALED, BT2020, LANCZOS)
ENCODE(RGB_Video_To_YCrCb422_Video_BT2020_Point, VIDEO, VIDEO, BT2020, POINT)
ENCODE(RGB_Video_To_YCrCb422_Video_BT2020_Lanczos, VIDEO, VIDEO, BT2020, LANCZOS)
