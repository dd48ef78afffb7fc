#include "platform/Atomics.h"
#include "platform/Clock.h"
#include "platform/FileManager.h"
#include "platform/GPUService.h"
#include "platform/Messages.h"
#include "platform/OS.h"
#include "platform/SystemInformation.h"
#include "platform/Threads.h"
#include "tests/contract/recording/RecordingHost.h"

#include <atomic>

namespace Qx::Test {

namespace {

class CountingAtomics final : public iAtomics
{
public:
    std::uint32_t atomicIncrement(std::uint32_t& counter) override
    {
        const std::uint32_t value = std::atomic_ref(counter).fetch_add(1, std::memory_order_acq_rel) + 1;
        host().counterChanged("atomicIncrement", counter, value);
        return value;
    }

    std::uint32_t atomicDecrement(std::uint32_t& counter) override
    {
        const std::uint32_t value = std::atomic_ref(counter).fetch_sub(1, std::memory_order_acq_rel) - 1;
        // At 0 the counter may be freed at any time: only its address is used.
        host().counterChanged("atomicDecrement", counter, value);
        return value;
    }
};

class ScriptedClock final : public iClock
{
public:
    double millisecondsPrecise() override { return host().tick(); }
};

class ListedFiles final : public iFileManager
{
public:
    void listDirectory(const LightweightString<wchar_t>& pattern, Qx::Vector<DirectoryItem>& items,
                       eKind kind, int flags) override
    {
        const bool works = host().call("listDirectory", inQuotes(text(pattern)) + ", " +
                                                            std::to_string(static_cast<int>(kind)) + ", " +
                                                            std::to_string(flags));
        items.clear();
        const std::wstring wanted(pattern.view());
        const std::wstring effects = L"*.fx";
        if (!works || !wanted.ends_with(effects)) {
            return;
        }
        const auto found = host().directories.find(wanted.substr(0, wanted.size() - effects.size()));
        if (found != host().directories.end()) {
            items.assign(found->second.begin(), found->second.end());
        }
    }

    bool copyFile(const LightweightString<wchar_t>& source, const LightweightString<wchar_t>& destination,
                  int options) override
    {
        return host().call("copyFile", inQuotes(text(source)) + ", " + inQuotes(text(destination)) + ", " +
                                           std::to_string(options));
    }
};

std::string described(const LightweightString<wchar_t>& path, const iGPUService::Definitions& definitions)
{
    std::string result = inQuotes(text(path)) + ", {";
    const char* separator = "";
    for (const auto& definition : definitions) {
        result += separator + text(definition.name) + "=" + text(definition.value);
        separator = ", ";
    }
    return result + "}";
}

std::string described(XY<int> size, iGPUImage::eFormat format)
{
    return std::to_string(size.x) + "x" + std::to_string(size.y) + ", " +
           std::to_string(static_cast<int>(format));
}

template <class Image>
std::string described(const Image& image)
{
    return described(image.getSize(), image.getFormat());
}

Qx::Ptr<iShaderEffect> effectOf(const std::wstring& path)
{
    if (path.empty()) { // no host opens a file without a name
        return {};
    }
    if (host().makeEffect) {
        return host().makeEffect(path);
    }
    const std::wstring name = path.substr(path.rfind(L'/') + 1);
    return Qx::makePtr<FakeEffect>(text(name.c_str()));
}

class FakeGPU final : public iGPUService
{
public:
    Qx::Ptr<iShaderEffect> loadEffectFile(const LightweightString<wchar_t>& path,
                                          const Definitions& definitions) override
    {
        const bool works = host().call("loadEffectFile", described(path, definitions));
        const std::wstring file(path.view());
        return works && !host().compileErrors.contains(file) ? effectOf(file) : Qx::Ptr<iShaderEffect>();
    }

    EffectCompileResult compileEffectFile(const LightweightString<wchar_t>& path,
                                          const Definitions& definitions) override
    {
        const bool works = host().call("compileEffectFile", described(path, definitions));
        const std::wstring file(path.view());
        const auto error = host().compileErrors.find(file);
        if (error != host().compileErrors.end()) {
            return {{}, error->second.c_str()};
        }
        return {works ? effectOf(file) : Qx::Ptr<iShaderEffect>(), {}};
    }

    Qx::Ptr<iGPUComputeContext> createComputeContext(int kind) override
    {
        if (!host().call("createComputeContext", std::to_string(kind))) {
            return {};
        }
        return Qx::makePtr<FakeComputeContext>();
    }

