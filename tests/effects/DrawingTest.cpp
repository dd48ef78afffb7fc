#include "tests/effects/FxTest.h"

#include "host/gpu/GPUService.h"
#include "platform/Text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <stdexcept>

// The sections of the text files that need a device: images, draws and the expected texels.

namespace Qx::Host::Tests {
namespace {

using Texel = std::array<double, 4>; ///< r, g, b, a from 0 to 1

constexpr double largestCode = 65535.0;
constexpr iGPUImage::eFormat format = iGPUImage::eARGB16;

/// A component's place in a texel's memory, which is a, r, g, b.
std::size_t placeOf(std::size_t component)
{
    return (component + 1) % 4;
}

[[noreturn]] void refuse(const FxTest::Section& section, const std::string& what)
{
    throw std::runtime_error("line " + std::to_string(section.line) + ": " + what);
}

/// "8x4".
XY<int> sizeIn(const FxTest::Section& section, const std::string& text)
{
    XY<int> size{0, 0};
    if (std::sscanf(text.c_str(), "%dx%d", &size.x, &size.y) != 2 || size.x < 1 || size.y < 1) {
        refuse(section, "a size is WIDTHxHEIGHT, not " + text);
    }
    return size;
}

bool isComment(const std::string& line)
{
    return line.empty() || line.front() == '#';
}

/// A line is a row of texels "R G B A", separated by ';'.
Qx::Ptr<iGPUImage> uploaded(GPUService& gpu, const FxTest::Section& section, XY<int> size)
{
    const Qx::Ptr<iHostImage> host = gpu.createHostImage(size, format);
    auto* row = static_cast<std::byte*>(host->map(iHostImage::Write));
    int rows = 0;
    for (const std::string& line : section.lines) {
        if (isComment(line)) {
            continue;
        }
        std::string numbers = line;
        std::replace(numbers.begin(), numbers.end(), ';', ' ');
        std::istringstream stream(numbers);
        for (std::size_t i = 0; i < static_cast<std::size_t>(size.x) * 4; ++i) {
            double value = 0;
            if (!(stream >> value) || rows == size.y) {
                refuse(section, "the texels do not fill the image: " + line);
            }
            const auto code = static_cast<std::uint16_t>(std::lround(value * largestCode));
            std::memcpy(row + (i / 4 * 4 + placeOf(i % 4)) * sizeof code, &code, sizeof code);
        }
        row += host->getPitch();
        ++rows;
    }
    return rows == size.y ? gpu.uploadImage(host, 0) : Qx::Ptr<iGPUImage>();
}

/// The state of a test.
class Drawing
{
public:
    Drawing(GPUService& gpu, const std::filesystem::path& effect, const EffectCompilerOptions& options)
        : gpu_(gpu)
    {
        iGPUService::Definitions definitions;
        for (const auto& [name, value] : options.definitions) {
            definitions.push_back(
                {LightweightString<char>(name.c_str()), LightweightString<char>(value.c_str())});
        }
        const LightweightString<char> path(std::string_view(effect.native()));
        const EffectCompileResult result = gpu_.compileEffectFile(fromUTF8(path), definitions);
        effect_ = result.effect;
        EXPECT_TRUE(effect_) << result.errors.c_str();
    }

    bool isReady() const { return static_cast<bool>(effect_); }

    void addImage(const FxTest::Section& section)
    {
        std::istringstream words(section.argument);
        std::string name;
        std::string size;
        words >> name >> size;
        const Qx::Ptr<iGPUImage> image = uploaded(gpu_, section, sizeIn(section, size));
        ASSERT_TRUE(image) << "line " << section.line << ": the texels do not fill the image";
        sources_.push_back(iShaderEffect::Source(LightweightString<char>(name.c_str()), image));
    }

    /// Lines "NAME VALUE...".
    void set(const FxTest::Section& section)
    {
        for (const std::string& line : section.lines) {
            std::istringstream words(line);
            std::string name;
            words >> name;
            std::vector<float> values;
            for (float value = 0; words >> value;) {
                values.push_back(value);
            }
            const Qx::Ptr<iShaderParam> param = effect_->getParam(name.c_str());
            ASSERT_TRUE(param) << "there is no parameter " << name;
            ASSERT_TRUE(param->setValues(values.data(), values.size())) << line;
        }
    }

