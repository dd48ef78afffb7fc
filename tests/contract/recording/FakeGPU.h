#pragma once

#include "platform/BackgroundTasks.h"
#include "platform/Font.h"
#include "platform/GPUImage.h"
#include "platform/ShaderEffect.h"

#include <array>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// GPU objects without a GPU: they have names and record their use in the host's journal.
namespace Qx::Test {

class FakeGPUImage final : public iGPUImage
{
public:
    FakeGPUImage(std::string name, XY<int> size, eFormat format = eARGB8)
        : name_(std::move(name)), size_(size), format_(format)
    {
    }
    ~FakeGPUImage() override;

    const std::string& name() const { return name_; }

    XY<int> getSize() const override { return size_; }
    eFormat getFormat() const override { return format_; }
    unsigned getBitsPerTexel() const override { return format_ == eARGB16 ? 64 : 32; }
    Qx::Ptr<iGraphicPrimitivesRenderer> getPrimitivesRenderer(int layer) override;

private:
    std::string name_;
    XY<int> size_;
    eFormat format_;
};

/// An image whose memory is allocated on first use.
class FakeHostImage final : public iHostImage
{
public:
    FakeHostImage(XY<int> size, iGPUImage::eFormat format) : size_(size), format_(format) {}
    ~FakeHostImage() override;

    XY<int> getSize() const override { return size_; }
    iGPUImage::eFormat getFormat() const override { return format_; }
    std::size_t getPitch() const override;
    void* map(eAccess access) override;

private:
    XY<int> size_;
    iGPUImage::eFormat format_;
    std::vector<std::byte> bytes_;
};

/// A LUT's table, identified by its file.
class FakeHostImage3D final : public iHostImage3D
{
public:
    explicit FakeHostImage3D(std::string name) : name_(std::move(name)) {}

    const std::string& name() const { return name_; }
    int getSize() const override { return 2; }
    const float* getData() const override { return data_.data(); }
    float* getData() override { return data_.data(); }

private:
    std::string name_;
    std::array<float, 32> data_{};
};

class FakeGPUImage3D final : public iGPUImage3D
{
public:
    explicit FakeGPUImage3D(std::string name) : name_(std::move(name)) {}
    ~FakeGPUImage3D() override;

    const std::string& name() const { return name_; }
    int getSize() const override { return 2; }

private:
    std::string name_;
};

class FakeFont final : public iFont
{
public:
    explicit FakeFont(std::string name) : name_(std::move(name)) {}
    ~FakeFont() override;

    XY<int> measure(const LightweightString<wchar_t>&) override { return {}; }
    bool draw(Qx::Ptr<iGPUImage>, const LightweightString<wchar_t>&, XY<int>, const NormalisedRGB&,
              eAlpha) override
    {
        return false;
    }

private:
    std::string name_;
};

class FakeComputeContext final : public iGPUComputeContext
{
public:
    ~FakeComputeContext() override;
};

/// An effect with given techniques and float parameters that records its use.
class FakeEffect final : public iShaderEffect
{
public:
    struct Input
    {
        std::string name;
        const iGPUResource* resource = nullptr;
        std::array<float, 4> rectangle{};
    };

    /// One render, with the state at that time.
    struct Drawing
    {
        std::string technique;
        std::map<std::string, float> floats;
        const iGPUImage* target = nullptr;
        std::vector<Input> inputs;
    };

    explicit FakeEffect(std::string name) : name_(std::move(name)) {}
    ~FakeEffect() override;

    /// If not set, every technique exists.
    void haveTechniques(std::set<std::string> names) { techniques_ = std::move(names); }
    void haveParameters(std::set<std::string> names) { parameters_ = std::move(names); }

    const std::string& name() const { return name_; }
    std::vector<Drawing> drawings() const;

    bool setTechnique(const LightweightString<char>& name) override;
    Qx::Vector<LightweightString<char>> getTechniqueNames() const override;
    Qx::Ptr<iShaderParam> getParam(const char* name) override;
    bool render(Qx::Ptr<iGPUImage> target, const Qx::Vector<Source>& sources) override;

    void setFloatValue(const std::string& parameter, float value);

private:
    const std::string name_;
    std::optional<std::set<std::string>> techniques_;
    std::set<std::string> parameters_{"_Width", "_Height"};
    mutable std::mutex lock_;
    std::string technique_;
    std::map<std::string, float> floats_;
    std::vector<Drawing> drawings_;
};

class RecordingTaskLog final : public iTaskLog
{
public:
    void setStep(const LightweightString<wchar_t>& text, int level) override;
    void setProgress(const LightweightString<wchar_t>& text, double fraction) override;
};

} // namespace Qx::Test
