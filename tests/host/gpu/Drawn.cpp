#include "tests/host/gpu/Drawn.h"

#include "platform/Text.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace Qx::GpuTests {

namespace {

constexpr XY<int> size{150, 37};
constexpr XY<int> pairs{75, 37}; // of that picture's pixels, as 4:2:2 has them

const char* const conversions = R"(
technique Decode { pass { PixelShader = compile ps_3_0 decode422(BT709, VIDEO, VIDEO, CATMULL_ROM); } }
technique Encode { pass { PixelShader = compile ps_3_0 encode422(BT709, UNSCALED, VIDEO, LANCZOS); } }
)";

const char* const effects = R"(
texture Input;
sampler S = sampler_state { Texture = <Input>; };
float4 turned(int2 pos : VPOS) : COLORCODE { return tex2Dcodes(S, pos).gbar; }
technique Turned { pass { PixelShader = compile ps_3_0 turned(); } }
)";

class Drawer
{
public:
    explicit Drawer(GPUService& gpu) : gpu_(gpu) {}

    Qx::Ptr<iGPUImage> image(XY<int> extent, iGPUImage::eFormat format, std::uint32_t seed)
    {
        const Qx::Ptr<iHostImage> host = gpu_.createHostImage(extent, format);
        void* const memory = host ? host->map(iHostImage::Write) : nullptr;
        if (memory == nullptr) {
            return {};
        }
        const Bytes bytes = noise(bytesOf(extent, format), seed);
        std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(memory));
        return gpu_.uploadImage(host, 0);
    }

    Bytes bytes(const Qx::Ptr<iGPUImage>& drawn)
    {
        const Qx::Ptr<iHostImage> host = gpu_.downloadImage(drawn);
        const auto* memory = host ? static_cast<const std::uint8_t*>(host->map(iHostImage::Read)) : nullptr;
        return memory != nullptr ? Bytes(memory, memory + bytesOf(drawn->getSize(), drawn->getFormat()))
                                 : Bytes();
    }

    Bytes technique(const Qx::Ptr<iShaderEffect>& effect, const char* name, iGPUImage::eFormat format,
                    XY<int> from, XY<int> to)
    {
        const Qx::Ptr<iGPUImage> target = image(to, format, 3);
        if (!effect || !target || !effect->setTechnique(name)) {
            return {};
        }
        Qx::Vector<iShaderEffect::Source> sources;
        for (const std::string& texture : Host::texturesRead(*effect, name)) {
            sources.emplace_back(texture.c_str(), image(from, format, 1));
        }
        return effect->render(target, sources) ? bytes(target) : Bytes();
    }

    Bytes part(const Qx::Ptr<iShaderEffect>& effect, iGPUImage::eFormat format)
    {
        if (!effect || !effect->setTechnique("Turned")) {
            return {};
        }
        ImageDescriptionEx d;
        d.image = image(size, format, 1);
        d.source = {0.0F, 0.0F, static_cast<float>(size.x), static_cast<float>(size.y)};
        d.destination = {10.0F, 5.0F, 90.0F, 30.0F};
        d.effect = effect;
        d.blend = true;
        return primitive(image(size, format, 2), d);
    }

    template <class Description>
    Bytes primitive(const Qx::Ptr<iGPUImage>& target, const Description& description)
    {
        const Qx::Ptr<iGraphicPrimitivesRenderer> renderer =
            target ? target->getPrimitivesRenderer(1) : Qx::Ptr<iGraphicPrimitivesRenderer>();
        return renderer && renderer->draw(description, 1) ? bytes(target) : Bytes();
    }

    Bytes stretched(iGPUImage::eFormat format, RectangleOf<int> destination, bool blend, float weight)
    {
        ImageDescription d;
        d.image = image(size, format, 1);
        d.source = {0, 0, size.x, size.y};
        d.destination = destination;
        d.blend = blend;
        d.weight = weight;
        return primitive(image(size, format, 2), d);
    }

    Bytes gradient(iGPUImage::eFormat format)
    {
        RectDescription d;
        d.area = {3, 2, 100, 30};
        d.colour = {1.0F, 0.25F, 0.0F, 1.0F};
        d.colour2 = {0.0F, 0.5F, 1.0F, 0.25F};
        return primitive(image(size, format, 2), d);
    }

    Bytes text(iGPUImage::eFormat format)
    {
        const Qx::Ptr<iGPUImage> target = image(size, format, 2);
        const Qx::Ptr<iFont> font = gpu_.createFont(L"DejaVu Sans", 24, 0);
        return target && font && font->draw(target, L"Text 01:23", {2, 3}, {1.0F, 0.9F, 0.2F, 0.75F})
                   ? bytes(target)
                   : Bytes();
    }

private:
    GPUService& gpu_;
};

/// What the shipped conversions share, with two of their techniques.
std::string conversionText()
{
    std::ifstream file(QX_SHADERS_FOLDER "/ColourConvert.fx");
    std::string text{std::istreambuf_iterator<char>(file), {}};
    text.resize(text.find("DECODE(YCrCb422"));
    return text + conversions;
}

Qx::Ptr<iShaderEffect> effectOf(GPUService& gpu, const std::filesystem::path& file, const std::string& text)
{
    std::ofstream(file) << text;
    const EffectCompileResult result = gpu.compileEffectFile(fromUTF8(file.c_str()), {});
    EXPECT_TRUE(result.effect) << result.errors.c_str();
    return result.effect;
}

} // namespace

std::map<std::string, Bytes> drawnBy(GPUService& gpu, const std::filesystem::path& scratch)
{
    std::map<std::string, Bytes> drawn;
    Drawer drawer(gpu);
    std::filesystem::copy(QX_SHADERS_FOLDER "/Include", scratch / "Include",
                          std::filesystem::copy_options::recursive |
                              std::filesystem::copy_options::overwrite_existing);
    const Qx::Ptr<iShaderEffect> conversion = effectOf(gpu, scratch / "conversion.fx", conversionText());
    const Qx::Ptr<iShaderEffect> effect = effectOf(gpu, scratch / "effect.fx", effects);
    for (const iGPUImage::eFormat format : {iGPUImage::eARGB8, iGPUImage::eARGB16}) {
        const std::string bits = format == iGPUImage::eARGB8 ? " of 8 bits" : " of 16 bits";
        drawn["decoding" + bits] = drawer.technique(conversion, "Decode", format, pairs, size);
        drawn["encoding" + bits] = drawer.technique(conversion, "Encode", format, size, pairs);
        drawn["an effect" + bits] = drawer.technique(effect, "Turned", format, size, size);
        drawn["an effect over a part" + bits] = drawer.part(effect, format);
        drawn["an image by its alpha" + bits] =
            drawer.stretched(format, {3, 1, 3 + size.x, 1 + size.y}, true, 1.0F);
        drawn["an image by half" + bits] = drawer.stretched(format, {0, 0, size.x, size.y}, false, 0.5F);
        drawn["an image by a third of its alpha" + bits] =
            drawer.stretched(format, {-20, -3, size.x - 20, size.y - 3}, true, 1.0F / 3.0F);
        drawn["an enlarged image" + bits] = drawer.stretched(format, {-7, -5, 290, 90}, false, 1.0F);
        drawn["a reduced image" + bits] = drawer.stretched(format, {5, 5, 80, 20}, true, 0.75F);
        drawn["a gradient" + bits] = drawer.gradient(format);
        drawn["text" + bits] = drawer.text(format);
    }
    return drawn;
}

} // namespace Qx::GpuTests
