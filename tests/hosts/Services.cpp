#include "hosttests/Services.h"

#include <platform/CriticalSection.h>
#include <platform/CubeLUT.h>
#include <platform/ImageConverter.h>
#include <platform/Log.h>
#include <platform/StartEnv.h>
#include <platform/Text.h>

namespace Qx::HostTests {

namespace {

class PlatformLock final : public Lock
{
public:
    PlatformLock() = default;
    explicit PlatformLock(const CriticalSection& section) : section_(section) {}

    void enter() override { section_.enter(); }
    void leave() override { section_.leave(); }
    std::unique_ptr<Lock> copy() override { return std::make_unique<PlatformLock>(section_); }
    void assign(const Lock& other) override { section_ = static_cast<const PlatformLock&>(other).section_; }

private:
    CriticalSection section_;
};

class PlatformNotifier final : public NotificationSource
{
public:
    void addListener(Notifier::Listener listener, void* context) override
    {
        notifier_.addListener(listener, context);
    }
    void removeListener(Notifier::Listener listener, void* context) override
    {
        notifier_.removeListener(listener, context);
    }
    void issueNotification(const NotifyMsg& message) override { notifier_.issueNotification(message, 0); }

private:
    Notifier notifier_;
};

class PlatformCommand final : public RegisteredCommand
{
public:
    PlatformCommand(const char* name, CommandRegistrar::Handler handler)
        : registrar_(name, handler, {L"A command of the host's tests"}, {}, GlobalCommand, {})
    {
    }

private:
    CommandRegistrar registrar_;
};

} // namespace

iOS& Services::os()
{
    return OS();
}
std::unique_ptr<Lock> Services::makeLock()
{
    return std::make_unique<PlatformLock>();
}

LightweightString<wchar_t> Services::getShadersDir()
{
    return ::getShadersDir();
}
LightweightString<wchar_t> Services::getFXTemplatesDirectory(iSettings::eType scope)
{
    return ::getFXTemplatesDirectory(scope);
}
LightweightString<wchar_t> Services::getLUTDirectory(iSettings::eType scope)
{
    return ::getLUTDirectory(scope);
}
int Services::configInt(const char* name, int defaultValue)
{
    return config_int(name, defaultValue);
}

void Services::getDirectoryContents(const LightweightString<wchar_t>& directory,
                                    const LightweightString<wchar_t>& pattern,
                                    Vector<LightweightString<wchar_t>>& contents, unsigned flags)
{
    ::getDirectoryContents(directory, pattern, contents, flags);
}
LightweightString<wchar_t> Services::getExtension(const LightweightString<wchar_t>& path)
{
    return ::getExtension(path);
}
LightweightString<wchar_t> Services::stripPath(const LightweightString<wchar_t>& path)
{
    return ::stripPath(path);
}
LightweightString<wchar_t> Services::joinPaths(const LightweightString<wchar_t>& directory,
                                               const LightweightString<wchar_t>& name)
{
    return ::joinPaths(directory, name);
}

LightweightString<char> Services::toUTF8(const LightweightString<wchar_t>& text)
{
    return ::toUTF8(text);
}
LightweightString<wchar_t> Services::fromUTF8(const LightweightString<char>& text)
{
    return ::fromUTF8(text);
}
LightweightString<wchar_t> Services::bytesAsString(unsigned long bytes, bool shortUnits)
{
    return ::bytesAsString(bytes, shortUnits);
}
LightweightString<wchar_t> Services::resourceStrW(int resource)
{
    return ::resourceStrW(resource);
}
LightweightString<wchar_t> Services::stringFromFloat(double value, char decimals, bool keepTrailingZeros)
{
    return WStringFromFloat(value, decimals, keepTrailingZeros);
}
LightweightString<wchar_t> Services::stringFromInteger(long value)
{
    return WStringFromInteger(value);
}

void Services::log(LogFunction function, const char* format, int number, double fraction, const char* text)
{
    switch (function) {
    case LogFunction::DebugOutput:
        vexo_printf(format, number, fraction, text);
        return;
    case LogFunction::Log:
        Log(format, number, fraction, text);
        return;
    case LogFunction::Both:
        LogBoth(format, number, fraction, text);
        return;
    }
}

bool Services::isRGB(Image::Format format)
{
    return Image::isRGB(format);
}
bool Services::isYUV(Image::Format format)
{
    return Image::isYUV(format);
}
bool Services::allocateHost(Image::Surface& surface)
{
    return surface.allocateHost();
}
Image::Surface Services::uploadToGPU(const Image::Surface& surface)
{
    return surface.uploadToGPU();
}
Image::Surface Services::copyToHost(const Image::Surface& surface)
{
    return surface.copyToHost();
}
Image::Surface Services::createDestARGBGPUSurface(const Image::Surface& surface, iGPUImage::eFormat format)
{
    return surface.createDestARGBGPUSurface(format);
}
Image::Surface Services::createDestYUY2GPUSurface(const Image::Surface& surface, iGPUImage::eFormat format)
{
    return surface.createDestYUY2GPUSurface(format);
}
Image::Surface Services::makeWrapper(Ptr<iGPUImage> image)
{
    return Image::makeWrapper(std::move(image));
}
bool Services::convertImage(const Image::Surface& from, Image::Surface& to)
{
    return ImageConverter::convert(from, to);
}

Ptr<iHostImage3D> Services::loadLUT(const LightweightString<wchar_t>& path)
{
    return CubeLUT::load(path);
}
void Services::getSupportedLUTTypes(Vector<LightweightString<wchar_t>>& types)
{
    CubeLUT::getSupportedFileTypes(types);
}

void Services::queueTask(Ptr<iBackgroundTask> task, bool urgent)
{
    UIBackgroundTasksQueue::instance().queue(std::move(task), urgent);
}
BackgroundTaskQueueBase::eTaskStatus Services::getCurrentTaskStatus()
{
    return BackgroundTaskQueueBase::getCurrentTaskStatus();
}

int Services::startArgument(const wchar_t* name)
{
    return StartEnv::programEnv().arg(name);
}
void Services::addShutdownCallback(Shutdown::Callback callback, int order)
{
    Shutdown::addCallback(callback, order);
}
std::unique_ptr<RegisteredCommand> Services::registerCommand(const char* name,
                                                             CommandRegistrar::Handler handler)
{
    return std::make_unique<PlatformCommand>(name, handler);
}

NotifyMsgType Services::lutListChanged()
{
    return NotifyMsgTypeDictionary::instance().lutListChanged();
}
NotifyMsgType Services::lookUpMessageType(const LightweightString<char>& name)
{
    return NotifyMsgTypeDictionary::instance().lookUp(name);
}
std::unique_ptr<NotificationSource> Services::makeNotifier()
{
    return std::make_unique<PlatformNotifier>();
}

} // namespace Qx::HostTests
