#include "Promise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace Qx::HostTests {

namespace {

void convertsUTF8(const Kit& kit)
{
    Services& s = kit.services;
    const LightweightString<char> bytes("A\xc3\xa9\xe2\x82\xac\xf0\x9f\x8e\xac");
    const LightweightString<wchar_t> text(L"A\u00e9\u20ac\U0001f3ac");
    EXPECT_EQ(s.fromUTF8(bytes).view(), text.view());
    EXPECT_EQ(s.toUTF8(text).view(), bytes.view());
    EXPECT_TRUE(s.fromUTF8({}).empty());
    EXPECT_TRUE(s.toUTF8({}).empty());
}

void keepsInvalidBytes(const Kit& kit)
{
    Services& s = kit.services;
    for (const char* const bytes : {"\xff.fx", "a\xc3", "\xe2\x82", "\x80\x81", "\xc0\xaf", "\xed\xb2\x80"}) {
        const LightweightString<wchar_t> text = s.fromUTF8(bytes);
        EXPECT_EQ(s.toUTF8(text).view(), std::string_view(bytes));
    }
    EXPECT_EQ(s.fromUTF8("\xff").view(), std::wstring_view(L"\xdcff"))
        << "the byte b is the code unit 0xDC00 + b";
}

void keepsASCII(const Kit& kit)
{
    std::string all;
    for (char character = 1; character > 0 && character < 0x7f; ++character) {
        all += character;
    }
    const std::wstring wideAll(all.begin(), all.end());
    EXPECT_EQ(kit.services.fromUTF8(all.c_str()).view(), wideAll);
    EXPECT_EQ(kit.services.toUTF8(wideAll.c_str()).view(), all);
}

void writesByteCounts(const Kit& kit)
{
    Services& s = kit.services;
    EXPECT_EQ(narrow(s.bytesAsString(512, true)), "512 B");
    EXPECT_EQ(narrow(s.bytesAsString(1610612736, true)), "1.5 GiB");
    EXPECT_NE(narrow(s.bytesAsString(1610612736, false)).find("gibibytes"), std::string::npos);
}

void writesFloats(const Kit& kit)
{
    Services& s = kit.services;
    EXPECT_EQ(narrow(s.stringFromFloat(2.5, 2, true)), "2.50");
    EXPECT_EQ(narrow(s.stringFromFloat(-1.125, 3, true)), "-1.125");
    EXPECT_EQ(narrow(s.stringFromFloat(7.0, 0, true)), "7");
    EXPECT_EQ(narrow(s.stringFromFloat(1234567.0, 1, true)), "1234567.0") << "digits are not grouped";
}

void removesTrailingZeros(const Kit& kit)
{
    Services& s = kit.services;
    EXPECT_EQ(narrow(s.stringFromFloat(2.5, 3, false)), "2.5");
    EXPECT_EQ(narrow(s.stringFromFloat(2.0, 3, false)), "2");
    EXPECT_EQ(narrow(s.stringFromFloat(100.0, 0, false)), "100");
}

void writesWhatIsNoNumber(const Kit& kit)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(narrow(kit.services.stringFromFloat(std::nan(""), 2, true)), "nan");
    EXPECT_EQ(narrow(kit.services.stringFromFloat(infinity, 2, true)), "inf");
    EXPECT_EQ(narrow(kit.services.stringFromFloat(-infinity, 2, true)), "-inf");
}

void writesIntegers(const Kit& kit)
{
    EXPECT_EQ(narrow(kit.services.stringFromInteger(0)), "0");
    EXPECT_EQ(narrow(kit.services.stringFromInteger(-42)), "-42");
    EXPECT_EQ(narrow(kit.services.stringFromInteger(std::numeric_limits<long>::min())),
              "-9223372036854775808");
}

void unknownResourcesAreEmpty(const Kit& kit)
{
    EXPECT_EQ(narrow(kit.services.resourceStrW(-1)), "");
    EXPECT_EQ(narrow(kit.services.resourceStrW(UIString::noResource)), "");
}

void findsExtensions(const Kit& kit)
{
    Services& s = kit.services;
    EXPECT_EQ(narrow(s.getExtension(L"/luts/Film.v2.CUBE")), "CUBE");
    EXPECT_EQ(narrow(s.getExtension(L"/luts/film")), "");
    EXPECT_EQ(narrow(s.getExtension(L"/luts.d/film")), "") << "the dot is the directory's";
    EXPECT_EQ(narrow(s.getExtension({})), "");
}

void findsFileNames(const Kit& kit)
{
    EXPECT_EQ(narrow(kit.services.stripPath(L"/luts/film.cube")), "film.cube");
    EXPECT_EQ(narrow(kit.services.stripPath(L"film.cube")), "film.cube");
}

void joinsPathsWithOneSeparator(const Kit& kit)
{
    EXPECT_EQ(narrow(kit.services.joinPaths(L"/luts", L"film.cube")), "/luts/film.cube");
    EXPECT_EQ(narrow(kit.services.joinPaths(L"/luts/", L"film.cube")), "/luts/film.cube");
}

} // namespace

Promises textPromises()
{
    return {
        {"Text", "KeepsASCII", keepsASCII, "platform/Text.h: converts between UTF-8 and wide strings", {}},
        {"Text", "ConvertsUTF8", convertsUTF8, "platform/Text.h: converts between UTF-8 and wide strings",
         Feature::Unicode},
        {"Text", "KeepsInvalidBytes", keepsInvalidBytes,
         "platform/Text.h: every file name survives the round trip", Feature::Unicode},
        {"Text", "WritesByteCounts", writesByteCounts,
         "platform/Text.h: a byte count with a binary unit: \"512 B\", \"1.5 GiB\"", Feature::Numbers},
        {"Text", "WritesFloats", writesFloats,
         "platform/Text.h: a number with `decimals` digits after a '.', independent of the locale",
         Feature::Numbers},
        {"Text", "RemovesTrailingZeros", removesTrailingZeros,
         "platform/Text.h: if keepTrailingZeros is false, trailing zeros are removed", Feature::Numbers},
        {"Text", "WritesWhatIsNoNumber", writesWhatIsNoNumber,
         "platform/Text.h: NaN and infinities yield \"nan\", \"inf\" and \"-inf\"", Feature::Numbers},
        {"Text", "WritesIntegers", writesIntegers, "platform/Text.h: WStringFromInteger()", Feature::Numbers},
        {"Text",
         "HasNothingForUnknownResources",
         unknownResourcesAreEmpty,
         "platform/Text.h: resourceStrW() returns an empty string for an unknown number",
         {}},
        {"Paths",
         "HaveExtensions",
         findsExtensions,
         "platform/FileManager.h: getExtension() returns what follows the last '.' of the file name",
         {}},
        {"Paths",
         "HaveFileNames",
         findsFileNames,
         "platform/FileManager.h: stripPath() returns the file name of a path",
         {}},
        {"Paths",
         "AreJoinedByOneSeparator",
         joinsPathsWithOneSeparator,
         "platform/FileManager.h: joinPaths(): one separator between them",
         {}},
    };
}

} // namespace Qx::HostTests
