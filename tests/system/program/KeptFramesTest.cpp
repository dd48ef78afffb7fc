// Conversions from one codec of YCbCr to another in which nothing is drawn, judged by ffmpeg and zimg.

#include "tests/system/program/Program.h"

#include <algorithm>

namespace Qx::System {

namespace {

class KeptFrames : public ProgramTest
{
protected:
    /// Codes of all values, many of which no RGB has.
    void makeClip(const std::string& format, const std::string& filters = "null",
                  const std::string& range = "tv") const
    {
        ffmpeg({"-y", "-f", "lavfi", "-i", "color=size=70x46:rate=25", "-frames:v", "3", "-vf",
                "format=yuv444p16le,geq=lum='mod(X*1021+Y*77+N*9\\,65536)':cb='mod(X*33+Y*1999\\,65536)':"
                "cr='65535-mod(X*7+Y*1365\\,65536)',format=" +
                    format + ",setparams=range=" + range + ":colorspace=bt709," + filters,
                "-c:v", "ffv1", "-colorspace", "bt709", "-color_range", range, "in.mkv"});
    }

    /// What ffmpeg decodes after these filters.
    std::string codes(const std::string& file, const std::string& filters) const
    {
        ffmpeg({"-y", "-i", file, "-vf", filters, "-f", "rawvideo", "codes.raw"});
        return read(at("codes.raw"));
    }

    static std::vector<unsigned> wordsOf(const std::string& bytes)
    {
        std::vector<unsigned> words;
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
            words.push_back(static_cast<std::uint8_t>(bytes[i]) |
                            static_cast<unsigned>(static_cast<std::uint8_t>(bytes[i + 1])) << 8U);
        }
        return words;
    }

    /// Planes of makeClip()'s size, as Cb Y0 Cr Y1.
    static std::vector<unsigned> uyvyOf(const std::vector<unsigned>& planes)
    {
        constexpr std::size_t luma = std::size_t{70} * 46;
        std::vector<unsigned> pairs;
        for (std::size_t frame = 0; frame < planes.size(); frame += 2 * luma) {
            for (std::size_t i = 0; i < luma / 2; ++i) {
                pairs.insert(pairs.end(),
                             {planes.at(frame + luma + i), planes.at(frame + 2 * i),
                              planes.at(frame + luma * 3 / 2 + i), planes.at(frame + 2 * i + 1)});
            }
        }
        return pairs;
    }

    nlohmann::json report(std::vector<std::string> arguments) const
    {
        arguments.emplace_back("--json");
        return nlohmann::json::parse(convert(arguments).out);
    }
};

} // namespace

TEST_F(KeptFrames, AnEncoderOfTheSameSamplesGetsTheCodesThatWereDecoded)
{
    for (const std::string format :
         {"yuv420p", "yuv422p", "yuv444p", "yuv420p10le", "yuv422p10le", "yuv444p12le", "yuv422p16le"}) {
        makeClip(format);
        const nlohmann::json run = report({"in.mkv", "out.mkv", "--codec", "ffv1", "--pixel-format", format});
        EXPECT_EQ(run["codesKept"], true) << format;
        EXPECT_EQ(codes("out.mkv", "null"), codes("in.mkv", "null")) << format;
    }
}

TEST_F(KeptFrames, AProResOfAProResIsThatOfFfmpeg)
{
    makeClip("yuv422p10le");
    ffmpeg({"-i", "in.mkv", "-c:v", "prores_ks", "-profile:v", "hq", "-vendor", "apl0", "theirs.mov"});
    convert({"in.mkv", "ours.mov"});
    EXPECT_EQ(codes("ours.mov", "null"), codes("theirs.mov", "null"));
}

