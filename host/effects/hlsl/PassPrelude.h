#pragma once

#include <string_view>

namespace Qx::Host::Effects {

// The HLSL that the compiler adds to the text of a pass.

// Without levels every sampling reads level 0. It is explicit, since that stays defined in branches, where
// there are no derivatives. The HLSL front end's own fmod takes the sign of the divisor, as GLSL's mod does;
// HLSL's has the sign of the dividend.
inline constexpr std::string_view prelude = R"(
[[vk::constant_id(0)]] const bool qxfx_rotate = false;
float4 qxfx_tex2D(sampler2D s, float2 at) { return tex2Dlod(s, float4(at, 0.0, 0.0)); }
float4 qxfx_tex2D(sampler2D s, float2 at, float2 dx, float2 dy) { return tex2Dlod(s, float4(at, 0.0, 0.0)); }
float4 qxfx_tex2Dlod(sampler2D s, float4 at) { return tex2Dlod(s, float4(at.xy, 0.0, 0.0)); }
float4 qxfx_tex2Dbias(sampler2D s, float4 at) { return tex2Dlod(s, float4(at.xy, 0.0, 0.0)); }
float4 qxfx_tex2Dgrad(sampler2D s, float2 at, float2 dx, float2 dy) { return tex2Dlod(s, float4(at, 0.0, 0.0)); }
float4 qxfx_tex2Dproj(sampler2D s, float4 at) { return tex2Dlod(s, float4(at.xy / at.w, 0.0, 0.0)); }
float qxfx_fmod(float x, float y) { return x - y * trunc(x / y); }
float2 qxfx_fmod(float2 x, float2 y) { return x - y * trunc(x / y); }
float3 qxfx_fmod(float3 x, float3 y) { return x - y * trunc(x / y); }
float4 qxfx_fmod(float4 x, float4 y) { return x - y * trunc(x / y); }
float4 qxfx_tex2Dfetch(sampler2D s, int2 texel) { return tex2Dlod(s, float4(float2(texel), 0.0, 0.0)); }
float4 qxfx_tex3Dfetch(sampler3D s, int3 texel) { return tex3Dlod(s, float4(float3(texel), 0.0)); }
float4 qxfx_tex2Dcodes(sampler2D s, float4 of, int2 texel) { return floor(qxfx_tex2Dfetch(s, texel) * of.y + 0.5); }
)";

// Those of passes that read levels. Each sampler of a picture is followed by what is known of its levels.
// They are chosen and mixed here, each read by its own number, and a linear filter mixes four texels here,
// because devices differ in how they do it, and mix 8 bits with weights of 8 bits. The samplers that the
// device has for them do not filter: they only say what lies beyond the edges.
inline constexpr std::string_view levelReaders = R"(
struct qxfx_Levels { float2 size; float mip; float filters; float bias; float first; float last; float smallest; };
qxfx_Levels qxfx_levels(float2 size, float mip, float filters, float bias, float first, float last, float smallest) {
qxfx_Levels of;
of.size = size;
of.mip = mip;
of.filters = filters;
of.bias = bias;
of.first = first;
of.last = last;
of.smallest = smallest;
return of; }
float4 qxfx_inLevel(sampler2D s, qxfx_Levels of, float2 at, float level) {
if (of.filters < 0.5) return tex2Dlod(s, float4(at, 0.0, level));
float2 size = float2(max(int2(of.size) >> int(level), 1));
float2 place = at * size - 0.5;
float2 texel = floor(place);
float2 part = place - texel;
float2 a = (texel + 0.5) / size;
float2 b = (texel + 1.5) / size;
float4 left = tex2Dlod(s, float4(a, 0.0, level));
float4 low = tex2Dlod(s, float4(a.x, b.y, 0.0, level));
left += (low - left) * part.y;
float4 right = tex2Dlod(s, float4(b.x, a.y, 0.0, level));
low = tex2Dlod(s, float4(b, 0.0, level));
right += (low - right) * part.y;
return left + (right - left) * part.x; }
float4 qxfx_first(sampler2D s, qxfx_Levels of, float2 at) { return qxfx_inLevel(s, of, at, 0.0); }
float4 qxfx_atLevel(sampler2D s, qxfx_Levels of, float2 at, float level) {
if (of.mip < 0.5) return qxfx_first(s, of, at);
float most = clamp(level + of.bias, of.first, of.last);
if (of.mip < 1.5) return qxfx_inLevel(s, of, at, min(floor(most + 0.5), of.smallest));
float whole = min(floor(most), of.smallest);
float4 larger = qxfx_inLevel(s, of, at, whole);
return larger + (qxfx_inLevel(s, of, at, min(whole + 1.0, of.smallest)) - larger) * (most - whole); }
float qxfx_levelFor(qxfx_Levels of, float2 dx, float2 dy) {
dx *= of.size;
dy *= of.size;
return 0.5 * log2(max(max(dot(dx, dx), dot(dy, dy)), 1e-20)); }
float4 qxfx_tex2D(sampler2D s, qxfx_Levels of, float2 at, float2 dx, float2 dy) { return qxfx_atLevel(s, of, at, qxfx_levelFor(of, dx, dy)); }
float4 qxfx_tex2D(sampler2D s, qxfx_Levels of, float2 at) { return qxfx_tex2D(s, of, at, ddx(at), ddy(at)); }
float4 qxfx_tex2Dlod(sampler2D s, qxfx_Levels of, float4 at) { return qxfx_atLevel(s, of, at.xy, at.w); }
float4 qxfx_tex2Dbias(sampler2D s, qxfx_Levels of, float4 at) { return qxfx_atLevel(s, of, at.xy, qxfx_levelFor(of, ddx(at.xy), ddy(at.xy)) + at.w); }
float4 qxfx_tex2Dgrad(sampler2D s, qxfx_Levels of, float2 at, float2 dx, float2 dy) { return qxfx_tex2D(s, of, at, dx, dy); }
float4 qxfx_tex2Dproj(sampler2D s, qxfx_Levels of, float4 at) { return qxfx_tex2D(s, of, at.xy / at.w); }
float4 qxfx_level2D(sampler2D s, qxfx_Levels of, float2 at, float level) { return qxfx_atLevel(s, of, at, level); }
float4 qxfx_lbias2D(sampler2D s, qxfx_Levels of, float2 at, float bias) { return qxfx_tex2Dbias(s, of, float4(at, 0.0, bias)); }
)";

