#pragma once

#include "tests/system/program/Program.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace Qx::System {

/// Runs melt with the module, without a display.
class MeltTest : public ProgramTest
{
protected:
    using Bytes = std::vector<std::uint8_t>;

    /// Filters and transitions are MLT's words; the result is the file "melt.nut" in that pixel format.
    static std::vector<std::string> meltCommand(const std::vector<std::string>& words,
                                                const std::string& modules = "few")
    {
        const std::string folder = QX_MLT_FOLDER;
        std::vector<std::string> command{"env",
                                         "-u",
                                         "DISPLAY",
                                         "-u",
                                         "WAYLAND_DISPLAY",
                                         "MLT_REPOSITORY=" + folder + "/" + modules,
                                         "MLT_DATA=" + folder + "/data",
                                         QX_MELT};
        command.insert(command.end(), words.begin(), words.end());
        return command;
    }

    static std::vector<std::string> rendering(const std::string& clip,
                                              const std::vector<std::string>& filters,
                                              const std::string& pixelFormat,
                                              const std::vector<std::string>& more = {})
    {
        // Without normalisers, which may take RGB to 4:2:2 and back before a filter sees it.
        std::vector<std::string> words{"-silent", "abnormal:" + clip};
        words.insert(words.end(), filters.begin(), filters.end());
        const std::string image = pixelFormat == "rgba" ? "rgba" : "yuv422";
        const std::vector<std::string> consumer{"-consumer",
                                                "avformat:melt.nut",
                                                "vcodec=rawvideo",
                                                "pix_fmt=" + pixelFormat,
                                                "mlt_image_format=" + image,
                                                "an=1"};
        words.insert(words.end(), consumer.begin(), consumer.end());
        words.insert(words.end(), more.begin(), more.end());
        return meltCommand(words);
    }

    /// Runs a rendering. melt 7.12 now and then ends before its first frame or waits for ever after its last
    /// one, with no module but its own: it polls whether its consumer runs while that starts. Such runs are
    /// done again, at most twice.
    Outcome rendered(const std::vector<std::string>& command) const
    {
        constexpr int timedOut = 124;
        std::vector<std::string> limited{"timeout", "-k", "5", "60"};
        limited.insert(limited.end(), command.begin(), command.end());
        Outcome outcome;
        for (int tries = 0; tries < 3; ++tries) {
            outcome = run(limited);
            std::error_code error;
            const bool hasFrames = fs::file_size(at("melt.nut"), error) > 0 && !error;
            if (outcome.exitCode != timedOut && (outcome.exitCode != 0 || hasFrames)) {
                break;
            }
        }
        return outcome;
    }

    /// The frames that melt makes.
    Bytes melted(const std::string& clip, const std::vector<std::string>& filters,
                 const std::string& pixelFormat, const std::vector<std::string>& more = {}) const
    {
        const Outcome outcome = rendered(rendering(clip, filters, pixelFormat, more));
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        said_ = outcome.err;
        return decoded("melt.nut", pixelFormat);
    }

    /// The frames that qxhost makes.
    Bytes converted(const std::string& clip, const std::vector<std::string>& options,
                    const std::string& format) const
    {
        std::vector<std::string> arguments{"convert", clip, "frames.raw", "--force", "--format", format};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        const std::string bytes = read(at("frames.raw"));
        return {bytes.begin(), bytes.end()};
    }

    /// A clip of a moving test picture.
    void makeClip(const std::string& name, const std::string& size, const std::string& pixelFormat,
                  const std::string& matrix = "bt709", const std::string& range = "tv",
                  const std::vector<std::string>& codec = {"-c:v", "rawvideo"}, int frames = 6) const
    {
        const std::string scaled =
            "scale=out_color_matrix=" + matrix + ":out_range=" + range + ",format=" + pixelFormat +
            ",setparams=colorspace=" + (matrix == "bt601" ? "smpte170m" : matrix) + ":range=" + range;
        const bool isRgb = pixelFormat == "rgba";
        std::vector<std::string> arguments{"-f",        "lavfi",
                                           "-i",        "testsrc2=s=" + size + ":r=25",
                                           "-frames:v", std::to_string(frames),
                                           "-vf",       isRgb ? "format=rgba" : scaled};
        arguments.insert(arguments.end(), codec.begin(), codec.end());
        if (!isRgb) {
            arguments.insert(arguments.end(), {"-colorspace", matrix == "bt601" ? "smpte170m" : matrix,
                                               "-color_range", range});
        }
        arguments.push_back(name);
        ffmpeg(arguments);
    }

    /// Whether both hold the same frames. melt may leave out the last one, whose duration containers round.
    static testing::AssertionResult areSame(const Bytes& made, const Bytes& expected, std::size_t frameBytes,
                                            std::size_t fewestFrames = 5)
    {
        if (made.size() < fewestFrames * frameBytes || made.size() > expected.size()) {
            return testing::AssertionFailure() << made.size() << " bytes; expected " << fewestFrames << " to "
                                               << expected.size() / frameBytes << " frames of " << frameBytes;
        }
        const auto [mine, other] = std::mismatch(made.begin(), made.end(), expected.begin());
        if (mine == made.end()) {
            return testing::AssertionSuccess();
        }
        return testing::AssertionFailure()
               << "byte " << mine - made.begin() << " is " << int{*mine} << ", expected " << int{*other};
    }

    std::size_t timesSaid(const std::string& text) const
    {
        std::size_t times = 0;
        for (std::size_t at = said_.find(text); at != std::string::npos; at = said_.find(text, at + 1)) {
            ++times;
        }
        return times;
    }

    mutable std::string said_; ///< by the last melted()
};

} // namespace Qx::System
