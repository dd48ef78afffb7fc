#include "QxFxResources/GPUColourConverter.h"
#include "tests/contract/recording/Surfaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <ostream>
#include <string>

// What the library does with each format at each depth: the images that it creates, the techniques that it
// runs with their parameter, the label of the result and the printed lines. Frames are 1920 by 1080.

using namespace Qx::Test;
using namespace Qx::Image;
using namespace Qx::Image::ColourConversion;

namespace {

constexpr auto deep8 = iGPUImage::eARGB8;
constexpr auto deep10 = iGPUImage::eARGB10;
constexpr auto deep16 = iGPUImage::eARGB16;
constexpr bool topDown = true;
constexpr bool bottomUp = false;

/// Returns the host's calls in short form: "create 960x1080 0; null.fx UYVYtoYUYV; _Width 960".
std::string done()
{
    std::string result;
    for (const std::string& line : host().journal.lines()) {
        const std::size_t open = line.find('(');
        const std::string operation = line.substr(0, open);
        const std::string arguments = line.substr(open + 1, line.size() - open - 2);
        const auto words = [&] {
            std::string text = arguments;
            std::erase(text, ',');
            return text;
        };
        const std::size_t first = arguments.find(", ");
        std::string step;
        if (operation == "createGPUImage") {
            step = "create " + words();
        } else if (operation == "downloadImage") {
            step = "download " + words();
        } else if (operation == "setTechnique") {
            step = words();
        } else if (operation == "setValue" && arguments.find(", _Height, ") == std::string::npos) {
            step = words().substr(first + 1);
        } else if (operation == "drawImageEx") {
            step = "draw";
        }
        if (!step.empty()) {
            result += (result.empty() ? "" : "; ") + step;
        }
    }
    return result;
}

/// Returns the calls, the result and the printed lines, in the form of the tables' last three columns.
struct Outcome
{
    std::string done;
    std::string result;
    std::string printed;

