#include "Qx/LightweightString.h"
#include "tests/contract/recording/RecordingHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>
#include <vector>

using Qx::Test::host;
using Qx::Test::TaggingAllocator;

namespace {

/// The header before a buffer's characters.
constexpr std::size_t headerBytes = 24;

template <class CharT>
std::basic_string<CharT> wide(const char* ascii)
{
    const std::string narrow = ascii;
    return {narrow.begin(), narrow.end()};
}

template <class CharT>
class LightweightStringTest : public testing::Test
{
protected:
    using Text = LightweightString<CharT>;

    static Text make(const char* ascii) { return Text(wide<CharT>(ascii).c_str()); }
    /// Makes a text of "ab", a NUL and one more character.
    static Text makeWithNul(char last)
    {
        const CharT text[] = {CharT('a'), CharT('b'), CharT(), CharT(last)};
        return Text(typename Text::View(text, 4));
    }

    static std::size_t allocations() { return host().allocator.allocations(); }
    static bool reads(const Text& s, const char* ascii)
    {
        const std::basic_string<CharT> wanted = wide<CharT>(ascii);
        return s.length() == wanted.size() && std::basic_string<CharT>(s.c_str()) == wanted;
    }

    void SetUp() override { blocks_ = host().allocator.liveBlocks(); }
    void TearDown() override
    {
        host().allocator.refuseFrom(static_cast<std::size_t>(-1));
        EXPECT_EQ(host().allocator.liveBlocks(), blocks_) << "a buffer was leaked";
    }

private:
    std::size_t blocks_ = 0;
};

using CharacterTypes = testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(LightweightStringTest, CharacterTypes);

} // namespace

TYPED_TEST(LightweightStringTest, NullPointerAndEmptyTextGiveTheNullStringThatReadsAsEmpty)
{
    using String = typename TestFixture::Text;
    const std::size_t before = this->allocations();
    const TypeParam nothing[1] = {};
    for (const String& s : {String(), String(nullptr), String(nothing)}) {
        ASSERT_NE(s.c_str(), nullptr);
        EXPECT_EQ(s.c_str()[0], TypeParam());
        EXPECT_EQ(s.length(), 0U);
        EXPECT_EQ(s.capacity(), 0U);
        EXPECT_TRUE(s.empty());
        EXPECT_EQ(s, String());
        EXPECT_TRUE(s.equalsIgnoringCase(String()));
    }
    EXPECT_EQ(this->allocations(), before);
}

TYPED_TEST(LightweightStringTest, NullStringsShareOneStaticEmptyText)
{
    using String = typename TestFixture::Text;
    const String a;
    const String b(nullptr);
    EXPECT_EQ(a.c_str(), b.c_str());
}

TYPED_TEST(LightweightStringTest, CapacityIsTheSmallestPowerOfTwoAboveTheLength)
{
    using String = typename TestFixture::Text;
    const std::vector<std::pair<std::size_t, std::uint32_t>> expected{
        {1, 2},   {2, 4},   {3, 4},   {4, 8},   {5, 8},       {7, 8},       {8, 16},     {9, 16},
        {15, 16}, {16, 32}, {31, 32}, {32, 64}, {1000, 1024}, {1023, 1024}, {1024, 2048}};
    for (const auto& [length, capacity] : expected) {
        const String s(std::basic_string<TypeParam>(length, TypeParam('x')).c_str());
        EXPECT_EQ(s.length(), length);
        EXPECT_EQ(s.capacity(), capacity) << "for length " << length;
    }
}

TYPED_TEST(LightweightStringTest, BufferIsOneAllocationOfHeaderAndCharacters)
{
    const std::size_t before = this->allocations();
    const auto s = this->make("abcd");
    EXPECT_EQ(this->allocations(), before + 1);
    const auto* block = reinterpret_cast<const std::byte*>(s.c_str()) - headerBytes;
    EXPECT_EQ(host().allocator.sizeOf(block), headerBytes + 8 * sizeof(TypeParam));
}

