#include "tests/pixels/Colorimetry.h"
#include "tests/pixels/Gpu.h"
#include "tests/pixels/Zimg.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <random>
#include <string>
#include <vector>

// qx-tone-map.fx against zimg, and against the formulas of the Recommendations in double precision.

namespace Qx::Pixels {
namespace {

/// Greys from black to the largest code, then colours.
Picture colours()
{
    Picture picture = Picture::blank("colours", Layout::Rgb, 256, 16, 16);
    std::mt19937 random(2100);
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            for (int i = 0; i < 3; ++i)
                picture.at(x, y, i) =
                    static_cast<std::uint16_t>(y == 0 ? static_cast<unsigned>(x) * 257U : random() % 65536U);
            picture.at(x, y, 3) = 65535;
        }
    }
    return picture;
}

// ITU-R BT.2100-2, tables 4 and 5.
double lightOfPq(double code)
{
    const double m1 = 2610.0 / 16384;
    const double m2 = 2523.0 / 4096 * 128;
    const double c1 = 3424.0 / 4096;
    const double c2 = 2413.0 / 4096 * 32;
    const double c3 = 2392.0 / 4096 * 32;
    const double p = std::pow(code, 1 / m2);
    return 10000 * std::pow(std::max(p - c1, 0.0) / (c2 - c3 * p), 1 / m1);
}

double pqOfLight(double light)
{
    const double y = std::pow(light / 10000, 2610.0 / 16384);
    return std::pow((3424.0 / 4096 + 2413.0 / 128 * y) / (1 + 2392.0 / 128 * y), 2523.0 / 32);
}

double luminance(const Vector& c)
{
    return 0.2627 * c[0] + 0.6780 * c[1] + 0.0593 * c[2];
}

Vector lightOf(const Vector& code, Transfer transfer, double peak)
{
    Vector light{};
    for (std::size_t i = 0; i < 3; ++i) {
        if (transfer == Transfer::Pq) {
            light[i] = lightOfPq(code[i]);
        } else if (transfer == Transfer::Gamma) {
            light[i] = 100 * std::pow(code[i], 2.4);
        } else {
            const double a = 0.17883277;
            light[i] = code[i] <= 0.5
                           ? code[i] * code[i] / 3
                           : (std::exp((code[i] - (0.5 - a * std::log(4 * a))) / a) + 1 - 4 * a) / 12;
        }
    }
    if (transfer == Transfer::Hlg) {
        const double gain = std::pow(luminance(light), 0.2 + 0.42 * std::log10(peak / 1000));
        for (double& part : light)
            part *= peak * gain;
    }
    return light;
}

/// ITU-R BT.2390-10, 5.4.1, steps 1 to 3, with black at 0.
double spline(double light, double peak)
{
    const double e = std::min(pqOfLight(light) / pqOfLight(peak), 1.0);
    const double most = pqOfLight(100) / pqOfLight(peak);
    const double knee = 1.5 * most - 0.5;
    if (e < knee)
        return lightOfPq(e * pqOfLight(peak));
    const double t = (e - knee) / (1 - knee);
    const double p = (2 * t * t * t - 3 * t * t + 1) * knee + (t * t * t - 2 * t * t + t) * (1 - knee) +
                     (-2 * t * t * t + 3 * t * t) * most;
    return lightOfPq(p * pqOfLight(peak));
}

Vector by2390(Vector light, double peak)
{
    const double y = luminance(light);
    if (y > 0) {
        const double gain = spline(y, peak) / y;
        for (double& part : light)
            part *= gain;
    }
    return light;
}

/// ITU-R BT.2446-1, 4.2 to 4.4.
Vector by2446A(const Vector& light, double peak)
{
    Vector code{};
    for (std::size_t i = 0; i < 3; ++i)
        code[i] = std::pow(std::clamp(light[i] / peak, 0.0, 1.0), 1 / 2.4);
    const double y = luminance(code);
    const double hdr = 1 + 32 * std::pow(peak / 10000, 1 / 2.4);
    const double sdr = 1 + 32 * std::pow(100 / 10000.0, 1 / 2.4);
    const double p = std::log(1 + (hdr - 1) * y) / std::log(hdr);
    const double c = p <= 0.7399  ? 1.0770 * p
                     : p < 0.9909 ? -1.1510 * p * p + 2.7811 * p - 0.6302
                                  : 0.5 * p + 0.5;
    const double mappedLuma = (std::pow(sdr, c) - 1) / (sdr - 1);
    const double f = y > 0 ? mappedLuma / (1.1 * y) : 0;
    const double cb = f * (code[2] - y) / 1.8814;
    const double cr = f * (code[0] - y) / 1.4746;
    const double luma = mappedLuma - std::max(0.1 * cr, 0.0);
    Vector result{luma + 1.4746 * cr, 0, luma + 1.8814 * cb};
    result[1] = (luma - 0.2627 * result[0] - 0.0593 * result[2]) / 0.6780;
    for (double& part : result)
        part = 100 * std::pow(std::max(part, 0.0), 2.4);
    return result;
}

