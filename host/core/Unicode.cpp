#include "platform/Text.h"

#include <cstddef>
#include <cstdint>

namespace {

constexpr std::uint32_t strayByteBase = 0xDC00;
constexpr std::uint32_t replacement = 0xFFFD;
constexpr std::uint32_t largestCodePoint = 0x10FFFF;

bool isSurrogate(std::uint32_t c)
{
    return c >= 0xD800 && c <= 0xDFFF;
}

struct Decoded
{
    std::uint32_t codePoint;
    std::size_t bytes; ///< 0: not a well-formed sequence
};

/// One sequence at the start of `s`, well-formed by table 3-7 of the Unicode standard: the shortest form, no
/// surrogates, nothing above U+10FFFF.
Decoded decodeSequence(const unsigned char* s, std::size_t available)
{
    const unsigned char lead = s[0];
    if (lead < 0x80) {
        return {lead, 1};
    }
    const std::size_t n = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || n > available) {
        return {0, 0};
    }
    std::uint32_t c = lead & (0x7FU >> n);
    for (std::size_t i = 1; i < n; ++i) {
        if ((s[i] & 0xC0) != 0x80) {
            return {0, 0};
        }
        c = c << 6 | (s[i] & 0x3FU);
    }
    constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (c < smallest[n] || c > largestCodePoint || isSurrogate(c)) {
        return {0, 0};
    }
    return {c, n};
}

/// Writes the code unit's bytes to `out` and returns their number.
std::size_t encode(std::uint32_t c, char* out)
{
    if (c > strayByteBase + 0x7F && c <= strayByteBase + 0xFF) {
        out[0] = static_cast<char>(c - strayByteBase);
        return 1;
    }
    if (c > largestCodePoint || isSurrogate(c)) {
        c = replacement;
    }
    if (c < 0x80) {
        out[0] = static_cast<char>(c);
        return 1;
    }
    const std::size_t n = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    for (std::size_t i = n - 1; i > 0; --i) {
        out[i] = static_cast<char>(0x80 | (c & 0x3F));
        c >>= 6;
    }
    out[0] = static_cast<char>((0xF00U >> n & 0xFF) | c);
    return n;
}

} // namespace

LightweightString<char> toUTF8(const LightweightString<wchar_t>& text)
{
    char unit[4];
    std::size_t bytes = 0;
    for (const wchar_t c : text.view()) {
        bytes += encode(static_cast<std::uint32_t>(c), unit);
    }
    LightweightString<char> result;
    if (!result.resizeFor(bytes) || bytes == 0) {
        return result;
    }
    char* out = result.data();
    for (const wchar_t c : text.view()) {
        const std::size_t n = encode(static_cast<std::uint32_t>(c), unit);
        for (std::size_t i = 0; i < n; ++i) {
            *out++ = unit[i];
        }
    }
    return result;
}

LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.c_str());
    const std::size_t length = text.length();
    const auto forEachUnit = [&](auto&& use) {
        for (std::size_t i = 0; i < length;) {
            const Decoded d = decodeSequence(bytes + i, length - i);
            use(d.bytes != 0 ? d.codePoint : strayByteBase + bytes[i]);
            i += d.bytes != 0 ? d.bytes : 1;
        }
    };

    std::size_t units = 0;
    forEachUnit([&](std::uint32_t) { ++units; });
    LightweightString<wchar_t> result;
    if (!result.resizeFor(units) || units == 0) {
        return result;
    }
    wchar_t* out = result.data();
    forEachUnit([&](std::uint32_t c) { *out++ = static_cast<wchar_t>(c); });
    return result;
}
