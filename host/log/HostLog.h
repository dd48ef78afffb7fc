#pragma once

#include <cstdarg>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace spdlog {
class logger;
}

namespace Qx::Host {

/// The host's log: the file qxhost.log in the state directory, and the debug output, which is standard error.
/// Any thread; usable before main and after it.
///
/// Texts arrive in pieces that need not be lines. The file gets whole lines, each with time and process id.
class HostLog
{
public:
    static HostLog& instance();

    /// To the file, and to standard error when the setting `log.stderr` is on.
    void write(std::string_view text);

    /// To standard error, unless debug output is off.
    void writeDebug(std::string_view text);

    /// To both, once each.
    void writeBoth(std::string_view text);

    /// To the file, and to standard error whatever the settings say: what the user must see.
    void writeUrgent(std::string_view text);

    /// A line, without its end, about the host's own set-up: to the file, and as "qxhost: TEXT" to standard
    /// error; while debug output is off it waits there for takeComplaints() instead.
    void complain(std::string_view text);

    /// The lines that wait, which are then gone.
    std::vector<std::string> takeComplaints();

    /// Whether debug output is shown. It is from the start.
    void setDebugOutput(bool shown);

    /// Writes an unfinished last line to the file.
    void flush();

    HostLog();

private:
    enum Target : unsigned
    {
        ToFile = 1,
        ToStandardError = 2
    };

    enum class State
    {
        Closed,
        Opening, ///< what is written meanwhile, by the settings for one, waits in unfinishedLine_
        Open
    };

    void writeTo(unsigned targets, std::string_view text);
    void writeToFile(std::string_view text);
    void tell(std::string_view complaint);
    void open(std::unique_lock<std::mutex>& lock);

    std::mutex mutex_;
    std::shared_ptr<spdlog::logger> file_;
    std::string unfinishedLine_;
    std::vector<std::string> complaints_;
    State state_ = State::Closed;
    bool alsoStandardError_ = false;
    bool debugOutput_ = true;
};

/// The text of a printf format, always with '.' as the decimal point.
std::string formatted(const char* format, std::va_list arguments);

} // namespace Qx::Host
