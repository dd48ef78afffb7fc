// The services of this host, as little as the library needs. What is not offered (fonts, LUTs, messages)
// fails as platform/ says that it may. Log.cpp and Platform.cpp have the rest of what the library refers to.

#include "Host.h"
#include "Pictures.h"

#include <platform/Allocator.h>
#include <platform/Atomics.h>
#include <platform/Clock.h>
#include <platform/CubeLUT.h>
#include <platform/FileManager.h>
#include <platform/ImageConverter.h>
#include <platform/Log.h>
#include <platform/Messages.h>
#include <platform/OS.h>
#include <platform/Settings.h>
#include <platform/Surface.h>
#include <platform/SystemInformation.h>
#include <platform/Text.h>
#include <platform/Threads.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

using Text = LightweightString<wchar_t>;

// Services

namespace {

class Allocator final : public iAllocator
{
public:
    void* allocate(std::size_t bytes, std::size_t alignment) override
    {
        return std::aligned_alloc(alignment, (bytes + alignment - 1) / alignment * alignment);
    }
    void deallocate(void* block) override { std::free(block); }
};

class Atomics final : public iAtomics
{
public:
    std::uint32_t atomicIncrement(std::uint32_t& counter) override { return ++std::atomic_ref(counter); }
    std::uint32_t atomicDecrement(std::uint32_t& counter) override { return --std::atomic_ref(counter); }
};

class Clock final : public iClock
{
public:
    double millisecondsPrecise() override
    {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }
};

/// A file system with one effect in it.
class Files final : public iFileManager
{
public:
    void listDirectory(const Text& pattern, Qx::Vector<DirectoryItem>& items, eKind, int) override
    {
        items.clear(); // always, also where nothing is found
        if (pattern.view() == L"/effects/*.fx") {
            DirectoryItem item;
            item.name = L"negative.fx";
            items.push_back(item);
        }
    }
    bool copyFile(const Text&, const Text&, int) override { return false; }
};

class Gpu final : public iGPUService
{
public:
    Qx::Ptr<iShaderEffect> loadEffectFile(const Text& path, const Definitions& definitions) override
    {
        return compileEffectFile(path, definitions).effect;
    }
    EffectCompileResult compileEffectFile(const Text& path, const Definitions&) override
    {
        if (path.view() != L"/effects/negative.fx") { // nor is the empty path a file
            return {{}, "there is one effect, negative.fx\n"};
        }
        return {Qx::makePtr<Negative>(), {}};
    }
    Qx::Ptr<iGPUComputeContext> createComputeContext(int) override
    {
        return {};
    } // images are not converted here
    Qx::Ptr<iGPUImage> createGPUImage(XY<int> size, iGPUImage::eFormat format) override
    {
        return Qx::makePtr<GpuPicture>(size, format);
    }
    Qx::Ptr<iHostImage> createHostImage(XY<int> size, iGPUImage::eFormat format) override
    {
        return Qx::makePtr<HostPicture>(size, format);
    }
    Qx::Ptr<iGPUImage> uploadImage(Qx::Ptr<iHostImage> image, int) override
    {
        const auto* ours = dynamic_cast<const HostPicture*>(image.get());
        if (ours == nullptr) {
            return {};
        }
        return Qx::makePtr<GpuPicture>(ours->getSize(), ours->getFormat(), ours->texels().get());
    }
    Qx::Ptr<iHostImage> downloadImage(Qx::Ptr<iGPUImage> image) override
    {
        const auto* ours = dynamic_cast<const GpuPicture*>(image.get());
        if (ours == nullptr) {
            return {};
        }
        return Qx::makePtr<HostPicture>(ours->getSize(), ours->getFormat(), ours->texels());
    }
    Qx::Ptr<iHostImage3D> createHostImage3D(int) override { return {}; }
    Qx::Ptr<iGPUImage3D> upload3DImage(Qx::Ptr<iHostImage3D>) override { return {}; }
    Qx::Ptr<iFont> createFont(const Text&, int, int) override { return {}; }
};

class Messages final : public iMessageService
{
public:
    void showMessage(const Text&, const Text&, eButtons, eSeverity) override {}
    Text effectsCaption() override { return L"Effects"; }
};

class System final : public iSystemInformation
{
public:
    MemoryStatus memoryStatus() override { return {0, std::uint64_t{1} << 30U, std::uint64_t{1} << 30U}; }
    int cpuCount() override { return 1; }
};

class Threads final : public iThreadService
{
public:
    void sleepMilliseconds(unsigned milliseconds) override
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }
};

