#include "tests/system/program/Program.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

// zimg's opinion, through ffmpeg's zscale, of what the program makes of a clip of photographs.

namespace Qx::System {
namespace {

constexpr std::size_t width = 1280;
constexpr std::size_t height = 720;
constexpr std::size_t frames = 3;
constexpr std::size_t edge = 8; // the two repeat the picture's edges differently

class RealClip : public ProgramTest
{
protected:
    /// The largest difference between the program's pictures and zimg's, in codes of 16 bits.
    int worstAgainstZimg(const std::string& filter, const std::string& zimgFilter) const
    {
        const std::string count = std::to_string(frames);
        const Outcome outcome = qxhost({"convert", "--quiet", "--filter", filter, "--depth", "16", "--frames",
                                        count, QX_SAMPLE_CLIP, "ours_%d.png"});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        // On several threads zscale resamples luma too.
        ffmpeg(
            {"-filter_threads", "1", "-i", QX_SAMPLE_CLIP, "-frames:v", count, "-vf",
             "zscale=matrixin=709:rangein=limited:matrix=gbr:range=full:" + zimgFilter + ",format=gbrp16le",
             "-c:v", "ffv1", "zimg.mkv"});
        const std::vector<std::uint16_t> ours = samples("ours_%d.png");
        const std::vector<std::uint16_t> theirs = samples("zimg.mkv");
        EXPECT_EQ(ours.size(), width * height * 3 * frames);
        EXPECT_EQ(ours.size(), theirs.size());
        return ours.size() == theirs.size() ? worst(ours, theirs) : -1;
    }

private:
    std::vector<std::uint16_t> samples(const std::string& file) const
    {
        const std::vector<std::uint8_t> bytes = decoded(file, "rgb48le");
        std::vector<std::uint16_t> result(bytes.size() / 2);
        std::memcpy(result.data(), bytes.data(), result.size() * 2);
        return result;
    }

    static int worst(const std::vector<std::uint16_t>& a, const std::vector<std::uint16_t>& b)
    {
        int result = 0;
        for (std::size_t i = 0; i < a.size(); ++i) {
            const std::size_t x = i / 3 % width;
            if (x >= edge && x < width - edge) {
                result = std::max(result, std::abs(a[i] - b[i]));
            }
        }
        return result;
    }
};

constexpr int twoCodesOfSixteenBits = 2;

TEST_F(RealClip, catmull_rom_is_the_picture_that_zimg_makes)
{
    const int worst = worstAgainstZimg("catmullrom", "filter=bicubic:param_a=0:param_b=0.5");
    RecordProperty("worst", worst);
    EXPECT_GE(worst, 0);
    EXPECT_LE(worst, twoCodesOfSixteenBits);
}

TEST_F(RealClip, mitchell_is_the_picture_that_zimg_makes)
{
    const int worst =
        worstAgainstZimg("mitchell", "filter=bicubic:param_a=0.3333333333:param_b=0.3333333333");
    RecordProperty("worst", worst);
    EXPECT_GE(worst, 0);
    EXPECT_LE(worst, twoCodesOfSixteenBits);
}

} // namespace
} // namespace Qx::System
