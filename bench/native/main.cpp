#include "bench/LookFile.h"
#include "host/Host.h"
#include "host/effects/EffectCompiler.h"
#include "host/native/NativeCode.h"
#include "host/native/Periods.h"
#include "lut/LUTManager.h"
#include "platform/FileManager.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "platform/Settings.h"
#include "platform/Text.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <time.h>
#include <vector>

// Shaders for packed texels as native code, beside the driver's drawing of the same frames.

namespace Qx::Bench {
namespace {

using Bytes = std::vector<std::byte>;
using Host::CompiledEffect;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t packedBytes = 16;

struct Work
{
    const char* name;
    const char* file;
    const char* technique;
    std::uint32_t sourceBits;
    std::uint32_t targetBits;
    int sourceWidth; ///< in texels
    int targetWidth;
    int height;
    std::vector<std::pair<const char*, float>> settings{};
};

/// What is compared, of pictures that are so many pixels wide.
std::vector<Work> worksFor(int width, int height)
{
    const int pairs = (width + 1) / 2;
    const int v210 = (width + 5) / 6 * 4;
    const int m101 = (width + 15) / 16 * 10;
    const auto wide = static_cast<float>(width);
    const auto words = static_cast<float>(m101);
    return {
        {"4:2:2 to RGB, 8 bits, Point", "ColourConvert.fx", "YCrCb422_Video_BT709_To_RGB_Unscaled_Point", 8,
         8, pairs, width, height},
        {"4:2:2 to RGB, 8 bits, Catmull-Rom", "ColourConvert.fx",
         "YCrCb422_Video_BT709_To_RGB_Unscaled_CatmullRom", 8, 8, pairs, width, height},
        {"4:2:2 to RGB, 8 bits, Mitchell", "ColourConvert.fx",
         "YCrCb422_Video_BT709_To_RGB_Unscaled_Mitchell", 8, 8, pairs, width, height},
        {"4:2:2 to RGB, 16 bits, Point", "ColourConvert.fx", "YCrCb422_Video_BT709_To_RGB_Unscaled_Point", 16,
         16, pairs, width, height},
        {"4:2:2 to RGB, 16 bits, Catmull-Rom", "ColourConvert.fx",
         "YCrCb422_Video_BT709_To_RGB_Unscaled_CatmullRom", 16, 16, pairs, width, height},
        {"4:2:2 to RGB, 16 bits, Mitchell", "ColourConvert.fx",
         "YCrCb422_Video_BT709_To_RGB_Unscaled_Mitchell", 16, 16, pairs, width, height},
        {"RGB to 4:2:2, 8 bits, Point", "ColourConvert.fx", "RGB_Unscaled_To_YCrCb422_Video_BT709_Point", 8,
         8, width, pairs, height},
        {"RGB to 4:2:2, 8 bits, Lanczos", "ColourConvert.fx", "RGB_Unscaled_To_YCrCb422_Video_BT709_Lanczos",
         8, 8, width, pairs, height},
        {"RGB to 4:2:2, 16 bits, Lanczos", "ColourConvert.fx", "RGB_Unscaled_To_YCrCb422_Video_BT709_Lanczos",
         16, 16, width, pairs, height},
        {"BGRA to ARGB, 8 bits", "null.fx", "ReverseComponentOrder", 8, 8, width, width, height},
        {"BGRA to ARGB, 16 bits", "null.fx", "ReverseComponentOrder", 16, 16, width, width, height},
        {"v210 to 4:2:2, 16 bits", "null.fx", "V210toYUYV", 8, 16, v210, pairs, height},
        {"4:2:2 to v210, 16 bits", "null.fx", "YUYVtoV210", 16, 8, pairs, v210, height, {{"_Width", wide}}},
        {"4:2:2 to M101, 16 bits",
         "ColourConvert.fx",
         "PackMatrox10Bit",
         16,
         8,
         pairs,
         m101,
         height,
         {{"pSourceImageTotalWidthInDWORDs", 0.5F * wide}, {"DestImageWidth", words}}},
        {"M101 to 4:2:2, 16 bits",
         "ColourConvert.fx",
         "UnpackMatrox10Bit",
         8,
         16,
         m101,
         pairs,
         height,
         {{"pSourceImageTotalWidthInDWORDs", words}}},
        {"LUT of 33 points, 8 bits", "LUT.fx", "LUT", 8, 8, width, width, height},
        {"LUT of 33 points, 16 bits", "LUT.fx", "LUT", 16, 16, width, width, height},
    };
}

struct Way
{
    const char* name;
    Host::Native::Options options;
};

constexpr Way ways[] = {
    {"8 lanes", {8, 1, false, false, 0}},          {"8 lanes, gathers", {8, 1, true, false, 0}},
    {"8 lanes, AVX-512", {8, 1, false, true, 0}},  {"16 lanes", {16, 1, false, true, 0}},
    {"16 lanes, gathers", {16, 1, true, true, 0}},
};

constexpr int points = 33;

iGPUImage::eFormat formatOf(std::uint32_t bits)
{
    return bits == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16;
}

Bytes scattered(std::size_t count)
{
    std::mt19937 random(1);
    Bytes bytes(count);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::byte>(random() & 255U); });
    return bytes;
}