    Qx::Ptr<iGPUImage> createGPUImage(XY<int> size, iGPUImage::eFormat format) override
    {
        if (!host().call("createGPUImage", described(size, format))) {
            return {};
        }
        return Qx::makePtr<FakeGPUImage>(host().numbered("created"), size, format);
    }

    Qx::Ptr<iHostImage> createHostImage(XY<int> size, iGPUImage::eFormat format) override
    {
        if (!host().call("createHostImage", described(size, format))) {
            return {};
        }
        return Qx::makePtr<FakeHostImage>(size, format);
    }

    Qx::Ptr<iGPUImage> uploadImage(Qx::Ptr<iHostImage> image, int options) override
    {
        if (!host().call("uploadImage", described(*image) + ", " + std::to_string(options))) {
            return {};
        }
        return Qx::makePtr<FakeGPUImage>(host().numbered("uploaded"), image->getSize(), image->getFormat());
    }

    Qx::Ptr<iHostImage> downloadImage(Qx::Ptr<iGPUImage> image) override
    {
        if (!host().call("downloadImage", described(*image))) {
            return {};
        }
        return Qx::makePtr<FakeHostImage>(image->getSize(), image->getFormat());
    }

    // Operations that nothing calls fail.
    Qx::Ptr<iHostImage3D> createHostImage3D(int) override { return refuse("createHostImage3D"); }

    Qx::Ptr<iGPUImage3D> upload3DImage(Qx::Ptr<iHostImage3D> image) override
    {
        const auto* fake = dynamic_cast<const FakeHostImage3D*>(image.get());
        if (!host().call("upload3DImage", fake != nullptr ? fake->name() : "null") || fake == nullptr) {
            return {};
        }
        return Qx::makePtr<FakeGPUImage3D>(fake->name());
    }

    Qx::Ptr<iFont> createFont(const LightweightString<wchar_t>& typeface, int size, int style) override
    {
        const std::string described =
            inQuotes(text(typeface)) + ", " + std::to_string(size) + ", " + std::to_string(style);
        if (!host().call("createFont", described)) {
            return {};
        }
        return Qx::makePtr<FakeFont>("font " + described);
    }

private:
    static std::nullptr_t refuse(const char* operation)
    {
        host().call(operation);
        return nullptr;
    }
};

class RecordedMessages final : public iMessageService
{
public:
    void showMessage(const LightweightString<wchar_t>& caption, const LightweightString<wchar_t>& message,
                     eButtons buttons, eSeverity severity) override
    {
        host().call("showMessage", inQuotes(text(caption)) + ", " + inQuotes(text(message)) + ", " +
                                       std::to_string(static_cast<int>(buttons)) + ", " +
                                       std::to_string(static_cast<int>(severity)));
    }

    LightweightString<wchar_t> effectsCaption() override { return L"Effects of the host"; }
};

class ToldSystem final : public iSystemInformation
{
public:
    MemoryStatus memoryStatus() override
    {
        host().call("memoryStatus");
        return host().memory;
    }

    int cpuCount() override
    {
        host().call("cpuCount");
        return host().processors;
    }
};

/// Time does not pass: a sleep returns at once.
class SleeplessThreads final : public iThreadService
{
public:
    void sleepMilliseconds(unsigned milliseconds) override
    {
        host().call("sleepMilliseconds", std::to_string(milliseconds));
    }
};

class OneUser final : public iUserService
{
public:
    bool isAdministrator() override { return host().call("isAdministrator"); }
};

class RecordingOS final : public iOS
{
public:
    iAllocator& allocator() override { return host().allocator; }
    iAtomics& atomics() override { return atomics_; }
    iClock& clock() override { return clock_; }
    iFileManager& files() override { return files_; }
    iGPUService& gpu() override { return gpu_; }
    iMessageService& messages() override { return messages_; }
    iSystemInformation& systemInformation() override { return system_; }
    iThreadService& threads() override { return threads_; }
    iUserService& users() override { return users_; }

private:
    CountingAtomics atomics_;
    ScriptedClock clock_;
    ListedFiles files_;
    FakeGPU gpu_;
    RecordedMessages messages_;
    ToldSystem system_;
    SleeplessThreads threads_;
    OneUser users_;
};

} // namespace

} // namespace Qx::Test

iOS& OS()
{
    static iOS& only = *new Qx::Test::RecordingOS;
    return only;
}
