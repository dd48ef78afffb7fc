// The codes that the studio tells of a clip, against those that FFmpeg decodes.

#include "tests/system/program/studio/StudioTest.h"

#include <array>

namespace Qx::System {

namespace {

/// A clip of one frame whose luma and chroma reach beyond the ends of the video range.
struct HeldClip
{
    const char* name;
    const char* format; // as FFmpeg decodes it
    int bits;
    int width;
    int height;
    int chromaWidth;
    int chromaHeight;
    const char* range;
    const char* codec;
    bool isInterlaced = false;
};

const std::vector<HeldClip> heldClips{
    {"tv8.mkv", "yuv420p", 8, 319, 177, 160, 89, "tv", "ffv1"},
    {"full8.mkv", "yuv420p", 8, 64, 48, 32, 24, "pc", "ffv1"},
    {"quarter.mkv", "yuv411p", 8, 64, 48, 16, 48, "tv", "ffv1"},
    {"fields.mkv", "yuv420p", 8, 64, 48, 32, 24, "tv", "ffv1", true},
    {"v210.mov", "yuv422p10le", 10, 318, 178, 159, 178, "tv", "v210"},
    {"alpha.mkv", "yuva444p10le", 10, 64, 48, 64, 48, "tv", "ffv1"},
    {"tv12.mkv", "yuv444p12le", 12, 64, 48, 64, 48, "tv", "ffv1"},
};

/// Codes of luma or chroma for a word of JSON, 8 or 10 bits wide.
std::vector<unsigned> wordsOf(const std::string& base64)
{
    static const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned bits = 0;
    int have = 0;
    for (const char letter : base64.substr(0, base64.find('='))) {
        bits = bits << 6 | static_cast<unsigned>(letters.find(letter));
        have += 6;
        if (have >= 8) {
            have -= 8;
            bytes.push_back(static_cast<char>(bits >> have & 255));
        }
    }
    std::vector<unsigned> words;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        words.push_back(static_cast<unsigned char>(bytes[i]) |
                        unsigned{static_cast<unsigned char>(bytes[i + 1])} << 8U);
    }
    return words;
}

class StudioCodes : public StudioTest
{
protected:
    void make(const HeldClip& clip) const
    {
        // v210 holds no codes below 4 and above 1019.
        const int least = clip.bits == 10 ? 4 : 0;
        const std::string from = std::to_string(least) + "+";
        const std::string span = std::to_string((1 << clip.bits) - 1 - 2 * least);
        ffmpeg({"-f", "lavfi", "-i",
                "color=black:size=" + std::to_string(clip.width + clip.width % 2) + "x" +
                    std::to_string(clip.height + clip.height % 2) +
                    ":rate=25:duration=0.04,format=" + clip.format + ",geq=lum='" + from + span +
                    "*X/(W-1)':cb='" + from + span + "*Y/(H-1)':cr='" + from + span +
                    "*(1-X*Y/(W-1)/(H-1))',crop=" + std::to_string(clip.width) + ":" +
                    std::to_string(clip.height) + ":0:0:exact=1,setfield=" +
                    (clip.isInterlaced ? "tff" : "prog") + ",setparams=colorspace=bt709:range=" + clip.range,
                "-c:v", clip.codec, "-field_order", clip.isInterlaced ? "tt" : "progressive", "-pix_fmt",
                clip.format, "-colorspace", "bt709", "-color_range", clip.range, clip.name});
    }

    /// Y, Cb and Cr of a pixel, from FFmpeg's planes.
    static std::array<unsigned, 3> codesAt(const HeldClip& clip, const std::vector<std::uint8_t>& planes,
                                           int x, int y)
    {
        const auto sample = [&](int index) {
            const auto at = static_cast<std::size_t>(index);
            return clip.bits == 8 ? planes[at]
                                  : planes[2 * at] | static_cast<unsigned>(planes[2 * at + 1]) << 8U;
        };
        const int luma = clip.width * clip.height;
        const int chroma = clip.chromaWidth * clip.chromaHeight;
        const int across = (clip.width + clip.chromaWidth - 1) / clip.chromaWidth;
        const int down = (clip.height + clip.chromaHeight - 1) / clip.chromaHeight;
        const int row = clip.isInterlaced ? y / 2 / down * 2 + y % 2 : y / down;
        const int at = luma + row * clip.chromaWidth + x / across;
        return {sample(y * clip.width + x), sample(at), sample(at + chroma)};
    }
};

} // namespace