// The first level of a picture, for passes that read no levels.
inline constexpr std::string_view firstReader = R"(
float4 qxfx_first(sampler2D s, float2 at) { return tex2Dlod(s, float4(at, 0.0, 0.0)); }
)";

// A line is the middle row of a picture. Here and in cubes "s" stands for "s, of" in passes that read levels.
inline constexpr std::string_view lineReaders = R"(
float4 qxfx_tex1D(sampler2D s, float at) { return qxfx_first(s, float2(at, 0.5)); }
float4 qxfx_tex1D(sampler2D s, float at, float dx, float dy) { return qxfx_tex1D(s, at); }
float4 qxfx_tex1Dlod(sampler2D s, float4 at) { return qxfx_tex1D(s, at.x); }
float4 qxfx_tex1Dbias(sampler2D s, float4 at) { return qxfx_tex1D(s, at.x); }
float4 qxfx_tex1Dgrad(sampler2D s, float at, float dx, float dy) { return qxfx_tex1D(s, at); }
float4 qxfx_tex1Dproj(sampler2D s, float4 at) { return qxfx_tex1D(s, at.x / at.w); }
)";
inline constexpr std::string_view volumeReaders = R"(
float4 qxfx_tex3D(sampler3D s, float3 at) { return tex3Dlod(s, float4(at, 0.0)); }
float4 qxfx_tex3D(sampler3D s, float3 at, float3 dx, float3 dy) { return qxfx_tex3D(s, at); }
float4 qxfx_tex3Dlod(sampler3D s, float4 at) { return qxfx_tex3D(s, at.xyz); }
float4 qxfx_tex3Dbias(sampler3D s, float4 at) { return qxfx_tex3D(s, at.xyz); }
float4 qxfx_tex3Dgrad(sampler3D s, float3 at, float3 dx, float3 dy) { return qxfx_tex3D(s, at); }
float4 qxfx_tex3Dproj(sampler3D s, float4 at) { return qxfx_tex3D(s, at.xyz / at.w); }
)";
inline constexpr std::string_view volumeFetches = R"(
float4 qxfx_tex3Dfetch(sampler3D s, int3 texel, int3 offset) { return qxfx_tex3Dfetch(s, texel + offset); }
)";
// A cube is a picture of its six square faces, +x, -x, +y, -y, +z and -z from left to right. Each face is
// seen as Direct3D orients it. The last column of a face does not take the next one's texels.
inline constexpr std::string_view cubeReaders = R"(
float4 qxfx_texCUBE(sampler2D s, float3 to) {
float3 size = abs(to);
float3 at;
if (size.x >= size.y && size.x >= size.z) { at = to.x < 0.0 ? float3(to.z, -to.y, 1.0) : float3(-to.z, -to.y, 0.0); at.xy /= size.x; }
else if (size.y >= size.z) { at = to.y < 0.0 ? float3(to.x, -to.z, 3.0) : float3(to.x, to.z, 2.0); at.xy /= size.y; }
else { at = to.z < 0.0 ? float3(-to.x, -to.y, 5.0) : float3(to.x, -to.y, 4.0); at.xy /= size.z; }
return qxfx_first(s, float2((at.z + clamp(at.x * 0.5 + 0.5, 0.0, 0.99999)) / 6.0, at.y * 0.5 + 0.5)); }
float4 qxfx_texCUBE(sampler2D s, float3 to, float3 dx, float3 dy) { return qxfx_texCUBE(s, to); }
float4 qxfx_texCUBElod(sampler2D s, float4 to) { return qxfx_texCUBE(s, to.xyz); }
float4 qxfx_texCUBEbias(sampler2D s, float4 to) { return qxfx_texCUBE(s, to.xyz); }
float4 qxfx_texCUBEgrad(sampler2D s, float3 to, float3 dx, float3 dy) { return qxfx_texCUBE(s, to); }
float4 qxfx_texCUBEproj(sampler2D s, float4 to) { return qxfx_texCUBE(s, to.xyz / to.w); }
)";