TYPED_TEST(LightweightStringTest, HeaderHoldsTextLengthCapacityAndCountInThisOrder)
{
    struct Header
    {
        const TypeParam* text;
        std::uint32_t length;
        std::uint32_t capacity;
        std::uint32_t count;
    };
    static_assert(sizeof(Header) == headerBytes);
    const auto s = this->make("abc");
    const auto copy = s;
    const auto* header =
        reinterpret_cast<const Header*>(reinterpret_cast<const std::byte*>(s.c_str()) - headerBytes);
    EXPECT_EQ(header->text, s.c_str());
    EXPECT_EQ(header->length, 3U);
    EXPECT_EQ(header->capacity, 4U);
    EXPECT_EQ(header->count, 2U);
}

TYPED_TEST(LightweightStringTest, CopiesShareOneBuffer)
{
    const auto a = this->make("shared");
    const std::size_t before = this->allocations();
    const auto b = a;
    auto c = this->make("");
    c = b;
    EXPECT_EQ(a.c_str(), b.c_str());
    EXPECT_EQ(a.c_str(), c.c_str());
    EXPECT_EQ(this->allocations(), before);
}

TYPED_TEST(LightweightStringTest, AssignmentToItselfKeepsTheBuffer)
{
    auto s = this->make("self");
    const TypeParam* text = s.c_str();
    const auto& same = s;
    s = same;
    EXPECT_EQ(s.c_str(), text);
    EXPECT_TRUE(this->reads(s, "self"));
}

TYPED_TEST(LightweightStringTest, AssignOfTheSameLengthIntoASoleOwnedBufferDoesNotAllocate)
{
    auto s = this->make("abcd");
    const TypeParam* text = s.c_str();
    const std::size_t before = this->allocations();
    EXPECT_EQ(&s.assign(wide<TypeParam>("wxyz").c_str()), &s);
    EXPECT_EQ(this->allocations(), before);
    EXPECT_EQ(s.c_str(), text);
    EXPECT_TRUE(this->reads(s, "wxyz"));
}

TYPED_TEST(LightweightStringTest, AssignStaysInPlaceUpToOneBelowTheCapacity)
{
    auto s = this->make("abcd");
    const std::size_t before = this->allocations();
    s.assign(wide<TypeParam>("1234567").c_str());
    EXPECT_EQ(this->allocations(), before);
    EXPECT_EQ(s.capacity(), 8U);
    s.assign(wide<TypeParam>("12345678").c_str());
    EXPECT_EQ(this->allocations(), before + 1);
    EXPECT_EQ(s.capacity(), 16U);
    EXPECT_TRUE(this->reads(s, "12345678"));
}

TYPED_TEST(LightweightStringTest, AssignOfAShorterTextKeepsTheLargeBuffer)
{
    auto s = this->make("a text of more than sixteen");
    const std::uint32_t capacity = s.capacity();
    s.assign(wide<TypeParam>("b").c_str());
    EXPECT_EQ(s.capacity(), capacity);
    EXPECT_TRUE(this->reads(s, "b"));
}

TYPED_TEST(LightweightStringTest, AssignToASharedBufferLeavesTheOtherOwnersText)
{
    auto s = this->make("abcd");
    const auto other = s;
    const std::size_t before = this->allocations();
    s.assign(wide<TypeParam>("wxyz").c_str());
    EXPECT_EQ(this->allocations(), before + 1);
    EXPECT_TRUE(this->reads(s, "wxyz"));
    EXPECT_TRUE(this->reads(other, "abcd"));
}

TYPED_TEST(LightweightStringTest, AssignOfNullOrEmptyReleasesTheBuffer)
{
    const TypeParam nothing[1] = {};
    for (const TypeParam* source : {static_cast<const TypeParam*>(nullptr), nothing}) {
        auto s = this->make("abcd");
        const std::size_t live = host().allocator.liveBlocks();
        s.assign(source);
        EXPECT_EQ(host().allocator.liveBlocks(), live - 1);
        EXPECT_EQ(s.capacity(), 0U);
        EXPECT_TRUE(s.empty());
    }
}

TYPED_TEST(LightweightStringTest, AssignOfAPartOfItselfReadsAsThatPart)
{
    auto sole = this->make("abcdefg");
    sole.assign(sole.c_str() + 3);
    EXPECT_TRUE(this->reads(sole, "defg"));
    sole.assign(sole.c_str());
    EXPECT_TRUE(this->reads(sole, "defg"));

    auto shared = this->make("abcdefg");
    const auto other = shared;
    shared.assign(shared.c_str() + 3);
    EXPECT_TRUE(this->reads(shared, "defg"));
    EXPECT_TRUE(this->reads(other, "abcdefg"));
}

