// FFmpeg judges the layouts that leave here, and what it writes comes in.

#include "QxFxResources/GPUColourConverter.h"
#include "tests/pixels/FfmpegJudge.h"
#include "tests/pixels/Gpu.h"
#include "tests/pixels/Rearrangements.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <utility>

namespace Qx::Pixels {
namespace {

using namespace Image;

FrameSpec specOf(Format format, unsigned depth, const Picture& picture)
{
    return {format, depth, static_cast<unsigned>(picture.width), static_cast<unsigned>(picture.height)};
}

/// The rows that the library makes of a picture in its own output path.
Rows leavingAs(Format format, unsigned depth, const Picture& picture)
{
    const FrameSpec spec = specOf(format, depth, picture);
    const Core::Data wanted(spec.width, spec.height, format, static_cast<std::uint16_t>(depth), 0);
    return rowsIn(ColourConversion::copyToHostSurface(upload(picture), wanted, Polarity::Progressive), spec);
}

void expectSamples(const Picture& picture, const Rows& rows, const std::string& pixelFormat, int components)
{
    for (int component = 0; component < components; ++component) {
        const auto samples = samplesByFfmpeg(pixelFormat, rows, component, picture.width);
        ASSERT_EQ(samples.size(), static_cast<std::size_t>(picture.height)) << pixelFormat;
        for (int y = 0; y < picture.height; ++y) {
            for (int x = 0; x < picture.width; ++x) {
                ASSERT_EQ(samples[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)],
                          picture.at(x, y, component))
                    << pixelFormat << ", \"" << picture.name << "\", component " << component << " at " << x
                    << ", " << y;
            }
        }
    }
}

struct JudgedLayout
{
    Format format;
    unsigned depth;
    const char* pixelFormat; ///< FFmpeg's; 16 bits in this machine's byte order
    int components;
};

/// Little-endian, as every machine that this runs on.
constexpr JudgedLayout libraryLayouts[]{{ARGB, 8, "argb", 4},
                                        {BGR24, 8, "bgr24", 3},
                                        {BGR24, 16, "bgr48le", 3},
                                        {B48R, 8, "rgb24", 3},
                                        {B48R, 16, "rgb48le", 3}};
constexpr JudgedLayout programLayouts[]{
    {BGRA, 8, "bgra", 4},      {BGRA, 16, "bgra64le", 4}, {BGRA32, 8, "bgra", 4}, {RGBA, 8, "rgba", 4},
    {RGBA, 16, "rgba64le", 4}, {ABGR, 8, "abgr", 4},      {RGB24, 8, "bgr24", 3}, {RGB24, 16, "bgr48le", 3},
    {BGR3, 8, "rgb24", 3},     {BGR3, 16, "rgb48le", 3}};

TEST(LayoutsOfRgb, AreWhatFfmpegReads)
{
    for (const unsigned depth : {8U, 16U}) {
        for (const Picture& picture : trialPictures(Layout::Rgb, static_cast<int>(depth))) {
            for (const JudgedLayout& layout : libraryLayouts) {
                if (layout.depth == depth) {
                    expectSamples(picture, leavingAs(layout.format, depth, picture), layout.pixelFormat,
                                  layout.components);
                }
            }
            for (const JudgedLayout& layout : programLayouts) {
                if (layout.depth == depth) {
                    expectSamples(picture, rowsAs(specOf(layout.format, depth, picture), upload(picture)),
                                  layout.pixelFormat, layout.components);
                }
            }
        }
    }
}

TEST(LayoutsOfRgb, PlanesAreRedGreenAndBlue)
{
    for (const int depth : {8, 16}) {
        for (const Picture& picture : trialPictures(Layout::Rgb, depth)) {
            const Rows rows =
                rowsAs(specOf(PlanarRGB, static_cast<unsigned>(depth), picture), upload(picture));
            for (int component = 0; component < 3; ++component) {
                const auto first = rows.begin() + component * picture.height;
                const auto samples = samplesByFfmpeg(depth == 8 ? "gray" : "gray16le",
                                                     Rows(first, first + picture.height), 0, picture.width);
                for (int y = 0; y < picture.height; ++y) {
                    for (int x = 0; x < picture.width; ++x) {
                        ASSERT_EQ(samples[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)],
                                  picture.at(x, y, component))
                            << picture.name << ", plane " << component << " at " << x << ", " << y;
                    }
                }
            }
        }
    }
}

