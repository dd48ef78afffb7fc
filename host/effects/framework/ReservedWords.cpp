#include "host/effects/framework/ReservedWords.h"

#include "host/effects/framework/ConstantExpression.h"

#include <algorithm>
#include <array>

namespace Qx::Host::Effects {
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

void refuseReservedPrefix(const Token& name)
{
    constexpr std::string_view prefix = "qxfx_";
    if (name.text.substr(0, prefix.size()) == prefix) {
        throw CompileError(name.at, "names that begin with " + inQuotes(prefix) + " are reserved");
    }
}

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