TYPED_TEST(LightweightStringTest, ResizeKeepsASoleOwnedBufferThatIsLargeEnough)
{
    auto s = this->make("abcd");
    const TypeParam* text = s.c_str();
    const std::size_t before = this->allocations();
    EXPECT_TRUE(s.resizeFor(5));
    EXPECT_EQ(this->allocations(), before);
    EXPECT_EQ(s.c_str(), text);
    EXPECT_EQ(s.length(), 5U);
    EXPECT_EQ(s.capacity(), 8U);
    EXPECT_EQ(s.c_str()[5], TypeParam());
    EXPECT_TRUE(s.resizeFor(2));
    EXPECT_TRUE(this->reads(s, "ab"));
}

TYPED_TEST(LightweightStringTest, ResizeOfASharedBufferMakesANewOneAndLeavesTheOthersText)
{
    auto s = this->make("abcd");
    const auto other = s;
    const std::size_t before = this->allocations();
    EXPECT_TRUE(s.resizeFor(5));
    EXPECT_EQ(this->allocations(), before + 1);
    EXPECT_NE(s.c_str(), other.c_str());
    EXPECT_EQ(s.length(), 5U);
    EXPECT_EQ(s.capacity(), 8U);
    EXPECT_EQ(s.c_str()[5], TypeParam());
    EXPECT_TRUE(this->reads(other, "abcd"));
    EXPECT_EQ(other.capacity(), 8U);
}

TYPED_TEST(LightweightStringTest, ResizeCopiesNothingIntoANewBuffer)
{
    const auto shared = this->make("abcd");
    auto sharing = shared;
    auto sole = this->make("abcd");
    for (auto* s : {&sharing, &sole}) {
        constexpr std::size_t length = 9;
        ASSERT_TRUE(s->resizeFor(length));
        const std::string bytes(reinterpret_cast<const char*>(s->c_str()), length * sizeof(TypeParam));
        EXPECT_EQ(bytes, std::string(bytes.size(), static_cast<char>(TaggingAllocator::freshByte)));
    }
}

TYPED_TEST(LightweightStringTest, ResizeOfTheNullStringMakesABufferThatTheCallerFills)
{
    typename TestFixture::Text s;
    ASSERT_TRUE(s.resizeFor(3));
    EXPECT_EQ(s.capacity(), 4U);
    EXPECT_EQ(s.c_str()[3], TypeParam());
    std::fill_n(s.data(), 3, TypeParam('z'));
    EXPECT_TRUE(this->reads(s, "zzz"));
}

TYPED_TEST(LightweightStringTest, ResizeAtTheCapacityTakesANewBuffer)
{
    auto s = this->make("abc");
    EXPECT_EQ(s.capacity(), 4U);
    const std::size_t before = this->allocations();
    EXPECT_TRUE(s.resizeFor(4));
    EXPECT_EQ(this->allocations(), before + 1);
    EXPECT_EQ(s.capacity(), 8U);
}

TYPED_TEST(LightweightStringTest, ResizeToNothingReleasesTheBuffer)
{
    auto s = this->make("abcd");
    const std::size_t live = host().allocator.liveBlocks();
    EXPECT_TRUE(s.resizeFor(0));
    EXPECT_EQ(host().allocator.liveBlocks(), live - 1);
    EXPECT_EQ(s.capacity(), 0U);
    EXPECT_EQ(s.data(), nullptr);
}

TYPED_TEST(LightweightStringTest, AppendingInPlaceDoesNotAllocate)
{
    auto s = this->make("abcd");
    const std::size_t before = this->allocations();
    EXPECT_EQ(&(s += wide<TypeParam>("efg").c_str()), &s);
    EXPECT_EQ(this->allocations(), before);
    EXPECT_TRUE(this->reads(s, "abcdefg"));
    s += wide<TypeParam>("h").c_str();
    EXPECT_EQ(this->allocations(), before + 1);
    EXPECT_EQ(s.capacity(), 16U);
    EXPECT_TRUE(this->reads(s, "abcdefgh"));
}

