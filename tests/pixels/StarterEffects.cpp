#include "tests/pixels/StarterEffects.h"

#include "QxFxResources/Manager.h"
#include "host/effects/CompiledEffect.h"
#include "host/gpu/GPUService.h"
#include "platform/Text.h"
#include "tests/pixels/Gpu.h"
#include "tests/pixels/Judge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace Qx::Pixels {

namespace {

using Parameter = Host::CompiledEffect::Parameter;

std::vector<float> defaultOf(const Parameter& parameter)
{
    const std::size_t elements = std::max(parameter.elements, 1U);
    const std::size_t stride = parameter.bytes / elements;
    std::vector<float> values;
    for (std::size_t element = 0; element < elements; ++element) {
        for (std::size_t component = 0; component < parameter.columns; ++component) {
            const std::byte* at = parameter.defaultValue.data() + element * stride + component * 4;
            float number = 0;
            std::int32_t whole = 0;
            std::memcpy(&number, at, sizeof number);
            std::memcpy(&whole, at, sizeof whole);
            values.push_back(parameter.type == Host::CompiledEffect::ScalarType::Float
                                 ? number
                                 : static_cast<float>(whole));
        }
    }
    return values;
}

/// An effect keeps what an earlier test set, so that every parameter is set.
bool setAll(iShaderEffect& effect, const Settings& settings)
{
    Settings unknown = settings;
    for (const Parameter& parameter : Host::compiledEffect(effect)->parameters) {
        if (parameter.semantic != Host::CompiledEffect::Semantic::None)
            continue;
        const auto given = settings.find(parameter.name);
        const std::vector<float> values = given != settings.end() ? given->second : defaultOf(parameter);
        const Qx::Ptr<iShaderParam> param = effect.getParam(parameter.name.c_str());
        if (!(values.size() == 1 ? param->setValue(values.front())
                                 : param->setValues(values.data(), values.size())))
            return false;
        unknown.erase(parameter.name);
    }
    return unknown.empty();
}

} // namespace

Picture through(const std::string& name, const std::string& technique, const Settings& settings,
                const Picture& source, const OtherPictures& others)
{
    Picture result = source;
    const auto fail = [&](const char* why) {
        ADD_FAILURE() << "qx-" << name << ".fx, " << technique << ": " << why;
        result.codes.assign(result.codes.size(), 0);
        return result;
    };
    const auto effect =
        FxResources::Manager::instance().findEffect(fromUTF8(("qx-" + name + ".fx").c_str())).getShader();
    if (!effect || !effect->setTechnique(technique.c_str()))
        return fail("there is no such effect or technique");
    if (!setAll(*effect, settings))
        return fail("a setting does not suit");
    const Image::Surface from = upload(source);
    std::vector<Image::Surface> uploaded;
    Qx::Vector<iShaderEffect::Source> sources;
    sources.emplace_back("Input", from.getGPUSurface());
    for (const auto& [texture, picture] : others) {
        uploaded.push_back(upload(picture));
        sources.emplace_back(texture.c_str(), uploaded.back().getGPUSurface());
    }
    const Image::Surface to =
        from.createDestARGBGPUSurface(source.depth == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16);
    if (!effect->render(to.getGPUSurface(), sources))
        return fail("it is not drawn");
    const std::optional<Picture> got = download(to, Layout::Rgb, name + "." + technique);
    return got ? *got : fail("it cannot be read back");
}

Colour colourAt(const Picture& picture, int x, int y)
{
    Colour colour{};
    for (int i = 0; i < 4; ++i)
        colour[static_cast<std::size_t>(i)] = picture.at(x, y, i) / static_cast<double>(picture.maxCode());
    return colour;
}

Colour clampedColourAt(const Picture& picture, int x, int y)
{
    return colourAt(picture, std::clamp(x, 0, picture.width - 1), std::clamp(y, 0, picture.height - 1));
}

void expectNear(const Picture& got, const Reference& exact, int tolerance)
{
    std::vector<double> values;
    for (int y = 0; y < got.height; ++y) {
        for (int x = 0; x < got.width; ++x) {
            for (const double value : exact(x, y))
                values.push_back(std::clamp(value, 0.0, 1.0) * got.maxCode());
        }
    }
    const Verdict verdict = judge(got, values);
    EXPECT_LE(verdict.errors.worst, tolerance) << verdict.worstSample << "\n"
                                               << leaveBehind("starter", got, rounded(got, values));
}

void expectSame(const Picture& got, const Picture& wanted)
{
    std::string where;
    EXPECT_EQ(farthestApart(got, wanted, 0, where), 0) << where << "\n" << leaveBehind("same", got, wanted);
}

Picture drawn(int width, int height, int depth, const Reference& colour)
{
    Picture picture = Picture::blank("drawn", Layout::Rgb, width, height, depth);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const Colour c = colour(x, y);
            for (int i = 0; i < 4; ++i)
                picture.at(x, y, i) = static_cast<std::uint16_t>(
                    std::lround(std::clamp(c[static_cast<std::size_t>(i)], 0.0, 1.0) * picture.maxCode()));
        }
    }
    return picture;
}

Picture noise(int width, int height, int depth)
{
    Picture picture = Picture::blank("noise", Layout::Rgb, width, height, depth);
    std::mt19937 random(static_cast<std::uint32_t>(width * 7919 + height));
    for (std::uint16_t& code : picture.codes)
        code = static_cast<std::uint16_t>(random() & picture.maxCode());
    return picture;
}

Picture opaqueNoise(int width, int height, int depth)
{
    Picture picture = noise(width, height, depth);
    for (std::size_t i = 3; i < picture.codes.size(); i += 4)
        picture.codes[i] = picture.maxCode();
    return picture;
}

Colour mixed(const Colour& first, const Colour& second, double share)
{
    const double alpha = first[3] * (1 - share) + second[3] * share;
    Colour colour{0, 0, 0, alpha};
    for (std::size_t i = 0; i < 3 && alpha > 0; ++i)
        colour[i] = (first[i] * first[3] * (1 - share) + second[i] * second[3] * share) / alpha;
    return colour;
}

double lumaOf(const Colour& colour)
{
    return 0.2126 * colour[0] + 0.7152 * colour[1] + 0.0722 * colour[2];
}

} // namespace Qx::Pixels
