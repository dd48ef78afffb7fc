// What transitions share: the picture that they go to, and how far they are.
#ifndef QX_TRANSITION_FXH
#define QX_TRANSITION_FXH

#include "OtherPicture.fxh"
#include "StraightAlpha.fxh"

texture Input < string Label = "Picture"; >;
texture To < string Label = "Picture at the end"; >;

sampler InputSampler = sampler_state { Texture = <Input>; };
sampler ToSampler = sampler_state { Texture = <To>; MinFilter = Linear; MagFilter = Linear; };

float2 toSize : TEXTURESIZE < string Texture = "To"; >;
float2 targetSize : TARGETSIZE;
float targetMax : TARGETMAXCODE;
float seconds : TIME;

float amount <
    string Label = "Amount, 0 the picture, 1 the other; unless a duration is given";
    float Min = 0.0; float Max = 1.0; float Step = 0.01;
> = 0.5;
float duration <
    string Label = "Duration in seconds, 0 for a fixed amount";
    float Min = 0.0; float Max = 3600.0; float Step = 0.04;
> = 0.0;
float start <
    string Label = "Start in seconds, if a duration is given";
    float Min = 0.0; float Max = 86400.0; float Step = 0.04;
> = 0.0;

// How far the transition is, 0 to 1.
float progress()
{
    return duration > 0.0 ? saturate((seconds - start) / duration) : saturate(amount);
}

// Both pictures mixed, in codes of the target for a result of COLORCODE. A mean of two codes is computed of
// whole numbers, so that a half is exact; what lies in the middle is rounded up.
float4 mixedCodes(float2 uv, int2 pixel, float share)
{
    float4 first = floor(tex2D(InputSampler, uv) * targetMax + 0.5);
    float4 second = floor(fitted(ToSampler, toSize, targetSize, pixel, uv) * targetMax + 0.5);
    float4 plain = lerp(first, second, share);
    float4 weighed = mixed(first / targetMax, second / targetMax, share) * targetMax;
    float4 codes = first.a == second.a ? plain : weighed;
    return (share <= 0.0 ? first : (share >= 1.0 ? second : codes)) + 0.5;
}

#endif
