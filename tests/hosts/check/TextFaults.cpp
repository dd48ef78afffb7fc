#include "tests/hosts/check/Faults.h"
#include "tests/hosts/check/WrappedOS.h"

#include <algorithm>
#include <string>

namespace Qx::HostTests {

namespace {

using WideText = LightweightString<wchar_t>;

WideText asWide(const std::wstring& text)
{
    return WideText(std::wstring_view(text));
}

struct UTF8IsLatin1 final : Services
{
    LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text) override
    {
        std::wstring result;
        for (const char byte : text.view()) {
            result += static_cast<wchar_t>(static_cast<unsigned char>(byte));
        }
        return asWide(result);
    }
};

struct InvalidBytesAreReplaced final : Services
{
    LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text) override
    {
        std::wstring result(Services::fromUTF8(text).view());
        std::replace_if(
            result.begin(), result.end(), [](wchar_t c) { return c >= 0xdc80 && c <= 0xdcff; }, L'?');
        return asWide(result);
    }
};

struct CountsInThousands final : Services
{
    LightweightString<wchar_t> bytesAsString(unsigned long bytes, bool shortUnits) override
    {
        return bytes < 1000 ? Services::bytesAsString(bytes, shortUnits) : WideText(L"1.6 GB");
    }
};

struct DecimalComma final : Services
{
    LightweightString<wchar_t> stringFromFloat(double value, char decimals, bool keep) override
    {
        std::wstring result(Services::stringFromFloat(value, decimals, keep).view());
        if (keep) {
            std::replace(result.begin(), result.end(), L'.', L',');
        }
        return asWide(result);
    }
};

struct KeepsTrailingZeros final : Services
{
    LightweightString<wchar_t> stringFromFloat(double value, char decimals, bool) override
    {
        return Services::stringFromFloat(value, decimals, true);
    }
};

struct CapitalNaN final : Services
{
    LightweightString<wchar_t> stringFromFloat(double value, char decimals, bool keep) override
    {
        return value == value ? Services::stringFromFloat(value, decimals, keep) : WideText(L"NaN");
    }
};

struct ShortIntegers final : Services
{
    LightweightString<wchar_t> stringFromInteger(long value) override
    {
        return Services::stringFromInteger(static_cast<int>(value));
    }
};

struct NamesUnknownResources final : Services
{
    LightweightString<wchar_t> resourceStrW(int) override { return L"<missing text>"; }
};

struct ExtensionsInSmallLetters final : Services
{
    LightweightString<wchar_t> getExtension(const WideText& path) override
    {
        const WideText extension = Services::getExtension(path);
        std::wstring small;
        for (const wchar_t character : extension.view()) {
            small += foldCase(character);
        }
        return asWide(small);
    }
};

struct PathsKeepTheirDirectory final : Services
{
    LightweightString<wchar_t> stripPath(const WideText& path) override { return path; }
};

struct JoinsByTwoSeparators final : Services
{
    LightweightString<wchar_t> joinPaths(const WideText& directory, const WideText& name) override
    {
        return directory + L"/" + name;
    }
};

} // namespace

Faults textFaults()
{
    return {
        {"utf8-is-taken-for-latin1",
         "Text.ConvertsUTF8",
         overriding<UTF8IsLatin1>,
         {"Text.KeepsInvalidBytes"}},
        {"invalid-bytes-are-replaced", "Text.KeepsInvalidBytes", overriding<InvalidBytesAreReplaced>},
        {"bytes-are-counted-in-thousands", "Text.WritesByteCounts", overriding<CountsInThousands>},
        {"numbers-have-a-comma", "Text.WritesFloats", overriding<DecimalComma>},
        {"trailing-zeros-are-kept", "Text.RemovesTrailingZeros", overriding<KeepsTrailingZeros>},
        {"not-a-number-in-capitals", "Text.WritesWhatIsNoNumber", overriding<CapitalNaN>},
        {"integers-of-32-bits", "Text.WritesIntegers", overriding<ShortIntegers>},
        {"unknown-resources-have-a-text", "Text.HasNothingForUnknownResources",
         overriding<NamesUnknownResources>},
        {"extensions-in-small-letters", "Paths.HaveExtensions", overriding<ExtensionsInSmallLetters>},
        {"file-names-with-directories", "Paths.HaveFileNames", overriding<PathsKeepTheirDirectory>},
        {"two-separators", "Paths.AreJoinedByOneSeparator", overriding<JoinsByTwoSeparators>},
    };
}

} // namespace Qx::HostTests
