#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/studio/scopes/ScopeMessage.h"
#include "tools/qxhost/studio/scopes/ScopePace.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>

namespace Qx::Program::Studio {

namespace {

ScopeSignal signalOf(int bits, Media::Range range = Media::Range::video,
                     Media::Matrix matrix = Media::Matrix::bt709)
{
    ScopeSignal signal;
    signal.bits = bits;
    signal.colour.range = range;
    signal.colour.matrix = matrix;
    return signal;
}

double codeOf(const Host::SignalCode& signal, const std::array<double, 3>& rgb)
{
    return signal.offset + signal.weights[0] * rgb[0] + signal.weights[1] * rgb[1] +
           signal.weights[2] * rgb[2];
}

} // namespace

TEST(ScopeSignals, ColourBarsLieWhereTheirRecommendationPutsThem)
{
    // SMPTE RP 219, 10 bits: Cb and Cr of bars of 75 %.
    const std::map<std::string, std::pair<int, int>> expected{{"Yl", {176, 543}}, {"Cy", {589, 176}},
                                                              {"G", {253, 207}},  {"Mg", {771, 817}},
                                                              {"R", {435, 848}},  {"B", {848, 481}}};
    const auto targets = scopeTargets(scopeRequest(signalOf(10), {}));
    ASSERT_EQ(targets.size(), expected.size());
    for (const ScopeTarget& target : targets) {
        EXPECT_EQ(std::lround(target.cb), expected.at(target.name).first) << target.name;
        EXPECT_EQ(std::lround(target.cr), expected.at(target.name).second) << target.name;
    }
}

TEST(ScopeSignals, CodesAreThoseOfTheSignalsDepthAndRange)
{
    struct Case
    {
        int bits;
        Media::Range range;
        double black;
        double white;
        double lowestCb;
        double highestCb;
    };
    for (const Case& each :
         {Case{8, Media::Range::video, 16, 235, 16, 240}, Case{10, Media::Range::video, 64, 940, 64, 960},
          Case{12, Media::Range::video, 64, 940, 64, 960}, Case{8, Media::Range::full, 0, 255, 0.5, 255.5},
          Case{10, Media::Range::full, 0, 1023, 0.5, 1023.5}}) {
        for (const Media::Matrix matrix :
             {Media::Matrix::bt601, Media::Matrix::bt709, Media::Matrix::bt2020}) {
            const Host::ScopeRequest request = scopeRequest(signalOf(each.bits, each.range, matrix), {});
            EXPECT_NEAR(scopeRange(request).black, each.black, 1e-9);
            EXPECT_NEAR(scopeRange(request).white, each.white, 1e-9);
            EXPECT_NEAR(codeOf(request.cb, {1, 1, 0}), each.lowestCb, 1e-9);
            EXPECT_NEAR(codeOf(request.cb, {0, 0, 1}), each.highestCb, 1e-9);
            EXPECT_NEAR(codeOf(request.cr, {1, 0, 0}), each.highestCb, 1e-9);
            EXPECT_NEAR(codeOf(request.cr, {0.5, 0.5, 0.5}), request.levels / 2.0, 1e-9);
            EXPECT_NEAR(codeOf(request.red, {1, 0, 0}), request.levels - 1, 1e-9);
        }
    }
}

TEST(ScopeSignals, PicturesOfVideoRangeHaveTheSameLuma)
{
    ScopeSignal signal = signalOf(8);
    signal.pictureRange = Media::Range::video;
    const Host::ScopeRequest request = scopeRequest(signal, {});
    for (const double code : {0.0, 16.0, 128.0, 235.0, 255.0}) {
        const double level = code / 255;
        EXPECT_NEAR(codeOf(request.luma, {level, level, level}), code, 1e-9);
        EXPECT_NEAR(codeOf(request.cb, {level, level, level}), 128, 1e-9);
    }
    EXPECT_NEAR(codeOf(request.cb, {16 / 255.0, 16 / 255.0, 235 / 255.0}), 240, 1e-9);
    EXPECT_GE(request.luma.offset, 0);
    signal.pictureBits = 16;
    EXPECT_NEAR(codeOf(scopeRequest(signal, {}).luma, {60160 / 65535.0, 60160 / 65535.0, 60160 / 65535.0}),
                235, 1e-9);
}

TEST(ScopeSignals, LightIsWhatTheRecommendationsSay)
{
    // BT.2100-2 gives 92.2457 cd/m2 for half of PQ's signal; the others are computed from their formulas by
    // hand.
    EXPECT_NEAR(lightOfLevel(0.5, AVCOL_TRC_SMPTE2084), 0.00922457, 1e-8);
    EXPECT_NEAR(lightOfLevel(1, AVCOL_TRC_SMPTE2084), 1, 1e-12);
    EXPECT_NEAR(lightOfLevel(0.5, AVCOL_TRC_ARIB_STD_B67), 1.0 / 12, 1e-12);
    EXPECT_NEAR(lightOfLevel(0.75, AVCOL_TRC_ARIB_STD_B67), 0.26496256, 1e-7);
    EXPECT_NEAR(lightOfLevel(1, AVCOL_TRC_ARIB_STD_B67), 1, 1e-6);
    EXPECT_NEAR(lightOfLevel(0.5, AVCOL_TRC_IEC61966_2_1), 0.21404114, 1e-8);
    EXPECT_NEAR(lightOfLevel(0.5, AVCOL_TRC_BT709), 0.18946457, 1e-8);
    EXPECT_EQ(lightOfLevel(0.5, AVCOL_TRC_LINEAR), 0.5);
    for (const int transfer : {0, 1, 2, 8, 13, 14, 15, 16, 18}) {
        EXPECT_EQ(lightOfLevel(0, transfer), 0) << transfer;
        EXPECT_NEAR(lightOfLevel(1, transfer), 1, 1e-6) << transfer;
    }
}

TEST(ScopeSignals, CodesHaveLightBetweenBlackAndWhiteOfThePicture)
{
    ScopeSignal signal = signalOf(8);
    EXPECT_EQ(scopeRequest(signal, {}).light.size(), 256U);
    EXPECT_EQ(scopeRequest(signal, {}).light[255], 1);
    EXPECT_GT(scopeRequest(signal, {}).light[1], 0);
    signal.pictureRange = Media::Range::video;
    for (const int bits : {8, 10, 16}) {
        signal.pictureBits = bits;
        const std::vector<double> light = scopeRequest(signal, {}).light;
        const std::size_t unit = std::size_t{1} << static_cast<unsigned>(bits - 8);
        ASSERT_EQ(light.size(), 256 * unit);
        EXPECT_EQ(light[0], 0);
        EXPECT_EQ(light[16 * unit], 0) << bits;
        EXPECT_GT(light[16 * unit + 1], 0) << bits;
        EXPECT_LT(light[235 * unit - 1], 1) << bits;
        EXPECT_EQ(light[235 * unit], 1) << bits;
        EXPECT_EQ(light.back(), 1);
        EXPECT_NEAR(light[70 * unit], std::pow(54.0 / 219, 2.4), 1e-12) << bits;
    }
}

TEST(ScopeSignals, TheLightOfPrimariesIsThatOfTheirRecommendation)
{
    // What SMPTE RP 177 computes of their chromaticities, to 4 digits.
    const Host::ScopeRequest hd = scopeRequest(signalOf(8), {});
    EXPECT_NEAR(hd.toXYZ[0][0], 0.4124, 5e-5);
    EXPECT_NEAR(hd.toXYZ[1][1], 0.7152, 5e-5);
    EXPECT_NEAR(hd.toXYZ[2][2], 0.9505, 5e-5);
    const Host::ScopeRequest wide =
        scopeRequest(signalOf(10, Media::Range::video, Media::Matrix::bt2020), {});
    EXPECT_NEAR(wide.toXYZ[0][0], 0.6370, 5e-5);
    EXPECT_NEAR(wide.toXYZ[1][1], 0.6780, 5e-5);
    EXPECT_NEAR(wide.toXYZ[2][2], 1.0610, 5e-5);
    for (const auto& row : wide.toXYZ) {
        for (const double part : row) {
            EXPECT_GE(part, 0);
            EXPECT_LE(part, 1.1);
        }
    }
    EXPECT_EQ(scopeGamut(signalOf(8))[0], (Chromaticity{0.64, 0.33}));
    ScopeSignal p3 = signalOf(8);
    p3.colour.primariesTag = AVCOL_PRI_SMPTE432;
    EXPECT_EQ(scopeGamut(p3)[1], (Chromaticity{0.265, 0.69}));
}

TEST(ScopeMessage, HoldsTheKindsThatWereAskedFor)
{
    const ScopeKinds kinds = scopeKinds({"histogram", "vectorscope"});
    const ScopeSignal signal = signalOf(8);
    ScopeSizes sizes = scopeSizes(kinds);
    EXPECT_EQ(sizes.chromaticity, 0U);
    sizes.columns = 2;
    sizes.vectorscope = 2;
    const Host::ScopeRequest request = scopeRequest(signal, sizes);
    Host::ScopeCounts counts;
    for (Host::ScopeCounts::Counts* each : {&counts.luma, &counts.red, &counts.green, &counts.blue}) {
        each->resize(512);
    }
    counts.luma[2 * 16] = 3;
    counts.luma[2 * 16 + 1] = 4;
    counts.vectorscope = {0, 1, 70000, 0x1234};
    const Json message = scopeMessage(kinds, signal, request, counts);
    EXPECT_FALSE(message.contains("waveform"));
    EXPECT_FALSE(message.contains("parade"));
    EXPECT_FALSE(message.contains("chromaticity"));
    EXPECT_EQ(message["bits"], 8);
    EXPECT_EQ(message["histogram"]["luma"][16], 7);
    EXPECT_EQ(message["vectorscope"]["counts"], "AAABAP//NBI=");
    EXPECT_TRUE(scopeMessage(scopeKinds({"chromaticity"}), signal, request, counts).contains("chromaticity"));
}

TEST(ScopePace, CountsAsOftenAsIsWanted)
{
    const ScopePace::Clock::time_point begin{std::chrono::seconds(1)};
    ScopePace pace(10);
    EXPECT_LT(pace.due(), begin); // the first time at once
    pace.counted(begin, begin + std::chrono::milliseconds(3));
    EXPECT_EQ(pace.due(), begin + std::chrono::milliseconds(100));
}

TEST(ScopePace, TakesAQuarterOfTheTimeAtMost)
{
    const ScopePace::Clock::time_point begin{std::chrono::seconds(1)};
    ScopePace pace(10);
    pace.counted(begin, begin + std::chrono::milliseconds(25));
    EXPECT_EQ(pace.due(), begin + std::chrono::milliseconds(100));
    pace.counted(begin, begin + std::chrono::milliseconds(70));
    EXPECT_EQ(pace.due(), begin + std::chrono::milliseconds(280));
}

TEST(ScopeMessage, AnUnknownScopeIsRefusedByName)
{
    try {
        static_cast<void>(scopeKinds({"waveform", "radar"}));
        ADD_FAILURE();
    } catch (const Failure& failure) {
        EXPECT_STREQ(failure.what(),
                     "there is no scope \"radar\"; there are waveform, parade, vectorscope, histogram and "
                     "chromaticity");
    }
}

} // namespace Qx::Program::Studio
