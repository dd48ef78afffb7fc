#include "tests/pixels/Gpu.h"
#include "tests/pixels/Judge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace Qx::Pixels {
namespace {

Picture ramps(int depth)
{
    const auto pictures = trialPictures(Layout::Rgb, depth);
    return *std::find_if(pictures.begin(), pictures.end(),
                         [](const Picture& p) { return p.name == "ramps"; });
}

/// The grade in double precision, as its parameters are explained.
struct Grade
{
    std::array<double, 3> lift{0, 0, 0};
    std::array<double, 3> gamma{1, 1, 1};
    std::array<double, 3> gain{1, 1, 1};
    double saturation = 1;

    std::array<double, 3> operator()(const std::array<double, 3>& rgb) const
    {
        std::array<double, 3> v{};
        for (std::size_t i = 0; i < 3; ++i) {
            v[i] = (rgb[i] * (1 - lift[i]) + lift[i]) * gain[i];
            v[i] = std::copysign(std::pow(std::abs(v[i]), 1 / gamma[i]), v[i]);
        }
        const double luma = 0.2126 * v[0] + 0.7152 * v[1] + 0.0722 * v[2];
        for (double& channel : v)
            channel = luma + saturation * (channel - luma);
        return v;
    }
};

/// Every parameter at its default, then those given: an effect remembers what earlier tests set.
Parameters fromDefaults(const Parameters& changed)
{
    Parameters all{{"saturation", 1.0F}};
    for (const std::string channel : {"", "Red", "Green", "Blue"}) {
        all.emplace_back("lift" + channel, 0.0F);
        all.emplace_back("gamma" + channel, 1.0F);
        all.emplace_back("gain" + channel, 1.0F);
    }
    all.insert(all.end(), changed.begin(), changed.end());
    return all;
}

void expectGraded(const Parameters& parameters, const Grade& grade)
{
    const Picture source = ramps(8);
    const auto got = throughEffect(L"cc3.fx", "ThreeWay", fromDefaults(parameters), source);
    ASSERT_TRUE(got);
    std::vector<double> exact;
    for (int row = 0; row < source.height; ++row) {
        for (int x = 0; x < source.width; ++x) {
            const auto graded = grade(
                {source.at(x, row, 0) / 255.0, source.at(x, row, 1) / 255.0, source.at(x, row, 2) / 255.0});
            for (const double channel : graded)
                exact.push_back(std::clamp(channel * 255.0, 0.0, 255.0));
            exact.push_back(source.at(x, row, 3));
        }
    }
    const Verdict verdict = judge(*got, exact);
    EXPECT_LE(verdict.errors.worst, 1) << verdict.worstSample << "\n"
                                       << leaveBehind("cc3", *got, rounded(*got, exact));
    EXPECT_GE(verdict.errors.correctPercent(), 99.9);
}

TEST(Null, CopiesEveryCode)
{
    for (const int depth : {8, 16}) {
        const Picture source = ramps(depth);
        const auto got = throughEffect(L"null.fx", "Null", {}, source);
        ASSERT_TRUE(got);
        EXPECT_EQ(got->codes, source.codes) << depth << " bits";
    }
}

TEST(ThreeWay, LeavesEveryCodeAsItIsUntilAParameterIsSet)
{
    for (const int depth : {8, 16}) {
        const Picture source = ramps(depth);
        const auto got = throughEffect(L"cc3.fx", "ThreeWay", {}, source);
        ASSERT_TRUE(got);
        EXPECT_EQ(got->codes, source.codes) << depth << " bits";
    }
}

TEST(ThreeWay, GainScalesAndLiftRaisesBlackAlone)
{
    expectGraded({{"gain", 1.2F}, {"lift", 0.1F}, {"liftBlue", -0.05F}, {"gainRed", 0.8F}},
                 {.lift = {0.1, 0.1, 0.05}, .gain = {1.2 * 0.8, 1.2, 1.2}});
}

TEST(ThreeWay, GammaBendsAndSaturationSpreadsAboutLuma)
{
    expectGraded({{"gamma", 1.5F}, {"gammaGreen", 0.7F}, {"saturation", 1.3F}},
                 {.gamma = {1.5, 1.5 * 0.7, 1.5}, .saturation = 1.3});
}

TEST(ThreeWay, SaturationZeroLeavesGrey)
{
    expectGraded({{"saturation", 0.0F}}, {.saturation = 0.0});
}

} // namespace
} // namespace Qx::Pixels