// The methods of Direct3D 10's textures that no function of Direct3D 9 does.
inline constexpr std::string_view methodReaders2D = R"(
float4 qxfx_level2D(sampler2D s, float2 at, float level) { return tex2Dlod(s, float4(at, 0.0, 0.0)); }
float4 qxfx_lbias2D(sampler2D s, float2 at, float bias) { return tex2Dlod(s, float4(at, 0.0, 0.0)); }
float4 qxfx_load2D(sampler2D s, int3 texel) { return qxfx_tex2Dfetch(s, texel.xy); }
)";
inline constexpr std::string_view methodReaders1D = R"(
float4 qxfx_level1D(sampler2D s, float at, float level) { return qxfx_first(s, float2(at, 0.5)); }
)";
inline constexpr std::string_view methodReaders3D = R"(
float4 qxfx_level3D(sampler3D s, float3 at, float level) { return tex3Dlod(s, float4(at, 0.0)); }
float4 qxfx_load3D(sampler3D s, int4 texel) { return qxfx_tex3Dfetch(s, texel.xyz); }
)";
inline constexpr std::string_view methodReadersCube = R"(
float4 qxfx_levelCUBE(sampler2D s, float3 to, float level) { return qxfx_texCUBE(s, to); }
)";

// What lies between the corners of the rectangle that a vertex shader places. Places are those of Direct3D: y
// points up.
inline constexpr std::string_view coordinateBetween = R"(
float2 qxfx_coordinate(int n, float2 at) { return qxfx_coordinates[n].xy + (qxfx_coordinates[n].zw - qxfx_coordinates[n].xy) * at; }
)";
inline constexpr std::string_view coordinateOfProbe = R"(
float2 qxfx_coordinate(int n, float2 at) { return at; }
)";
inline constexpr std::string_view cornerFunctions = R"(
float4 qxfx_placeOf(float2 at, float2 pixels) { return pixels.x > 0.0 ? float4(at * pixels, 0.0, 1.0) : float4(at * float2(2.0, -2.0) + float2(-1.0, 1.0), 0.0, 1.0); }
)";
// Direct3D 9 has the centres of pixels at whole numbers. Effects for it move their corners up and left by
// half a pixel, or their coordinates by half a texel, so that texels and pixels meet: of the target, or of
// the picture whose size they ask for. A place is then taken as it is there. Sprites have positions in
// pixels. Where those of the target's corners become a point of a few pixels, an effect that knows the size
// of a picture is for sprites: it gets as many pixels as cover the target.
inline constexpr std::string_view shiftFunctions = R"(
float2 qxfx_shareOf(float2 place) { return (place - float2(-1.0, 1.0)) * float2(0.5, -0.5); }
float2 qxfx_pixelsAcross(float4 a, float4 b, float4 c) {
float2 size = float2(b.x / b.w - a.x / a.w, c.y / c.w - a.y / a.w);
return all(size > 0.0) && all(size < 9.0 * qxfx_area.zw) ? 4.0 / size : 0.0; }
bool qxfx_isHalf(float2 pixels) { return all(abs(pixels - 0.5) < 0.02); }
)";
// Each place of the rectangle is the sum of its corners, each times a number: their matrix is inverted by
// cross products. What comes within a thousandth of a pixel of the place that it has without a vertex shader
// is there. A pixel whose centre is on an edge belongs to the rectangle if that is its left or upper edge, so
// that neighbours share none.
inline constexpr std::string_view placeFunctions = R"(
float2 qxfx_between(float4 a, float4 b, float4 c, float2 at, float2 uv) {
float3 p = float3(at * float2(2.0, -2.0) + float2(-1.0, 1.0), 1.0);
float3 of = float3(dot(cross(b.xyw, c.xyw), p), dot(cross(c.xyw, a.xyw), p), dot(cross(a.xyw, b.xyw), p));
float2 found = of.yz / (of.x + of.y + of.z);
return all(abs(found - uv) < qxfx_area.zw * 0.001) ? uv : found; }
void qxfx_cover(float4 a, float4 b, float4 c, float2 at) {
float2 edge = qxfx_area.zw * 0.001;
float2 ends = float2(b.x / b.w < a.x / a.w, c.y / c.w > a.y / a.w);
float2 least = edge * (2.0 * ends - 1.0);
bool inside = all(at > least) && all(at < 1.0 + least) && a.w + (b.w - a.w) * at.x + (c.w - a.w) * at.y > 0.0;
if (!inside) discard; }
)";