/// The entries of the look as floats, red running fastest.
std::vector<float> entries()
{
    std::ifstream text(lookFile());
    std::string line;
    std::getline(text, line); // its size
    std::vector<float> all;
    float r = 0;
    float g = 0;
    float b = 0;
    while (text >> r >> g >> b) {
        all.insert(all.end(), {r, g, b, 1.0F});
    }
    return all;
}

/// A picture in memory of the same kind as that which the device draws from and into.
struct Picture
{
    Qx::Ptr<iHostImage> image;
    std::byte* bytes = nullptr;
    std::size_t pitch = 0;
    std::size_t row = 0; ///< bytes of it

    Picture() = default;
    /// So many further texels follow each row.
    Picture(int width, int height, std::uint32_t bits, int padding)
        : image(OS().gpu().createHostImage({width + padding, height}, formatOf(bits))),
          bytes(static_cast<std::byte*>(image->map(iHostImage::Write))),
          pitch(static_cast<std::size_t>(image->getPitch())),
          row(std::size_t(width) * bits / 2)
    {
    }
};

/// A shader's code, and what making it took.
struct NativeShader
{
    std::unique_ptr<Host::Native::Code> code;
    Host::Native::Cost cost;
    std::uint32_t period = 1;
};

const Host::Native::Library& nativeLibrary()
{
    std::string problem;
    const Host::Native::Library* const library = Host::Native::library(QX_NATIVE_FOLDER, problem);
    if (library == nullptr) {
        throw std::runtime_error(problem);
    }
    return *library;
}

/// Throws std::runtime_error if the shader is refused.
NativeShader nativeShaderOf(const Host::Native::Shader& shader, const Host::Native::Options& options,
                            const Host::Native::Frame& usual)
{
    constexpr std::uint32_t rows = 64; // as in the worker
    Host::Native::FastestCode fastest =
        Host::Native::makeFastest(nativeLibrary(), shader, options, usual, rows);
    Host::Native::Made& made = fastest.made;
    NativeShader native;
    native.period = fastest.period;
    if (made.problem.empty()) {
        native.code = nativeLibrary().load(made.object, made.problem);
    }
    if (native.code == nullptr) {
        throw std::runtime_error(made.problem);
    }
    native.cost = made.cost;
    return native;
}

struct Native
{
    std::shared_ptr<const NativeShader> shader;
    Bytes uniforms;
    Picture source;
    Picture target;
    Host::Native::Frame frame;

    void draw() { shader->code->draw(frame, 0, height); }

    std::uint32_t height = 0;
};

template <class T>
void put(Bytes& to, std::size_t at, const T& value)
{
    std::memcpy(to.data() + at, &value, sizeof value);
}

const CompiledEffect::PackedShader& shaderOf(const CompiledEffect& effect, const Work& work)
{
    for (const CompiledEffect::Technique& technique : effect.techniques) {
        if (technique.name != work.technique) {
            continue;
        }
        const auto& packed = technique.passes.front().packed;
        for (auto shader = packed.rbegin(); shader != packed.rend(); ++shader) { // with places first
            if (shader->depths.source == work.sourceBits && shader->depths.target == work.targetBits) {
                return *shader;
            }
        }
    }
    throw std::runtime_error("no shader");
}

float mostOf(std::uint32_t bits)
{
    return bits == 8 ? 255.0F : 65535.0F;
}

