// Scopes of the studio, against counts of the codes that convert writes.

#include "tests/system/program/studio/StudioTest.h"

#include <array>
#include <cmath>
#include <numeric>
#include <set>

namespace Qx::System {

namespace {

constexpr int width = 320;
constexpr int height = 180;

class StudioScopes : public StudioTest
{
protected:
    /// Messages that come before `holds` is true are dropped.
    static Json scopes(Browser& browser, const std::function<bool(const Json&)>& holds)
    {
        for (int i = 0; i < 50; ++i) {
            Json message = browser.message("scopes");
            if (holds(message)) {
                return message;
            }
        }
        ADD_FAILURE() << "no such scopes";
        return {};
    }

    static Json ofFrame(Browser& browser, int frame)
    {
        return scopes(browser, [&](const Json& message) { return message["frame"] == frame; });
    }

    /// R G B of each pixel of a picture.
    std::vector<std::array<int, 3>> pixels(const std::string& file) const
    {
        const std::vector<std::uint8_t> bytes = decoded(file, "rgb24");
        std::vector<std::array<int, 3>> result;
        for (std::size_t i = 0; i + 2 < bytes.size(); i += 3) {
            result.push_back({bytes[i], bytes[i + 1], bytes[i + 2]});
        }
        return result;
    }

    /// How often each code of red is in a picture.
    std::vector<unsigned> reds(const std::string& file) const
    {
        std::vector<unsigned> result(256);
        for (const std::array<int, 3>& pixel : pixels(file)) {
            ++result[static_cast<std::size_t>(pixel[0])];
        }
        return result;
    }

    static std::vector<unsigned> counts(const std::string& base64)
    {
        const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        std::vector<unsigned> bytes;
        unsigned bits = 0;
        int have = 0;
        for (const char letter : base64) {
            if (letter == '=') {
                break;
            }
            bits = bits << 6 | static_cast<unsigned>(letters.find(letter));
            have += 6;
            if (have >= 8) {
                have -= 8;
                bytes.push_back(bits >> have & 255);
            }
        }
        std::vector<unsigned> words;
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
            words.push_back(bytes[i] | bytes[i + 1] << 8);
        }
        return words;
    }

    /// Y Cb Cr of BT.709 in video range.
    static std::array<int, 3> signal(const std::array<int, 3>& rgb)
    {
        const double r = rgb[0] / 255.0;
        const double g = rgb[1] / 255.0;
        const double b = rgb[2] / 255.0;
        const double luma = 0.2126 * r + 0.7152 * g + 0.0722 * b;
        return {static_cast<int>(std::floor(16.5 + 219 * luma)),
                static_cast<int>(std::floor(128.5 + 224 * (b - luma) / 1.8556)),
                static_cast<int>(std::floor(128.5 + 224 * (r - luma) / 1.5748))};
    }
};

} // namespace

TEST_F(StudioScopes, count_the_codes_that_convert_writes)
{
    makeClip();
    start({"clip.mp4", "cc3.fx"});
    Browser browser = window();
    const Json link =
        browser.state([](const Json& state) { return !state["chain"].empty(); })["chain"][0]["id"];
    ASSERT_EQ(browser.ask({{"do", "set"}, {"link", link}, {"name", "gain"}, {"values", {1.2}}})["is"],
              "answer");
    browser.ask({{"do", "seek"}, {"frame", 7}});
    browser.ask({{"do", "scopes"},
                 {"kinds", {"waveform", "parade", "vectorscope", "histogram"}},
                 {"of", "after"},
                 {"rate", 30}});
    const Json found = ofFrame(browser, 7);
    ASSERT_EQ(qxhost({"convert", "clip.mp4", "want.png", "--effect", "cc3.fx", "--set", "gain=1.2", "--start",
                      "7", "--frames", "1"})
                  .exitCode,
              0);

    std::array<std::vector<unsigned>, 3> histogram;
    std::vector<unsigned> lumas(256);
    std::vector<unsigned> vectors(256 * 256);
    const unsigned columns = found["waveform"]["columns"];
    std::vector<unsigned> waveform(columns * 256);
    std::vector<unsigned> reds(columns * 256);
    for (auto& each : histogram) {
        each.resize(256);
    }
    const auto want = pixels("want.png");
    ASSERT_EQ(want.size(), std::size_t{width} * height);
    for (std::size_t i = 0; i < want.size(); ++i) {
        const auto [luma, cb, cr] = signal(want[i]);
        const std::size_t column = i % width * columns / width;
        for (std::size_t c = 0; c < 3; ++c) {
            ++histogram.at(c)[static_cast<std::size_t>(want[i].at(c))];
        }
        ++lumas[static_cast<std::size_t>(luma)];
        ++vectors[static_cast<std::size_t>(cr * 256 + cb)];
        ++waveform[static_cast<std::size_t>(luma) * columns + column];
        ++reds[static_cast<std::size_t>(want[i][0]) * columns + column];
    }
    EXPECT_EQ(found["bits"], 8);
    EXPECT_EQ(found["of"], "after");
    EXPECT_EQ(found["black"], 16);
    EXPECT_EQ(found["white"], 235);
    EXPECT_EQ(found["histogram"]["r"], Json(histogram[0]));
    EXPECT_EQ(found["histogram"]["g"], Json(histogram[1]));
    EXPECT_EQ(found["histogram"]["b"], Json(histogram[2]));
    EXPECT_EQ(found["histogram"]["luma"], Json(lumas));
    EXPECT_EQ(counts(found["waveform"]["luma"]), waveform);
    EXPECT_EQ(counts(found["parade"]["r"]), reds);
    EXPECT_EQ(counts(found["vectorscope"]["counts"]), vectors);
    EXPECT_FALSE(found.contains("chromaticity"));
    stop();
}

// While it plays they are counted less often, but no less exactly.
TEST_F(StudioScopes, count_all_pixels_of_the_frames_that_they_name_while_it_plays)
{
    makeClip();
    ASSERT_EQ(qxhost({"convert", "clip.mp4", "want_%02d.png", "--effect", "cc3.fx"}).exitCode, 0);
    const auto wanted = [&](int frame) {
        const std::string number = std::to_string(frame + 1);
        return Json(reds("want_" + std::string(2 - number.size(), '0') + number + ".png"));
    };
    start({"clip.mp4", "cc3.fx"});
    Browser browser = window();
    browser.ask({{"do", "scopes"}, {"kinds", {"histogram"}}, {"of", "after"}, {"rate", 60}});
    browser.ask({{"do", "play"}});
    std::set<int> seen;
    while (seen.size() < 8) {
        const Json found = browser.message("scopes");
        const int frame = found["frame"];
        seen.insert(frame);
        ASSERT_EQ(found["histogram"]["r"], wanted(frame)) << frame;
    }
    browser.ask({{"do", "pause"}});
    // Where it stops, the frame that is shown is counted, however short the time since the one before.
    browser.ask({{"do", "scopes"}, {"kinds", {"histogram"}}, {"of", "after"}, {"rate", 0.5}});
    browser.ask({{"do", "seek"}, {"frame", 3}});
    browser.ask({{"do", "seek"}, {"frame", 9}});
    EXPECT_EQ(ofFrame(browser, 9)["histogram"]["r"], wanted(9));
    stop();
}

} // namespace Qx::System