TEST_F(StudioCodes, of_the_clip_are_those_that_it_holds)
{
    for (const HeldClip& clip : heldClips) {
        make(clip);
        const std::vector<std::uint8_t> planes = decoded(clip.name, clip.format);
        start({clip.name});
        Browser browser = window();
        const std::string key = "ycbcr" + std::to_string(clip.bits);
        for (int i = 0; i < 200; ++i) {
            const int x = i * 37 % clip.width;
            const int y = i * 29 % clip.height;
            const Json answer = browser.ask({{"do", "probe"}, {"x", x}, {"y", y}});
            ASSERT_EQ(answer["exact"], clip.bits) << clip.name << answer.dump();
            ASSERT_EQ(answer["before"][key], Json(codesAt(clip, planes, x, y)))
                << clip.name << " " << x << " " << y;
            ASSERT_EQ(answer["after"][key], answer["before"][key]); // nothing is in the chain
        }
        stop();
    }
}

TEST_F(StudioCodes, of_the_result_are_of_the_clips_range)
{
    ffmpeg({"-f", "lavfi", "-i",
            "color=black:size=64x48:rate=25:duration=0.04,format=yuv420p,geq=lum=100:cb=120:cr=140,"
            "setparams=colorspace=bt709:range=pc",
            "-c:v", "ffv1", "-colorspace", "bt709", "-color_range", "pc", "full.mkv"});
    write("dim.fx", dimming()); // by 1
    start({"full.mkv", "dim.fx"});
    Browser browser = window();
    const Json answer = browser.ask({{"do", "probe"}, {"x", 9}, {"y", 9}});
    EXPECT_EQ(answer["before"]["ycbcr8"], Json({100, 120, 140}));
    EXPECT_EQ(answer["after"]["ycbcr8"], Json({100, 120, 140}));
    stop();
}

TEST_F(StudioCodes, of_pictures_of_floats_are_made_behind_the_look)
{
    const Outcome judged = run({"oiiotool", "--pattern", "constant:color=4,1,-1", "64x48", "3", "-d", "float",
                                "-o", at("even.exr").string()});
    ASSERT_EQ(judged.exitCode, 0) << judged.err;
    write("quarter.cube", "LUT_1D_SIZE 2\nDOMAIN_MIN -16 -16 -16\nDOMAIN_MAX 16 16 16\n-4 -4 -4\n4 4 4\n");
    write("half.fx", dimming("0.5"));
    for (const std::string step : {"quarter.cube", "half.fx"}) {
        start({"even.exr", step});
        Browser browser = window();
        const Json answer = browser.ask({{"do", "probe"}, {"x", 9}, {"y", 9}});
        EXPECT_EQ(answer["before"]["rgb8"], Json({255, 255, 0}));
        EXPECT_EQ(answer["after"]["rgb8"], step == "half.fx" ? Json({255, 128, 0}) : Json({255, 64, 0}));
        browser.send({{"do", "scopes"}, {"kinds", {"histogram"}}, {"of", "after"}});
        EXPECT_EQ(browser.message("scopes")["own"], false);
        stop();
    }
}

