// Techniques of 4:2:2 to RGB and back: what their parameters are called, and their passes.
#ifndef QX_CONVERT422_FXH
#define QX_CONVERT422_FXH

#define BT601 1
#define BT709 2
#define BT2020 3

#define VIDEO false
#define UNSCALED true

#define POINT 1
#define CATMULL_ROM 2
#define MITCHELL 3
#define LANCZOS 4

#include "Decode422.fxh"
#include "Encode422.fxh"

#define DECODE(NAME, SOURCE, MATRIX, TARGET, FILTER)                                                         \
    technique NAME                                                                                           \
    {                                                                                                        \
        pass P0                                                                                              \
        {                                                                                                    \
            PixelShader = compile ps_3_0 decode422(MATRIX, SOURCE, TARGET, FILTER);                          \
        }                                                                                                    \
    }

// What clips of 4:2:0 take by default: their chroma comes at 16 bits, and 8-bit pictures are made of them.
#define DECODE_FROM_DEEPER(NAME, SOURCE, MATRIX, TARGET, FILTER)                                             \
    technique NAME < bool MixedDepths = true; >                                                              \
    {                                                                                                        \
        pass P0                                                                                              \
        {                                                                                                    \
            PixelShader = compile ps_3_0 decode422(MATRIX, SOURCE, TARGET, FILTER);                          \
        }                                                                                                    \
    }

#define ENCODE(NAME, SOURCE, TARGET, MATRIX, FILTER)                                                         \
    technique NAME                                                                                           \
    {                                                                                                        \
        pass P0                                                                                              \
        {                                                                                                    \
            PixelShader = compile ps_3_0 encode422(MATRIX, SOURCE, TARGET, FILTER);                          \
        }                                                                                                    \
    }

#endif
