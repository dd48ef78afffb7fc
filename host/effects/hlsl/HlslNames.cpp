#include "host/effects/hlsl/HlslNames.h"

#include "host/effects/framework/ConstantExpression.h"

#include <algorithm>
#include <array>
#include <unordered_map>

namespace Qx::Host::Effects {

std::string_view hlslName(std::string_view name)
{
    static const std::unordered_map<std::string_view, std::string_view> names{
        {"sampler", "sampler2D"},
        {"Sampler", "sampler2D"},
        {"dword", "uint"},
        {"main", "qxfx_main"}, // the HLSL compiler takes one of that name for the entry
        {"tex2D", "qxfx_tex2D"},
        {"tex2Dlod", "qxfx_tex2Dlod"},
        {"tex2Dbias", "qxfx_tex2Dbias"},
        {"tex2Dgrad", "qxfx_tex2Dgrad"},
        {"tex2Dproj", "qxfx_tex2Dproj"},
        {"tex2Dfetch", "qxfx_tex2Dfetch"},
        {"tex2Dcodes", "qxfx_tex2Dcodes"},
        {"tex3Dfetch", "qxfx_tex3Dfetch"},
        {"fmod", "qxfx_fmod"}};
    if (const auto found = names.find(name); found != names.end()) {
        return found->second;
    }
    if (name.substr(0, 4) == "half" || name.substr(0, 5) == "fixed") {
        if (const auto type = NumericType::named(name)) {
            return type->spelling();
        }
    }
    return name;
}

namespace {

bool isWord(std::string_view name)
{
    static constexpr auto words = std::to_array<std::string_view>({"AppendStructuredBuffer",
                                                                   "Buffer",
                                                                   "ByteAddressBuffer",
                                                                   "ConstantBuffer",
                                                                   "InputPatch",
                                                                   "LineStream",
                                                                   "OutputPatch",
                                                                   "PointStream",
                                                                   "RWBuffer",
                                                                   "RWTexture2D",
                                                                   "StructuredBuffer",
                                                                   "SubpassInput",
                                                                   "SubpassInputMS",
                                                                   "Texture1D",
                                                                   "Texture2DArray",
                                                                   "TriangleStream",
                                                                   "auto",
                                                                   "break",
                                                                   "case",
                                                                   "catch",
                                                                   "centroid",
                                                                   "char",
                                                                   "column_major",
                                                                   "const",
                                                                   "const_cast",
                                                                   "continue",
                                                                   "default",
                                                                   "discard",
                                                                   "do",
                                                                   "else",
                                                                   "enum",
                                                                   "explicit",
                                                                   "extern",
                                                                   "false",
                                                                   "for",
                                                                   "friend",
                                                                   "globallycoherent",
                                                                   "groupshared",
                                                                   "if",
                                                                   "in",
                                                                   "inline",
                                                                   "inout",
                                                                   "line",
                                                                   "lineadj",
                                                                   "linear",
                                                                   "long",
                                                                   "matrix",
                                                                   "mutable",
                                                                   "new",
                                                                   "nointerpolation",
                                                                   "noperspective",
                                                                   "out",
                                                                   "packoffset",
                                                                   "point",
                                                                   "precise",
                                                                   "private",
                                                                   "protected",
                                                                   "public",
                                                                   "reinterpret_cast",
                                                                   "return",
                                                                   "row_major",
                                                                   "shared",
                                                                   "short",
                                                                   "signed",
                                                                   "sizeof",
                                                                   "snorm",
                                                                   "static",
                                                                   "static_cast",
                                                                   "string",
                                                                   "switch",
                                                                   "throw",
                                                                   "triangle",
                                                                   "triangleadj",
                                                                   "true",
                                                                   "try",
                                                                   "typename",
                                                                   "uniform",
                                                                   "union",
                                                                   "unorm",
                                                                   "unsigned",
                                                                   "using",
                                                                   "vector",
                                                                   "virtual",
                                                                   "void",
                                                                   "volatile",
                                                                   "while"});
    static_assert(std::is_sorted(words.begin(), words.end()));
    return std::binary_search(words.begin(), words.end(), name);
}

} // namespace

void refuseHlslWord(const Token& name)
{
    const bool type = NumericType::named(name.text).has_value();
    if (type || isWord(name.text)) {
        throw CompileError(name.at, inQuotes(name.text) +
                                        (type ? " is a type" : " is a word of the language") +
                                        "; choose another name");
    }
}

} // namespace Qx::Host::Effects
