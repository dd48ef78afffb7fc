#include "tests/system/program/Program.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

extern "C" {
#include <framework/mlt.h>
}

namespace {

using namespace Qx::System;
using Sample = std::uint16_t;
using Bytes = std::vector<std::uint8_t>;

/// MLT in this process, with the module.
class Mlt : public testing::Environment
{
public:
    void SetUp() override
    {
        const std::string folder = QX_MLT_FOLDER;
        ::setenv("MLT_DATA", (folder + "/data").c_str(), 1);
        ::setenv("XDG_CACHE_HOME", QX_BUILD_FOLDER "/tests/cache", 1);
        ::setenv("XDG_STATE_HOME", QX_BUILD_FOLDER "/tests/state", 1);
        ::unsetenv("DISPLAY");
        mlt_factory_init((folder + "/few").c_str());
    }
    void TearDown() override { mlt_factory_close(); }
};

const testing::Environment* const mlt = testing::AddGlobalTestEnvironment(new Mlt);

/// What MLT's services say in its log.
std::string& logged()
{
    static std::string text;
    return text;
}

void takeLog(void* /*service*/, int level, const char* format, va_list arguments)
{
    if (level <= MLT_LOG_WARNING) {
        std::array<char, 4096> line{};
        std::vsnprintf(line.data(), line.size(), format, arguments);
        logged() += line.data();
    }
}

class MltService : public ProgramTest
{
protected:
    void SetUp() override
    {
        logged().clear();
        mlt_log_set_callback(takeLog);
        profile_.reset(mlt_profile_init(nullptr));
        profile_->colorspace = 709;
    }

    struct CloseProfile
    {
        void operator()(mlt_profile profile) const { mlt_profile_close(profile); }
    };
    struct CloseFilter
    {
        void operator()(mlt_filter filter) const { mlt_filter_close(filter); }
    };
    using Filter = std::unique_ptr<mlt_filter_s, CloseFilter>;

    Filter makeFilter(const char* name,
                      const std::vector<std::pair<const char*, std::string>>& properties) const
    {
        Filter filter(mlt_factory_filter(profile_.get(), name, nullptr));
        EXPECT_NE(filter, nullptr) << name;
        for (const auto& [key, value] : properties) {
            mlt_properties_set(MLT_FILTER_PROPERTIES(filter.get()), key, value.c_str());
        }
        return filter;
    }

    /// A frame that comes out of a filter.
    struct Result
    {
        Bytes bytes;
        mlt_image_format format = mlt_image_none;
        int colourSpace = 0;
        int fullRange = 0;
    };

    static Result filtered(const Filter& filter, Bytes image, mlt_image_format format, int width, int height,
                           int colourSpace = 709, int fullRange = 0)
    {
        mlt_frame frame = mlt_frame_init(MLT_FILTER_SERVICE(filter.get()));
        mlt_properties properties = MLT_FRAME_PROPERTIES(frame);
        mlt_frame_set_image(frame, image.data(), static_cast<int>(image.size()), nullptr);
        mlt_properties_set_int(properties, "format", format);
        mlt_properties_set_int(properties, "width", width);
        mlt_properties_set_int(properties, "height", height);
        mlt_properties_set_int(properties, "colorspace", colourSpace);
        mlt_properties_set_int(properties, "full_range", fullRange);
        mlt_filter_process(filter.get(), frame);
        Result result;
        std::uint8_t* data = nullptr;
        result.format = format;
        EXPECT_EQ(mlt_frame_get_image(frame, &data, &result.format, &width, &height, 1), 0);
        const int size = mlt_image_format_size(result.format, width, height, nullptr);
        const int known = std::min(size, static_cast<int>(image.size()));
        result.bytes.assign(data, data + known);
        result.colourSpace = mlt_properties_get_int(properties, "colorspace");
        result.fullRange = mlt_properties_get_int(properties, "full_range");
        mlt_frame_close(frame);
        return result;
    }

    std::string convertedRaw(const std::string& frames, const std::string& format, const std::string& size,
                             const std::vector<std::string>& options) const
    {
        write("in.raw", frames);
        std::vector<std::string> arguments{"convert", "in.raw",   "out.raw", "--force", "--raw",
                                           format,    "--format", format,    "--size",  size};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return read(at("out.raw"));
    }