TYPED_TEST(LightweightStringTest, AppendingNothingChangesNothing)
{
    const TypeParam nothing[1] = {};
    auto s = this->make("abcd");
    const auto other = s;
    const std::size_t before = this->allocations();
    s += nothing;
    s += static_cast<const TypeParam*>(nullptr);
    s += typename TestFixture::Text();
    s.append(wide<TypeParam>("x").c_str(), 0);
    EXPECT_EQ(s.c_str(), other.c_str());
    EXPECT_EQ(this->allocations(), before);
}

TYPED_TEST(LightweightStringTest, AppendingToASharedBufferNeverChangesTheOthersText)
{
    auto s = this->make("abcd");
    const auto other = s;
    s += wide<TypeParam>("e").c_str();
    EXPECT_TRUE(this->reads(s, "abcde"));
    EXPECT_TRUE(this->reads(other, "abcd"));
    EXPECT_EQ(s.capacity(), 8U);
}

TYPED_TEST(LightweightStringTest, NullStringReceivesACopyOfWhatIsAppended)
{
    typename TestFixture::Text s;
    s += wide<TypeParam>("abc").c_str();
    EXPECT_TRUE(this->reads(s, "abc"));
    EXPECT_EQ(s.capacity(), 4U);
    typename TestFixture::Text t;
    t += s;
    EXPECT_TRUE(this->reads(t, "abc"));
}

TYPED_TEST(LightweightStringTest, AppendTakesExactlyThatManyCharacters)
{
    auto s = this->make("ab");
    EXPECT_EQ(&s.append(wide<TypeParam>("cdef").c_str(), 2), &s);
    EXPECT_TRUE(this->reads(s, "abcd"));
    s.append(wide<TypeParam>("xyz").c_str(), 1);
    EXPECT_TRUE(this->reads(s, "abcdx"));
}

TYPED_TEST(LightweightStringTest, AppendingItselfDoublesTheTextInPlaceAndInANewBuffer)
{
    auto s = this->make("abc");
    s += s; // needs a new buffer: 6 characters, capacity 4
    EXPECT_TRUE(this->reads(s, "abcabc"));
    auto roomy = this->make("abcdefgh");
    roomy.assign(wide<TypeParam>("abc").c_str());
    const std::size_t before = this->allocations();
    roomy += roomy.c_str();
    EXPECT_EQ(this->allocations(), before);
    EXPECT_TRUE(this->reads(roomy, "abcabc"));
    roomy.append(roomy.c_str() + 1, 2);
    EXPECT_TRUE(this->reads(roomy, "abcabcbc"));
    const auto other = roomy;
    ASSERT_EQ(roomy.length(), 8U);
    roomy.append(other.c_str() + roomy.length() - 2, 2); // its own text, shared
    EXPECT_TRUE(this->reads(roomy, "abcabcbcbc"));
    EXPECT_TRUE(this->reads(other, "abcabcbc"));
}

TYPED_TEST(LightweightStringTest, AdditionGivesANewStringAndLeavesItsOperands)
{
    const auto a = this->make("ab");
    const std::size_t before = this->allocations();
    const auto sum = a + wide<TypeParam>("cd").c_str();
    EXPECT_EQ(this->allocations(), before + 1);
    EXPECT_TRUE(this->reads(sum, "abcd"));
    EXPECT_EQ(sum.capacity(), 8U);
    EXPECT_TRUE(this->reads(a, "ab"));
    const auto twice = a + a;
    EXPECT_TRUE(this->reads(twice, "abab"));
}

TYPED_TEST(LightweightStringTest, AdditionOfNothingToNothingIsTheNullString)
{
    using String = typename TestFixture::Text;
    const std::size_t before = this->allocations();
    const String sum = String() + static_cast<const TypeParam*>(nullptr);
    const String other = String() + String();
    EXPECT_EQ(sum.capacity(), 0U);
    EXPECT_EQ(other.capacity(), 0U);
    EXPECT_EQ(this->allocations(), before);
}

TYPED_TEST(LightweightStringTest, AdditionOfNothingReadsAsTheText)
{
    using String = typename TestFixture::Text;
    const auto a = this->make("ab");
    EXPECT_TRUE(this->reads(a + String(), "ab"));
    EXPECT_TRUE(this->reads(String() + a, "ab"));
    EXPECT_TRUE(this->reads(String() + this->make("c"), "c"));
}

