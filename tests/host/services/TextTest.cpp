#include "platform/Text.h"
#include "tests/host/services/Support.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using Qx::WStringFromFloat;
using Qx::WStringFromInteger;
using Qx::Host::Test::DecimalComma;

namespace {

std::wstring wideOf(std::string_view bytes)
{
    return std::wstring(fromUTF8(LightweightString<char>(bytes)).view());
}

std::string bytesOf(std::wstring_view units)
{
    return std::string(toUTF8(LightweightString<wchar_t>(units)).view());
}

} // namespace

TEST(Text, EveryKindOfSequenceDecodes)
{
    EXPECT_EQ(wideOf("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x8E\xAC"), L"a\u00e4\u20ac\U0001f3ac");
    EXPECT_EQ(bytesOf(L"a\u00e4\u20ac\U0001f3ac"), "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x8E\xAC");
    EXPECT_EQ(wideOf(""), L"");
    EXPECT_EQ(wideOf(std::string_view("a\0b", 3)), std::wstring(L"a\0b", 3));
}

TEST(Text, MalformedSequencesBecomeOneUnitForEachByte)
{
    EXPECT_EQ(wideOf("\xFF"), std::wstring(1, 0xDCFF));
    EXPECT_EQ(wideOf("\xC0\xAF"), (std::wstring{0xDCC0, 0xDCAF})) << "not the shortest form";
    EXPECT_EQ(wideOf("\xED\xA0\x80"), (std::wstring{0xDCED, 0xDCA0, 0xDC80})) << "a surrogate";
    EXPECT_EQ(wideOf("\xF4\x90\x80\x80"), (std::wstring{0xDCF4, 0xDC90, 0xDC80, 0xDC80})) << "beyond Unicode";
    EXPECT_EQ(wideOf("\xE2\x82"), (std::wstring{0xDCE2, 0xDC82})) << "cut short";
    EXPECT_EQ(wideOf("\xE2\x82x"), (std::wstring{0xDCE2, 0xDC82, L'x'}));
}

TEST(Text, EveryPairOfBytesSurvivesTheRoundTrip)
{
    for (unsigned first = 1; first < 256; ++first) {
        for (unsigned second = 1; second < 256; ++second) {
            const std::string bytes{static_cast<char>(first), static_cast<char>(second), 'x'};
            ASSERT_EQ(bytesOf(wideOf(bytes)), bytes) << first << ' ' << second;
        }
    }
}

TEST(Text, WhatUTF8CannotHoldBecomesTheReplacementCharacter)
{
    EXPECT_EQ(bytesOf(std::wstring(1, 0xD800)), "\xEF\xBF\xBD");
    EXPECT_EQ(bytesOf(std::wstring(1, 0x110000)), "\xEF\xBF\xBD");
    EXPECT_EQ(bytesOf(std::wstring(1, static_cast<wchar_t>(-1))), "\xEF\xBF\xBD");
}

TEST(Text, ByteCountsUseTheLargestUnitThatFits)
{
    EXPECT_EQ(bytesAsString(0, true), L"0 B");
    EXPECT_EQ(bytesAsString(512, true), L"512 B");
    EXPECT_EQ(bytesAsString(1023, true), L"1023 B");
    EXPECT_EQ(bytesAsString(1024, true), L"1 KiB");
    EXPECT_EQ(bytesAsString(1UL << 20, false), L"1 mebibyte");
    EXPECT_EQ(bytesAsString((1UL << 20) - 1, true), L"1 MiB") << "not 1024 KiB";
    EXPECT_EQ(bytesAsString(3UL << 29, true), L"1.5 GiB");
    EXPECT_EQ(bytesAsString(3UL << 29, false), L"1.5 gibibytes");
    EXPECT_EQ(bytesAsString(1, false), L"1 byte");
    EXPECT_EQ(bytesAsString(std::numeric_limits<unsigned long>::max(), true), L"16 EiB");
}

TEST(Text, FloatsHaveTheDecimalsThatWereAskedFor)
{
    EXPECT_EQ(WStringFromFloat(1.5, 2, true), L"1.50");
    EXPECT_EQ(WStringFromFloat(1.5, 2, false), L"1.5");
    EXPECT_EQ(WStringFromFloat(2.0, 3, false), L"2");
    EXPECT_EQ(WStringFromFloat(100.0, 0, false), L"100") << "zeros before the point stay";
    EXPECT_EQ(WStringFromFloat(-0.004, 2, true), L"0.00") << "no minus on nothing";
    EXPECT_EQ(WStringFromFloat(-12.25, 1, true), L"-12.2");
    EXPECT_EQ(WStringFromFloat(1.0, -3, true), L"1");
}

TEST(Text, TheLargestFloatWithTheMostDecimalsFits)
{
    const auto text = WStringFromFloat(-std::numeric_limits<double>::max(), 127, true);
    EXPECT_EQ(text.length(), 1U + 309 + 1 + 127);
}

TEST(Text, NumbersThatAreNoneHaveNames)
{
    EXPECT_EQ(WStringFromFloat(std::nan(""), 2, true), L"nan");
    EXPECT_EQ(WStringFromFloat(-std::nan(""), 2, true), L"nan");
    EXPECT_EQ(WStringFromFloat(std::numeric_limits<double>::infinity(), 2, false), L"inf");
    EXPECT_EQ(WStringFromFloat(-std::numeric_limits<double>::infinity(), 2, true), L"-inf");
}

TEST(Text, IntegersHaveNoSeparators)
{
    EXPECT_EQ(WStringFromInteger(-1234567), L"-1234567");
    EXPECT_EQ(WStringFromInteger(std::numeric_limits<long>::min()), L"-9223372036854775808");
}

TEST(Text, ADecimalCommaLocaleChangesNothing)
{
    const DecimalComma comma;
    EXPECT_EQ(WStringFromFloat(1234.5, 2, true), L"1234.50");
    EXPECT_EQ(WStringFromInteger(1234567), L"1234567");
    EXPECT_EQ(bytesAsString(3UL << 29, true), L"1.5 GiB");
}

TEST(Text, ResourcesThatDoNotExistAreEmpty)
{
    EXPECT_EQ(resourceStrW(13226), L"Compiling effects");
    EXPECT_TRUE(resourceStrW(1).empty());
}
