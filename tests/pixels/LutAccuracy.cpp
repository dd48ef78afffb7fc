#include "tests/pixels/LutAccuracy.h"

#include "host/luts/LUTReader.h"
#include "platform/FileManager.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "platform/Settings.h"
#include "tests/host/services/LutSamples.h"

#include <OpenColorIO/OpenColorIO.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <ostream>
#include <random>
#include <unistd.h>
#include <vector>

namespace Qx::Pixels {

namespace {

using Codes = std::array<unsigned, 3>;
using Colours = std::vector<std::array<float, 3>>;

constexpr int width = 256;

struct Scale
{
    iGPUImage::eFormat format;
    unsigned most;
};

constexpr Scale tenBits{iGPUImage::eARGB10, 1023};
constexpr Scale sixteenBits{iGPUImage::eARGB16, 65535};

std::vector<Codes> codesFor(const Scale& scale)
{
    std::vector<Codes> codes;
    std::mt19937 random(11); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same colours are wanted every time
    const auto any = [&] { return static_cast<unsigned>(random()) & scale.most; };
    for (unsigned i = 0; i < 65536; ++i) {
        const unsigned grey = i & scale.most;
        codes.push_back({grey, grey, grey});
        codes.push_back({any(), any(), any()});
    }
    return codes;
}

Colours fractionsOf(const std::vector<Codes>& codes, unsigned most)
{
    Colours colours;
    for (const Codes& code : codes) {
        const auto part = [&](unsigned c) { return static_cast<float>(c / static_cast<double>(most)); };
        colours.push_back({part(code[0]), part(code[1]), part(code[2])});
    }
    return colours;
}

Colours judged(const std::filesystem::path& file, Colours colours)
{
    namespace OCIO = OCIO_NAMESPACE;
    const auto transform = OCIO::FileTransform::Create();
    transform->setSrc(file.c_str());
    transform->setInterpolation(OCIO::INTERP_BEST);
    transform->setCCCId("0");
    OCIO::PackedImageDesc image(colours.data(), static_cast<long>(colours.size()), 1, 3);
    OCIO::Config::CreateRaw()
        ->getProcessor(transform)
        ->getOptimizedCPUProcessor(OCIO::OPTIMIZATION_NONE)
        ->apply(image);
    return colours;
}

Codes codeAt(const std::byte* texels, const Scale& scale, std::size_t i)
{
    if (scale.format == iGPUImage::eARGB10) {
        std::uint32_t word = 0;
        std::memcpy(&word, texels + 4 * i, sizeof word);
        return {word >> 20U & 1023U, word >> 10U & 1023U, word & 1023U};
    }
    std::array<std::uint16_t, 4> words{};
    std::memcpy(words.data(), texels + 8 * i, sizeof words);
    return {words[1], words[2], words[3]};
}

void put(std::byte* texels, const Scale& scale, std::size_t i, const Codes& code)
{
    if (scale.format == iGPUImage::eARGB10) {
        const std::uint32_t word = 3U << 30U | code[0] << 20U | code[1] << 10U | code[2];
        std::memcpy(texels + 4 * i, &word, sizeof word);
    } else {
        const std::array<std::uint16_t, 4> words{65535, static_cast<std::uint16_t>(code[0]),
                                                 static_cast<std::uint16_t>(code[1]),
                                                 static_cast<std::uint16_t>(code[2])};
        std::memcpy(texels + 8 * i, words.data(), sizeof words);
    }
}

/// The codes through the LUT on the device; empty if it cannot be drawn.
std::vector<Codes> drawn(const Host::LUTSteps& steps, const Scale& scale, const std::vector<Codes>& codes)
{
    const Qx::Ptr<iHostImage3D> table = Host::singleTable(steps);
    const auto image = OS().gpu().upload3DImage(table ? table : Host::packed(steps));
    const auto effect = OS().gpu().compileEffectFile(joinPaths(getShadersDir(), L"LUT.fx"), {}).effect;
    const XY<int> size{width, static_cast<int>(codes.size()) / width};
    const Qx::Ptr<iHostImage> source = OS().gpu().createHostImage(size, scale.format);
    const Qx::Ptr<iGPUImage> target = OS().gpu().createGPUImage(size, scale.format);
    if (!image || !effect || !source || !target || !effect->setTechnique(Host::techniqueFor(steps))) {
        return {};
    }
    auto* texels = static_cast<std::byte*>(source->map(iHostImage::Write));
    for (std::size_t i = 0; texels != nullptr && i < codes.size(); ++i) {
        put(texels, scale, i, codes[i]);
    }
    const TableDomain domain = image->getDomain();
    effect->getParam("domainMin")->setValues(domain.min.data(), 3);
    effect->getParam("domainMax")->setValues(domain.max.data(), 3);
    Qx::Vector<iShaderEffect::Source> sources;
    sources.emplace_back("Input", OS().gpu().uploadImage(source, 0));
    sources.emplace_back("LUT", image);
    const Qx::Ptr<iHostImage> result =
        effect->render(target, sources) ? OS().gpu().downloadImage(target) : Qx::Ptr<iHostImage>();
    const auto* got = result ? static_cast<const std::byte*>(result->map(iHostImage::Read)) : nullptr;
    std::vector<Codes> out;
    for (std::size_t i = 0; got != nullptr && i < codes.size(); ++i) {
        out.push_back(codeAt(got, scale, i));
    }
    return out;
}

/// The largest distance of a drawn code from the exact result, in codes of the scale.
std::optional<double> worstOf(const std::filesystem::path& file, const Host::LUTSteps& steps,
                              const Scale& scale)
{
    const std::vector<Codes> codes = codesFor(scale);
    const std::vector<Codes> got = drawn(steps, scale, codes);
    const Colours wanted = judged(file, fractionsOf(codes, scale.most));
    if (got.size() != codes.size()) {
        return std::nullopt;
    }
    double worst = 0.0;
    for (std::size_t i = 0; i < codes.size(); ++i) {
        for (std::size_t c = 0; c < 3; ++c) {
            const double exact = std::clamp(static_cast<double>(wanted[i][c]), 0.0, 1.0) * scale.most;
            worst = std::max(worst, std::abs(got[i][c] - exact));
        }
    }
    return worst;
}

/// The largest difference of a file's single table, in codes of 10 bits.
double worstOfTable(const std::filesystem::path& file)
{
    const Qx::Ptr<iHostImage3D> table = Host::readLUTTable(file).table;
    const Colours colours = fractionsOf(codesFor(tenBits), tenBits.most);
    const Colours wanted = judged(file, colours);
    double worst = 0.0;
    for (std::size_t i = 0; table && i < colours.size(); ++i) {
        const auto got = Host::lookUp(*table, colours[i]);
        for (std::size_t c = 0; c < 3; ++c) {
            const double exact = std::clamp(static_cast<double>(wanted[i][c]), 0.0, 1.0);
            const double shown = std::clamp(static_cast<double>(got[c]), 0.0, 1.0);
            worst = std::max(worst, std::abs(shown - exact) * tenBits.most);
        }
    }
    return worst;
}

} // namespace

bool writeLuts(std::ostream& page)
{
    page << R"(
## LUTs of every kind

`LUT.fx` beside OpenColorIO's processor in 32-bit floats, without its optimisation. Every code of grey and 65536 colours
without a pattern are drawn at 10 and at 16 bits. The columns are the largest distance of a drawn code from OpenColorIO's
unrounded result, in codes of the picture: 0.5 is what rounding to codes costs. The last column is the same of the single
table that `CubeLUT::load` gives, in codes of 10 bits before rounding.

| file | holds | 10 bits | 16 bits | as a single table |
|---|---|---:|---:|---:|
)";
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("qx-lut-accuracy-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    bool whole = true;
    std::vector<Host::Test::LutSample> samples = Host::Test::stepSamples();
    for (const Host::Test::LutSample& sample : Host::Test::lutSamples()) {
        samples.push_back(sample);
    }
    for (const Host::Test::LutSample& sample : samples) {
        const std::filesystem::path file = folder / sample.name;
        std::ofstream(file) << sample.text;
        const Host::LUTReading reading = Host::readLUT(file);
        const auto ten = worstOf(file, reading.steps, tenBits);
        const auto sixteen = worstOf(file, reading.steps, sixteenBits);
        if (!ten || !sixteen) {
            fmt::print(stderr, "accuracy: {} could not be drawn {}\n", sample.name, reading.failure);
            whole = false;
            break;
        }
        page << fmt::format("| {} | {} | {:.4f} | {:.4f} | {:.4f} |\n", sample.name, reading.facts.contents,
                            *ten, *sixteen, worstOfTable(file));
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return whole;
}

} // namespace Qx::Pixels
