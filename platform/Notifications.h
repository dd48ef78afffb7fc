#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "platform/Api.h"
#include "platform/CriticalSection.h"

#include <cstdint>

/// The kind of a notification.
struct NotifyMsgType
{
    std::uint32_t id = 0;

    friend bool operator==(const NotifyMsgType&, const NotifyMsgType&) = default;
};

/// The host's dictionary of notification kinds.
class QX_PLATFORM_API NotifyMsgTypeDictionary
{
public:
    static NotifyMsgTypeDictionary& instance();

    /// The kind that is reserved for changes of the list of LUTs.
    NotifyMsgType lutListChanged() const;

    /// The kind of that name; the same for the same name.
    NotifyMsgType lookUp(const LightweightString<char>& name);
};

/// What a listener is told.
struct NotifyMsg
{
    NotifyMsgType type;
    LightweightString<wchar_t> text;
};

/// Something that listeners can follow.
class QX_PLATFORM_API Notifier
{
public:
    using Listener = void (*)(void* context, const NotifyMsg& message);

    Notifier();
    virtual ~Notifier();
    Notifier(const Notifier&) = delete;
    Notifier& operator=(const Notifier&) = delete;

    /// Listeners are called in the order in which they were added, on the notifying thread. The pair of
    /// function and context identifies a listener. A listener may add and remove listeners. A notification
    /// under way on another thread may still call a listener once after its removal.
    void addListener(Listener listener, void* context);
    void removeListener(Listener listener, void* context);

    /// Delivers the message to every listener; the notifier must live until it returns. `flags` has no
    /// meaning yet and is 0.
    void issueNotification(const NotifyMsg& message, int flags) const;

private:
    struct Record
    {
        Listener listener = nullptr;
        void* context = nullptr;
    };

    CriticalSection lock_;
    Qx::Vector<Record> listeners_;
};
