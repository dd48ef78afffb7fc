#pragma once

#include "Qx/LightweightString.h"
#include "platform/Api.h"

/// The host's messages to the user. Thread-safe.
class QX_PLATFORM_API iMessageService
{
public:
    /// The buttons of a message.
    enum eButtons
    {
        OkButton = 1
    };
    /// How grave a message is.
    enum eSeverity
    {
        Information = 1,
        Warning = 2,
        Error = 3
    };

    /// Shows a message. Returns without waiting for the user. Called while the library creates its manager,
    /// see iOS: a host whose messages belong to another thread hands them over and returns.
    virtual void showMessage(const LightweightString<wchar_t>& caption,
                             const LightweightString<wchar_t>& text, eButtons buttons,
                             eSeverity severity) = 0;

    /// Returns the caption for messages about effects. Called while the library creates its manager.
    virtual LightweightString<wchar_t> effectsCaption() = 0;

protected:
    ~iMessageService() = default;
};