class Users final : public iUserService
{
public:
    bool isAdministrator() override { return false; }
};

class Services final : public iOS
{
public:
    iAllocator& allocator() override { return allocator_; }
    iAtomics& atomics() override { return atomics_; }
    iClock& clock() override { return clock_; }
    iFileManager& files() override { return files_; }
    iGPUService& gpu() override { return gpu_; }
    iMessageService& messages() override { return messages_; }
    iSystemInformation& systemInformation() override { return system_; }
    iThreadService& threads() override { return threads_; }
    iUserService& users() override { return users_; }

private:
    Allocator allocator_;
    Atomics atomics_;
    Clock clock_;
    Files files_;
    Gpu gpu_;
    Messages messages_;
    System system_;
    Threads threads_;
    Users users_;
};

} // namespace

/// Lives for ever: the library asks before main() begins and after it ends.
iOS& OS()
{
    static iOS& services = *new Services;
    return services;
}

// Settings

LightweightString<wchar_t> getShadersDir()
{
    return L"/effects/";
}
LightweightString<wchar_t> getFXTemplatesDirectory(iSettings::eType)
{
    return {};
}
LightweightString<wchar_t> getLUTDirectory(iSettings::eType)
{
    return {};
}
int config_int(const char*, int defaultValue)
{
    return defaultValue;
}
void getDirectoryContents(const Text&, const Text&, Qx::Vector<Text>&, unsigned) {}

// Surfaces: A R G B of 8 bits alone.

namespace Qx::Image {

bool isRGB(Format format)
{
    return format == ARGB;
}
bool isYUV(Format)
{
    return false;
}
Surface::Surface(unsigned width, unsigned height, Format format, bool bottomUp,
                 unsigned short bitsPerComponent, unsigned short bitsPerPixel, unsigned short rowPitch)
{
    init(width, height, format, bottomUp, bitsPerComponent, bitsPerPixel, rowPitch);
}
void Surface::init(unsigned width, unsigned height, Format format, bool bottomUp,
                   unsigned short bitsPerComponent, unsigned short bitsPerPixel, unsigned short rowPitch)
{
    data_ = Core::Data(width, height, format, bitsPerComponent, bitsPerPixel != 0 ? bitsPerPixel : 32);
    data_.topDown = bottomUp ? 0 : 1;
    data_.rowPitch = rowPitch != 0 ? rowPitch : width * 4;
    descriptions_ = ImageDescriptions();
    gpuImage_.reset();
    hostImage_.reset();
}
bool Surface::allocateHost()
{
    hostImage_ = OS().gpu().createHostImage({static_cast<int>(getWidth()), static_cast<int>(getHeight())},
                                            iGPUImage::eARGB8);
    return true;
}
Surface Surface::uploadToGPU() const
{
    Surface result = *this;
    result.hostImage_.reset();
    result.gpuImage_ = hostImage_ ? OS().gpu().uploadImage(hostImage_, 0) : nullptr;
    return result;
}
Surface Surface::copyToHost() const
{
    Surface result = *this;
    result.gpuImage_.reset();
    result.hostImage_ = gpuImage_ ? OS().gpu().downloadImage(gpuImage_) : hostImage_;
    return result;
}
Surface Surface::createDestARGBGPUSurface(iGPUImage::eFormat format) const
{
    Surface result(getWidth(), getHeight(), ARGB, false, 8, 0, 0);
    result.setDescriptions(descriptions_);
    result.setGPUSurface(
        OS().gpu().createGPUImage({static_cast<int>(getWidth()), static_cast<int>(getHeight())}, format));
    return result;
}
Surface Surface::createDestYUY2GPUSurface(iGPUImage::eFormat) const
{
    return {};
}
Surface makeWrapper(Ptr<iGPUImage> image)
{
    Surface result;
    if (image) {
        const XY<int> size = image->getSize();
        result.init(static_cast<unsigned>(size.x), static_cast<unsigned>(size.y), ARGB, false, 8, 0, 0);
        result.setGPUSurface(std::move(image));
    }
    return result;
}

} // namespace Qx::Image

bool ImageConverter::convert(const Qx::Image::Surface&, Qx::Image::Surface&)
{
    return false;
}
Qx::Ptr<iHostImage3D> CubeLUT::load(const Text&)
{
    return {};
}
void CubeLUT::getSupportedFileTypes(Qx::Vector<Text>&) {}

void endServices() {} // they have nothing that must end
