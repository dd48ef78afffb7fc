// 4:4:4 to RGB, with alpha: what ColourConvert.fx and ColourConvert2020.fx do with 4:2:2, without a filter.

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
float pSourceChromaGain = 1.0; // of 4:2:2 alone

#include "Include/Convert422.fxh"
#include "Include/Decode444.fxh"

#define DECODE444(NAME, SOURCE, MATRIX, TARGET)                                                              \
    technique NAME                                                                                           \
    {                                                                                                        \
        pass P0                                                                                              \
        {                                                                                                    \
            PixelShader = compile ps_3_0 decode444(MATRIX, SOURCE, TARGET);                                  \
        }                                                                                                    \
    }

DECODE444(YCrCb444_Unscaled_BT601_To_RGB_Unscaled, UNSCALED, BT601, UNSCALED)
DECODE444(YCrCb444_Unscaled_BT601_To_RGB_Video, UNSCALED, BT601, VIDEO)
DECODE444(YCrCb444_Video_BT601_To_RGB_Unscaled, VIDEO, BT601, UNSCALED)
DECODE444(YCrCb444_Video_BT601_To_RGB_Video, VIDEO, BT601, VIDEO)
DECODE444(YCrCb444_Unscaled_BT709_To_RGB_Unscaled, UNSCALED, BT709, UNSCALED)
DECODE444(YCrCb444_Unscaled_BT709_To_RGB_Video, UNSCALED, BT709, VIDEO)
DECODE444(YCrCb444_Video_BT709_To_RGB_Unscaled, VIDEO, BT709, UNSCALED)
DECODE444(YCrCb444_Video_BT709_To_RGB_Video, VIDEO, BT709, VIDEO)
DECODE444(YCrCb444_Unscaled_BT2020_To_RGB_Unscaled, UNSCALED, BT2020, UNSCALED)
DECODE444(YCrCb444_Unscaled_BT2020_To_RGB_Video, UNSCALED, BT2020, VIDEO)
DECODE444(YCrCb444_Video_BT2020_To_RGB_Unscaled, VIDEO, BT2020, UNSCALED)
DECODE444(YCrCb444_Video_BT2020_To_RGB_Video, VIDEO, BT2020, VIDEO)