TEST_F(StudioCodes, of_the_clip_are_counted_by_scopes)
{
    for (const HeldClip& clip : heldClips) {
        make(clip);
        const std::vector<std::uint8_t> planes = decoded(clip.name, clip.format);
        start({clip.name});
        Browser browser = window();
        browser.send(
            {{"do", "scopes"}, {"kinds", {"waveform", "vectorscope", "histogram"}}, {"of", "after"}});
        const Json found = browser.message("scopes");
        EXPECT_EQ(found["own"], true);
        const unsigned levels = clip.bits == 8 ? 256 : 1024;
        const unsigned columns = found["waveform"]["columns"];
        const unsigned side = found["vectorscope"]["size"];
        std::vector<unsigned> waveform(std::size_t{columns} * levels);
        std::vector<unsigned> lumas(levels);
        std::vector<unsigned> vectors(std::size_t{side} * side);
        for (int y = 0; y < clip.height; ++y) {
            for (int x = 0; x < clip.width; ++x) {
                std::array<unsigned, 3> codes = codesAt(clip, planes, x, y);
                for (unsigned& code : codes) {
                    code = clip.bits == 12 ? std::min((code + 2) / 4, levels - 1) : code;
                }
                ++waveform[codes[0] * std::size_t{columns} +
                           static_cast<unsigned>(x) * columns / static_cast<unsigned>(clip.width)];
                ++lumas[codes[0]];
                ++vectors[codes[2] * side / levels * std::size_t{side} + codes[1] * side / levels];
            }
        }
        EXPECT_EQ(wordsOf(found["waveform"]["luma"]), waveform) << clip.name;
        EXPECT_EQ(wordsOf(found["vectorscope"]["counts"]), vectors) << clip.name;
        EXPECT_EQ(found["histogram"]["luma"], Json(lumas)) << clip.name;
        stop();
    }
}

TEST_F(StudioCodes, of_a_smaller_size_are_not_called_exact)
{
    for (const HeldClip& clip :
         {heldClips[0], heldClips[3]}) { // of odd sides, and of sides whose half is odd
        make(clip);
        start({clip.name});
        Browser browser = window();
        const Json smaller =
            browser.ask({{"do", "proxy"}, {"size", {(clip.width + 1) / 2, (clip.height + 1) / 2}}});
        ASSERT_EQ(smaller["is"], "answer") << smaller.dump();
        const Json answer = browser.ask({{"do", "probe"}, {"x", clip.width - 1}, {"y", clip.height - 1}});
        EXPECT_EQ(answer["is"], "answer") << answer.dump();
        EXPECT_EQ(answer["exact"], nullptr);
        stop();
    }
}

TEST_F(StudioCodes, of_grey_and_rgb_clips_are_computed)
{
    ffmpeg({"-f", "lavfi", "-i", "color=0x406080:size=64x48:rate=25:duration=0.04", "-vf", "format=gbrp10le",
            "-c:v", "ffv1", "rgb.mkv"});
    start({"rgb.mkv"});
    {
        Browser browser = window();
        const Json answer = browser.ask({{"do", "probe"}, {"x", 5}, {"y", 5}});
        EXPECT_EQ(answer["exact"], 10);
        const std::vector<std::uint8_t> planes = decoded("rgb.mkv", "gbrp10le");
        const auto first = [&](std::size_t plane) {
            return planes[plane * 6144] | planes[plane * 6144 + 1] << 8;
        };
        EXPECT_EQ(answer["before"]["rgb10"], Json({first(2), first(0), first(1)}));
        browser.send({{"do", "scopes"}, {"kinds", {"waveform"}}, {"of", "before"}});
        EXPECT_EQ(browser.message("scopes")["own"], false);
    }
    stop();
    ffmpeg({"-f", "lavfi", "-i", "color=0x808080:size=64x48:rate=25:duration=0.04", "-vf", "format=gray",
            "-c:v", "ffv1", "grey.mkv"});
    start({"grey.mkv"});
    Browser browser = window();
    const Json answer = browser.ask({{"do", "probe"}, {"x", 5}, {"y", 5}});
    EXPECT_EQ(answer["is"], "answer") << answer.dump();
    EXPECT_EQ(answer["before"]["rgb8"][0], answer["before"]["rgb8"][2]);
    stop();
}

} // namespace Qx::System