inline constexpr std::string_view mainForTexel = R"(
float4 main(float4 qxfx_position : SV_Position) : SV_Target0 {
float2 qxfx_pixel = qxfx_position.xy - qxfx_area.xy;
float4 qxfx_colour = qxfx_colourAt(int2(floor(qxfx_pixel)), qxfx_pixel);
)";
inline constexpr std::string_view colourOfCodes =
    "qxfx_colour = clamp(qxfx_colour, qxfx_target.y, qxfx_target.z);\n"
    "qxfx_colour = (qxfx_target.w > 0.0 ? qxfx_colour : floor(qxfx_colour)) * (1.0 / qxfx_target.x);";
inline constexpr std::string_view returnColour = "return qxfx_rotate ? qxfx_colour.wxyz : qxfx_colour; }";

// Textures as rows of texels a, r, g, b. The numbers are signed, since their conversions are cheaper. The
// multiplication shows that a row is a whole number of packed texels long; widenFetches relies on it.
inline constexpr std::string_view packedPrelude = R"(
float4 qxfx_tex2Dcodes(Buffer<uint4> s, float4 of, int2 texel) { return float4(int4(s.Load(texel.y * int(of.x) * qxfx_texels + texel.x))).yzwx; }
float4 qxfx_tex2Dfetch(Buffer<uint4> s, float4 of, int2 texel) { return qxfx_tex2Dcodes(s, of, texel) * (1.0 / qxfx_sourceMaxCode); }
)";
// The texel at the place of the pixel that is computed.
inline constexpr std::string_view packedOwnPlace = R"(
static int2 qxfx_ownTexel;
float4 qxfx_tex2D(Buffer<uint4> s, float4 of, float2 at) { return qxfx_tex2Dfetch(s, of, qxfx_ownTexel); }
)";
// A volume as rows of entries; the numbers are how many entries a row takes, and how many rows a layer.
inline constexpr std::string_view packedVolumes = R"(
int qxfx_entry(float4 of, int3 at) { return at.x + at.y * int(of.x) + at.z * int(of.x * of.y); }
float4 qxfx_tex3Dfetch(Buffer<float4> s, float4 of, int3 texel) { return s.Load(qxfx_entry(of, texel)); }
float4 qxfx_tex3Dfetch(Buffer<float4> s, float4 of, int3 texel, int3 offset) { return s.Load(qxfx_entry(of, texel) + qxfx_entry(of, offset)); }
)";
inline constexpr std::string_view codesAt = R"(
int4 qxfx_codesAt(int x, int y) {
float4 c = qxfx_colourAt(int2(x, y), float2(float(x), float(y)) + 0.5) * qxfx_scale;
return int4(qxfx_rounded(clamp(c, 0.0, qxfx_maxCode))).wxyz; }
)";
inline constexpr std::string_view mainForOne = R"(
uint4 main(float4 qxfx_position : SV_Position) : SV_Target0 {
return uint4(qxfx_codesAt(int(qxfx_position.x), int(qxfx_position.y))); }
)";
inline constexpr std::string_view mainForFour = R"(
uint qxfx_texel(int x, int y) { int4 c = qxfx_codesAt(x, y); return uint(c.x | c.y << 8 | c.z << 16 | c.w << 24); }
uint4 main(float4 qxfx_position : SV_Position) : SV_Target0 {
int x = int(qxfx_position.x) * 4;
int y = int(qxfx_position.y);
return uint4(qxfx_texel(x, y), qxfx_texel(x + 1, y), qxfx_texel(x + 2, y), qxfx_texel(x + 3, y)); }
)";
inline constexpr std::string_view mainForTwo = R"(
uint2 qxfx_texel(int x, int y) { int4 c = qxfx_codesAt(x, y); return uint2(c.x | c.y << 16, c.z | c.w << 16); }
uint4 main(float4 qxfx_position : SV_Position) : SV_Target0 {
int x = int(qxfx_position.x) * 2;
int y = int(qxfx_position.y);
return uint4(qxfx_texel(x, y), qxfx_texel(x + 1, y)); }
)";

} // namespace Qx::Host::Effects