void fillUniforms(Native& native, const CompiledEffect& effect, const Work& work)
{
    const std::array<float, 2> sourceSize{static_cast<float>(work.sourceWidth),
                                          static_cast<float>(work.height)};
    const std::array<float, 2> targetSize{static_cast<float>(work.targetWidth),
                                          static_cast<float>(work.height)};
    native.uniforms.resize(effect.uniformBytes);
    CompiledEffect::SystemUniforms system;
    system.area = {0.0F, 0.0F, 1.0F / targetSize[0], 1.0F / targetSize[1]};
    system.texCoords.fill({0.0F, 0.0F, 1.0F, 1.0F});
    system.target[0] = mostOf(work.targetBits);
    put(native.uniforms, 0, system);
    using Semantic = CompiledEffect::Semantic;
    for (const CompiledEffect::Parameter& parameter : effect.parameters) {
        std::copy(parameter.defaultValue.begin(), parameter.defaultValue.end(),
                  native.uniforms.begin() + parameter.offset);
        const bool isTable = parameter.semanticTexture == "LUT";
        const std::array<float, 2> tableSize{points, points};
        switch (parameter.semantic) {
        case Semantic::TextureSize:
            put(native.uniforms, parameter.offset, isTable ? tableSize : sourceSize);
            break;
        case Semantic::TargetSize:
            put(native.uniforms, parameter.offset, targetSize);
            break;
        case Semantic::TextureMaxCode:
            put(native.uniforms, parameter.offset, mostOf(work.sourceBits));
            break;
        case Semantic::TargetMaxCode:
            put(native.uniforms, parameter.offset, mostOf(work.targetBits));
            break;
        default:
            break;
        }
        for (const auto& [name, value] : work.settings) {
            if (parameter.name == name) {
                put(native.uniforms, parameter.offset, value);
            }
        }
    }
    for (std::size_t i = 0; i < effect.textures.size(); ++i) {
        const bool isTable = effect.textures[i].name == "LUT";
        CompiledEffect::TextureUniforms texture;
        texture.rowPacked = isTable ? points : static_cast<float>(native.source.pitch) / packedBytes;
        texture.maxCode = isTable ? points : mostOf(work.sourceBits);
        texture.size = isTable ? std::array<float, 2>{points, points} : sourceSize;
        put(native.uniforms, effect.textureUniforms + i * sizeof texture, texture);
    }
}

/// Without a shader one is made.
Native nativeOf(const CompiledEffect& effect, const Work& work, const Host::Native::Options& options,
                std::shared_ptr<const NativeShader> shader = nullptr)
{
    const CompiledEffect::PackedShader& packed = shaderOf(effect, work);
    const std::uint32_t texelBytes = work.sourceBits / 2;
    Native native;
    const auto height = static_cast<std::size_t>(work.height);
    native.height = static_cast<std::uint32_t>(work.height);
    native.source = Picture(work.sourceWidth, work.height, work.sourceBits, -work.sourceWidth & 3);
    native.target = Picture(work.targetWidth, work.height, work.targetBits, -work.targetWidth & 3);
    const Bytes noise = scattered(native.source.pitch * height);
    std::copy(noise.begin(), noise.end(), native.source.bytes);
    static const std::vector<float> table = entries();
    fillUniforms(native, effect, work);
    std::vector<Host::Native::Texels> texels(effect.samplers.size());
    for (const std::uint32_t sampler : packed.samplers) {
        const bool isTable = effect.samplers[sampler].dimensions == 3;
        texels.at(sampler) = {isTable ? packedBytes : texelBytes, isTable ? 32 : work.sourceBits};
        const auto all = isTable
                             ? std::as_bytes(std::span(table))
                             : std::span<const std::byte>(native.source.bytes, native.source.pitch * height);
        native.frame.buffers[sampler] = {all.data(), all.size() / texels[sampler].bytes};
    }
    native.frame.uniforms = native.uniforms.data();
    native.frame.target = native.target.bytes;
    native.frame.pitch = native.target.pitch;
    native.frame.width = static_cast<std::uint32_t>(work.targetWidth);
    native.shader = shader ? std::move(shader)
                           : std::make_shared<const NativeShader>(
                                 nativeShaderOf({packed.spirv, texels, work.targetBits, native.uniforms,
                                                 static_cast<std::uint32_t>(work.targetWidth)},
                                                options, native.frame));
    return native;
}

/// By file.
std::map<std::string, Qx::Ptr<iShaderEffect>>& loadedEffects()
{
    static std::map<std::string, Qx::Ptr<iShaderEffect>> effects;
    return effects;
}

/// The driver's drawing.
struct Drawn
{
    Qx::Ptr<iShaderEffect> effect;
    Qx::Ptr<iGPUImage> source;
    Qx::Ptr<iGPUImage> target;
    Qx::Vector<iShaderEffect::Source> sources;

