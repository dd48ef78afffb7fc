// Cross dissolve to a second picture.
//
// Mixes the codes as they are, as editors do, so that a half is the mean of the codes. With straight alpha,
// what is transparent does not count. `duration` makes it run: from `start`, in seconds of the clip.

#include "Include/Transition.fxh"

float4 dissolved(float2 uv : TEXCOORD0, int2 pixel : VPOS) : COLORCODE
{
    return mixedCodes(uv, pixel, progress());
}

technique Dissolve
{
    pass P0 { PixelShader = compile ps_3_0 dissolved(); }
}