TEST_F(KeptFrames, OtherSamplesBitsAndRangesAreThoseOfZimg)
{
    struct Case
    {
        std::string from;
        std::string to;
        std::string range;
    };
    for (const Case& each : {Case{"yuv422p10le", "yuv420p", "tv"}, Case{"yuv420p", "yuv422p10le", "tv"},
                             Case{"yuv444p12le", "yuv420p10le", "tv"}, Case{"yuv420p", "yuv444p", "tv"},
                             Case{"yuv422p", "yuv422p10le", "tv"}, Case{"yuv420p", "yuv420p", "pc"},
                             Case{"yuv422p10le", "yuv420p", "pc"}}) {
        makeClip(each.from, "null", each.range);
        convert({"in.mkv", "out.mkv", "--codec", "ffv1", "--pixel-format", each.to});
        const std::string zscale = "zscale=rangein=" + std::string(each.range == "tv" ? "limited" : "full") +
                                   ":range=limited:filter=bicubic:dither=none,format=" + each.to;
        EXPECT_EQ(codes("out.mkv", "null"), codes("in.mkv", zscale))
            << each.from << " to " << each.to << " of range " << each.range;
    }
}

TEST_F(KeptFrames, WhatTheUserSaysOfTheCodesGoesBeforeTheirTags)
{
    makeClip("yuv422p10le"); // of BT.709 and video range
    convert({"in.mkv", "out.mkv", "--codec", "ffv1", "--pixel-format", "yuv422p10le", "--range", "full",
             "--matrix", "bt601"});
    EXPECT_EQ(codes("out.mkv", "null"),
              codes("in.mkv", "zscale=rangein=full:range=limited:dither=none,format=yuv422p10le"));
    EXPECT_NE(probe("out.mkv", "color_space").find("smpte170m"), std::string::npos)
        << probe("out.mkv", "color_space");
}

TEST_F(KeptFrames, ChromaOfOneFieldDoesNotReachTheOther)
{
    // Lines of one chroma above, of another below: fields that were mixed would have what is between them.
    ffmpeg({"-f",
            "lavfi",
            "-i",
            "color=size=64x48:rate=25",
            "-frames:v",
            "2",
            "-vf",
            "format=yuv420p,geq=lum=90:cb='if(mod(Y\\,2)\\,60\\,200)':cr=128,setfield=tff,"
            "setparams=range=tv:colorspace=bt709",
            "-c:v",
            "ffv1",
            "-flags",
            "+ilme+ildct",
            "-top",
            "1",
            "-colorspace",
            "bt709",
            "-color_range",
            "tv",
            "-field_order",
            "tt",
            "in.mkv"});
    convert({"in.mkv", "out.mkv", "--codec", "ffv1", "--pixel-format", "yuv422p"});
    const std::vector<std::uint8_t> bytes = decoded("out.mkv", "yuv422p");
    for (int y = 0; y < 48; ++y) {
        const std::size_t at = 64 * 48 + static_cast<std::size_t>(y) * 32;
        EXPECT_EQ(bytes.at(at), y % 2 == 0 ? 200 : 60) << y;
    }
}

TEST_F(KeptFrames, WhatIsDrawnOrAskedOfRgbGoesThroughThePictures)
{
    makeClip("yuv422p10le");
    const std::vector<std::string> kept{"in.mkv", "out.mov"};
    EXPECT_EQ(report(kept)["codesKept"], true);
    EXPECT_EQ(convert(kept).err.find("software device"), std::string::npos);
    for (const std::vector<std::string>& options :
         std::vector<std::vector<std::string>>{{"--burn-in", "{frame}"},
                                               {"--effect", "cc3.fx"},
                                               {"--depth", "8"},
                                               {"--output-range", "full"},
                                               {"--after", "hflip"},
                                               {"--filter", "mitchell"}}) {
        std::vector<std::string> arguments = kept;
        arguments.insert(arguments.end(), options.begin(), options.end());
        EXPECT_EQ(report(arguments)["codesKept"], false) << options[0];
    }
    EXPECT_EQ(report({"in.mkv", "rgb.mkv"})["codesKept"], false); // FFV1 in RGB
    // Its decoders take DNxHR for BT.709, whatever the clip was.
    ffmpeg({"-i", "in.mkv", "-vf", "scale=256:128:in_color_matrix=bt601:out_color_matrix=bt601", "-c:v",
            "ffv1", "-colorspace", "smpte170m", "-pix_fmt", "yuv422p10le", "sd.mkv"});
    EXPECT_EQ(report({"sd.mkv", "sd.mxf"})["codesKept"], false);
    EXPECT_EQ(report({"sd.mkv", "sd.mov"})["codesKept"], true);
}