    Drawn(const Work& work, const Picture& from)
    {
        Qx::Ptr<iShaderEffect>& known = loadedEffects()[work.file];
        if (!known) {
            known = OS().gpu().loadEffectFile(joinPaths(getShadersDir(), fromUTF8(work.file)), {});
        }
        effect = known;
        if (!effect || !effect->setTechnique(work.technique)) {
            throw std::runtime_error("the effect is not there");
        }
        for (const auto& [name, value] : work.settings) {
            effect->setFloat(name, value);
        }
        const Picture picture(work.sourceWidth, work.height, work.sourceBits, 0);
        for (std::size_t y = 0; y < static_cast<std::size_t>(work.height); ++y) {
            std::memcpy(picture.bytes + y * picture.pitch, from.bytes + y * from.pitch, picture.row);
        }
        source = OS().gpu().uploadImage(picture.image, 0);
        target = OS().gpu().createGPUImage({work.targetWidth, work.height}, formatOf(work.targetBits));
        const bool isLook = std::string(work.file) == "LUT.fx";
        const bool isConversion = std::string(work.file) == "ColourConvert.fx";
        sources.emplace_back(isConversion ? "gSourceImage" : "Input", source);
        if (isLook) {
            sources.emplace_back("LUT", LUTManager::instance().load(fromUTF8(lookFile().c_str())));
        }
    }

    void draw(int frames)
    {
        for (int i = 0; i < frames; ++i) {
            if (!effect->render(target, sources)) {
                throw std::runtime_error("it cannot be drawn");
            }
        }
        OS().gpu().downloadImage(target)->map(iHostImage::Read);
    }

    /// How many bytes of the native picture differ.
    std::size_t differing(const Picture& native, int height)
    {
        draw(1);
        const Qx::Ptr<iHostImage> image = OS().gpu().downloadImage(target);
        const auto* const drawn = static_cast<const std::byte*>(image->map(iHostImage::Read));
        std::size_t different = 0;
        for (std::size_t y = 0; y < static_cast<std::size_t>(height); ++y) {
            for (std::size_t x = 0; x < native.row; ++x) {
                different += drawn[y * image->getPitch() + x] != native.bytes[y * native.pitch + x] ? 1U : 0U;
            }
        }
        return different;
    }
};

double processorSeconds()
{
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// Milliseconds of all processors, for a frame.
double timeOf(const std::function<void(int)>& draw)
{
    const double used = processorSeconds();
    int frames = 0;
    double seconds = 0;
    while (seconds < 0.12) {
        draw(4);
        frames += 4;
        seconds = processorSeconds() - used;
    }
    return seconds * 1000 / frames;
}

struct Quartiles
{
    double low;
    double middle;
    double high;
};

Quartiles quartilesOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return {values.at(values.size() / 4), values.at(values.size() / 2), values.at(values.size() * 3 / 4)};
}

struct Made
{
    const Way* way;
    Native native;
    std::vector<double> times{};
    std::vector<double> ratios{};
};

const Host::EffectCompilation& compiledFile(const char* file)
{
    static std::map<std::string, Host::EffectCompilation> known;
    const auto found = known.find(file);
    if (found != known.end()) {
        return found->second;
    }
    Host::EffectCompilerOptions options;
    options.packed = true;
    options.singleTexels = true;
    Host::EffectCompilation compiled =
        Host::compileEffect(std::string(QX_SHADERS_FOLDER "/") + file, options);
    if (!compiled.effect) {
        throw std::runtime_error(compiled.messages);
    }
    return known[file] = std::move(compiled);
}

