// Frames of every format that comes in and goes out: the bytes that come back are those that went in.

#include "QxFxResources/GPUColourConverter.h"
#include "tests/pixels/HostFrames.h"
#include "tests/pixels/Rearrangements.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace Qx::Pixels {
namespace {

using namespace Image;

struct FormatAtDepth
{
    Format format;
    unsigned depth;
    bool comesBottomUp = false;
};

/// All small widths with few lines, tight and padded in turn, and some frames of full width or height.
std::vector<FrameSpec> smallFramesOf(Format format, unsigned depth)
{
    std::vector<FrameSpec> specs;
    for (const unsigned height : {1U, 2U, 5U}) {
        for (unsigned width = 1; width <= 67; ++width)
            specs.push_back({format, depth, width, height, false, (width + height) % 3});
        specs.push_back({format, depth, 1920, height, false, height - 1});
    }
    specs.push_back({format, depth, 67, 1080, false, 3});
    return specs;
}

/// The same frames, each tight and padded, and a full one.
std::vector<FrameSpec> framesOf(Format format, unsigned depth)
{
    std::vector<FrameSpec> specs;
    for (FrameSpec spec : smallFramesOf(format, depth)) {
        for (const unsigned padding : {0U, 1U + spec.width % 3}) {
            spec.padding = padding;
            specs.push_back(spec);
        }
    }
    specs.push_back({format, depth, 1920, 1080, false, 0});
    return specs;
}

using Trip = std::function<Rows(const Surface&, const FrameSpec&)>;

void expectBytesBack(const FrameSpec& spec, const Trip& trip)
{
    const Surface frame = randomFrame(spec);
    Rows wanted = rowsIn(frame, spec);
    ASSERT_FALSE(wanted.empty()) << spec.name();
    if (spec.bottomUp)
        std::reverse(wanted.begin(), wanted.end());
    ASSERT_EQ(firstDifference(trip(frame, spec), wanted), "") << spec.name();
}

Surface toRGBA(const Surface& frame, const FrameSpec& spec)
{
    Surface uploaded = frame.uploadToGPU();
    return ColourConversion::convertToRGBA(uploaded, gpuFormatFor(spec.depth));
}

/// In, and out again in the same format at the same pitch, by the library alone.
Rows libraryTrip(const Surface& frame, const FrameSpec& spec)
{
    Core::Data wanted = frame.getData();
    wanted.topDown = 1;
    return rowsIn(ColourConversion::copyToHostSurface(toRGBA(frame, spec), wanted, Polarity::Progressive),
                  spec);
}

Rows rgbTrip(const Surface& frame, const FrameSpec& spec)
{
    return rowsAs(spec, toRGBA(frame, spec));
}

Rows videoTrip(const Surface& frame, const FrameSpec& spec)
{
    Surface uploaded = frame.uploadToGPU();
    return rowsAs(spec, ColourConversion::reorderComponents(uploaded, YUY2, gpuFormatFor(spec.depth)));
}

TEST(RoundTrip, TheLibraryGivesBackEveryByteOfItsExactFormatsFromBothDirections)
{
    for (const auto& [format, depth, comesBottomUp] :
         {FormatAtDepth{ARGB, 8, true}, FormatAtDepth{ARGB, 16, true}, FormatAtDepth{ARGB10, 8, true},
          FormatAtDepth{ARGB10, 10, true}, FormatAtDepth{BGR24, 8, true}, FormatAtDepth{BGR24, 16},
          FormatAtDepth{B48R, 8, true}, FormatAtDepth{B48R, 16, true}, FormatAtDepth{B64A, 16}}) {
        for (FrameSpec spec : framesOf(format, depth)) {
            ASSERT_NO_FATAL_FAILURE(expectBytesBack(spec, libraryTrip));
            spec.bottomUp = true;
            if (comesBottomUp) {
                ASSERT_NO_FATAL_FAILURE(expectBytesBack(spec, libraryTrip));
            }
        }
    }
}

TEST(RoundTrip, EveryOtherOrderOfRgbComesBackThroughItsTechnique)
{
    for (const Format format : {BGRA, BGRA32, RGBA, ABGR, PlanarRGB, RGB24, BGR3}) {
        for (const unsigned depth : {8U, 16U}) {
            for (const FrameSpec& spec : smallFramesOf(format, depth))
                ASSERT_NO_FATAL_FAILURE(expectBytesBack(spec, rgbTrip));
        }
    }
}

TEST(RoundTrip, UyvyComesBackFromYuy2AtEvenWidthsByTheLibraryAlone)
{
    const Trip trip = [](const Surface& frame, const FrameSpec& spec) {
        Surface uploaded = frame.uploadToGPU();
        const auto format = gpuFormatFor(spec.depth);
        Surface video = ColourConversion::reorderComponents(uploaded, YUY2, format);
        EXPECT_EQ(video.getDataFormat(), YUY2);
        return rowsIn(ColourConversion::reorderComponents(video, UYVY, format).copyToHost(), spec);
    };
    for (const unsigned depth : {8U, 16U}) {
        for (const FrameSpec& spec : framesOf(UYVY, depth)) {
            if (spec.width % 2 == 0) {
                ASSERT_NO_FATAL_FAILURE(expectBytesBack(spec, trip));
            }
        }
    }
}

TEST(RoundTrip, EveryOtherOrderOf422ComesBackThroughItsTechniqueAtEvenWidths)
{
    for (const Format format : {UYVY, YVYU, VYUY}) {
        for (const unsigned depth : {8U, 16U}) {
            for (const FrameSpec& spec : smallFramesOf(format, depth)) {
                if (spec.width % 2 == 0) {
                    ASSERT_NO_FATAL_FAILURE(expectBytesBack(spec, videoTrip));
                }
            }
        }
    }
}

TEST(RoundTrip, PlanesOfYv12ComeBackThroughTheirTechniqueAtEvenWidths)
{
    for (const unsigned depth : {8U, 16U}) {
        for (const FrameSpec& spec : smallFramesOf(YV12, depth)) {
            if (spec.width % 2 != 0)
                continue;
            const Surface frame = randomFrame(spec);
            Rows wanted = rowsIn(frame, spec);
            for (std::size_t y = spec.height; y < wanted.size(); ++y) // chroma fills half a row, then zeros
                std::fill(wanted[y].begin() + static_cast<std::ptrdiff_t>(wanted[y].size() / 2),
                          wanted[y].end(), std::byte{0});
            ASSERT_EQ(firstDifference(videoTrip(frame, spec), wanted), "") << spec.name();
        }
    }
}

} // namespace
} // namespace Qx::Pixels
