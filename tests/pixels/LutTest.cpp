#include "host/luts/LUTReader.h"
#include "lut/LUTManager.h"
#include "platform/FileManager.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "platform/Settings.h"
#include "platform/Text.h"
#include "tests/host/services/LutSamples.h"

#include <OpenColorIO/OpenColorIO.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <unistd.h>

namespace Qx::Pixels {
namespace {

using Codes = std::array<unsigned, 3>; // red, green, blue
using Function = std::function<std::array<double, 3>(double r, double g, double b)>;

/// A depth of GPU images.
struct Depth
{
    iGPUImage::eFormat format;
    unsigned maxCode;
    int tolerance; // codes beside the judge's
};

constexpr Depth depth8{iGPUImage::eARGB8, 255, 1};
constexpr Depth depth10{iGPUImage::eARGB10, 1023, 1};
constexpr Depth depth16{iGPUImage::eARGB16, 65535, 4};

/// Puts a texel's codes where the format has them, alpha at its largest.
void put(std::byte* texel, const Depth& depth, const Codes& codes)
{
    if (depth.format == iGPUImage::eARGB10) {
        const std::uint32_t word = 3U << 30U | codes[0] << 20U | codes[1] << 10U | codes[2];
        std::memcpy(texel, &word, sizeof word);
    } else if (depth.format == iGPUImage::eARGB8) {
        const std::array<std::uint8_t, 4> bytes{255, static_cast<std::uint8_t>(codes[0]),
                                                static_cast<std::uint8_t>(codes[1]),
                                                static_cast<std::uint8_t>(codes[2])};
        std::memcpy(texel, bytes.data(), 4);
    } else {
        const std::array<std::uint16_t, 4> words{65535, static_cast<std::uint16_t>(codes[0]),
                                                 static_cast<std::uint16_t>(codes[1]),
                                                 static_cast<std::uint16_t>(codes[2])};
        std::memcpy(texel, words.data(), 8);
    }
}

Codes get(const std::byte* texel, const Depth& depth)
{
    if (depth.format == iGPUImage::eARGB10) {
        std::uint32_t word = 0;
        std::memcpy(&word, texel, sizeof word);
        EXPECT_EQ(word >> 30U, 3U) << "alpha";
        return {word >> 20U & 1023U, word >> 10U & 1023U, word & 1023U};
    }
    if (depth.format == iGPUImage::eARGB8) {
        std::array<std::uint8_t, 4> bytes{};
        std::memcpy(bytes.data(), texel, 4);
        EXPECT_EQ(bytes[0], 255) << "alpha";
        return {bytes[1], bytes[2], bytes[3]};
    }
    std::array<std::uint16_t, 4> words{};
    std::memcpy(words.data(), texel, 8);
    EXPECT_EQ(words[0], 65535) << "alpha";
    return {words[1], words[2], words[3]};
}

class LutEffect : public testing::Test
{
protected:
    static constexpr int width = 256;

    void SetUp() override
    {
        const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
        folder_ = std::filesystem::temp_directory_path() / ("qx-lut-" + name + std::to_string(::getpid()));
        std::filesystem::create_directories(folder_);
        const EffectCompileResult compiled =
            OS().gpu().compileEffectFile(joinPaths(getShadersDir(), L"LUT.fx"), {});
        effect_ = compiled.effect;
        ASSERT_TRUE(effect_) << compiled.errors.c_str();
    }

    void TearDown() override { std::filesystem::remove_all(folder_); }

    /// A file with that text, read by the library's LUT manager.
    Qx::Ptr<iGPUImage3D> lut(const std::string& name, const std::string& text)
    {
        file_ = folder_ / name;
        std::ofstream(file_) << text;
        return LUTManager::instance().load(fromUTF8(file_.c_str()));
    }

    /// Codes, a multiple of 256 of them, through the effect.
    std::vector<Codes> drawn(const Qx::Ptr<iGPUImage3D>& table, const Depth& depth,
                             const std::vector<Codes>& codes, float amount = 1.0F,
                             const char* technique = "LUT")
    {
        const std::size_t bytes = depth.format == iGPUImage::eARGB16 ? 8 : 4;
        const XY<int> size{width, static_cast<int>(codes.size()) / width};
        const Qx::Ptr<iHostImage> source = OS().gpu().createHostImage(size, depth.format);
        auto* texels = static_cast<std::byte*>(source->map(iHostImage::Write));
        for (std::size_t i = 0; i < codes.size(); ++i) {
            put(texels + i * bytes, depth, codes[i]);
        }
        EXPECT_TRUE(effect_->setTechnique(technique));
        const TableDomain domain = table->getDomain();
        EXPECT_TRUE(effect_->getParam("domainMin")->setValues(domain.min.data(), 3));
        EXPECT_TRUE(effect_->getParam("domainMax")->setValues(domain.max.data(), 3));
        EXPECT_TRUE(effect_->setFloat("amount", amount));
        const Qx::Ptr<iGPUImage> target = OS().gpu().createGPUImage(size, depth.format);
        Qx::Vector<iShaderEffect::Source> sources;
        sources.emplace_back("Input", OS().gpu().uploadImage(source, 0));
        sources.emplace_back("LUT", table);
        EXPECT_TRUE(effect_->render(target, sources));
        const Qx::Ptr<iHostImage> result = OS().gpu().downloadImage(target);
        const auto* got = static_cast<const std::byte*>(result->map(iHostImage::Read));
        std::vector<Codes> out;
        for (std::size_t i = 0; i < codes.size(); ++i) {
            out.push_back(get(got + i * bytes, depth));
        }
        return out;
    }