    void draw(const FxTest::Section& section)
    {
        std::istringstream words(section.argument);
        std::string technique;
        std::string size;
        words >> technique >> size;
        size_ = sizeIn(section, size);
        ASSERT_TRUE(effect_->setTechnique(LightweightString<char>(technique.c_str()))) << technique;
        const Qx::Ptr<iGPUImage> target = gpu_.createGPUImage(size_, format);
        ASSERT_TRUE(target);
        ASSERT_TRUE(effect_->render(target, sources_)) << "technique " << technique << " cannot be drawn";
        drawn_ = gpu_.downloadImage(target);
        ASSERT_TRUE(drawn_);
    }

    /// Lines "X Y: R G B A +- TOLERANCE".
    void probe(const FxTest::Section& section) const
    {
        if (!drawn_) {
            refuse(section, "[probe] stands before any [draw]");
        }
        for (const std::string& line : section.lines) {
            if (!isComment(line)) {
                probe(section, line);
            }
        }
    }

private:
    void probe(const FxTest::Section& section, const std::string& line) const
    {
        int x = 0;
        int y = 0;
        Texel wanted{};
        double tolerance = 0;
        constexpr int numbers = 7;
        if (std::sscanf(line.c_str(), "%d %d: %lf %lf %lf %lf +- %lf", &x, &y, wanted.data(), &wanted[1],
                        &wanted[2], &wanted[3], &tolerance) != numbers ||
            x < 0 || y < 0 || x >= size_.x || y >= size_.y) {
            refuse(section, "a probe is X Y: R G B A +- TOLERANCE inside the target, not " + line);
        }
        const Texel got = texelAt(x, y);
        for (std::size_t i = 0; i < got.size(); ++i) {
            EXPECT_NEAR(got.at(i), wanted.at(i), tolerance)
                << "component "
                << "rgba"[i] << " after line " << section.line << ": " << line << "\nhas " << got[0] << ' '
                << got[1] << ' ' << got[2] << ' ' << got[3];
        }
    }

    Texel texelAt(int x, int y) const
    {
        const auto* const bytes = static_cast<const std::byte*>(drawn_->map(iHostImage::Read));
        Texel texel{};
        for (std::size_t i = 0; i < texel.size(); ++i) {
            std::uint16_t code = 0;
            const std::size_t index = static_cast<std::size_t>(x) * 4 + placeOf(i);
            std::memcpy(&code, bytes + static_cast<std::size_t>(y) * drawn_->getPitch() + index * sizeof code,
                        sizeof code);
            texel.at(i) = code / largestCode;
        }
        return texel;
    }

    GPUService& gpu_;
    Qx::Ptr<iShaderEffect> effect_;
    Qx::Vector<iShaderEffect::Source> sources_;
    Qx::Ptr<iHostImage> drawn_;
    XY<int> size_{0, 0};
};

class FxTestDrawings : public testing::TestWithParam<FxTest>
{
protected:
    void hold(GPUService& gpu);
};

void FxTestDrawings::hold(GPUService& gpu)
{
    const TemporaryDirectory directory;
    Drawing drawing(gpu, writeFiles(GetParam(), directory.path()), optionsOf(GetParam()));
    ASSERT_TRUE(drawing.isReady());
    bool probed = false;
    for (const FxTest::Section& section : GetParam().sections) {
        if (section.kind == "image") {
            drawing.addImage(section);
        } else if (section.kind == "set") {
            drawing.set(section);
        } else if (section.kind == "draw") {
            drawing.draw(section);
        } else if (section.kind == "probe") {
            drawing.probe(section);
            probed = true;
        }
        if (HasFatalFailure()) {
            return;
        }
    }
    EXPECT_TRUE(probed) << "a test that draws has a [probe]";
}

TEST_P(FxTestDrawings, hold)
{
    hold(gpuService());
}

TEST_P(FxTestDrawings, hold_texel_by_texel)
{
    static GPUService plain([] {
        GPUOptions options;
        options.packedTexels = false;
        return options;
    }());
    hold(plain);
}

std::vector<FxTest> drawings()
{
    std::vector<FxTest> tests = readAllFxTests();
    tests.erase(std::remove_if(tests.begin(), tests.end(),
                               [](const FxTest& test) { return test.find("draw") == nullptr; }),
                tests.end());
    return tests;
}

INSTANTIATE_TEST_SUITE_P(Files, FxTestDrawings, testing::ValuesIn(drawings()),
                         [](const testing::TestParamInfo<FxTest>& test) { return test.param.name; });

} // namespace
} // namespace Qx::Host::Tests
