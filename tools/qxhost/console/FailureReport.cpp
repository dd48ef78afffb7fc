#include "tools/qxhost/console/FailureReport.h"

#include "tools/qxhost/console/Json.h"

#include <system_error>

namespace Qx::Program {

ExitCode report(Console& console, bool json, ExitCode code, const std::string& text,
                const std::string& details)
{
    console.error(text, details);
    if (json) {
        const std::string message = details.empty() ? text : text + "\n" + details;
        console.data(jsonText({{"error", {{"message", message}, {"exitCode", static_cast<int>(code)}}}}));
    }
    return code;
}

std::string failureText(const std::exception& error)
{
    const auto* ofSystem = dynamic_cast<const std::system_error*>(&error);
    if (ofSystem != nullptr && ofSystem->code() == std::errc::resource_unavailable_try_again) {
        return std::string("no further thread can be started (") + error.what() +
               "); raise the limit on processes (ulimit -u), or end other programs";
    }
    return error.what();
}

} // namespace Qx::Program
