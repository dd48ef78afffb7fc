#include "tests/host/gpu/GpuFixture.h"

namespace Qx::GpuTests {

namespace {

class EffectTest : public GpuTest
{
protected:
    static Qx::Vector<iShaderEffect::Source>
    sources(std::initializer_list<std::pair<const char*, Qx::Ptr<iGPUImage>>> list)
    {
        Qx::Vector<iShaderEffect::Source> result;
        for (const auto& [name, image] : list) {
            result.emplace_back(name, image);
        }
        return result;
    }
};

const char* const copyEffect = R"(
texture Input;
sampler InputSampler = sampler_state { Texture = <Input>; MinFilter = Point; MagFilter = Point; };
float4 copy(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(InputSampler, uv); }
technique Copy { pass P0 { PixelShader = compile ps_3_0 copy(); } }
)";

} // namespace

TEST_F(EffectTest, AnIdentityEffectCopiesEveryCodeOfEveryFormat)
{
    const Qx::Ptr<iShaderEffect> copy = effect(copyEffect);
    ASSERT_TRUE(copy);
    for (const iGPUImage::eFormat format : {iGPUImage::eARGB8, iGPUImage::eARGB16, iGPUImage::eARGB10}) {
        const XY<int> size{253, 131};
        const Bytes bytes = noise(bytesOf(size, format));
        const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, format);
        ASSERT_TRUE(copy->render(target, sources({{"Input", upload(size, format, bytes)}})));
        EXPECT_EQ(download(target), bytes) << "format " << format;
    }
}

} // namespace Qx::GpuTests