struct MapCase
{
    const char* technique;
    Transfer transfer;
    int primaries; ///< 0 BT.709, 1 BT.2020, 2 P3
    double peak;
};

std::optional<Picture> mapped(const MapCase& wanted)
{
    return throughEffect(L"qx-tone-map.fx", wanted.technique,
                         {{"transfer", static_cast<float>(wanted.transfer)},
                          {"primaries", static_cast<float>(wanted.primaries)},
                          {"peak", static_cast<float>(wanted.peak)}},
                         colours());
}

/// Red, green or blue as the display shows it, black at 0 and its peak at 1.
struct Shown
{
    double light = 0;
    double brightest =
        1; ///< red, green or blue of the pixel before it is made darker, in the same unit; at least 1
};

/// Three for each pixel of colours().
std::vector<Shown> exactlyMapped(const MapCase& wanted)
{
    const std::string technique = wanted.technique;
    const Matrix3 toXyz = xyzOfRgb(wanted.primaries == 0   ? primariesOfBt709
                                   : wanted.primaries == 1 ? primariesOfBt2020
                                                           : primariesOfP3);
    const Matrix3 wideToXyz = xyzOfRgb(primariesOfBt2020);
    const Matrix3 wide = inverse(wideToXyz);
    const Matrix3 target = inverse(xyzOfRgb(primariesOfBt709));
    const Picture given = colours();
    std::vector<Shown> shown;
    for (int y = 0; y < given.height; ++y) {
        for (int x = 0; x < given.width; ++x) {
            const Vector code{given.at(x, y, 0) / 65535.0, given.at(x, y, 1) / 65535.0,
                              given.at(x, y, 2) / 65535.0};
            Vector light = wide * (toXyz * lightOf(code, wanted.transfer, wanted.peak));
            const double brightest = std::max({light[0] / 100, light[1] / 100, light[2] / 100, 1.0});
            light = technique == "BT2390"    ? by2390(light, wanted.peak)
                    : technique == "BT2446A" ? by2446A(light, wanted.peak)
                                             : light;
            for (const double part : target*(wideToXyz * light))
                shown.push_back({std::clamp(part / 100, 0.0, 1.0), brightest});
        }
    }
    return shown;
}

/// A code of 10 bits. Where little is left of far brighter light, because another primary's is subtracted
/// from it, `smallestPart` of that light.
testing::AssertionResult isClose(const Picture& got, const std::vector<Shown>& shown, double smallestPart)
{
    constexpr double tenBitCode = 1.0 / 1023;
    for (std::size_t i = 0; i < shown.size(); ++i) {
        const double code = got.codes.at(i / 3 * 4 + i % 3) / 65535.0;
        const double exact = std::pow(shown[i].light, 1 / 2.4);
        if (std::abs(code - exact) > tenBitCode &&
            std::abs(std::pow(code, 2.4) - shown[i].light) > smallestPart * shown[i].brightest)
            return testing::AssertionFailure() << "pixel " << i / 3 << ", component " << i % 3 << ": "
                                               << code * 1023 << " of 1023, not " << exact * 1023;
    }
    return testing::AssertionSuccess();
}

class ToneMapCases : public testing::TestWithParam<MapCase>
{
};

TEST_P(ToneMapCases, IsTheFormulaInDoublePrecision)
{
    const auto got = mapped(GetParam());
    ASSERT_TRUE(got);
    EXPECT_TRUE(isClose(*got, exactlyMapped(GetParam()), 1e-5));
}

/// zimg shows what the formulas above say, so that they are not our opinion alone.
TEST(ToneMap, ZimgShowsPqAndHlgAsTheFormulasSay)
{
    for (const Transfer transfer : {Transfer::Pq, Transfer::Hlg})
        EXPECT_TRUE(
            isClose(coloursByZimg(colours(), transfer), exactlyMapped({"Gamut", transfer, 1, 1000}), 3e-5));
}

INSTANTIATE_TEST_SUITE_P(
    Methods, ToneMapCases,
    testing::Values(MapCase{"BT2390", Transfer::Pq, 1, 1000}, MapCase{"BT2390", Transfer::Pq, 1, 4000},
                    MapCase{"BT2390", Transfer::Pq, 2, 400}, MapCase{"BT2390", Transfer::Hlg, 1, 1000},
                    MapCase{"BT2446A", Transfer::Pq, 1, 1000}, MapCase{"BT2446A", Transfer::Pq, 2, 4000},
                    MapCase{"BT2446A", Transfer::Hlg, 1, 1000}, MapCase{"Gamut", Transfer::Gamma, 1, 100},
                    MapCase{"Gamut", Transfer::Gamma, 2, 100}));

} // namespace
} // namespace Qx::Pixels