    /// The same through OpenColorIO's processor for the last file, before rounding.
    std::vector<std::array<double, 3>> judged(const Depth& depth, const std::vector<Codes>& codes) const
    {
        namespace OCIO = OCIO_NAMESPACE;
        std::vector<float> colours;
        for (const Codes& code : codes) {
            for (const unsigned c : code) {
                colours.push_back(static_cast<float>(c / static_cast<double>(depth.maxCode)));
            }
        }
        const auto transform = OCIO::FileTransform::Create();
        transform->setSrc(file_.c_str());
        transform->setInterpolation(OCIO::INTERP_BEST);
        transform->setCCCId("0");
        const auto processor = OCIO::Config::CreateRaw()->getProcessor(transform);
        OCIO::PackedImageDesc image(colours.data(), static_cast<long>(codes.size()), 1, 3);
        processor->getOptimizedCPUProcessor(OCIO::OPTIMIZATION_NONE)->apply(image);
        std::vector<std::array<double, 3>> result(codes.size());
        for (std::size_t i = 0; i < colours.size(); ++i) {
            result[i / 3][i % 3] = std::clamp(static_cast<double>(colours[i]), 0.0, 1.0) * depth.maxCode;
        }
        return result;
    }

    /// Draws the codes and compares with the judge; `extra` codes more may be wrong.
    void expectAsJudged(const Qx::Ptr<iGPUImage3D>& table, const Depth& depth,
                        const std::vector<Codes>& codes, double extra = 0.0)
    {
        const std::vector<Codes> got = drawn(table, depth, codes);
        const auto wanted = judged(depth, codes);
        double worst = 0.0;
        std::size_t where = 0;
        for (std::size_t i = 0; i < codes.size(); ++i) {
            for (std::size_t c = 0; c < 3; ++c) {
                const double off = std::abs(got[i][c] - std::floor(wanted[i][c] + 0.5));
                where = off > worst ? i : where;
                worst = std::max(worst, off);
            }
        }
        EXPECT_LE(worst, depth.tolerance + extra)
            << file_ << ", " << depth.maxCode << ": codes " << codes[where][0] << ' ' << codes[where][1]
            << ' ' << codes[where][2] << " became " << got[where][0] << ' ' << got[where][1] << ' '
            << got[where][2] << " instead of " << wanted[where][0] << ' ' << wanted[where][1] << ' '
            << wanted[where][2];
        std::printf("%s: %d points, codes to %u: worst %g\n", file_.filename().c_str(), table->getSize(),
                    depth.maxCode, worst);
    }