/// Whether every way draws the driver's bytes.
bool compare(const Work& work, int rounds, const std::string& wanted, int level)
{
    const Host::EffectCompilation& compiled = compiledFile(work.file);
    const bool isLook = std::string(work.file) == "LUT.fx";
    std::vector<Made> all;
    for (const Way& way : ways) {
        if (wanted.empty() ? isLook || !way.options.gathers : wanted == way.name) {
            Host::Native::Options options = way.options;
            options.level = level;
            all.push_back({&way, nativeOf(*compiled.effect, work, options)});
        }
    }
    Drawn drawn(work, all.front().native.source);
    std::vector<double> theirs;
    for (int i = 0; i < rounds; ++i) {
        theirs.push_back(timeOf([&](int n) { drawn.draw(n); }));
        for (Made& made : all) {
            made.times.push_back(timeOf([&](int n) {
                for (int k = 0; k < n; ++k) {
                    made.native.draw();
                }
            }));
            made.ratios.push_back(theirs.back() / made.times.back());
        }
    }
    bool isEqual = true;
    for (Made& made : all) {
        const std::size_t different = drawn.differing(made.native.target, work.height);
        isEqual = isEqual && different == 0;
        const Host::Native::Cost& cost = made.native.shader->cost;
        const Quartiles ratio = quartilesOf(made.ratios);
        std::printf(
            "| %s | %s | %u | %.2f | %.2f | %.2f (%.2f to %.2f) | %zu | %.0f + %.0f + %.0f | %.1f |\n",
            work.name, made.way->name, made.native.shader->period, quartilesOf(theirs).middle,
            quartilesOf(made.times).middle, ratio.middle, ratio.low, ratio.high, different, cost.translation,
            cost.optimisation, cost.generation, static_cast<double>(cost.bytes) / 1024);
    }
    std::fflush(stdout);
    return isEqual;
}

constexpr int checkedWidths[] = {1, 2, 3, 7, 16, 33, 65, 130, 251, 1279, 1922};

/// Whether both draw the same bytes, of pictures of many widths, by code that was made for one.
bool checkWidths(const std::string& part)
{
    bool isGood = true;
    const std::vector<Work> usual = worksFor(1920, 1080);
    for (std::size_t w = 0; w < usual.size(); ++w) {
        if (std::string(usual[w].name).find(part) == std::string::npos) {
            continue;
        }
        const CompiledEffect& effect = *compiledFile(usual[w].file).effect;
        for (const Way& way : ways) {
            if (way.options.gathers && std::string(usual[w].file) != "LUT.fx") {
                continue;
            }
            const std::shared_ptr<const NativeShader> shader = nativeOf(effect, usual[w], way.options).shader;
            for (const int width : checkedWidths) {
                const Work work = worksFor(width, 3)[w];
                Native native = nativeOf(effect, work, way.options, shader);
                Drawn drawn(work, native.source);
                native.draw();
                const std::size_t different = drawn.differing(native.target, work.height);
                if (different != 0) {
                    std::printf("%s, %s, %d pixels wide: %zu bytes differ\n", work.name, way.name, width,
                                different);
                    isGood = false;
                }
            }
        }
        std::printf("%s: compared\n", usual[w].name);
        std::fflush(stdout);
    }
    return isGood;
}

} // namespace
} // namespace Qx::Bench

/// qx_bench_native [ROUNDS [PART OF A WORK'S NAME [NAME OF A WAY [LEVEL]]]]
int main(int argc, char** argv)
{
    setenv("QX_SHADERS_DIR", QX_SHADERS_FOLDER, 0);
    const char* const arguments[] = {"qx_bench_native", "-transcode"}; // no background compilation
    Qx::Host::StartOptions options;
    options.argc = 2;
    options.argv = arguments;
    Qx::Host::start(options);
    int result = 0;
    if (argc > 1 && std::string(argv[1]) == "check") {
        try {
            result = Qx::Bench::checkWidths(argc > 2 ? argv[2] : "") ? 0 : 1;
        } catch (const std::exception& problem) {
            std::fprintf(stderr, "%s\n", problem.what());
            result = 1;
        }
        Qx::Bench::loadedEffects().clear();
        Qx::Host::stop();
        return result;
    }
    std::printf("| work | way | texels a lane | driver, ms | native, ms | ratio | bytes that differ | "
                "translated, optimised, "
                "generated in ms | KiB |\n|---|---|---:|---:|---:|---:|---:|---:|---:|\n");
    for (const Qx::Bench::Work& work : Qx::Bench::worksFor(1920, 1080)) {
        if (argc > 2 && std::string(work.name).find(argv[2]) == std::string::npos) {
            continue;
        }
        try {
            const bool isEqual =
                Qx::Bench::compare(work, argc > 1 ? std::atoi(argv[1]) : 7, argc > 3 ? argv[3] : "",
                                   argc > 4 ? std::atoi(argv[4]) : 0);
            result = isEqual ? result : 1;
        } catch (const std::exception& problem) {
            std::fprintf(stderr, "%s: %s\n", work.name, problem.what());
            result = 1;
        }
    }
    Qx::Bench::loadedEffects().clear();
    Qx::Host::stop();
    return result;
}
