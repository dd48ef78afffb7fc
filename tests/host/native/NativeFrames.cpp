#include "tests/host/native/NativeFrames.h"

#include "host/effects/EffectCompiler.h"
#include "tests/host/native/GuardedBytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

namespace Qx::Host::Tests {
namespace {

constexpr std::uint32_t rowAlignment = 16; // of packed texels
constexpr std::byte untouched{0xA5};

float mostOf(std::uint32_t bits)
{
    return static_cast<float>((1U << bits) - 1U);
}

std::size_t pitchOf(std::size_t rowBytes)
{
    return (rowBytes + rowAlignment - 1) / rowAlignment * rowAlignment;
}

/// Rows as the device has them, each a whole number of packed texels.
std::vector<std::byte> aligned(const NativePicture& picture)
{
    const std::size_t rows = std::size_t{picture.height} * std::max(picture.depth, 1U);
    const std::size_t row = picture.rowBytes();
    std::vector<std::byte> all(pitchOf(row) * rows, untouched);
    for (std::size_t y = 0; y < rows; ++y) {
        std::memcpy(all.data() + y * pitchOf(row), picture.bytes.data() + y * row, row);
    }
    return all;
}

template <class T>
void put(std::vector<std::byte>& to, std::size_t at, const T& value)
{
    ASSERT_LE(at + sizeof value, to.size());
    std::memcpy(to.data() + at, &value, sizeof value);
}

using Uniforms = std::vector<std::byte>;

void fillParameter(Uniforms& uniforms, const CompiledEffect::Parameter& parameter, const NativeDraw& draw)
{
    using Semantic = CompiledEffect::Semantic;
    std::copy(parameter.defaultValue.begin(), parameter.defaultValue.end(),
              uniforms.begin() + parameter.offset);
    const auto texture =
        std::find_if(draw.effect.textures.begin(), draw.effect.textures.end(),
                     [&](const CompiledEffect::Texture& t) { return t.name == parameter.semanticTexture; });
    const bool isKnown = texture != draw.effect.textures.end();
    const NativePicture none;
    const NativePicture& picture =
        isKnown ? draw.pictures[static_cast<std::size_t>(texture - draw.effect.textures.begin())] : none;
    const auto size = [&](std::uint32_t width, std::uint32_t height, std::uint32_t depth) {
        const std::array<std::uint32_t, 3> all{width, height, depth};
        for (std::uint32_t c = 0; c < std::min<std::uint32_t>(parameter.columns, all.size()); ++c) {
            put(uniforms, parameter.offset + 4 * c, static_cast<float>(all.at(c)));
        }
    };
    switch (parameter.semantic) {
    case Semantic::TextureSize:
        size(picture.width, picture.height, picture.depth);
        break;
    case Semantic::TargetSize:
        size(draw.width, draw.height, 0);
        break;
    case Semantic::TextureMaxCode:
        put(uniforms, parameter.offset, !isKnown ? 0.0F : picture.depth > 0 ? 1.0F : mostOf(picture.bits));
        break;
    case Semantic::TargetMaxCode:
        put(uniforms, parameter.offset, mostOf(draw.shader.depths.target));
        break;
    case Semantic::None:
    case Semantic::Identity:
    case Semantic::ShaderNumber:
        break;
    }
    if (const auto setting = draw.settings.find(parameter.name); setting != draw.settings.end()) {
        put(uniforms, parameter.offset, setting->second);
    }
}

} // namespace

const Native::Library& nativeLibrary()
{
    std::string problem;
    const Native::Library* const library = Native::library(QX_NATIVE_FOLDER, problem);
    if (library == nullptr) {
        ADD_FAILURE() << problem;
        std::abort();
    }
    return *library;
}

std::vector<std::string> shippedFiles()
{
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(QX_SHADERS_FOLDER)) {
        if (file.path().extension() == ".fx") {
            names.push_back(file.path().stem().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::filesystem::path shippedFile(const std::string& name)
{
    return std::filesystem::path(QX_SHADERS_FOLDER) / (name + ".fx");
}

const CompiledEffect& shippedEffect(const std::string& name)
{
    static std::map<std::string, std::shared_ptr<const CompiledEffect>> known;
    std::shared_ptr<const CompiledEffect>& effect = known[name];
    if (effect == nullptr) {
        EffectCompilerOptions options;
        options.packed = true;
        options.singleTexels = true;
        const EffectCompilation compiled = compileEffect(shippedFile(name), options);
        EXPECT_NE(compiled.effect, nullptr) << compiled.messages;
        effect = compiled.effect != nullptr ? compiled.effect : std::make_shared<CompiledEffect>();
    }
    return *effect;
}

NativePicture NativePicture::noise(std::uint32_t width, std::uint32_t height, std::uint32_t bits,
                                   std::uint32_t seed)
{
    NativePicture picture{width, height, 0, bits};
    std::minstd_rand random(seed);
    for (std::size_t i = 0; i < std::size_t{4} * width * height; ++i) {
        const auto number = static_cast<std::uint32_t>(random());
        const std::uint32_t kind = number >> 8U & 7U;
        const std::uint32_t code = kind == 0 ? 0 : kind == 1 ? 0xFFFF : number >> 12U & 0xFFFFU;
        picture.bytes.push_back(static_cast<std::byte>(code & 0xFFU));
        if (bits == 16) {
            picture.bytes.push_back(static_cast<std::byte>(code >> 8U));
        }
    }
    return picture;
}

NativePicture NativePicture::table(std::uint32_t points)
{
    NativePicture table{points, points, points, 32};
    const std::size_t numbers = std::size_t{4} * points * points * points;
    table.bytes.resize(numbers * sizeof(float));
    for (std::size_t i = 0; i < numbers; ++i) {
        const float value = static_cast<float>(i % 251) / 250.0F;
        std::memcpy(table.bytes.data() + i * sizeof value, &value, sizeof value);
    }
    return table;
}

std::vector<Native::Texels> texelsOf(const CompiledEffect& effect, const CompiledEffect::PackedShader& shader)
{
    std::vector<Native::Texels> texels(effect.samplers.size());
    for (const std::uint32_t sampler : shader.samplers) {
        const bool isTable = effect.samplers[sampler].dimensions == 3;
        texels[sampler] =
            isTable ? Native::Texels{16, 32} : Native::Texels{shader.depths.source / 2, shader.depths.source};
    }
    return texels;
}

std::vector<std::byte> uniformsOf(const NativeDraw& draw)
{
    Uniforms uniforms(draw.effect.uniformBytes);
    for (const CompiledEffect::Parameter& parameter : draw.effect.parameters) {
        fillParameter(uniforms, parameter, draw);
    }
    const float most = mostOf(draw.shader.depths.target);
    CompiledEffect::SystemUniforms system;
    system.target = {most, 0.0F, most, 0.0F};
    system.area = {0.0F, 0.0F, 1.0F / static_cast<float>(draw.width), 1.0F / static_cast<float>(draw.height)};
    system.texCoords.fill({0.0F, 0.0F, 1.0F, 1.0F});
    put(uniforms, 0, system);
    for (std::size_t i = 0; i < draw.pictures.size(); ++i) {
        const NativePicture& picture = draw.pictures[i];
        CompiledEffect::TextureUniforms texture;
        const std::size_t rowPacked = pitchOf(picture.rowBytes()) / rowAlignment;
        texture.rowPacked = static_cast<float>(rowPacked);
        texture.maxCode = picture.depth > 0 ? static_cast<float>(picture.height) : mostOf(picture.bits);
        texture.size = {static_cast<float>(picture.width), static_cast<float>(picture.height)};
        put(uniforms, draw.effect.textureUniforms + i * sizeof texture, texture);
    }
    return uniforms;
}

namespace {

std::vector<std::byte> drawnFrom(GuardedBytes::At at, const Native::Code& code, const NativeDraw& draw)
{
    const GuardedBytes uniforms(uniformsOf(draw), at);
    std::vector<std::unique_ptr<const GuardedBytes>> buffers;
    Native::Frame frame;
    for (const std::uint32_t sampler : draw.shader.samplers) {
        const NativePicture& picture = draw.pictures.at(draw.effect.samplers[sampler].texture);
        buffers.push_back(std::make_unique<const GuardedBytes>(aligned(picture), at));
        frame.buffers[sampler] = {buffers.back()->data(), buffers.back()->size() / picture.texelBytes()};
    }
    const std::size_t row = std::size_t{draw.width} * draw.shader.depths.target / 2;
    const std::size_t pitch = pitchOf(row) + rowAlignment;
    std::vector<std::byte> target(pitch * (draw.height + std::size_t{1}), untouched);
    frame.uniforms = uniforms.data();
    frame.target = target.data();
    frame.pitch = pitch;
    frame.width = draw.width;
    code.draw(frame, 0, draw.height);
    std::vector<std::byte> drawn;
    bool isClean = true;
    for (std::size_t y = 0; y <= draw.height; ++y) {
        const auto begin = target.begin() + static_cast<std::ptrdiff_t>(y * pitch);
        const std::size_t taken = y < draw.height ? row : 0;
        const auto end = begin + static_cast<std::ptrdiff_t>(taken);
        drawn.insert(drawn.end(), begin, end);
        isClean = isClean && std::all_of(end, begin + static_cast<std::ptrdiff_t>(pitch),
                                         [](std::byte b) { return b == untouched; });
    }
    EXPECT_TRUE(isClean) << "something beside the picture is written, " << draw.width << " texels wide";
    return drawn;
}

} // namespace

std::vector<std::byte> drawnBy(const Native::Code& code, const NativeDraw& draw)
{
    std::vector<std::byte> drawn = drawnFrom(GuardedBytes::At::End, code, draw);
    EXPECT_TRUE(drawnFrom(GuardedBytes::At::Begin, code, draw) == drawn) << draw.width << " texels wide";
    return drawn;
}

} // namespace Qx::Host::Tests