TYPED_TEST(LightweightStringTest, EqualityHeedsCaseAndTheOtherComparisonDoesNot)
{
    EXPECT_EQ(this->make("Null.fx"), this->make("Null.fx"));
    EXPECT_FALSE(this->make("Null.fx") == this->make("NULL.FX"));
    EXPECT_TRUE(this->make("Null.fx").equalsIgnoringCase(this->make("NULL.FX")));
    EXPECT_FALSE(this->make("Null.fx").equalsIgnoringCase(this->make("Null.f")));
    EXPECT_FALSE(this->make("[").equalsIgnoringCase(this->make("{"))); // 32 apart, but not letters
    EXPECT_TRUE(this->make("a") < this->make("b"));
}

TYPED_TEST(LightweightStringTest, CharactersBehindANulTakePartInComparisons)
{
    const auto c = this->makeWithNul('c');
    const auto d = this->makeWithNul('d');
    EXPECT_EQ(c, this->makeWithNul('c'));
    EXPECT_FALSE(c == d);
    EXPECT_FALSE(c == this->make("ab"));
    EXPECT_TRUE(c < d);
    EXPECT_TRUE(this->make("ab") < c);
    EXPECT_TRUE(c.equalsIgnoringCase(this->makeWithNul('C')));
    EXPECT_FALSE(c.equalsIgnoringCase(d));
}

TYPED_TEST(LightweightStringTest, CharactersBehindANulAreAppendedAndAdded)
{
    const auto c = this->makeWithNul('c');
    typename TestFixture::Text s;
    s += c;
    EXPECT_EQ(s, c);
    s += c;
    EXPECT_EQ(s.length(), 2 * c.length());
    EXPECT_EQ(s, c + c);
}

TYPED_TEST(LightweightStringTest, AppendingMoreThanFitsIsRefusedAlsoWhereTheSumOfTheLengthsWrapsRound)
{
    const auto text = wide<TypeParam>("xyz");
    constexpr auto most = std::numeric_limits<std::size_t>::max();
    for (const std::size_t n : {std::size_t{0x80000000U}, most - 3, most - 2, most - 1, most}) {
        auto s = this->make("abc");
        s.append(text.c_str(), n);
        EXPECT_TRUE(this->reads(s, "abc")) << n;
    }
}

TYPED_TEST(LightweightStringTest, LengthsFromTwoToThe31UpAreRefusedAndTheStringStaysAsItWas)
{
    for (const std::size_t n :
         {std::size_t{0x80000000U}, std::size_t{0x80000001U}, std::size_t{0xFFFFFFFFU},
          std::size_t{0x100000000U}, std::size_t{0x100000002U}, static_cast<std::size_t>(-1)}) {
        auto s = this->make("abc");
        EXPECT_FALSE(s.resizeFor(n)) << n;
        EXPECT_TRUE(this->reads(s, "abc"));
        typename TestFixture::Text null;
        EXPECT_FALSE(null.resizeFor(n)) << n;
        EXPECT_EQ(null.capacity(), 0U);
    }
}

TYPED_TEST(LightweightStringTest, TheLongestLengthAsksForTwoToThe31Characters)
{
    // The allocation fails here: the request must be neither truncated nor endless.
    const std::size_t needed = headerBytes + std::size_t{0x80000000U} * sizeof(TypeParam);
    auto s = this->make("abc");
    host().allocator.refuseFrom(needed);
    EXPECT_FALSE(s.resizeFor(0x7FFFFFFFU));
    EXPECT_EQ(host().allocator.largestRefusal(), needed);
    EXPECT_TRUE(this->reads(s, "abc"));
}

TYPED_TEST(LightweightStringTest, WithoutMemoryEveryWriterLeavesTheStringAsItWas)
{
    auto s = this->make("abc");
    const auto other = s;
    host().allocator.refuseFrom(1);
    EXPECT_FALSE(s.resizeFor(100));
    s.assign(wide<TypeParam>("long enough for a new one").c_str());
    s += wide<TypeParam>("d").c_str();
    s.append(wide<TypeParam>("de").c_str(), 2);
    EXPECT_TRUE(this->reads(s, "abc"));
    EXPECT_EQ(s.c_str(), other.c_str());
    EXPECT_TRUE((s + s).empty());
}