    friend bool operator==(const Outcome&, const Outcome&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const Outcome& o)
    {
        return stream << "\n  done    " << o.done << "\n  result  " << o.result << "\n  printed "
                      << inQuotes(o.printed);
    }
};

Surface frame(Format format, unsigned bits, bool isTopDown)
{
    Surface result = onGPU(format, bits, 1920, 1080, isTopDown);
    result.setColourSpace(ColourSpace::BT709);
    result.setGamutScaling(GamutScaling::Video);
    return result;
}

// Printed lines, in full.
const std::string not8 = assertionLine("source.getBitsPerComponent() == 8", 252);
const std::string not16For257 = assertionLine("source.getBitsPerComponent() == 16", 257);
const std::string not16For263 = assertionLine("source.getBitsPerComponent() == 16", 263);
const std::string notYUY2 = assertionLine("destFormat == YUY2", 267);
const std::string notYUY2FromM101 = assertionLine("destFormat == YUY2", 271);
const std::string notYUV = assertionLine("isYUV( fmt.getDataFormat() )", 825);
const std::string always210 = assertionLine("false", 230);
const std::string packed342 = assertionLine("source.getBitsPerComponent() == 8", 342);
const std::string depth346 =
    assertionLine("source.getBitsPerComponent() == 8 || source.getBitsPerComponent() == 16", 346);
const std::string bottomUp367 = assertionLine("isTopDown", 367);
const std::string not16For368 = assertionLine("source.getBitsPerComponent() == 16", 368);
const std::string bottomUp382 = assertionLine("isTopDown", 382);

const std::string decode = "ColourConvert.fx YCrCb422_Video_BT709_To_RGB_Unscaled_Point";
const std::string encode = "ColourConvert.fx RGB_Unscaled_To_YCrCb422_Video_BT709_Point";
const std::string pack =
    "ColourConvert.fx PackMatrox10Bit; create 1200x1080 0; pSourceImageTotalWidthInDWORDs "
    "960; DestImageWidth 1200";
const std::string unpackBase =
    "ColourConvert.fx UnpackMatrox10Bit_BaseOnly; pSourceImageTotalWidthInDWORDs 1200";
const std::string unpackFull = "ColourConvert.fx UnpackMatrox10Bit; pSourceImageTotalWidthInDWORDs 1200";

std::string null(const std::string& technique, const char* width = "1920")
{
    return "null.fx " + technique + "; _Width " + width;
}

// Input: convertToRGBA.

struct In
{
    const char* name;
    Format format;
    unsigned bits;
    bool isTopDown;
    iGPUImage::eFormat wanted;
    std::string done;
    std::string result;
    std::string printed;
};

const std::string argb8 = "ARGB 1920x1080 8/32 7680";
const std::string argb16 = "ARGB 1920x1080 16/64 15360";
const std::string argb10 = "35 1920x1080 10/32 7680";
const std::string make8 = "create 1920x1080 0";
const std::string make16 = "create 1920x1080 1";
const std::string make10 = "create 1920x1080 2101010";
const std::string reversed = "null.fx ReverseComponentOrder; draw";

class ComingIn : public FormatTest, public testing::WithParamInterface<In>
{
};

// Output: copyToHostSurface from a surface on the GPU.

struct Out
{
    const char* name;
    Format format;
    unsigned bits;
    Format requested;
    unsigned requestedBits;
    std::string done;
    std::string result;
    std::string printed;
};

const std::string get8 = "; download 1920x1080 0";
const std::string get16 = "; download 1920x1080 1";
const std::string get10 = "; download 1920x1080 2101010";
const std::string encode8 = "create 960x1080 0; " + encode;
const std::string encode16 = "create 960x1080 1; " + encode;
const std::string getPairs8 = "; download 960x1080 0";
const std::string getPairs16 = "; download 960x1080 1";
const std::string getPacked = "; download 1200x1080 0";
const std::string yuy2At8 = "YUY2 1920x1080 8/16 3840";
const std::string yuy2At16 = "YUY2 1920x1080 16/32 7680";
const std::string packed = "M101 1920x1080 10/20 4800";

class GoingOut : public FormatTest, public testing::WithParamInterface<Out>
{
};

// From one order of 4:2:2 to another: reorderComponents.

struct Reorder
{
    const char* name;
    Format format;
    unsigned bits;
    Format requested;
    iGPUImage::eFormat wanted;
    std::string done;
    std::string result;
    std::string printed;
};

class Reordering : public FormatTest, public testing::WithParamInterface<Reorder>
{
};

void PrintTo(const In& row, std::ostream* stream)
{
    *stream << row.name;
}
void PrintTo(const Out& row, std::ostream* stream)
{
    *stream << row.name;
}
void PrintTo(const Reorder& row, std::ostream* stream)
{
    *stream << row.name;
}

constexpr auto nameOfRow = [](const auto& info) { return info.param.name; };

} // namespace

