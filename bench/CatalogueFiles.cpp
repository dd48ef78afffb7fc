#include "bench/Catalogue.h"

#include <fmt/format.h>

#include <array>
#include <fstream>

namespace Qx::Bench {
namespace {

constexpr const char* sharedInclude = R"(#ifndef COMMON_FXH
#define COMMON_FXH
texture Input;
sampler InputSampler = sampler_state { Texture = <Input>; MinFilter = Linear; MagFilter = Linear; };
float amount < string Label = "Amount"; float Min = 0; float Max = 1; > = 0.5;
float luma(float3 c) { return dot(c, float3(0.2126, 0.7152, 0.0722)); }
float hash(float2 p) { return frac(sin(dot(p, float2(12.9898, 78.233))) * 43758.5453); }
float4 mixed(float4 a, float4 b) { return lerp(a, b, amount); }
#endif
)";

/// Bodies of pixel functions: {0} and {1} are constants of the effect, {2} is a number of taps.
constexpr std::array bodies{
    "float4 c = tex2D(InputSampler, uv); return mixed(c, float4(pow(saturate(c.rgb * {0} + {1}), 0.8), "
    "c.a));",
    "float4 c = tex2D(InputSampler, uv); float k = smoothstep({1}, {0}, length(c.rgb - float3(0, 1, 0)));"
    " return float4(c.rgb * k, c.a * k);",
    "float4 sum = 0; for (int i = 0; i < {2}; i++) {{ float o = (i - {2} * 0.5) * {1} * 0.01;"
    " sum += tex2D(InputSampler, uv + float2(o, o * {0})); }} return mixed(tex2D(InputSampler, uv), sum / "
    "{2});",
    "float edge = uv.x * {0} + uv.y * {1}; float4 c = tex2D(InputSampler, uv);"
    " return lerp(c, float4(luma(c.rgb).xxx, c.a), smoothstep(amount - 0.1, amount + 0.1, edge));",
    "float2 cell = floor(uv * {2} * 8); float n = hash(cell + {0}); return mixed(tex2D(InputSampler, uv),"
    " float4(n, hash(cell * {1}), 1 - n, 1));",
    "float2 d = uv - 0.5; float r = length(d); float a = atan2(d.y, d.x) + r * {0};"
    " return tex2D(InputSampler, 0.5 + r * float2(cos(a), sin(a)) * (1 + {1} * amount));",
    "float3 c = tex2D(InputSampler, uv).rgb; float3x3 m = float3x3({0}, {1}, 0, 0, {0}, {1}, {1}, 0, {0});"
    " float3 g = mul(m, c); if (luma(g) > 0.5) g = 1 - (1 - g) * {0}; return float4(g, 1);",
};

} // namespace

void writeCatalogue(const std::filesystem::path& directory)
{
    std::filesystem::create_directories(directory);
    std::ofstream(directory / "common.fxh") << sharedInclude;
    for (int file = 0; file < catalogueFiles; ++file) {
        std::ofstream text(directory / fmt::format("effect{:02}.fx", file));
        text << "#include \"common.fxh\"\n";
        for (int technique = 0; technique <= file % 3; ++technique) {
            const auto kind = static_cast<std::size_t>(file + 2 * technique) % bodies.size();
            text << fmt::format("float4 shade{}(float2 uv : TEXCOORD1) : COLOR {{ ", technique)
                 << fmt::format(fmt::runtime(bodies.at(kind)), 0.7 + 0.011 * file, 0.2 + 0.007 * file,
                                3 + (file + technique) % 6)
                 << fmt::format(
                        " }}\ntechnique T{0} {{ pass P {{ PixelShader = compile ps_3_0 shade{0}(); }} }}\n",
                        technique);
        }
    }
}

} // namespace Qx::Bench
