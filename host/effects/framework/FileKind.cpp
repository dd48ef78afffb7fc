#include "host/effects/framework/FileKind.h"

#include "host/effects/framework/SourceText.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Qx::Host::Effects {
namespace {

using Start = std::pair<std::string_view, std::string_view>;
using namespace std::string_view_literals;

constexpr std::array<Start, 9> binaryStarts{
    {{"\xFF\xFE"sv, "the file is UTF-16; save it as UTF-8"},
     {"\xFE\xFF"sv, "the file is UTF-16; save it as UTF-8"},
     {"\x01\x09\xFF\xFE"sv, "this is a compiled effect; its source is needed"},
     {"DXBC"sv, "this is a compiled effect; its source is needed"},
     {"\x03\x02\x23\x07"sv, "this is a compiled shader; the source of an effect is needed"},
     {"\x89PNG\r\n"sv, "this is a picture, not an effect"},
     {"\xFF\xD8\xFF"sv, "this is a picture, not an effect"},
     {"PK\x03\x04"sv, "this is an archive; unpack the effect first"},
     {"\x1F\x8B\x08"sv, "this is an archive; unpack the effect first"}}};

constexpr std::array<std::string_view, 6> pageStarts{"<!doctype", "<html", "<head", "<body", "<?xml", "<!--"};

bool isPage(std::string_view bytes)
{
    bytes.remove_prefix(std::min(bytes.find_first_not_of("\xEF\xBB\xBF \t\r\n\f\v"), bytes.size()));
    return std::any_of(pageStarts.begin(), pageStarts.end(), [&](std::string_view start) {
        return equalIgnoringCase(bytes.substr(0, start.size()), start);
    });
}

/// Escapes switch the characters of comments in some encodings.
bool isControl(char c)
{
    constexpr char escape = 0x1B;
    return c != escape && static_cast<unsigned char>(c) < 0x20U && (c < '\t' || c > '\r');
}

} // namespace

std::string whyNoEffect(std::string_view bytes)
{
    for (const auto& [start, meaning] : binaryStarts) {
        if (bytes.substr(0, start.size()) == start) {
            return std::string(meaning);
        }
    }
    if (isPage(bytes)) {
        return "this looks like a web page, not an effect; download the file itself";
    }
    if (const std::size_t zero = bytes.find('\0'); zero != std::string_view::npos) {
        return "this is binary data, not an effect: byte " + std::to_string(zero) + " is zero";
    }
    // Text has no control characters; the lexer reports a single one.
    constexpr std::size_t sample = 4096;
    constexpr std::ptrdiff_t few = 8;
    const std::string_view head = bytes.substr(0, sample);
    const auto controls = std::count_if(head.begin(), head.end(), isControl);
    if (controls > few && static_cast<std::size_t>(controls) > head.size() / 50) {
        return "this is binary data, not an effect";
    }
    return {};
}

} // namespace Qx::Host::Effects
