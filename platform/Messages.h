#pragma once

#include "Qx/LightweightString.h"
#include "platform/Api.h"

/// The host's messages to the user.
class QX_PLATFORM_API iMessageService
{
public:
    enum eButtons
    {
        OkButton = 1
    };
    enum eSeverity
    {
        Information = 1,
        Warning = 2,
        Error = 3
    };

    /// Shows a message and returns; it does not wait for the user. Any thread.
    virtual void showMessage(const LightweightString<wchar_t>& caption,
                             const LightweightString<wchar_t>& text, eButtons buttons,
                             eSeverity severity) = 0;

    /// The caption under which the host shows messages about effects.
    virtual LightweightString<wchar_t> effectsCaption() = 0;

protected:
    ~iMessageService() = default;
};