TEST(LayoutsOfRgb, B64aIsWhatFfmpegReadsOnceItsBytesAreSwapped)
{
    for (const Picture& picture : trialPictures(Layout::Rgb, 16)) {
        std::vector<std::byte> bytes;
        for (const auto& row : leavingAs(B64A, 16, picture))
            bytes.insert(bytes.end(), row.begin(), row.end());
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
            std::swap(bytes[i], bytes[i + 1]);
        const auto samples =
            b64aByFfmpeg(bytes, static_cast<unsigned>(picture.width), static_cast<unsigned>(picture.height));
        EXPECT_EQ(samples, picture.codes) << picture.name;
    }
}

TEST(LayoutsOfRgb, TheTenBitWordIsWhatFfmpegReads)
{
    // Ten bits of a 16-bit picture: the nearest code of the full range.
    for (const Picture& picture : trialPictures(Layout::Rgb, 16)) {
        Picture ten = picture;
        for (auto& code : ten.codes)
            code = static_cast<std::uint16_t>((code * 1023U + 32767U) / 65535U);
        const Rows rows = leavingAs(ARGB10, 10, picture);
        for (int component = 0; component < 3; ++component) {
            const auto samples = samplesByFfmpeg("x2rgb10le", rows, component, picture.width);
            for (int y = 0; y < picture.height; ++y) {
                for (int x = 0; x < picture.width; ++x) {
                    // Hosts may round to ten bits by hardware, which is free to be a little off.
                    ASSERT_NEAR(samples[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)],
                                ten.at(x, y, component), 1)
                        << picture.name << " at " << x << ", " << y;
                }
            }
        }
    }
}

/// Codes as a GPU surface of 16-bit YUY2.
Surface videoOf(const TenBitCodes& codes, unsigned depth = 16)
{
    Surface frame = makeFrame({YUY2, depth, codes.width, codes.height()});
    if (frame.getHostImage())
        fillRows(frame, depth == 16 ? as16Bits(codes) : as8Bits(codes, false));
    return frame.uploadToGPU();
}

std::vector<std::byte> joined(const Rows& rows, std::size_t pitch)
{
    std::vector<std::byte> bytes;
    for (const auto& row : rows) {
        bytes.insert(bytes.end(), row.begin(), row.end());
        bytes.resize(bytes.size() + pitch - row.size());
    }
    return bytes;
}

/// Never fewer than four lines: FFmpeg's v210 decoder leaves such frames black.
void forSomeSizes(const std::function<void(const TenBitCodes&)>& check)
{
    TenBitCodes everyCode = TenBitCodes::everyCode();
    everyCode.rows.resize(4, everyCode.rows[0]);
    check(everyCode);
    for (unsigned width = 2; width <= 66; width += 2) {
        SCOPED_TRACE(width);
        check(TenBitCodes::random(width, 5));
        if (testing::Test::HasFailure())
            return;
    }
    check(TenBitCodes::random(1920, 16));
}

TEST(LayoutsOfVideo, M101IsDecodedByFfmpegToTheSameSamples)
{
    forSomeSizes([](const TenBitCodes& codes) {
        const Rows rows = rowsAsM101(videoOf(codes));
        ASSERT_FALSE(rows.empty());
        const std::size_t pitch = rows[0].size();
        const TenBitCodes decoded = decodedByFfmpeg("m101", joined(rows, pitch), codes.width, codes.height(),
                                                    m101Extradata(10, pitch));
        EXPECT_EQ(decoded.rows, codes.rows);
    });
}