    std::filesystem::path folder_;
    std::filesystem::path file_;
    Qx::Ptr<iShaderEffect> effect_;
};

/// A .cube file of a function on a domain.
std::string cube(int edge, double low, double high, const Function& function)
{
    std::string text = "LUT_3D_SIZE " + std::to_string(edge) + "\n";
    text +=
        "DOMAIN_MIN " + std::to_string(low) + " " + std::to_string(low) + " " + std::to_string(low) + "\n";
    text +=
        "DOMAIN_MAX " + std::to_string(high) + " " + std::to_string(high) + " " + std::to_string(high) + "\n";
    const auto at = [&](int i) { return low + (high - low) * i / (edge - 1); };
    for (int b = 0; b < edge; ++b) {
        for (int g = 0; g < edge; ++g) {
            for (int r = 0; r < edge; ++r) {
                const auto c = function(at(r), at(g), at(b));
                std::array<char, 100> line{};
                std::snprintf(line.data(), line.size(), "%.9f %.9f %.9f\n", c[0], c[1], c[2]);
                text += line.data();
            }
        }
    }
    return text;
}

std::array<double, 3> same(double r, double g, double b)
{
    return {r, g, b};
}

/// Bends, mixes and leaves 0 to 1 on both sides.
std::array<double, 3> bold(double r, double g, double b)
{
    return {1.2 * std::sqrt(r) - 0.1 * b, std::sin(1.3 * g + 0.4 * r), 0.5 + 0.6 * (b * b - r * g)};
}

/// Every code in every channel, the channels grey, against each other and scattered.
std::vector<Codes> everyCode(const Depth& depth)
{
    std::vector<Codes> codes;
    for (unsigned c = 0; c <= depth.maxCode; ++c) {
        codes.push_back({c, c, c});
        codes.push_back({c, depth.maxCode - c, c * 97 & depth.maxCode});
        codes.push_back({c * 97 & depth.maxCode, c, c * 59 & depth.maxCode});
        codes.push_back({depth.maxCode - c, c * 59 & depth.maxCode, c});
    }
    return codes;
}

std::vector<Codes> rampsAndScatter(const Depth& depth)
{
    std::vector<Codes> codes;
    std::mt19937 random(3);
    const auto any = [&] { return static_cast<unsigned>(random()) & depth.maxCode; };
    for (unsigned i = 0; i < 4096; ++i) {
        const unsigned c = i * depth.maxCode / 4095;
        codes.push_back({c, c, c});
        codes.push_back({c, 0, 0});
        codes.push_back({0, c, depth.maxCode});
        codes.push_back({depth.maxCode, depth.maxCode, c});
    }
    for (int i = 0; i < 65536; ++i) {
        codes.push_back({any(), any(), any()});
    }
    return codes;
}

/// As rampsAndScatter, but fewer.
std::vector<Codes> fewCodes(const Depth& depth)
{
    std::vector<Codes> codes;
    std::mt19937 random(4);
    const auto any = [&] { return static_cast<unsigned>(random()) & depth.maxCode; };
    for (unsigned i = 0; i < 2048; ++i) {
        const unsigned c = i * depth.maxCode / 2047;
        codes.push_back({c, c, c});
        codes.push_back({c, 0, depth.maxCode});
        codes.push_back({any(), any(), any()});
        codes.push_back({any(), any(), any()});
    }
    return codes;
}

TEST_F(LutEffect, AnIdentityChangesNoCode)
{
    for (const int edge : {2, 17, 33, 65}) {
        const auto table = lut("identity" + std::to_string(edge) + ".cube", cube(edge, 0, 1, same));
        ASSERT_TRUE(table);
        for (const Depth& depth : {depth8, depth10, depth16}) {
            const std::vector<Codes> codes = everyCode(depth);
            EXPECT_TRUE(drawn(table, depth, codes) == codes) << edge << " points, codes to " << depth.maxCode;
        }
    }
}

TEST_F(LutEffect, AgreesWithOpenColorIOOnRampsAndRandomColours)
{
    for (const int edge : {17, 33, 65}) {
        const auto table = lut("bold" + std::to_string(edge) + ".cube", cube(edge, 0, 1, bold));
        ASSERT_TRUE(table);
        EXPECT_EQ(table->getSize(), edge);
        for (const Depth& depth : {depth8, depth10, depth16}) {
            expectAsJudged(table, depth, rampsAndScatter(depth));
        }
    }
}

TEST_F(LutEffect, HonoursTheDomain)
{
    const auto wide = lut("wide.cube", cube(17, -0.25, 2.0, [](double r, double g, double b) {
                              return std::array<double, 3>{r * 0.5 + 0.2 * g, g * g, 1.0 - b};
                          }));
    const auto narrow = lut("narrow.cube", cube(9, 0.25, 0.5, [](double r, double g, double b) {
                                return std::array<double, 3>{4 * r - 1, 4 * g - 1, 4 * b - 1};
                            }));
    ASSERT_TRUE(wide && narrow);
    for (const Depth& depth : {depth8, depth10, depth16}) {
        file_ = folder_ / "wide.cube";
        expectAsJudged(wide, depth, rampsAndScatter(depth));
        file_ = folder_ / "narrow.cube";
        expectAsJudged(narrow, depth, rampsAndScatter(depth));
    }
}

TEST_F(LutEffect, TablesMadeFromCurvesAndMatricesAgreeToo)
{
    std::string curves = "LUT_1D_SIZE 65\n";
    for (int i = 0; i < 65; ++i) {
        const double x = i / 64.0;
        curves += std::to_string(0.9 * x * x) + " " + std::to_string(x) + " " +
                  std::to_string(x * (1.4 - 0.4 * x)) + "\n";
    }
    const auto curved = lut("curves.cube", curves);
    ASSERT_TRUE(curved);
    expectAsJudged(curved, depth16, rampsAndScatter(depth16));
    const auto matrix = lut("matrix.spimtx", "0.5 0.2 0.1 1000\n0 0.9 0.05 0\n0.1 0.1 0.8 0\n");
    ASSERT_TRUE(matrix);
    expectAsJudged(matrix, depth16, rampsAndScatter(depth16));
    std::string shaped = "LUT_1D_SIZE 17\nLUT_3D_SIZE 9\nLUT_1D_INPUT_RANGE 0 1\nLUT_3D_INPUT_RANGE 0 1\n";
    for (int i = 0; i < 17; ++i) {
        const std::string y = std::to_string(i / 16.0 * (0.5 + 0.5 * i / 16.0));
        shaped += y + " " + y + " " + y + "\n";
    }
    const std::string entries = cube(9, 0, 1, [](double r, double g, double b) {
        return std::array<double, 3>{0.7 * r + 0.2 * g * g, g, 1 - b * b};
    });
    const auto shaper =
        lut("shaper.cube", shaped + entries.substr(entries.find("DOMAIN_MAX"))
                                        .substr(std::strlen("DOMAIN_MAX 1.000000 1.000000 1.000000\n")));
    ASSERT_TRUE(shaper);
    const double stated = Host::readLUTTable(file_).error;
    EXPECT_LT(stated, 0.001);
    expectAsJudged(shaper, depth10, rampsAndScatter(depth10), stated * 1023);
    expectAsJudged(shaper, depth16, rampsAndScatter(depth16), stated * 65535);
}

TEST_F(LutEffect, StepsOfEveryKindAreWithinAQuarterOfATenBitCodeOfOpenColorIO)
{
    std::vector<Host::Test::LutSample> samples = Host::Test::stepSamples();
    for (const Host::Test::LutSample& sample : Host::Test::lutSamples()) {
        samples.push_back(sample);
    }
    for (const Host::Test::LutSample& sample : samples) {
        file_ = folder_ / sample.name;
        std::ofstream(file_) << sample.text;
        const Host::LUTReading reading = Host::readLUT(file_);
        ASSERT_FALSE(reading.steps.empty()) << reading.failure;
        const auto image = OS().gpu().upload3DImage(Host::packed(reading.steps));
        ASSERT_TRUE(image);
        for (const Depth& depth : {depth10, depth16}) {
            const std::vector<Codes> codes = fewCodes(depth);
            const auto wanted = judged(depth, codes);
            const std::string fastest = Host::techniqueFor(reading.steps);
            for (const std::string& technique :
                 {std::string("Steps"), fastest == "LUT" ? std::string("Steps") : fastest}) {
                const std::vector<Codes> got = drawn(image, depth, codes, 1.0F, technique.c_str());
                double worst = 0.0;
                for (std::size_t i = 0; i < codes.size(); ++i) {
                    for (std::size_t c = 0; c < 3; ++c) {
                        worst = std::max(worst, std::abs(got[i][c] - wanted[i][c]));
                    }
                }
                // Half a code is what rounding to codes costs.
                EXPECT_LE(worst, 0.5 + Host::largestLUTError * depth.maxCode)
                    << sample.name << ", codes to " << depth.maxCode << ", " << technique;
            }
        }
    }
}

TEST_F(LutEffect, StepsMixWithThePictureByTheirAmountToo)
{
    const auto halved = Host::packed({Host::LUTMatrix{{{{0.5, 0, 0, 0}, {0, 0.5, 0, 0}, {0, 0, 0.5, 0}}}}});
    const std::vector<Codes> codes = everyCode(depth8);
    const std::vector<Codes> mixed = drawn(OS().gpu().upload3DImage(halved), depth8, codes, 0.5F, "Steps");
    for (std::size_t i = 0; i < codes.size(); ++i) {
        ASSERT_LE(std::abs(mixed[i][0] - 0.75 * codes[i][0]), 0.5001) << codes[i][0];
    }
}

TEST_F(LutEffect, AmountGoesFromThePictureToTheLook)
{
    const auto negative = lut("negative.cube", cube(2, 0, 1, [](double r, double g, double b) {
                                  return std::array<double, 3>{1 - r, 1 - g, 1 - b};
                              }));
    ASSERT_TRUE(negative);
    const std::vector<Codes> codes = everyCode(depth8);
    EXPECT_TRUE(drawn(negative, depth8, codes, 0.0F) == codes) << "amount 0 is the picture";
    const std::vector<Codes> quarter = drawn(negative, depth8, codes, 0.25F);
    for (std::size_t i = 0; i < codes.size(); ++i) {
        const double wanted = 0.75 * codes[i][0] + 0.25 * (255.0 - codes[i][0]);
        ASSERT_LE(std::abs(quarter[i][0] - wanted), 0.5001) << codes[i][0];
    }
}

TEST_F(LutEffect, WhatCannotBeReadIsNoTable)
{
    EXPECT_FALSE(lut("broken.cube", "LUT_3D_SIZE 2\n0 0 nan\n"));
    EXPECT_FALSE(LUTManager::instance().load(L"/nowhere/at all.cube"));
}

} // namespace
} // namespace Qx::Pixels
