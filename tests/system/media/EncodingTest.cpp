// Profiles, quality, bit rate and options of the video's encoder, judged by ffprobe.

#include "tests/system/media/MediaFixture.h"
#include "tools/qxhost/media/Ffmpeg.h"

#include <functional>

namespace Qx::Media::Test {

namespace {

class Encoding : public MediaTest
{
protected:
    using Change = std::function<void(OutputSettings&)>;

    /// Writes frames of noise. Returns the error, or nothing.
    std::string encode(const std::string& name, int width, int height, int frames, const Change& change,
                       Depth depth = Depth::bits16) const
    {
        OutputSettings wanted = settings(width, height, depth);
        wanted.force = true;
        wanted.expectedFrames = frames;
        change(wanted);
        auto writer = Media::openWriter(at(name), wanted);
        if (!writer) {
            return writer.text();
        }
        const std::size_t pitch = static_cast<std::size_t>(width) * (depth == Depth::bits16 ? 8 : 4);
        for (int i = 0; i < frames; ++i) {
            const Bytes rows = noise(pitch * static_cast<std::size_t>(height), static_cast<unsigned>(i));
            const FrameTime time{i, 1, FieldOrder::progressive};
            if (Status status = writer.value()->write(rows.data(), static_cast<std::ptrdiff_t>(pitch), time);
                !status) {
                return status.text();
            }
        }
        return writer.value()->finish().text();
    }