TEST_F(KeptFrames, FramesThatWereFilteredBeforeAreEncodedAsTheFiltersMadeThem)
{
    makeClip("yuv422p10le");
    convert({"in.mkv", "out.mkv", "--codec", "ffv1", "--pixel-format", "yuv422p10le", "--before", "vflip",
             "--start", "1"});
    EXPECT_EQ(codes("out.mkv", "null"), codes("in.mkv", "trim=start_frame=1,setpts=PTS-STARTPTS,vflip"));
}

TEST_F(KeptFrames, PairsOfEveryOrderHaveTheCodesThatWereDecoded)
{
    makeClip("yuv422p");
    for (const auto& [ours, theirs] :
         {std::pair<std::string, std::string>{"yuy2", "yuyv422"}, {"uyvy", "uyvy422"}, {"yvyu", "yvyu422"}}) {
        EXPECT_EQ(report({"in.mkv", "out.raw", "--format", ours})["codesKept"], true);
        EXPECT_TRUE(read(at("out.raw")) == codes("in.mkv", "format=" + theirs)) << ours;
    }
    convert({"in.mkv", "out.raw", "--format", "vyuy"}); // whole pairs read backwards
    std::string reversed = codes("in.mkv", "format=yuyv422");
    for (auto pair = reversed.begin(); pair != reversed.end(); pair += 4) {
        std::reverse(pair, pair + 4);
    }
    EXPECT_TRUE(read(at("out.raw")) == reversed);
}

TEST_F(KeptFrames, PairsOfOtherSamplesAndBitsAreThoseOfZimg)
{
    for (const std::string from : {"yuv420p", "yuv420p10le", "yuv444p12le"}) {
        makeClip(from);
        convert({"in.mkv", "out.raw", "--format", "uyvy"});
        EXPECT_TRUE(read(at("out.raw")) ==
                    codes("in.mkv", "zscale=filter=bicubic:dither=none,format=yuv422p,format=uyvy422"))
            << from;
        convert({"in.mkv", "out.raw", "--format", "uyvy:16"});
        EXPECT_EQ(wordsOf(read(at("out.raw"))),
                  uyvyOf(wordsOf(codes("in.mkv", "zscale=filter=bicubic:dither=none,format=yuv422p16le"))))
            << from;
    }
}

TEST_F(KeptFrames, PairsOfFewerBitsAreTheNearestCodes)
{
    makeClip("yuv422p10le");
    convert({"in.mkv", "out.raw", "--format", "uyvy"});
    std::string wanted;
    for (const unsigned code : uyvyOf(wordsOf(codes("in.mkv", "null")))) {
        wanted += static_cast<char>(std::min((code + 2) / 4, 255U));
    }
    EXPECT_TRUE(read(at("out.raw")) == wanted);
}

TEST_F(KeptFrames, AlphaIsKeptBesideTheCodesThatWereDecoded)
{
    const std::string opacity = ",format=yuva444p10le,geq=lum='lum(X,Y)':cb='cb(X,Y)':cr='cr(X,Y)':"
                                "a='mod(X*15+Y*33,1024)',setparams=range=tv:colorspace=bt709";
    makeClip("yuv444p10le", "null" + opacity);
    const nlohmann::json run =
        report({"in.mkv", "out.mkv", "--codec", "ffv1", "--pixel-format", "yuva444p10le"});
    EXPECT_EQ(run["codesKept"], true);
    EXPECT_EQ(run["alpha"], "straight");
    EXPECT_TRUE(codes("out.mkv", "null") == codes("in.mkv", "null"));
    // ProRes of it is that of ffmpeg, and again the same.
    ffmpeg({"-i", "in.mkv", "-c:v", "prores_ks", "-profile:v", "4444", "-vendor", "apl0", "theirs.mov"});
    EXPECT_EQ(report({"in.mkv", "ours.mov"})["codesKept"], true);
    EXPECT_TRUE(codes("ours.mov", "null") == codes("theirs.mov", "null"));
    EXPECT_NE(probe("ours.mov", "pix_fmt").find("yuva444p"), std::string::npos)
        << probe("ours.mov", "pix_fmt");
}

