#define T(n) technique n { pass { PixelShader = compile ps_3_0 f(); } }
float4 f() : COLOR0 { return 1; }
T(A) T(B) T(A)
