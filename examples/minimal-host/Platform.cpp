// What every host has to have and this one keeps small: locks, texts, the life cycle, tasks and
// notifications. It knows nothing of the services in Host.cpp.

#include "Host.h"

#include <platform/BackgroundTasks.h>
#include <platform/Commands.h>
#include <platform/CriticalSection.h>
#include <platform/FileManager.h>
#include <platform/Notifications.h>
#include <platform/Shutdown.h>
#include <platform/StartEnv.h>
#include <platform/SystemWatchdog.h>
#include <platform/Text.h>

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using Text = LightweightString<wchar_t>;

// Locks: a copy is another handle to the same lock, which its thread may take again.

class CriticalSection::Impl
{
public:
    std::recursive_mutex mutex;
    std::atomic<int> handles{1};
};

CriticalSection::CriticalSection() : impl_(new Impl) {}
CriticalSection::CriticalSection(const CriticalSection& other) : impl_(other.impl_)
{
    ++impl_->handles;
}
CriticalSection& CriticalSection::operator=(const CriticalSection& other)
{
    CriticalSection copy(other);
    std::swap(impl_, copy.impl_);
    return *this;
}
CriticalSection::~CriticalSection()
{
    if (--impl_->handles == 0) {
        delete impl_;
    }
}
void CriticalSection::enter() const
{
    impl_->mutex.lock();
}
void CriticalSection::leave() const
{
    impl_->mutex.unlock();
}

// Texts and paths

LightweightString<char> toUTF8(const Text& text) // of ASCII, which is all that this host says
{
    std::string narrow;
    for (const wchar_t character : text.view()) {
        narrow += static_cast<char>(character);
    }
    return LightweightString<char>(std::string_view(narrow));
}
LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text)
{
    const std::wstring wide(text.view().begin(), text.view().end());
    return wide.c_str();
}
LightweightString<wchar_t> resourceStrW(int)
{
    return {};
}
LightweightString<wchar_t> bytesAsString(unsigned long bytes, bool)
{
    return (std::to_wstring(bytes) + L" bytes").c_str();
}
LightweightString<wchar_t> Qx::WStringFromFloat(double value, char, bool)
{
    return std::to_wstring(value).c_str();
}
LightweightString<wchar_t> Qx::WStringFromInteger(long value)
{
    return std::to_wstring(value).c_str();
}
LightweightString<wchar_t> getExtension(const Text& path)
{
    const std::wstring name(stripPath(path).view()); // a directory may have a dot, too
    const std::size_t dot = name.rfind(L'.');
    return dot == std::wstring::npos ? Text() : Text(name.substr(dot + 1).c_str());
}
LightweightString<wchar_t> stripPath(const Text& path)
{
    const std::wstring text(path.view());
    return text.substr(text.rfind(L'/') + 1).c_str();
}
LightweightString<wchar_t> joinPaths(const Text& directory, const Text& name)
{
    std::wstring path(directory.view());
    if (!path.empty() && path.back() != L'/') {
        path += L'/';
    }
    return (path + std::wstring(name.view())).c_str();
}

// Life cycle

StartEnv& StartEnv::programEnv()
{
    static StartEnv environment;
    return environment;
}
int StartEnv::arg(const wchar_t* name) const
{
    return std::wstring_view(name) == L"-transcode" ? 1 : 0; // effects are compiled when they are asked for
}

namespace {

std::vector<Shutdown::Callback>& shutdownCallbacks()
{
    static auto& callbacks = *new std::vector<Shutdown::Callback>;
    return callbacks;
}

} // namespace

void Shutdown::addCallback(Callback callback, int)
{
    shutdownCallbacks().push_back(callback);
}
void stopHost()
{
    while (!shutdownCallbacks().empty()) { // one may add others
        const Shutdown::Callback callback = shutdownCallbacks().back();
        shutdownCallbacks().pop_back();
        callback(Shutdown::NormalExit);
    }
    endServices();
}
void SystemWatchdog::beginLifeSupport() {}
void SystemWatchdog::endLifeSupport() {}
CommandRegistrar::CommandRegistrar(const char* name, Handler, const UIString&, const UIString&, eCmdScope,
                                   const MapItem&)
    : name_(name)
{
}
CommandRegistrar::~CommandRegistrar() = default;

// Background tasks are dropped, as by a closed queue: what they would compile is compiled when it is asked
// for.

namespace {

class TaskLog final : public iTaskLog
{
public:
    void setStep(const Text&, int) override {}
    void setProgress(const Text&, double) override {}
};

class Queue final : public UIBackgroundTasksQueue
{
public:
    void queue(Qx::Ptr<iBackgroundTask>, bool) override {}
};

} // namespace

BackgroundTaskBase::BackgroundTaskBase() : log_(Qx::makePtr<TaskLog>()) {}
BackgroundTaskBase::~BackgroundTaskBase() = default;
BackgroundTaskQueueBase::eTaskStatus BackgroundTaskQueueBase::getCurrentTaskStatus()
{
    return Running;
}
UIBackgroundTasksQueue& UIBackgroundTasksQueue::instance()
{
    static auto& only = *new Queue;
    return only;
}

// Notifications: nobody listens.

Notifier::Notifier() = default;
Notifier::~Notifier() = default;
void Notifier::addListener(Listener, void*) {}
void Notifier::removeListener(Listener, void*) {}
void Notifier::issueNotification(const NotifyMsg&, int) const {}
NotifyMsgTypeDictionary& NotifyMsgTypeDictionary::instance()
{
    static NotifyMsgTypeDictionary dictionary;
    return dictionary;
}
NotifyMsgType NotifyMsgTypeDictionary::lutListChanged() const
{
    return {1};
}
NotifyMsgType NotifyMsgTypeDictionary::lookUp(const LightweightString<char>&)
{
    return {2};
}
