#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "platform/Api.h"
#include "platform/CriticalSection.h"

#include <cstdint>

/// The type of a notification.
struct NotifyMsgType
{
    std::uint32_t id = 0; ///< 0 is no type

    /// Compares all members.
    friend bool operator==(const NotifyMsgType&, const NotifyMsgType&) = default;
};

/// The host's dictionary of notification types. Thread-safe.
class QX_PLATFORM_API NotifyMsgTypeDictionary
{
public:
    static NotifyMsgTypeDictionary& instance(); ///< Returns the dictionary of the process.

    /// Returns the type that is reserved for changes of the list of LUTs.
    NotifyMsgType lutListChanged() const;

    /// Returns the type of that name, assigning one on the first call. The same name always has the same
    /// type.
    NotifyMsgType lookUp(const LightweightString<char>& name);
};

/// The message that a listener receives.
struct NotifyMsg
{
    NotifyMsgType type;              ///< what has happened
    LightweightString<wchar_t> text; ///< about it; may be empty
};

/// A source of notifications. Thread-safe.
class QX_PLATFORM_API Notifier
{
public:
    /// What is called with a message. `context` is that of addListener().
    using Listener = void (*)(void* context, const NotifyMsg& message);

    Notifier();
    virtual ~Notifier();
    Notifier(const Notifier&) = delete;
    Notifier& operator=(const Notifier&) = delete;

    /// Adds a listener. The pair of function and context identifies a listener: adding it again has no
    /// effect, nor has adding a null function. Listeners are called on the notifying thread, in the order in
    /// which they were added. A listener may add and remove listeners.
    void addListener(Listener listener, void* context);
    /// Removes a listener. A notification in progress on another thread may call the listener once more after
    /// this returns.
    void removeListener(Listener listener, void* context);

    /// Delivers a message to all listeners. The notifier must outlive the call. `flags` is reserved and must
    /// be 0.
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
