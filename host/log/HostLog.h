#pragma once

#include <cstdarg>
#include <functional>
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
/// Thread-safe; usable before main and after it.
///
/// Texts arrive in pieces that need not be lines. The file gets whole lines, each with the time and the
/// process id.
class HostLog
{
public:
    static HostLog& instance();

    /// Writes to the file, and to standard error if the setting `log.stderr` is on.
    void write(std::string_view text);

    /// Writes to standard error, unless debug output is off.
    void writeDebug(std::string_view text);

    /// Writes to both, once each.
    void writeBoth(std::string_view text);

    /// Writes whole lines to the file and, whatever the settings are, to standard error: for what the user
    /// must see. While debug output is off they are kept for takeComplaints() instead.
    void writeUrgent(std::string_view text);

    /// Writes a line (given without its end) about the host's own set-up to the file, and as "qxhost: TEXT"
    /// to standard error. While debug output is off the second is kept for takeComplaints().
    void complain(std::string_view text);

    /// Returns and forgets the kept lines.
    std::vector<std::string> takeComplaints();

    /// Shows or hides debug output. It is shown from the start.
    void setDebugOutput(bool shown);

    /// Gives what would be written to the file to a function instead, piece by piece; null: to the file. The
    /// function is called under the log's lock, so it must not log.
    void setReceiver(std::function<void(std::string_view)> receiver);

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
    std::function<void(std::string_view)> receiver_; ///< instead of the file
    std::string unfinishedLine_;
    std::vector<std::string> complaints_;
    State state_ = State::Closed;
    bool alsoStandardError_ = false;
    bool debugOutput_ = true;
};

/// The text of a printf format, with '.' as the decimal point in every locale.
std::string formatted(const char* format, std::va_list arguments);

} // namespace Qx::Host
