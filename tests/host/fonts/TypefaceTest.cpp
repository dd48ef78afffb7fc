#include "host/fonts/Typeface.h"

#include "tests/host/gpu/LogCapture.h"

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

namespace Qx::FontTests {
namespace {

using Host::Text::openTypeface;
using testing::HasSubstr;

constexpr const char* goodFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

class Typefaces : public testing::Test
{
protected:
    void SetUp() override
    {
        const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
        folder_ =
            std::filesystem::temp_directory_path() / ("qx-fonts-" + std::to_string(getpid()) + "-" + name);
        std::filesystem::create_directories(folder_);
        GpuTests::takeLog();
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::string file(const std::string& name, const std::string& bytes) const
    {
        const std::filesystem::path path = folder_ / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path.string();
    }

    /// It is refused with one line in the log that holds these words.
    static void expectRefusal(const std::wstring& typeface, int size, const std::string& words)
    {
        GpuTests::takeLog();
        EXPECT_EQ(openTypeface(typeface.c_str(), size, 0), nullptr);
        const std::string log = GpuTests::takeLog();
        EXPECT_THAT(log, HasSubstr(words));
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
    }

    static std::wstring wide(const std::string& text) { return {text.begin(), text.end()}; }

    std::filesystem::path folder_;
};

TEST_F(Typefaces, anotherStandsInForOneThatIsMissingAndTheLogSaysSoOnce)
{
    EXPECT_NE(openTypeface(L"DejaVu Sanz", 20, 0), nullptr);
    const std::string log = GpuTests::takeLog();
    EXPECT_THAT(log, HasSubstr("there is no typeface \"DejaVu Sanz\" (did you mean DejaVu Sans?); \"DejaVu"));
    EXPECT_NE(openTypeface(L"DejaVu Sanz", 30, 0), nullptr);
    EXPECT_EQ(GpuTests::takeLog(), "");
}

TEST_F(Typefaces, namesOfOnesThatAreThereAndOfKindsNeedNoRemark)
{
    for (const wchar_t* name : {L"DejaVu Sans", L"dejavu sans", L"sans", L"Monospace"}) {
        EXPECT_NE(openTypeface(name, 20, 0), nullptr);
    }
    EXPECT_EQ(GpuTests::takeLog(), "");
}

TEST_F(Typefaces, badNamesAndSizesAreRefusedWithALine)
{
    expectRefusal(L"", 20, "needs the name of a typeface");
    expectRefusal(L"DejaVu Sans", 0, "invalid font size 0: expected 1 to 2048 pixels");
    expectRefusal(L"DejaVu Sans", -12, "invalid font size -12");
    expectRefusal(L"DejaVu Sans", 2049, "invalid font size 2049");
    expectRefusal(L"DejaVu Sans", INT_MAX, "pixels");
    expectRefusal(L"DejaVu Sans", INT_MIN, "pixels");
    EXPECT_NE(openTypeface(L"DejaVu Sans", 1, 0), nullptr);
    EXPECT_NE(openTypeface(L"DejaVu Sans", 2048, 0), nullptr);
}

TEST_F(Typefaces, aNameThatIsNoTextIsOneThatIsMissing)
{
    EXPECT_NE(openTypeface(L"\xDC80\xDCFF: \x01", 20, 0), nullptr);
    const std::string log = GpuTests::takeLog();
    EXPECT_THAT(log, HasSubstr("there is no typeface"));
    EXPECT_THAT(log, HasSubstr("\\x01"));
}

TEST_F(Typefaces, aFileIsOpenedByItsPath)
{
    EXPECT_NE(openTypeface(wide(goodFont).c_str(), 20, 0), nullptr) << GpuTests::takeLog();
    EXPECT_EQ(GpuTests::takeLog(), "");
}

TEST_F(Typefaces, whatIsNoFontFileIsRefused)
{
    ASSERT_EQ(mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    expectRefusal(wide(folder_.string()), 20, "it is not a file");
    expectRefusal(wide((folder_ / "pipe").string()), 20, "it is not a file");
    expectRefusal(wide((folder_ / "missing.ttf").string()), 20, "there is no such file");
    expectRefusal(wide(file("empty.ttf", "")), 20, "it is not a font, or it is damaged");
    expectRefusal(wide(file("text.ttf", "This is no font.\n")), 20, "it is not a font, or it is damaged");
}

TEST_F(Typefaces, damagedFilesHurtNobody)
{
    std::ifstream stream(goodFont, std::ios::binary);
    const std::string good((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    ASSERT_GT(good.size(), 100000U) << goodFont << ": is fonts-dejavu-core installed?";
    std::mt19937 random(3);
    for (int trial = 0; trial < 60; ++trial) {
        std::string bytes = good;
        if (trial % 2 == 0) {
            bytes.resize(random() % bytes.size());
        }
        // Of the tables' directory, and anywhere.
        for (unsigned i = 0; i < 40 && !bytes.empty(); ++i) {
            bytes[random() % (i < 4 ? std::min<std::size_t>(bytes.size(), 300) : bytes.size())] =
                static_cast<char>(random());
        }
        const auto shaper = openTypeface(wide(file("damaged.ttf", bytes)).c_str(), 30, 3);
        if (shaper != nullptr) {
            for (const auto& placed : shaper->shape(L"Aj\u00E9 \u0628\u0628 \u05D0").glyphs) {
                static_cast<void>(placed.face->extentOf(placed.glyph));
                static_cast<void>(placed.face->draw(placed.glyph, 1));
            }
        }
    }
}

} // namespace
} // namespace Qx::FontTests
