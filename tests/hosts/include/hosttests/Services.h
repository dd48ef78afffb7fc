#pragma once

#include <Qx/HostAllocator.h>
#include <Qx/LightweightString.h>
#include <Qx/Ptr.h>
#include <platform/BackgroundTasks.h>
#include <platform/Commands.h>
#include <platform/FileManager.h>
#include <platform/GPUImage.h>
#include <platform/Notifications.h>
#include <platform/OS.h>
#include <platform/Settings.h>
#include <platform/Shutdown.h>
#include <platform/Surface.h>

#include <memory>

namespace Qx::HostTests {

/// A handle to a lock, as CriticalSection.
class Lock
{
public:
    virtual ~Lock() = default;
    virtual void enter() = 0; ///< As CriticalSection::enter().
    virtual void leave() = 0; ///< As CriticalSection::leave().
    /// Returns another handle to the same lock: a copy of the critical section.
    virtual std::unique_ptr<Lock> copy() = 0;
    /// Makes this a handle to the lock of `other`, which makeLock() or copy() of the same services returned.
    virtual void assign(const Lock& other) = 0;
};

/// A source of notifications, as Notifier.
class NotificationSource
{
public:
    virtual ~NotificationSource() = default;
    virtual void addListener(Notifier::Listener listener, void* context) = 0; ///< As Notifier::addListener().
    /// As Notifier::removeListener().
    virtual void removeListener(Notifier::Listener listener, void* context) = 0;
    /// As Notifier::issueNotification() without flags.
    virtual void issueNotification(const NotifyMsg& message) = 0;
};

/// A registered command; destroying it removes the command. As CommandRegistrar.
class RegisteredCommand
{
public:
    virtual ~RegisteredCommand() = default;
};

/// Which of the three functions of platform/Log.h.
enum class LogFunction
{
    DebugOutput, ///< vexo_printf()
    Log,         ///< Log()
    Both,        ///< LogBoth()
};

/// The services under test. Each function calls what the process supplies for `platform/` under the same
/// name, and promises what the header there promises. A host's author overrides functions only to test
/// services that are not (yet) the process's own.
class Services
{
public:
    virtual ~Services() = default;

    ///@{
    /// As the function of platform/.
    virtual iOS& os();
    virtual std::unique_ptr<Lock> makeLock();

    virtual LightweightString<wchar_t> getShadersDir();
    virtual LightweightString<wchar_t> getFXTemplatesDirectory(iSettings::eType scope);
    virtual LightweightString<wchar_t> getLUTDirectory(iSettings::eType scope);
    virtual int configInt(const char* name, int defaultValue);

    virtual void getDirectoryContents(const LightweightString<wchar_t>& directory,
                                      const LightweightString<wchar_t>& pattern,
                                      Vector<LightweightString<wchar_t>>& contents, unsigned flags);
    virtual LightweightString<wchar_t> getExtension(const LightweightString<wchar_t>& path);
    virtual LightweightString<wchar_t> stripPath(const LightweightString<wchar_t>& path);
    virtual LightweightString<wchar_t> joinPaths(const LightweightString<wchar_t>& directory,
                                                 const LightweightString<wchar_t>& name);

    virtual LightweightString<char> toUTF8(const LightweightString<wchar_t>& text);
    virtual LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text);
    virtual LightweightString<wchar_t> bytesAsString(unsigned long bytes, bool shortUnits);
    virtual LightweightString<wchar_t> resourceStrW(int resource);
    virtual LightweightString<wchar_t> stringFromFloat(double value, char decimals, bool keepTrailingZeros);
    virtual LightweightString<wchar_t> stringFromInteger(long value);
    ///@}

    /// Writes with a format that takes an int, a double and a text, in this order.
    virtual void log(LogFunction function, const char* format, int number, double fraction, const char* text);

    ///@{
    /// As the function of platform/.
    virtual bool isRGB(Image::Format format);
    virtual bool isYUV(Image::Format format);
    virtual bool allocateHost(Image::Surface& surface);
    virtual Image::Surface uploadToGPU(const Image::Surface& surface);
    virtual Image::Surface copyToHost(const Image::Surface& surface);
    virtual Image::Surface createDestARGBGPUSurface(const Image::Surface& surface, iGPUImage::eFormat format);
    virtual Image::Surface createDestYUY2GPUSurface(const Image::Surface& surface, iGPUImage::eFormat format);
    virtual Image::Surface makeWrapper(Ptr<iGPUImage> image);
    virtual bool convertImage(const Image::Surface& from, Image::Surface& to);

    virtual Ptr<iHostImage3D> loadLUT(const LightweightString<wchar_t>& path);
    virtual void getSupportedLUTTypes(Vector<LightweightString<wchar_t>>& types);

    virtual void queueTask(Ptr<iBackgroundTask> task, bool urgent);
    virtual BackgroundTaskQueueBase::eTaskStatus getCurrentTaskStatus();

    virtual int startArgument(const wchar_t* name);
    virtual void addShutdownCallback(Shutdown::Callback callback, int order);
    virtual std::unique_ptr<RegisteredCommand> registerCommand(const char* name,
                                                               CommandRegistrar::Handler handler);

    virtual NotifyMsgType lutListChanged();
    virtual NotifyMsgType lookUpMessageType(const LightweightString<char>& name);
    virtual std::unique_ptr<NotificationSource> makeNotifier();
    ///@}
};

} // namespace Qx::HostTests
