#include "tools/qxhost/studio/scopes/ScopeSignals.h"

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/Matrices.h"

extern "C" {
#include <libavutil/csp.h>
}

#include <algorithm>
#include <cmath>

namespace Qx::Program::Studio {

namespace {

using Row = std::array<double, 3>;
using Square = std::array<Row, 3>;

double number(AVRational value)
{
    return av_q2d(value);
}

/// The primaries that the signal says, or that its matrix goes with.
const AVColorPrimariesDesc& primariesOf(const Media::Colour& colour)
{
    const auto* said = av_csp_primaries_desc_from_id(static_cast<AVColorPrimaries>(colour.primariesTag));
    if (said != nullptr) {
        return *said;
    }
    return *av_csp_primaries_desc_from_id(colour.matrix == Media::Matrix::bt2020 ? AVCOL_PRI_BT2020
                                                                                 : AVCOL_PRI_BT709);
}

Row lightOf(const AVCIExy& colour)
{
    const double x = number(colour.x);
    const double y = number(colour.y);
    return {x / y, 1, (1 - x - y) / y};
}

double determinant(const Square& m)
{
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

/// X, Y and Z in the rows: the light of each primary, in amounts of which the sum is white.
Square xyzOf(const AVColorPrimariesDesc& primaries)
{
    const std::array<Row, 3> colours{lightOf(primaries.prim.r), lightOf(primaries.prim.g),
                                     lightOf(primaries.prim.b)};
    const Row white = lightOf(primaries.wp);
    Square columns{};
    for (std::size_t row = 0; row < 3; ++row) {
        columns.at(row) = {colours[0].at(row), colours[1].at(row), colours[2].at(row)};
    }
    Square result = columns;
    const double whole = determinant(columns);
    for (std::size_t i = 0; i < 3; ++i) { // Cramer's rule
        Square replaced = columns;
        for (std::size_t row = 0; row < 3; ++row) {
            replaced.at(row).at(i) = white.at(row);
        }
        for (std::size_t row = 0; row < 3; ++row) {
            result.at(row).at(i) *= determinant(replaced) / whole;
        }
    }
    return result;
}

/// SMPTE ST 2084, 5.1.
double lightOfPq(double level)
{
    constexpr double m1 = 2610.0 / 16384;
    constexpr double m2 = 2523.0 / 4096 * 128;
    constexpr double c1 = 3424.0 / 4096;
    constexpr double c2 = 2413.0 / 4096 * 32;
    constexpr double c3 = 2392.0 / 4096 * 32;
    const double power = std::pow(level, 1 / m2);
    return std::pow(std::max(power - c1, 0.0) / (c2 - c3 * power), 1 / m1);
}

/// Of the scene: ARIB STD-B67 and ITU-R BT.2100-2, table 5.
double lightOfHlg(double level)
{
    constexpr double a = 0.17883277;
    constexpr double b = 1 - 4 * a;
    const double c = 0.5 - a * std::log(4 * a);
    return level <= 0.5 ? level * level / 3 : (std::exp((level - c) / a) + b) / 12;
}

/// IEC 61966-2-1.
double lightOfSrgb(double level)
{
    return level <= 0.04045 ? level / 12.92 : std::pow((level + 0.055) / 1.055, 2.4);
}

/// Codes of a channel of those weights, whose levels reach from 0 to 1 or, of chroma, from -0.5 to 0.5.
Host::SignalCode signalCode(const Row& weights, double zero, double scale)
{
    Host::SignalCode code;
    code.offset = zero;
    for (std::size_t i = 0; i < weights.size(); ++i) {
        code.weights.at(i) = weights.at(i) * scale;
    }
    return code;
}

/// The same signal of pictures of video range: their levels are brought to 0 for black and 1 for white first.
void readVideoRange(Host::SignalCode& code, int bits)
{
    const double all = std::exp2(bits) - 1;
    const double part = 219 * std::exp2(bits - 8);
    for (double& weight : code.weights) {
        code.offset -= weight * 16 / 219;
        weight *= all / part;
    }
    constexpr double roundedAway = 1e-9;
    code.offset = std::abs(code.offset) < roundedAway ? 0 : code.offset;
}

/// The light of each code of the picture. Codes beyond its range have that of its end.
std::vector<double> lightOfCodes(const ScopeSignal& signal)
{
    const double unit = std::exp2(signal.pictureBits - 8);
    const double largest = std::exp2(signal.pictureBits) - 1;
    const bool isVideo = signal.pictureRange == Media::Range::video;
    const double black = isVideo ? 16 * unit : 0;
    const double white = isVideo ? 235 * unit : largest;
    std::vector<double> light;
    light.reserve(static_cast<std::size_t>(largest) + 1);
    for (double code = 0; code <= largest; ++code) {
        const double level = std::clamp((code - black) / (white - black), 0.0, 1.0);
        light.push_back(std::clamp(lightOfLevel(level, signal.colour.transferTag), 0.0, 1.0));
    }
    return light;
}

} // namespace

double lightOfLevel(double level, int transferTag)
{
    switch (transferTag) {
    case AVCOL_TRC_SMPTE2084:
        return lightOfPq(level);
    case AVCOL_TRC_ARIB_STD_B67:
        return lightOfHlg(level);
    case AVCOL_TRC_IEC61966_2_1:
        return lightOfSrgb(level);
    case AVCOL_TRC_LINEAR:
        return level;
    case AVCOL_TRC_GAMMA22:
        return std::pow(level, 2.2);
    case AVCOL_TRC_GAMMA28:
        return std::pow(level, 2.8);
    default:
        return std::pow(level, 2.4); // Rec. ITU-R BT.1886
    }
}

Host::ScopeRequest scopeRequest(const ScopeSignal& signal, const ScopeSizes& sizes)
{
    Host::ScopeRequest request;
    request.columns = sizes.columns;
    request.vectorscope = sizes.vectorscope;
    request.chromaticity = sizes.chromaticity;
    request.levels = signal.bits > 8 ? 1024 : 256;
    const bool video = signal.colour.range == Media::Range::video;
    const double unit = request.levels / 256.0;
    const double largest = request.levels - 1.0;
    const double middle = request.levels / 2.0;
    const Row luma = Media::lumaWeights(signal.colour.matrix);
    request.luma = signalCode(luma, video ? 16 * unit : 0, video ? 219 * unit : largest);
    request.red = signalCode({1, 0, 0}, 0, largest);
    request.green = signalCode({0, 1, 0}, 0, largest);
    request.blue = signalCode({0, 0, 1}, 0, largest);
    const double chroma = video ? 224 * unit : largest;
    request.cb = signalCode({-luma[0], -luma[1], 1 - luma[2]}, middle, chroma / (2 * (1 - luma[2])));
    request.cr = signalCode({1 - luma[0], -luma[1], -luma[2]}, middle, chroma / (2 * (1 - luma[0])));
    if (signal.pictureRange == Media::Range::video) {
        for (Host::SignalCode* each : {&request.luma, &request.cb, &request.cr}) {
            readVideoRange(*each, signal.pictureBits);
        }
    }
    if (request.chromaticity > 0) {
        request.toXYZ = xyzOf(primariesOf(signal.colour));
        request.light = lightOfCodes(signal);
    }
    return request;
}

std::vector<ScopeTarget> scopeTargets(const Host::ScopeRequest& request)
{
    struct Bar
    {
        const char* name;
        Row levels;
    };
    constexpr double on = 0.75;
    static const std::array<Bar, 6> bars{{{"R", {on, 0, 0}},
                                          {"Mg", {on, 0, on}},
                                          {"B", {0, 0, on}},
                                          {"Cy", {0, on, on}},
                                          {"G", {0, on, 0}},
                                          {"Yl", {on, on, 0}}}};
    const auto codeOf = [](const Host::SignalCode& signal, const Row& levels) {
        return signal.offset + signal.weights[0] * levels[0] + signal.weights[1] * levels[1] +
               signal.weights[2] * levels[2];
    };
    std::vector<ScopeTarget> targets;
    targets.reserve(bars.size());
    for (const Bar& bar : bars) {
        targets.push_back({bar.name, codeOf(request.cb, bar.levels), codeOf(request.cr, bar.levels)});
    }
    return targets;
}

ScopeRange scopeRange(const Host::ScopeRequest& request)
{
    const Host::SignalCode& luma = request.luma;
    return {luma.offset, luma.offset + luma.weights[0] + luma.weights[1] + luma.weights[2]};
}

std::array<Chromaticity, 3> scopeGamut(const ScopeSignal& signal)
{
    const AVPrimaryCoefficients& primaries = primariesOf(signal.colour).prim;
    return {{{number(primaries.r.x), number(primaries.r.y)},
             {number(primaries.g.x), number(primaries.g.y)},
             {number(primaries.b.x), number(primaries.b.y)}}};
}

const std::vector<Chromaticity>& spectralLocus()
{
    static const std::vector<Chromaticity> locus{
        {0.1741, 0.0050}, {0.1738, 0.0049}, {0.1733, 0.0048}, {0.1726, 0.0048}, {0.1714, 0.0051},
        {0.1689, 0.0069}, {0.1644, 0.0109}, {0.1566, 0.0177}, {0.1440, 0.0297}, {0.1241, 0.0578},
        {0.0913, 0.1327}, {0.0687, 0.2007}, {0.0454, 0.2950}, {0.0235, 0.4127}, {0.0082, 0.5384},
        {0.0039, 0.6548}, {0.0139, 0.7502}, {0.0389, 0.8120}, {0.0743, 0.8338}, {0.1142, 0.8262},
        {0.1547, 0.8059}, {0.1929, 0.7816}, {0.2296, 0.7543}, {0.3016, 0.6923}, {0.3731, 0.6245},
        {0.4441, 0.5547}, {0.5125, 0.4866}, {0.5752, 0.4242}, {0.6270, 0.3725}, {0.6658, 0.3340},
        {0.6915, 0.3083}, {0.7079, 0.2920}, {0.7190, 0.2809}, {0.7300, 0.2700}, {0.7347, 0.2653}};
    return locus;
}

} // namespace Qx::Program::Studio
