#include "tests/pixels/StarterEffects.h"

#include <gtest/gtest.h>

// Settings that are said to change nothing change no code.

namespace Qx::Pixels {
namespace {

struct Neutral
{
    std::string effect;
    std::string technique;
    Settings settings;
};

std::vector<Neutral> neutralSettings()
{
    const std::vector<float> straight{0.0F, 0.25F, 0.5F, 0.75F, 1.0F};
    return {
        {"blur", "Blur", {{"radius", {0}}}},
        {"blur", "Horizontal", {{"radius", {0}}}},
        {"blur", "Vertical", {{"radius", {0}}}},
        {"sharpen", "Sharpen", {{"amount", {0}}}},
        {"glow", "Glow", {{"amount", {0}}}},
        {"vignette", "Vignette", {{"amount", {0}}}},
        {"grain", "Grain", {{"amount", {0}}, {"frame", {7}}}},
        {"crop", "Crop", {{"left", {0}}, {"right", {0}}, {"top", {0}}, {"bottom", {0}}, {"softness", {9}}}},
        {"transform", "Transform", {{"scale", {1}}, {"rotation", {0}}}},
        {"transform", "Transform", {{"scale", {1}}, {"rotation", {0}}, {"anchor", {0.3F, 0.7F}}}},
        {"white-balance", "WhiteBalance", {{"temperature", {6504}}}},
        {"curves", "Curves", {{"master", straight}}},
        {"colour-wheels", "ColourWheels", {{"liftWheel", {0}}, {"gainWheel", {0}}}},
        {"scopes", "Waveform", {{"height", {0}}}},
        {"scopes", "Parade", {{"height", {0}}}},
        {"scopes", "Overlay", {{"height", {0}}}},
        {"guides", "Guides", {{"opacity", {0}}}},
        {"dissolve", "Dissolve", {{"amount", {0}}}},
        {"wipe", "Wipe", {{"amount", {0}}}},
        {"wipe", "Iris", {{"amount", {0}}}},
        {"wipe", "Clock", {{"amount", {0}}}},
    };
}

/// Every code of the depth with every kind of alpha, and noise of an odd size.
std::vector<Picture> trials(int depth)
{
    Picture ramps = Picture::blank("ramps", Layout::Rgb, 256, 256, depth);
    for (int y = 0; y < 256; ++y) {
        for (int x = 0; x < 256; ++x) {
            const int code = depth == 8 ? x : y * 256 + x;
            ramps.at(x, y, 0) = static_cast<std::uint16_t>(code);
            ramps.at(x, y, 1) = static_cast<std::uint16_t>(depth == 8 ? y : ramps.maxCode() - code);
            ramps.at(x, y, 2) = static_cast<std::uint16_t>(ramps.maxCode() - code);
            ramps.at(x, y, 3) = static_cast<std::uint16_t>(code);
        }
    }
    return {ramps, noise(67, 35, depth)};
}

TEST(StarterEffects, NeutralSettingsChangeNoCode)
{
    for (const int depth : {8, 16}) {
        for (const Picture& source : trials(depth)) {
            for (const Neutral& neutral : neutralSettings()) {
                OtherPictures others;
                if (neutral.effect == "dissolve" || neutral.effect == "wipe")
                    others["To"] = opaqueNoise(source.width, source.height, depth);
                const Picture got =
                    through(neutral.effect, neutral.technique, neutral.settings, source, others);
                SCOPED_TRACE(neutral.effect + ", " + neutral.technique + ", " + source.name + ", " +
                             std::to_string(depth) + " bits");
                expectSame(got, source);
            }
        }
    }
}

} // namespace
} // namespace Qx::Pixels