TYPED_TEST(LightweightStringTest, CountIsRightAfterEightThreadsCopyAndDrop)
{
    auto s = this->make("shared by all");
    std::vector<std::jthread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&s] {
            for (int i = 0; i < 2000; ++i) {
                const auto copy = s;
                auto another = copy;
                another += copy; // a write to a shared buffer gets a new one
                ASSERT_EQ(another.length(), 26U);
            }
        });
    }
    threads.clear();
    EXPECT_TRUE(this->reads(s, "shared by all"));
    const std::size_t before = this->allocations();
    s.assign(wide<TypeParam>("sole owner").c_str());
    EXPECT_EQ(this->allocations(), before) << "somebody still holds the buffer";
}

TYPED_TEST(LightweightStringTest, LastOwnerOnAnyThreadFreesTheBuffer)
{
    const std::size_t live = host().allocator.liveBlocks();
    for (int i = 0; i < 200; ++i) {
        auto s = this->make("handed over");
        std::jthread other([copy = s]() mutable { copy.resizeFor(0); });
        s.resizeFor(0);
    }
    EXPECT_EQ(host().allocator.liveBlocks(), live);
}

TYPED_TEST(LightweightStringTest, AppendingTheLongestLengthAsksForTwoToThe31Characters)
{
    const std::size_t needed = headerBytes + std::size_t{0x80000000U} * sizeof(TypeParam);
    typename TestFixture::Text s;
    host().allocator.refuseFrom(needed);
    s.append(wide<TypeParam>("abc").c_str(), 0x7FFFFFFFU);
    EXPECT_EQ(host().allocator.largestRefusal(), needed);
    EXPECT_TRUE(s.empty());
}

TYPED_TEST(LightweightStringTest, OfAsciiCharactersExactlyTheLettersEqualTheirOtherCase)
{
    using String = typename TestFixture::Text;
    for (int a = 1; a < 128; ++a) {
        for (int b = 1; b < 128; ++b) {
            const TypeParam one[] = {static_cast<TypeParam>(a), 0};
            const TypeParam other[] = {static_cast<TypeParam>(b), 0};
            const auto [first, second] = std::minmax({a, b});
            const bool oneLetter = first >= 'A' && first <= 'Z' && second == first + 32;
            EXPECT_EQ(String(one).equalsIgnoringCase(other), a == b || oneLetter) << a << ' ' << b;
        }
    }
}

TEST(WideStringComparison, FoldsTheCaseOfLettersBeyondAsciiWhateverTheLocale)
{
    ASSERT_EQ(setenv("LC_ALL", "C", 1), 0);
    using Wide = LightweightString<wchar_t>;
    EXPECT_TRUE(Wide(L"\u00C4rger.fx").equalsIgnoringCase(L"\u00E4RGER.FX"));
    EXPECT_TRUE(Wide(L"\u0416.fx").equalsIgnoringCase(L"\u0436.FX"));
    EXPECT_TRUE(Wide(L"\u03A9").equalsIgnoringCase(L"\u03C9"));
    EXPECT_FALSE(Wide(L"\u00C4").equalsIgnoringCase(L"A"));
    EXPECT_TRUE(Wide(L"\U00010400").equalsIgnoringCase(L"\U00010428"));
}

TEST(WideStringComparison, CodeUnitsThatAreNoCharactersEqualOnlyThemselves)
{
    using Wide = LightweightString<wchar_t>;
    const wchar_t strayByte[] = {static_cast<wchar_t>(0xDC00 + 0xFF), 0};
    const wchar_t negative[] = {static_cast<wchar_t>(-2), 0};
    EXPECT_TRUE(Wide(strayByte).equalsIgnoringCase(strayByte));
    EXPECT_TRUE(Wide(negative).equalsIgnoringCase(negative));
    EXPECT_FALSE(Wide(strayByte).equalsIgnoringCase(negative));
}

TEST(NarrowStringComparison, FoldsAsciiOnly)
{
    using Narrow = LightweightString<char>;
    EXPECT_TRUE(Narrow("\xC3\x84_a").equalsIgnoringCase("\xC3\x84_A"));
    EXPECT_FALSE(Narrow("\xC3\x84").equalsIgnoringCase("\xC3\xA4"));
}
