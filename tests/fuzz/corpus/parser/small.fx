float4 f(float2 uv : TEXCOORD0) : COLOR { return uv.xyxy; }
technique A { pass { PixelShader = compile ps_3_0 f(); } }
