#include "tools/qxhost/pipeline/effects/ToneMap.h"

#include "tools/qxhost/media/Ffmpeg.h"

#include <algorithm>

namespace Qx::Program {

namespace {

/// Values of the effect's parameters.
constexpr float gammaCurve = 0;
constexpr float pqCurve = 1;
constexpr float hlgCurve = 2;
constexpr float primariesOfBt709 = 0;
constexpr float primariesOfBt2020 = 1;
constexpr float primariesOfP3 = 2;

float primariesOf(const Media::Colour& colour)
{
    if (colour.primariesTag == AVCOL_PRI_SMPTE432) {
        return primariesOfP3;
    }
    // What has high dynamic range and does not say otherwise is BT.2100, which has the primaries of BT.2020.
    const bool untagged = colour.primariesTag == AVCOL_PRI_UNSPECIFIED;
    const bool wide = untagged && (isHighDynamicRange(colour) || colour.matrix == Media::Matrix::bt2020);
    return wide || colour.primariesTag == AVCOL_PRI_BT2020 ? primariesOfBt2020 : primariesOfBt709;
}

} // namespace

EffectRequest toneMapRequest(ToneMap method)
{
    EffectRequest step;
    step.file = "qx-tone-map.fx";
    step.technique = method == ToneMap::bt2390 ? "BT2390" : "BT2446A";
    step.mapsTones = true;
    return step;
}

bool isHighDynamicRange(const Media::Colour& colour)
{
    return colour.transferTag == AVCOL_TRC_SMPTE2084 || colour.transferTag == AVCOL_TRC_ARIB_STD_B67;
}

bool saysWhichColours(const Media::Colour& colour)
{
    return colour.transferTag != AVCOL_TRC_UNSPECIFIED || colour.primariesTag != AVCOL_PRI_UNSPECIFIED;
}

std::string beyondBt709(const Media::Colour& colour)
{
    if (colour.transferTag == AVCOL_TRC_SMPTE2084) {
        return "PQ (SMPTE ST 2084)";
    }
    if (colour.transferTag == AVCOL_TRC_ARIB_STD_B67) {
        return "HLG (ARIB STD-B67)";
    }
    const float primaries = primariesOf(colour);
    return primaries == primariesOfBt2020 ? "BT.2020" : primaries == primariesOfP3 ? "Display P3" : "";
}

void fitToneMap(EffectRequest& step, const Media::Colour& colour)
{
    const bool pq = colour.transferTag == AVCOL_TRC_SMPTE2084;
    const bool hlg = colour.transferTag == AVCOL_TRC_ARIB_STD_B67;
    // HLG is relative: BT.2100 describes it for a display of 1000 cd/m2.
    constexpr double usualPeak = 1000;
    constexpr double lowestPeak = 100;
    constexpr double highestPeak = 10000;
    const double peak = pq && colour.brightness.peak > 0
                            ? std::clamp(colour.brightness.peak, lowestPeak, highestPeak)
                            : usualPeak;
    const std::vector<ParameterSetting> known{{"transfer",
                                               {pq    ? pqCurve
                                                : hlg ? hlgCurve
                                                      : gammaCurve}},
                                              {"primaries", {primariesOf(colour)}},
                                              {"peak", {static_cast<float>(peak)}}};
    const bool told = std::any_of(step.settings.begin(), step.settings.end(),
                                  [](const ParameterSetting& each) { return each.name == "transfer"; });
    if (!pq && !hlg && !told) {
        step.technique = "Gamut";
    }
    step.settings.insert(step.settings.begin(), known.begin(), known.end());
}

Media::Colour afterToneMap(Media::Colour colour)
{
    colour.matrix = Media::Matrix::bt709;
    colour.matrixTag = colour.fromRgb ? colour.matrixTag : AVCOL_SPC_BT709;
    colour.primariesTag = AVCOL_PRI_BT709;
    colour.transferTag = AVCOL_TRC_BT709;
    colour.brightness = {};
    return colour;
}

} // namespace Qx::Program
