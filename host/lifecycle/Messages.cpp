#include "platform/Messages.h"

#include "host/core/Immortal.h"
#include "host/lifecycle/Services.h"
#include "host/log/HostLog.h"
#include "platform/Text.h"

#include <string>

namespace Qx::Host {

namespace {

/// A host without windows writes messages to standard error and to the log.
class MessageService final : public iMessageService
{
public:
    void showMessage(const LightweightString<wchar_t>& caption, const LightweightString<wchar_t>& text,
                     eButtons, eSeverity severity) override
    {
        std::string line(toUTF8(caption).view());
        line += line.empty() ? "" : ": ";
        line += severity == Error ? "error: " : severity == Warning ? "warning: " : "";
        line += toUTF8(text).view();
        if (line.empty() || line.back() != '\n') {
            line += '\n';
        }
        HostLog::instance().writeUrgent(line);
    }

    LightweightString<wchar_t> effectsCaption() override { return L"Effects"; }
};

} // namespace

iMessageService& hostMessages()
{
    return immortal<MessageService>();
}

} // namespace Qx::Host