TEST(LayoutsOfVideo, EightBitM101IsYuy2ToFfmpeg)
{
    forSomeSizes([](const TenBitCodes& codes) {
        TenBitCodes eight = codes;
        for (auto& row : eight.rows) {
            for (auto& code : row)
                code = static_cast<std::uint16_t>(code >> 2);
        }
        const FrameSpec spec{YUY2, 8, codes.width, codes.height()};
        const Rows rows = rowsIn(videoOf(codes, 8).copyToHost(), spec);
        ASSERT_FALSE(rows.empty());
        const TenBitCodes decoded = decodedByFfmpeg("m101", joined(rows, rows[0].size()), codes.width,
                                                    codes.height(), m101Extradata(8, rows[0].size()));
        EXPECT_EQ(decoded.rows, eight.rows);
    });
}

TEST(LayoutsOfVideo, V210IsDecodedByFfmpegToTheSameSamples)
{
    forSomeSizes([](const TenBitCodes& codes) {
        const Rows rows = rowsAs({V210, 10, codes.width, codes.height()}, videoOf(codes));
        const TenBitCodes decoded = decodedByFfmpeg("v210", joined(rows, (codes.width + 47) / 48 * 128),
                                                    codes.width, codes.height(), {});
        EXPECT_EQ(decoded.rows, codes.rows);
    });
}

TEST(LayoutsOfVideo, V210ThatFfmpegWroteComesInToTheSameSamples)
{
    forSomeSizes([](const TenBitCodes& codes) {
        // Its encoder leaves out the codes that video keeps for synchronisation.
        TenBitCodes legal = codes;
        for (auto& row : legal.rows) {
            for (auto& code : row)
                code = std::clamp<std::uint16_t>(code, 4, 1019);
        }
        const std::vector<std::byte> bytes = v210ByFfmpeg(legal);
        const std::size_t pitch = (codes.width + 47) / 48 * 128;
        ASSERT_EQ(bytes.size(), pitch * codes.height());
        Surface frame = makeFrame({V210, 10, codes.width, codes.height()});
        Rows rows;
        for (std::size_t y = 0; y < codes.height(); ++y) {
            const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(y * pitch);
            rows.emplace_back(first, first + static_cast<std::ptrdiff_t>(pitch));
        }
        fillRows(frame, rows);
        EXPECT_EQ(firstDifference(rowsAsYUY2("V210toYUYV", frame, 16), as16Bits(legal)), "");
        EXPECT_EQ(frame.getHostImage()->getPitch(), pitch) << "the pitch that files have is the usual one";
    });
}

TEST(LayoutsOfVideo, OrdersOf422AreWhatFfmpegReads)
{
    for (const auto& [format, pixelFormat] :
         {std::pair{YUY2, "yuyv422"}, std::pair{UYVY, "uyvy422"}, std::pair{YVYU, "yvyu422"}}) {
        for (const Picture& picture : trialPictures(Layout::Packed422, 8)) {
            if (picture.rowTexels != picture.texels())
                continue;
            const FrameSpec spec = specOf(format, 8, picture);
            const Surface source = upload(picture);
            const Rows rows = format == YUY2 ? rowsIn(source.copyToHost(), spec) : rowsAs(spec, source);
            const auto luma = samplesByFfmpeg(pixelFormat, rows, 0, picture.width);
            const auto cb = samplesByFfmpeg(pixelFormat, rows, 1, picture.texels());
            const auto cr = samplesByFfmpeg(pixelFormat, rows, 2, picture.texels());
            ASSERT_EQ(luma.size(), static_cast<std::size_t>(picture.height));
            for (int y = 0; y < picture.height; ++y) {
                for (int x = 0; x < picture.width; ++x) {
                    const auto row = static_cast<std::size_t>(y);
                    ASSERT_EQ(luma[row][static_cast<std::size_t>(x)], picture.at(x / 2, y, x % 2 * 2));
                    ASSERT_EQ(cb[row][static_cast<std::size_t>(x / 2)], picture.at(x / 2, y, 1));
                    ASSERT_EQ(cr[row][static_cast<std::size_t>(x / 2)], picture.at(x / 2, y, 3));
                }
            }
        }
    }
}

} // namespace
} // namespace Qx::Pixels