    std::unique_ptr<mlt_profile_s, CloseProfile> profile_;
};

/// Codes that a frame of 4:2:2 may hold, different everywhere.
Bytes codesOf(std::size_t count)
{
    Bytes codes(count);
    std::uint32_t state = 12345;
    for (std::uint8_t& code : codes) {
        state = state * 1664525U + 1013904223U;
        code = static_cast<std::uint8_t>(16U + (state >> 24U) % 220U);
    }
    return codes;
}

constexpr int deepWidth = 1280;
constexpr int deepHeight = 96;

TEST_F(MltService, draws_planes_of_16_bits)
{
    const std::size_t pixels = std::size_t{deepWidth} * deepHeight;
    const Bytes codes = codesOf(pixels * 4);
    std::string packed(codes.size(), '\0');
    for (std::size_t pair = 0; pair < pixels / 2; ++pair) {
        const auto copy = [&](std::size_t to, std::size_t from) {
            std::memcpy(&packed[to * 2], &codes[from * 2], 2);
        };
        copy(4 * pair, 2 * pair);
        copy(4 * pair + 1, pixels + pair);
        copy(4 * pair + 2, 2 * pair + 1);
        copy(4 * pair + 3, pixels + pixels / 2 + pair);
    }
    const std::string expected =
        convertedRaw(packed, "y216", "1280x96", {"--effect", "cc3.fx", "--set", "gain=1.2"});
    const Filter filter = makeFilter("qx.effect", {{"effect", "cc3.fx"}, {"gain", "1.2"}});
    const Result result = filtered(filter, codes, mlt_image_yuv422p16, deepWidth, deepHeight);
    ASSERT_EQ(result.format, mlt_image_yuv422p16);
    ASSERT_EQ(result.bytes.size(), expected.size()) << logged();
    const auto* made = reinterpret_cast<const Sample*>(result.bytes.data());
    const auto* wanted = reinterpret_cast<const Sample*>(expected.data());
    for (std::size_t pair = 0; pair < pixels / 2; ++pair) {
        ASSERT_EQ(made[2 * pair], wanted[4 * pair]) << pair;
        ASSERT_EQ(made[2 * pair + 1], wanted[4 * pair + 2]) << pair;
        ASSERT_EQ(made[pixels + pair], wanted[4 * pair + 1]) << pair;
        ASSERT_EQ(made[pixels + pixels / 2 + pair], wanted[4 * pair + 3]) << pair;
    }
    EXPECT_EQ(logged(), "");
}

TEST_F(MltService, reads_full_range_and_says_that_the_result_is_of_video_range)
{
    const Bytes codes = codesOf(std::size_t{1280} * 8 * 2);
    const std::string expected = convertedRaw({codes.begin(), codes.end()}, "yuyv", "1280x8",
                                              {"--effect", "cc3.fx", "--set", "gain=0.8", "--range", "full"});
    const Filter filter = makeFilter("qx.effect", {{"effect", "cc3.fx"}, {"gain", "0.8"}});
    const Result result = filtered(filter, codes, mlt_image_yuv422, 1280, 8, 709, 1);
    EXPECT_EQ(std::string(result.bytes.begin(), result.bytes.end()), expected) << logged();
    EXPECT_EQ(result.fullRange, 0);
}

TEST_F(MltService, converts_to_another_matrix_and_says_so)
{
    const Filter filter = makeFilter("qx.convert", {{"matrix", "bt601"}});
    // Red of 75 %: Y, Cb, Cr of BT.709 and of BT.601.
    const Bytes red709{51, 109, 51, 212};
    const Bytes red601{65, 100, 65, 212};
    Bytes picture;
    for (int pair = 0; pair < 8; ++pair) {
        picture.insert(picture.end(), red709.begin(), red709.end());
    }
    const Result result = filtered(filter, picture, mlt_image_yuv422, 16, 1);
    EXPECT_EQ(Bytes(result.bytes.begin(), result.bytes.begin() + 4), red601) << logged();
    EXPECT_EQ(result.colourSpace, 601);
}

TEST_F(MltService, leaves_codes_as_they_are_when_there_is_nothing_to_convert)
{
    const Bytes codes = codesOf(std::size_t{64} * 8 * 2);
    EXPECT_EQ(filtered(makeFilter("qx.convert", {}), codes, mlt_image_yuv422, 64, 8).bytes, codes)
        << logged();
}

TEST_F(MltService, draws_an_effect_that_is_set_while_frames_are_asked_for)
{
    const Bytes codes = codesOf(std::size_t{64} * 8 * 4);
    const Filter filter = makeFilter("qx.effect", {{"effect", "missing.fx"}});
    EXPECT_EQ(filtered(filter, codes, mlt_image_rgba, 64, 8).bytes, codes);
    EXPECT_NE(logged().find("missing.fx"), std::string::npos) << logged();
    mlt_properties_set(MLT_FILTER_PROPERTIES(filter.get()), "effect", "cc3.fx");
    mlt_properties_set(MLT_FILTER_PROPERTIES(filter.get()), "saturation", "0");
    const Bytes grey = filtered(filter, codes, mlt_image_rgba, 64, 8).bytes;
    ASSERT_EQ(grey.size(), codes.size());
    for (std::size_t pixel = 0; pixel < grey.size(); pixel += 4) {
        ASSERT_EQ(grey[pixel], grey[pixel + 1]);
        ASSERT_EQ(grey[pixel], grey[pixel + 2]);
    }
}

TEST_F(MltService, follows_a_matrix_that_is_set_while_frames_are_asked_for)
{
    const Bytes codes = codesOf(std::size_t{64} * 8 * 2);
    const Filter filter = makeFilter("qx.convert", {{"matrix", "bt601"}});
    EXPECT_EQ(filtered(filter, codes, mlt_image_yuv422, 64, 8).colourSpace, 601);
    mlt_properties_set(MLT_FILTER_PROPERTIES(filter.get()), "matrix", "bt709");
    const Result result = filtered(filter, codes, mlt_image_yuv422, 64, 8);
    EXPECT_EQ(result.colourSpace, 709);
    EXPECT_EQ(result.bytes, codes) << logged();
}

/// MLT has no place for the half pair at the end of such rows.
TEST_F(MltService, passes_on_pairs_of_an_odd_width_that_nobody_can_convert)
{
    const Bytes codes = codesOf(std::size_t{65} * 8 * 2);
    const Filter filter = makeFilter("qx.effect", {{"effect", "cc3.fx"}, {"gain", "0.5"}});
    EXPECT_EQ(filtered(filter, codes, mlt_image_yuv422, 65, 8).bytes, codes);
    EXPECT_NE(logged().find("cannot be converted"), std::string::npos) << logged();
}

/// Two services of one effect have parameters of their own.
TEST_F(MltService, keeps_parameters_of_two_filters_apart)
{
    const Bytes codes = codesOf(std::size_t{64} * 8 * 4);
    const Filter strong = makeFilter("qx.effect", {{"effect", "cc3.fx"}, {"gain", "0.5"}});
    const Filter plain = makeFilter("qx.effect", {{"effect", "cc3.fx"}});
    const Bytes first = filtered(strong, codes, mlt_image_rgba, 64, 8).bytes;
    EXPECT_EQ(filtered(plain, codes, mlt_image_rgba, 64, 8).bytes, codes);
    EXPECT_EQ(filtered(strong, codes, mlt_image_rgba, 64, 8).bytes, first);
    EXPECT_NE(first, codes);
}

std::size_t residentKiB()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            return std::stoul(line.substr(6));
        }
    }
    return 0;
}

std::size_t openFiles()
{
    const fs::directory_iterator files("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

TEST_F(MltService, does_not_grow_over_a_thousand_frames)
{
    const Bytes codes = codesOf(std::size_t{320} * 180 * 2);
    const Filter good = makeFilter("qx.effect", {{"effect", "qx-glow.fx"}});
    const Filter broken = makeFilter("qx.effect", {{"effect", "missing.fx"}});
    const auto draw = [&](int frames) {
        for (int i = 0; i < frames; ++i) {
            static_cast<void>(filtered(good, codes, mlt_image_yuv422, 320, 180, 601));
            static_cast<void>(filtered(broken, codes, mlt_image_yuv422, 320, 180, 601));
        }
    };
    draw(200);
    const std::size_t memory = residentKiB();
    const std::size_t files = openFiles();
    draw(1000);
    EXPECT_LE(residentKiB(), memory + 4096);
    EXPECT_EQ(openFiles(), files);
}

} // namespace
