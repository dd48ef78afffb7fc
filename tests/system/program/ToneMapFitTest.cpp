#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/pipeline/effects/ToneMap.h"

#include <gtest/gtest.h>

#include <map>

namespace Qx::Program {

namespace {

struct Fitted
{
    std::string technique;
    std::map<std::string, float> values; ///< of parameters that are set twice, the last
};

Fitted fitted(int transfer, int primaries, double peak, const std::vector<ParameterSetting>& byUser = {})
{
    Media::Colour colour;
    colour.transferTag = transfer;
    colour.primariesTag = primaries;
    colour.brightness.peak = peak;
    EffectRequest step = toneMapRequest(ToneMap::bt2446a);
    step.settings = byUser;
    fitToneMap(step, colour);
    Fitted result{step.technique, {}};
    for (const ParameterSetting& each : step.settings) {
        result.values[each.name] = each.values.at(0);
    }
    return result;
}

using Values = std::map<std::string, float>;

TEST(ToneMapFit, the_tags_tell_the_effect_what_it_gets)
{
    const Fitted pq = fitted(AVCOL_TRC_SMPTE2084, AVCOL_PRI_BT2020, 4000);
    EXPECT_EQ(pq.technique, "BT2446A");
    EXPECT_EQ(pq.values, (Values{{"transfer", 1}, {"primaries", 1}, {"peak", 4000}}));
    EXPECT_EQ(fitted(AVCOL_TRC_SMPTE2084, AVCOL_PRI_SMPTE432, 0).values,
              (Values{{"transfer", 1}, {"primaries", 2}, {"peak", 1000}}));
    EXPECT_EQ(fitted(AVCOL_TRC_SMPTE2084, AVCOL_PRI_UNSPECIFIED, 20000).values,
              (Values{{"transfer", 1}, {"primaries", 1}, {"peak", 10000}}));
    EXPECT_EQ(fitted(AVCOL_TRC_ARIB_STD_B67, AVCOL_PRI_BT2020, 4000).values,
              (Values{{"transfer", 2}, {"primaries", 1}, {"peak", 1000}}))
        << "HLG is relative";
}

TEST(ToneMapFit, what_has_no_high_dynamic_range_only_changes_its_primaries)
{
    EXPECT_EQ(fitted(AVCOL_TRC_BT2020_10, AVCOL_PRI_BT2020, 0).technique, "Gamut");
}

TEST(ToneMapFit, what_the_user_sets_wins_over_tags_and_their_absence)
{
    const Fitted untagged =
        fitted(AVCOL_TRC_UNSPECIFIED, AVCOL_PRI_UNSPECIFIED, 0, {{"transfer", {1}}, {"primaries", {1}}});
    EXPECT_EQ(untagged.technique, "BT2446A");
    EXPECT_EQ(untagged.values, (Values{{"transfer", 1}, {"primaries", 1}, {"peak", 1000}}));
    EXPECT_EQ(fitted(AVCOL_TRC_SMPTE2084, AVCOL_PRI_BT2020, 4000, {{"peak", {600}}}).values.at("peak"), 600);
}

} // namespace

} // namespace Qx::Program