    static Change profile(const std::string& encoder, const std::string& name)
    {
        return [encoder, name](OutputSettings& wanted) {
            wanted.encoder = encoder;
            wanted.profile = name;
        };
    }
};

TEST_F(Encoding, ProfilesOfProResAreThoseOfTheFile)
{
    const std::vector<std::vector<std::string>> profiles{
        {"proxy", "apco", "yuv422p10le"},    {"lt", "apcs", "yuv422p10le"},
        {"standard", "apcn", "yuv422p10le"}, {"HQ", "apch", "yuv422p10le"},
        {"4444", "ap4h", "yuv444p12le"},     {"4444xq", "ap4x", "yuv444p12le"}};
    for (const std::string encoder : {"", "prores", "prores_aw"}) {
        std::uintmax_t size = 0;
        for (const auto& row : profiles) {
            if (encoder == "prores_aw" && row[0] == "4444xq" &&
                avcodec_version() < AV_VERSION_INT(60, 0, 0)) {
                continue; // it is not told apart
            }
            ASSERT_EQ(encode("out.mov", 64, 48, 1, profile(encoder, row[0])), "") << encoder << row[0];
            const std::string told = probe(at("out.mov"), "stream=codec_tag_string,pix_fmt");
            EXPECT_TRUE(has(told, "codec_tag_string=" + row[1] + "\n")) << encoder << row[0] << told;
            EXPECT_TRUE(has(told, "pix_fmt=" + row[2] + "\n")) << encoder << row[0] << told;
            const std::uintmax_t larger = fs::file_size(at("out.mov"));
            EXPECT_GT(larger, size) << encoder << row[0];
            size = encoder.empty() ? larger : 0;
        }
    }
}

TEST_F(Encoding, ProfilesOfDnxhrAreThoseOfTheFile)
{
    const std::vector<std::vector<std::string>> profiles{{"lb", "DNXHR LB", "yuv422p"},
                                                         {"sq", "DNXHR SQ", "yuv422p"},
                                                         {"hq", "DNXHR HQ", "yuv422p"},
                                                         {"hqx", "DNXHR HQX", "yuv422p10le"},
                                                         {"444", "DNXHR 444", "yuv444p10le"}};
    for (const auto& row : profiles) {
        ASSERT_EQ(encode("out.mxf", 256, 120, 1, profile("", row[0])), "") << row[0];
        const std::string told = probe(at("out.mxf"), "stream=profile,pix_fmt");
        EXPECT_TRUE(has(told, "profile=" + row[1] + "\n")) << told;
        EXPECT_TRUE(has(told, "pix_fmt=" + row[2] + "\n")) << told;
    }
}

TEST_F(Encoding, ProfilesOfDeliveryCodecsAreThoseOfTheFile)
{
    const std::vector<std::vector<std::string>> profiles{
        {"libx264", "baseline", "Constrained Baseline", "yuv420p"},
        {"libx264", "main", "Main", "yuv420p"},
        {"libx264", "high", "High", "yuv420p"},
        {"libx264", "high10", "High 10", "yuv420p10le"},
        {"h264", "high422", "High 4:2:2", "yuv422p10le"},
        {"libx264", "high444", "High 4:4:4 Predictive", "yuv444p10le"},
        {"libx265", "main", "Main", "yuv420p"},
        {"libx265", "main10", "Main 10", "yuv420p10le"},
        {"libx265", "main422-10", "Rext", "yuv422p10le"},
        {"libaom-av1", "main", "Main", "yuv420p10le"},
        {"libaom-av1", "high", "High", "yuv444p10le"},
        {"libvpx-vp9", "2", "Profile 2", "yuv420p10le"}};
    for (const auto& row : profiles) {
        ASSERT_EQ(encode("out.mkv", 64, 48, 2, profile(row[0], row[1])), "") << row[0] << " " << row[1];
        const std::string told = probe(at("out.mkv"), "stream=profile,pix_fmt");
        EXPECT_TRUE(has(told, "profile=" + row[2] + "\n")) << row[0] << told;
        EXPECT_TRUE(has(told, "pix_fmt=" + row[3] + "\n")) << row[0] << told;
    }
}

TEST_F(Encoding, QualityAndBitRateSayHowLargeTheOutputIs)
{
    const auto sizeOf = [&](const std::string& name, const std::string& encoder, const RateWish& rate,
                            int frames) {
        const std::string error = encode(
            name, 64, 48, frames,
            [&](OutputSettings& wanted) {
                wanted.encoder = encoder;
                wanted.rate = rate;
            },
            Depth::bits8);
        EXPECT_EQ(error, "") << encoder;
        return error.empty() ? fs::file_size(at(name)) : 0;
    };
    for (const std::string encoder :
         {"libx264", "libx265", "libaom-av1", "libvpx-vp9", "mpeg4", "mpeg2video"}) {
        const std::uintmax_t low = sizeOf("out.mkv", encoder, {.quality = 20, .bitRate = 0}, 2);
        const std::uintmax_t high = sizeOf("out.mkv", encoder, {.quality = 90, .bitRate = 0}, 2);
        EXPECT_GT(high, low * 3 / 2) << encoder;
    }
    EXPECT_GT(sizeOf("high.jpg", "", {.quality = 95, .bitRate = 0}, 1),
              sizeOf("low.jpg", "", {.quality = 20, .bitRate = 0}, 1));
    // Two seconds of noise, which would be far larger with the default.
    constexpr double bitsOfByte = 8;
    for (const std::string encoder : {"libx264", "mpeg2video"}) {
        const auto size =
            static_cast<double>(sizeOf("out.mkv", encoder, {.quality = {}, .bitRate = 600'000}, 50));
        EXPECT_NEAR(size * bitsOfByte / 2, 600'000, 200'000) << encoder;
    }
    EXPECT_EQ(encode("out.mkv", 64, 48, 1,
                     [](OutputSettings& wanted) {
                         wanted.encoder = "libx264";
                         wanted.encoderOptions = {{"qp", "0"}};
                     }),
              "")
        << "an option replaces the default quality";
    EXPECT_TRUE(has(probe(at("out.mkv"), "stream=profile"), "High 4:4:4 Predictive")) << "lossless";
}

TEST_F(Encoding, WhatAnEncoderDoesNotHaveIsNamedWithWhatIsNear)
{
    const auto expectError = [&](const std::string& name, const Change& change,
                                 const std::vector<std::string>& parts) {
        OutputSettings wanted;
        change(wanted);
        const Status checked = checkEncoding(at(name), wanted);
        const std::string opened = encode(name, 256, 120, 1, change);
        EXPECT_FALSE(fs::exists(at(name)));
        for (const std::string& part : parts) {
            EXPECT_TRUE(has(checked.text(), part)) << checked.text() << "\nlacks " << part;
            EXPECT_TRUE(has(opened, part)) << opened << "\nlacks " << part;
        }
    };
    const auto option = [](const std::string& key, const std::string& value) {
        return [key, value](OutputSettings& wanted) {
            wanted.encoder = "libx264";
            wanted.encoderOptions = {{key, value}};
        };
    };
    expectError("a.mov", profile("", "422"),
                {"encoder prores_ks has no profile \"422\"", "proxy, lt, standard, hq, 4444, 4444xq"});
    expectError("a.mxf", profile("", "xq"), {"encoder dnxhd has no profile \"xq\"", "lb, sq, hq, hqx, 444"});
    expectError("a.mp4", profile("", "main10"), {"encoder libx264 has no profile \"main10\"", "high10"});
    expectError("a.mp4", option("presett", "fast"), {"no option \"presett\"", "near it are preset"});
    expectError("a.mp4", option("crf", "fine"), {"does not take \"fine\"", "option crf"});
    expectError("a.mp4", option("g", "often"), {"does not take \"often\"", "option g"});
    expectError("a.mp4", option("nal-hrd", "maybe"), {"does not take \"maybe\"", "it takes none, vbr, cbr"});
    expectError("a.mp4", [](OutputSettings& wanted) { wanted.encoder = "libx246"; },
                {"no video encoder \"libx246\"", "libx264"});
    expectError("a.mp4", [](OutputSettings& wanted) { wanted.pixelFormat = "yuv420p11"; },
                {"no pixel format \"yuv420p11\"", "yuv420p"});
    const auto rate = [](const std::string& encoder, const RateWish& wish) {
        return [encoder, wish](OutputSettings& wanted) {
            wanted.encoder = encoder;
            wanted.rate = wish;
        };
    };
    expectError("a.mov", rate("", {.quality = 50, .bitRate = 0}),
                {"--quality: encoder prores_ks", "--profile"});
    expectError("a.mxf", rate("", {.quality = {}, .bitRate = 1000}),
                {"--bitrate: encoder dnxhd", "--profile"});
    expectError("a.mkv", rate("", {.quality = 50, .bitRate = 0}), {"--quality: encoder ffv1 is lossless"});
    EXPECT_TRUE(has(encode("a.mov", 64, 48, 1,
                           [](OutputSettings& wanted) {
                               wanted.profile = "hq";
                               wanted.pixelFormat = "yuv444p10le";
                           }),
                    "profile hq of encoder prores_ks does not hold pixel format yuv444p10le"));
}

} // namespace

} // namespace Qx::Media::Test