TEST_F(KeptFrames, AlphaOfOtherBitsHasTheNearestLevel)
{
    makeClip("yuv420p", "format=yuva420p,geq=lum='lum(X,Y)':cb='cb(X,Y)':cr='cr(X,Y)':a='mod(X+Y*5,256)',"
                        "setparams=range=tv:colorspace=bt709");
    EXPECT_EQ(report({"in.mkv", "out.mkv", "--codec", "ffv1", "--pixel-format", "yuva444p10le"})["codesKept"],
              true);
    EXPECT_TRUE(codes("out.mkv", "format=yuv444p10le") ==
                codes("in.mkv", "format=yuv420p,zscale=filter=bicubic:dither=none,format=yuv444p10le"));
    const std::string given = codes("in.mkv", "extractplanes=a,format=gray");
    const std::vector<unsigned> made = wordsOf(codes("out.mkv", "extractplanes=a,format=gray10le"));
    ASSERT_EQ(made.size(), given.size());
    for (std::size_t i = 0; i < made.size(); ++i) {
        const unsigned code = static_cast<std::uint8_t>(given[i]);
        EXPECT_EQ(made[i], (code * 1023 + 127) / 255) << i;
    }
}

TEST_F(KeptFrames, AlphaThatTheOutputCannotHoldIsLeftOutAndTheCodesStay)
{
    makeClip("yuv420p", "format=yuva420p,setparams=range=tv:colorspace=bt709");
    const Outcome outcome =
        convert({"in.mkv", "out.mkv", "--codec", "ffv1", "--pixel-format", "yuv420p", "--json"});
    EXPECT_EQ(nlohmann::json::parse(outcome.out)["codesKept"], true);
    EXPECT_NE(outcome.err.find("alpha is left out"), std::string::npos) << outcome.err;
    EXPECT_TRUE(codes("out.mkv", "null") == codes("in.mkv", "format=yuv420p"));
    const Outcome none =
        convert({"in.mkv", "none.mkv", "--codec", "ffv1", "--pixel-format", "yuv420p", "--alpha", "none"});
    EXPECT_EQ(none.err.find("alpha is left out"), std::string::npos) << none.err;
    EXPECT_TRUE(codes("none.mkv", "null") == codes("in.mkv", "format=yuv420p"));
    // What is multiplied by its alpha is divided by it, for which it is drawn.
    EXPECT_EQ(report({"in.mkv", "out.mkv", "--codec", "ffv1", "--pixel-format", "yuva420p", "--alpha",
                      "premultiplied"})["codesKept"],
              false);
}

TEST_F(KeptFrames, WhatIsNotDrawnNeedsNoDevice)
{
    makeClip("yuv422p10le");
    ::setenv("VK_ICD_FILENAMES", "/nonexistent.json", 1);
    ::setenv("VK_DRIVER_FILES", "/nonexistent.json", 1);
    const nlohmann::json run = report({"in.mkv", "out.mov"});
    EXPECT_EQ(run["codesKept"], true);
    EXPECT_TRUE(run["device"].is_null());
    EXPECT_NE(convert({"in.mkv", "out.raw", "--format", "uyvy"}).err.find("on the processor"),
              std::string::npos);
    convert({"in.mkv", "out.png"}, 5);
    convert({"in.mkv", "out.mov", "--device", "llvmpipe"}, 5); // who names one wants it to be there
    ::unsetenv("VK_ICD_FILENAMES");
    ::unsetenv("VK_DRIVER_FILES");
}

} // namespace Qx::System
