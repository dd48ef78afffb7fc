#include "host/effects/framework/ReservedWords.h"

#include "host/effects/framework/ConstantExpression.h"

#include <algorithm>
#include <iterator>

namespace Qx::Host::Effects {
namespace {

constexpr std::string_view words[] = {"AppendStructuredBuffer",
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
                                      "Texture2DArray",
                                      "TriangleStream",
                                      "auto",
                                      "break",
                                      "case",
                                      "catch",
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
                                      "long",
                                      "matrix",
                                      "mutable",
                                      "new",
                                      "out",
                                      "packoffset",
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
                                      "static",
                                      "static_cast",
                                      "string",
                                      "switch",
                                      "throw",
                                      "true",
                                      "try",
                                      "typename",
                                      "uniform",
                                      "union",
                                      "unsigned",
                                      "using",
                                      "vector",
                                      "virtual",
                                      "void",
                                      "volatile",
                                      "while"};
static_assert(std::is_sorted(std::begin(words), std::end(words)));

bool isWord(std::string_view name)
{
    return std::binary_search(std::begin(words), std::end(words), name);
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

void refuseReservedName(const Token& name)
{
    refuseReservedPrefix(name);
    refuseHlslWord(name);
}

} // namespace Qx::Host::Effects