TEST_P(ComingIn, IsNormalisedAsItsRowSays)
{
    const In& row = GetParam();
    Surface source = frame(row.format, row.bits, row.isTopDown);
    Outcome outcome;
    Surface result;
    outcome.printed = printedDuring([&] { result = convertToRGBA(source, row.wanted); });
    outcome.done = done();
    outcome.result = describe(result);
    EXPECT_EQ(outcome, (Outcome{row.done, row.result, row.printed}));
    EXPECT_EQ(result.getGPUSurface() == source.getGPUSurface(), row.done.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Formats, ComingIn,
    testing::Values(
        In{"ARGB8", ARGB, 8, topDown, deep8, "", argb8, ""},
        In{"ARGB16", ARGB, 16, topDown, deep16, "", argb16, ""},
        In{"ARGB8BottomUp", ARGB, 8, bottomUp, deep8, make8 + "; " + null("FlipVertical"), argb8, ""},
        In{"ARGB16BottomUp", ARGB, 16, bottomUp, deep16, make16 + "; " + null("FlipVertical"), argb16, ""},
        In{"ARGB16BottomUpFor8", ARGB, 16, bottomUp, deep8, make8 + "; " + null("FlipVertical"), argb8, ""},
        In{"ARGB8BottomUpFor16", ARGB, 8, bottomUp, deep16, make8 + "; " + null("FlipVertical"), argb8, ""},
        In{"ARGB8BottomUpFor10", ARGB, 8, bottomUp, deep10, make8 + "; " + null("FlipVertical"), argb8, ""},
        In{"Code35At8", ARGB10, 8, topDown, deep8, "", "35 1920x1080 8/32 7680", ""},
        In{"Code35At8BottomUp", ARGB10, 8, bottomUp, deep8, make8 + "; " + null("FlipVertical"), argb8, ""},
        In{"Code35At10", ARGB10, 10, topDown, deep10, "", argb10, ""},
        In{"Code35At10BottomUp", ARGB10, 10, bottomUp, deep10, make10 + "; " + null("FlipVertical"), argb10,
           ""},
        In{"Code35At10BottomUpFor16", ARGB10, 10, bottomUp, deep16, make8 + "; " + null("FlipVertical"),
           argb8, ""},
        In{"BGRA8", BGRA, 8, topDown, deep8, make8 + "; " + reversed, argb8, ""},
        In{"BGRA16", BGRA, 16, topDown, deep16, make16 + "; " + reversed, argb16, ""},
        In{"Code32", BGRA32, 8, topDown, deep8, make8 + "; " + reversed, argb8, ""},
        In{"RGBA8", RGBA, 8, topDown, deep8, make8 + "; " + null("RotateLeft"), argb8, ""},
        In{"RGBA16", RGBA, 16, topDown, deep16, make16 + "; " + null("RotateLeft"), argb16, ""},
        In{"ABGR8", ABGR, 8, topDown, deep8, make8 + "; " + null("ABGRtoARGB"), argb8, ""},
        In{"ABGR16", ABGR, 16, topDown, deep16, make16 + "; " + null("ABGRtoARGB"), argb16, ""},
        In{"Code37At8", PlanarRGB, 8, topDown, deep8, make8 + "; " + null("RGBPlanartoARGB"), argb8, ""},
        In{"Code37At16", PlanarRGB, 16, topDown, deep16, make16 + "; " + null("RGBPlanartoARGB"), argb16, ""},
        In{"SpaceRGB8", RGB24, 8, topDown, deep8, make8 + "; " + null("RGBtoARGB"), argb8, ""},
        In{"SpaceRGB8BottomUp", RGB24, 8, bottomUp, deep8, make8 + "; " + null("RGBtoARGB_FlipVertical"),
           argb8, ""},
        In{"SpaceRGB16", RGB24, 16, topDown, deep16, make16 + "; " + null("RGB16toABGR"), argb16, ""},
        In{"SpaceRGB16BottomUp", RGB24, 16, bottomUp, deep16, make16 + "; " + null("RGB16toABGR"), argb16,
           bottomUp367},
        In{"BGR24At8", BGR24, 8, topDown, deep8, make8 + "; " + null("RGBtoARGB"), argb8, ""},
        In{"BGR24At8BottomUp", BGR24, 8, bottomUp, deep8, make8 + "; " + null("RGBtoARGB_FlipVertical"),
           argb8, ""},
        In{"BGR24At16", BGR24, 16, topDown, deep16, make16 + "; " + null("RGB16toABGR"), argb16, ""},
        In{"BGR24At12BottomUp", BGR24, 12, bottomUp, deep16, make8 + "; " + null("RGB16toABGR"), argb8,
           bottomUp367 + not16For368},
        In{"BGR3At8", BGR3, 8, topDown, deep8, make8 + "; " + null("BGRtoARGB"), argb8, ""},
        In{"BGR3At16BottomUp", BGR3, 16, bottomUp, deep16, make16 + "; " + null("BGRtoARGB_FlipVertical"),
           argb16, ""},
        In{"B48rAt8", B48R, 8, topDown, deep8, make8 + "; " + null("BGRtoARGB"), argb8, ""},
        In{"B48rAt8BottomUp", B48R, 8, bottomUp, deep8, make8 + "; " + null("BGRtoARGB_FlipVertical"), argb8,
           ""},
        In{"B48rAt16", B48R, 16, topDown, deep16, make16 + "; " + null("BGRtoARGB"), argb16, ""},
        In{"B64aAt16", B64A, 16, topDown, deep16, make16 + "; " + null("BGRAtoARGB"), argb16, ""},
        In{"B64aAt16BottomUp", B64A, 16, bottomUp, deep16, make16 + "; " + null("BGRAtoARGB"), argb16,
           bottomUp382}),
    nameOfRow);

INSTANTIATE_TEST_SUITE_P(
    VideoFormats, ComingIn,
    testing::Values(
        In{"YUY2At8", YUY2, 8, topDown, deep8, make8 + "; " + decode, argb8, ""},
        In{"YUY2At16", YUY2, 16, topDown, deep16, make16 + "; " + decode, argb16, ""},
        In{"YUY2At16For8", YUY2, 16, topDown, deep8, make8 + "; " + decode, argb8, ""},
        In{"YUY2At10", YUY2, 10, topDown, deep16, make8 + "; " + decode, argb8, depth346},
        In{"Y216", Y216, 16, topDown, deep16, make16 + "; " + decode, argb16, ""},
        In{"M101At8", M101, 8, topDown, deep8, make8 + "; " + decode, argb8, ""},
        In{"M102At8", M102, 8, topDown, deep8, make8 + "; " + decode, argb8, ""},
        In{"M101At16", M101, 16, topDown, deep16, make16 + "; " + decode, argb16, packed342},
        In{"M101At10", M101, 10, topDown, deep8, make8 + "; " + decode, argb8, packed342 + depth346},
        In{"M102At10", M102, 10, topDown, deep8, make8 + "; " + decode, argb8, packed342 + depth346},
        In{"M102At16", M102, 16, topDown, deep16, make16 + "; " + decode, argb16, packed342},
        In{"V216IsNotHandled", V216, 16, topDown, deep16, "", "v216 1920x1080 16/32 7680", ""},
        In{"YUYVIsNotHandled", YUYV, 8, topDown, deep8, "", "YUYV 1920x1080 8/16 3840", ""},
        In{"UYVYIsNotHandled", UYVY, 8, bottomUp, deep8, "", "UYVY 1920x1080 8/16 3840 bottom-up", ""},
        In{"V210IsNotHandled", V210, 10, topDown, deep16, "", "v210 1920x1080 10/20 5120", ""},
        In{"YV12IsNotHandled", YV12, 8, topDown, deep8, "", "YV12 1920x1080 8/12 1920", ""}),
    nameOfRow);

// The formats whose bottom-up rows are not flipped: their technique, and no other, is run on them.
INSTANTIATE_TEST_SUITE_P(
    BottomUpUnflipped, ComingIn,
    testing::Values(In{"BGRA8", BGRA, 8, bottomUp, deep8, make8 + "; " + reversed, argb8, ""},
                    In{"BGRA16", BGRA, 16, bottomUp, deep16, make16 + "; " + reversed, argb16, ""},
                    In{"Code32", BGRA32, 8, bottomUp, deep8, make8 + "; " + reversed, argb8, ""},
                    In{"RGBA8", RGBA, 8, bottomUp, deep8, make8 + "; " + null("RotateLeft"), argb8, ""},
                    In{"ABGR8", ABGR, 8, bottomUp, deep8, make8 + "; " + null("ABGRtoARGB"), argb8, ""},
                    In{"ABGR16", ABGR, 16, bottomUp, deep16, make16 + "; " + null("ABGRtoARGB"), argb16, ""},
                    In{"Code37", PlanarRGB, 8, bottomUp, deep8, make8 + "; " + null("RGBPlanartoARGB"), argb8,
                       ""},
                    In{"YUY2", YUY2, 8, bottomUp, deep8, make8 + "; " + decode, argb8, ""},
                    In{"YUY2At16", YUY2, 16, bottomUp, deep16, make16 + "; " + decode, argb16, ""},
                    In{"Y216", Y216, 16, bottomUp, deep16, make16 + "; " + decode, argb16, ""},
                    In{"M101At8", M101, 8, bottomUp, deep8, make8 + "; " + decode, argb8, ""},
                    In{"M102At8", M102, 8, bottomUp, deep8, make8 + "; " + decode, argb8, ""}),
    nameOfRow);

TEST_P(Reordering, IsDoneAsItsRowSays)
{
    const Reorder& row = GetParam();
    Surface source = frame(row.format, row.bits, topDown);
    Outcome outcome;
    Surface result;
    outcome.printed = printedDuring([&] { result = reorderComponents(source, row.requested, row.wanted); });
    outcome.done = done();
    outcome.result = describe(result);
    EXPECT_EQ(outcome, (Outcome{row.done, row.result, row.printed}));
    EXPECT_EQ(result.getGPUSurface() == source.getGPUSurface(), row.done.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Formats, Reordering,
    testing::Values(
        Reorder{"UYVYAt8", UYVY, 8, YUY2, deep8, "create 960x1080 0; " + null("UYVYtoYUYV", "960"), yuy2At8,
                ""},
        Reorder{"UYVYAt16", UYVY, 16, YUY2, deep16, "create 960x1080 1; " + null("UYVYtoYUYV", "960"),
                yuy2At16, ""},
        Reorder{"UYVYAt8For16", UYVY, 8, YUY2, deep16, "create 960x1080 0; " + null("UYVYtoYUYV", "960"),
                yuy2At8, ""},
        Reorder{"UYVYToUYVY", UYVY, 8, UYVY, deep8, "create 960x1080 0; " + null("UYVYtoYUYV", "960"),
                "UYVY 1920x1080 8/16 3840", assertionLine("destFormat == YUY2", 225)},
        Reorder{"YVYU", YVYU, 8, YUY2, deep8, "create 960x1080 0; " + null("YVYUtoYUYV", "960"), yuy2At8, ""},
        Reorder{"YVYUToY216", YVYU, 16, Y216, deep16, "create 960x1080 1; " + null("YVYUtoYUYV", "960"),
                "Y216 1920x1080 16/32 7680", assertionLine("destFormat == YUY2", 215)},
        Reorder{"VYUY", VYUY, 8, YUY2, deep8, "create 960x1080 0; " + null("ReverseComponentOrder", "960"),
                yuy2At8, ""},
        Reorder{"VYUYAt16", VYUY, 16, YUY2, deep16,
                "create 960x1080 1; " + null("ReverseComponentOrder", "960"), yuy2At16, ""},
        Reorder{"VYUYToUYVY", VYUY, 8, UYVY, deep8,
                "create 960x1080 0; " + null("ReverseComponentOrder", "960"), "UYVY 1920x1080 8/16 3840",
                assertionLine("destFormat == YUY2", 220)},
        Reorder{"YV12", YV12, 8, YUY2, deep8, "create 960x1080 0; " + null("YV12toYUYV", "960"),
                "YUY2 1920x1080 8/12 3840", ""},
        Reorder{"YV12ToUYVY", YV12, 8, UYVY, deep8, "create 960x1080 0; " + null("YV12toYUYV", "960"),
                "UYVY 1920x1080 8/12 3840", assertionLine("destFormat == YUY2", 210)},
        Reorder{"V210", V210, 10, YUY2, deep8, "create 960x1080 0; " + null("V210toYUYV", "960"),
                "YUY2 1920x1080 10/20 3840", always210},
        Reorder{"V210For16", V210, 10, YUY2, deep16, "create 960x1080 1; " + null("V210toYUYV", "960"),
                "YUY2 1920x1080 10/20 7680", always210},
        Reorder{"V210At8", V210, 8, YUY2, deep8, "create 960x1080 0; " + null("V210toYUYV", "960"),
                "YUY2 1920x1080 8/20 3840", always210},
        Reorder{"V210At16", V210, 16, YUY2, deep16, "create 960x1080 1; " + null("V210toYUYV", "960"),
                "YUY2 1920x1080 16/20 7680", always210},
        Reorder{"M101At10For8", M101, 10, YUY2, deep8, "create 960x1080 0; " + unpackBase, yuy2At8, ""},
        Reorder{"M101At10For16", M101, 10, YUY2, deep16, "create 960x1080 1; " + unpackFull, yuy2At16, ""},
        Reorder{"M102At10", M102, 10, YUY2, deep8, "create 960x1080 0; " + unpackBase, yuy2At8, ""},
        Reorder{"M101At10ToUYVY", M101, 10, UYVY, deep8, "create 960x1080 0; " + unpackBase, yuy2At8,
                notYUY2FromM101},
        Reorder{"M101At8", M101, 8, YUY2, deep8, "", "M101 1920x1080 8/16 3840", ""},
        Reorder{"M101At8ToM101", M101, 8, M101, deep8, "", "M101 1920x1080 8/16 3840", notYUY2FromM101},
        Reorder{"YUY2ToYUY2", YUY2, 8, YUY2, deep8, "", yuy2At8, ""},
        Reorder{"YUYVToYUY2", YUYV, 8, YUY2, deep8, "", "YUYV 1920x1080 8/16 3840", ""},
        Reorder{"YUY2ToUYVY", YUY2, 8, UYVY, deep8, "create 960x1080 0; " + null("UYVYtoYUYV", "960"),
                "UYVY 1920x1080 8/16 3840", ""},
        Reorder{"YUYVAt16ToUYVY", YUYV, 16, UYVY, deep16, "create 960x1080 1; " + null("UYVYtoYUYV", "960"),
                "UYVY 1920x1080 16/32 7680", ""},
        Reorder{"YUY2ToM101", YUY2, 8, M101, deep8, "", yuy2At8, ""},
        Reorder{"YUY2At16ToM102", YUY2, 16, M102, deep16, "", yuy2At16, not8},
        Reorder{"YUY2At16ToY216", YUY2, 16, Y216, deep16, "", "Y216 1920x1080 16/32 7680", ""},
        Reorder{"YUY2At8ToY216", YUY2, 8, Y216, deep8, "", "Y216 1920x1080 8/16 3840", not16For257},
        Reorder{"YUY2At16ToV216", YUY2, 16, V216, deep16, "", "v216 1920x1080 16/32 7680", ""},
        Reorder{"YUYVAt8ToV216", YUYV, 8, V216, deep8, "", "v216 1920x1080 8/16 3840", not16For263},
        Reorder{"YUY2ToYVYU", YUY2, 8, YVYU, deep8, "", yuy2At8, notYUY2},
        Reorder{"YUY2ToYUYV", YUY2, 8, YUYV, deep8, "", yuy2At8, notYUY2},
        Reorder{"Y216IsNotHandled", Y216, 16, UYVY, deep16, "", "Y216 1920x1080 16/32 7680", ""},
        Reorder{"ARGBIsNotHandled", ARGB, 8, YUY2, deep8, "", argb8, ""}),
    nameOfRow);

TEST_P(GoingOut, IsConvertedAsItsRowSays)
{
    const Out& row = GetParam();
    const Surface source = frame(row.format, row.bits, topDown);
    const Core::Data fmt(1920, 1080, row.requested, static_cast<std::uint16_t>(row.requestedBits), 0);
    Outcome outcome;
    Surface result;
    outcome.printed = printedDuring([&] { result = copyToHostSurface(source, fmt, Polarity::Progressive); });
    outcome.done = done();
    outcome.result = describe(result);
    EXPECT_EQ(outcome, (Outcome{row.done, row.result, row.printed}));
    EXPECT_TRUE(result.getHostImage());
    EXPECT_FALSE(result.getGPUSurface());
    if (row.printed.empty()) {
        EXPECT_EQ(host().journal.count("Log"), 0U) << "the image holds the rows that its label asks for";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Formats, GoingOut,
    testing::Values(
        Out{"ARGB8", ARGB, 8, ARGB, 8, "download 1920x1080 0", argb8, ""},
        Out{"ARGB16", ARGB, 16, ARGB, 16, "download 1920x1080 1", argb16, ""},
        Out{"Code35At8", ARGB10, 8, ARGB10, 8, "download 1920x1080 0", "35 1920x1080 8/32 7680", ""},
        Out{"Code35At10", ARGB10, 10, ARGB10, 10, "download 1920x1080 2101010", argb10, ""},
        Out{"ARGB8To16", ARGB, 8, ARGB, 16, make16 + "; " + null("Null") + get16, argb16, ""},
        Out{"ARGB16To8", ARGB, 16, ARGB, 8, make8 + "; " + null("Null") + get8, argb8, ""},
        Out{"ARGB8ToCode35At8", ARGB, 8, ARGB10, 8, make8 + "; " + null("Null") + get8,
            "35 1920x1080 8/32 7680", ""},
        Out{"ARGB8ToCode35At10", ARGB, 8, ARGB10, 10, make10 + "; " + null("Null") + get10, argb10, ""},
        Out{"ARGB16ToCode35At10", ARGB, 16, ARGB10, 10, make10 + "; " + null("Null") + get10, argb10, ""},
        Out{"Code35At10ToARGB8", ARGB10, 10, ARGB, 8, make8 + "; " + null("Null") + get8, argb8, ""},
        Out{"Code35At10ToARGB16", ARGB10, 10, ARGB, 16, make16 + "; " + null("Null") + get16, argb16, ""},
        Out{"BGR24At8", ARGB, 8, BGR24, 8, make8 + "; " + null("ARGBtoBGR") + get8,
            "24BG 1920x1080 8/24 5760", ""},
        Out{"BGR24At16", ARGB, 16, BGR24, 16, make16 + "; " + null("ARGBtoBGR") + get16,
            "24BG 1920x1080 16/48 11520", ""},
        Out{"BGR24At16From8", ARGB, 8, BGR24, 16, make16 + "; " + null("ARGBtoBGR") + get16,
            "24BG 1920x1080 16/48 11520", ""},
        Out{"B48rAt8", ARGB, 8, B48R, 8, make8 + "; " + null("ARGBtoRGB") + get8, "b48r 1920x1080 8/24 5760",
            ""},
        Out{"B48rAt16", ARGB, 16, B48R, 16, make16 + "; " + null("ARGBtoRGB") + get16,
            "b48r 1920x1080 16/48 11520", ""},
        Out{"B64aAt16", ARGB, 16, B64A, 16, make16 + "; " + null("ARGBtoBGRA") + get16,
            "b64a 1920x1080 16/64 15360", ""},
        Out{"B64aAt16From8", ARGB, 8, B64A, 16, make16 + "; " + null("ARGBtoBGRA") + get16,
            "b64a 1920x1080 16/64 15360", ""}),
    nameOfRow);

INSTANTIATE_TEST_SUITE_P(
    VideoFormats, GoingOut,
    testing::Values(Out{"YUY2At8", ARGB, 8, YUY2, 8, encode8 + getPairs8, yuy2At8, ""},
                    Out{"YUY2At16", ARGB, 16, YUY2, 16, encode16 + getPairs16, yuy2At16, ""},
                    Out{"YUY2At16From8", ARGB, 8, YUY2, 16, encode16 + getPairs16, yuy2At16, ""},
                    Out{"UYVYAt8", ARGB, 8, UYVY, 8,
                        encode8 + "; create 960x1080 0; " + null("UYVYtoYUYV", "960") + getPairs8,
                        "UYVY 1920x1080 8/16 3840", ""},
                    Out{"UYVYAt16", ARGB, 16, UYVY, 16,
                        encode16 + "; create 960x1080 1; " + null("UYVYtoYUYV", "960") + getPairs16,
                        "UYVY 1920x1080 16/32 7680", ""},
                    Out{"Y216", ARGB, 16, Y216, 16, encode16 + getPairs16, "Y216 1920x1080 16/32 7680", ""},
                    Out{"V216", ARGB, 16, V216, 16, encode16 + getPairs16, "v216 1920x1080 16/32 7680", ""},
                    Out{"M101At10", ARGB, 16, M101, 10, encode16 + "; " + pack + getPacked, packed, ""},
                    Out{"M101At10From8", ARGB, 8, M101, 10, encode16 + "; " + pack + getPacked, packed, ""}),
    nameOfRow);

// The formats that are returned with ARGB's bytes under another name, or as YUY2 or M101 under their own.
INSTANTIATE_TEST_SUITE_P(
    Mislabelled, GoingOut,
    testing::Values(Out{"BGRALeavesAsARGB", ARGB, 8, BGRA, 8, make8 + "; " + null("Null") + get8,
                        "BGRA 1920x1080 8/32 7680", ""},
                    Out{"Code32LeavesAsARGB", ARGB, 8, BGRA32, 8, make8 + "; " + null("Null") + get8,
                        "32 1920x1080 8/32 7680", ""},
                    Out{"RGBALeavesAsARGB", ARGB, 8, RGBA, 8, make8 + "; " + null("Null") + get8,
                        "RGBA 1920x1080 8/32 7680", ""},
                    Out{"ABGRLeavesAsARGB", ARGB, 16, ABGR, 16, make16 + "; " + null("Null") + get16,
                        "ABGR 1920x1080 16/64 15360", ""},
                    Out{"SpaceRGBLeavesAsARGB", ARGB, 8, RGB24, 8, make8 + "; " + null("Null") + get8,
                        "\x20RGB 1920x1080 8/24 5760", ""},
                    Out{"BGR3LeavesAsARGB", ARGB, 16, BGR3, 16, make16 + "; " + null("Null") + get16,
                        "BGR3 1920x1080 16/48 11520", ""},
                    Out{"B64aAt10LeavesIn16Bits", ARGB10, 10, B64A, 10, make16 + "; " + null("Null") + get16,
                        "b64a 1920x1080 10/64 15360", ""},
                    Out{"B48rAt10From10LeavesIn16Bits", ARGB10, 10, B48R, 10,
                        make16 + "; " + null("ARGBtoRGB") + get16, "b48r 1920x1080 10/48 11520", ""},
                    Out{"BGR24At12LeavesIn16Bits", ARGB, 16, BGR24, 12,
                        make16 + "; " + null("ARGBtoBGR") + get16, "24BG 1920x1080 12/48 11520", ""},
                    Out{"YUYVLeavesAsYUY2", ARGB, 8, YUYV, 8, encode8 + getPairs8, yuy2At8, notYUY2},
                    Out{"YVYULeavesAsYUY2", ARGB, 8, YVYU, 8, encode8 + getPairs8, yuy2At8, notYUY2},
                    Out{"VYUYLeavesAsYUY2", ARGB, 8, VYUY, 8, encode8 + getPairs8, yuy2At8, notYUY2},
                    Out{"YV12LeavesAsYUY2", ARGB, 8, YV12, 8, encode8 + getPairs8, yuy2At8, notYUY2},
                    Out{"V210At8LeavesAsYUY2", ARGB, 8, V210, 8, encode8 + getPairs8, yuy2At8, notYUY2},
                    Out{"M101At8LeavesAsYUY2", ARGB, 8, M101, 8, encode8 + getPairs8, yuy2At8, ""},
                    Out{"M102At16LeavesAsYUY2", ARGB, 16, M102, 16, encode16 + getPairs16, yuy2At16, not8},
                    Out{"Y216At8LeavesWithEightBits", ARGB, 8, Y216, 8, encode8 + getPairs8,
                        "Y216 1920x1080 8/16 3840", not16For257},
                    Out{"V216At8LeavesWithEightBits", ARGB, 8, V216, 8, encode8 + getPairs8,
                        "v216 1920x1080 8/16 3840", not16For263},
                    Out{"YUY2At10LeavesAsM101", ARGB, 16, YUY2, 10, encode16 + "; " + pack + getPacked,
                        packed, ""},
                    Out{"UYVYAt10LeavesAsYUY2At8", ARGB, 16, UYVY, 10,
                        encode16 + "; " + pack + "; create 960x1080 0; " + unpackBase + getPairs8, yuy2At8,
                        notYUY2FromM101},
                    Out{"V210At10LeavesAsYUY2At8", ARGB, 16, V210, 10,
                        encode16 + "; " + pack + "; create 960x1080 0; " + unpackBase + getPairs8, yuy2At8,
                        notYUY2FromM101},
                    Out{"M102At10LeavesAsYUY2At8", ARGB, 16, M102, 10,
                        encode16 + "; " + pack + "; create 960x1080 0; " + unpackBase + getPairs8, yuy2At8,
                        notYUY2FromM101},
                    Out{"Y216At10LeavesAsYUY2At8", ARGB, 16, Y216, 10,
                        encode16 + "; " + pack + "; create 960x1080 0; " + unpackBase + getPairs8, yuy2At8,
                        notYUY2FromM101},
                    Out{"UnknownFormatLeavesAsYUY2", ARGB, 8, UnknownFormat, 8, encode8 + getPairs8, yuy2At8,
                        notYUV + notYUY2}),
    nameOfRow);
